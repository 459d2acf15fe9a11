#include "cli/cli.h"

#include "tools/toolversion.h"
#include "tools/youtubeservice.h"

#include <QJsonObject>

namespace {

const char kUsage[] = "tools [--json]";

struct FoundTool {
    QString name;
    QString jsonKey;
    std::optional<QString> path;
    std::optional<QString> version;
};

FoundTool inspect(
    const QString &name, const QString &jsonKey, bool present, const QString &path, const QString &versionFlag)
{
    FoundTool tool{name, jsonKey, std::nullopt, std::nullopt};
    if (!present)
        return tool;
    tool.path = path;
    if (const auto version = ToolVersion::run(path, versionFlag))
        tool.version = ToolVersion::shortForm(*version);
    return tool;
}

QJsonValue orNull(const std::optional<QString> &value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

// Reports what the application would run: the same look-up, the same existence checks
// as the start-up gate. A tool that is missing is a finding, not a failure.
int toolsCommand(CliServices &, const QStringList &args)
{
    QString error;
    const auto parsed = Cli::parse(args, {}, true, 0, 0, &error);
    if (!parsed)
        return Cli::usageError(QString::fromLatin1(kUsage), error);

    const QString ffmpegDir = YouTubeService::ffmpegDir();
    const QString ytdlp = YouTubeService::ytdlpPath();
    const QList<FoundTool> tools{
        inspect(QStringLiteral("ffmpeg"), QStringLiteral("ffmpeg"), ToolLocations::ffmpegPresent(ffmpegDir),
            ffmpegDir + QStringLiteral("/ffmpeg"), ToolVersion::kFfmpegFlag),
        inspect(QStringLiteral("yt-dlp"), QStringLiteral("ytdlp"), ToolLocations::ytdlpPresent(ytdlp), ytdlp,
            ToolVersion::kGnuFlag),
    };

    if (parsed->json) {
        QJsonObject doc;
        for (const FoundTool &tool : tools)
            doc.insert(tool.jsonKey,
                QJsonObject{
                    {QStringLiteral("path"), orNull(tool.path)}, {QStringLiteral("version"), orNull(tool.version)}});
        Cli::printJson(doc);
        return kExitOk;
    }
    for (const FoundTool &tool : tools) {
        if (!tool.path)
            Cli::out(tool.name + QStringLiteral("\t(not found)"));
        else
            Cli::out(tool.name + QLatin1Char('\t') + *tool.path + QLatin1Char('\t')
                + tool.version.value_or(QStringLiteral("(version unknown)")));
    }
    return kExitOk;
}

const Cli::Registration registration("tools", kUsage, toolsCommand);

} // namespace
