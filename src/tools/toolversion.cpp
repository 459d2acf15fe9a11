#include "tools/toolversion.h"

#include "platform/childprocess.h"
#include "tools/toollocations.h"

#include <QMetaObject>
#include <QRegularExpression>
#include <QStringDecoder>

namespace ToolVersion {

namespace {

    ChildProcessOptions versionOptions(const QString &path, const QString &flag, double timeoutSec)
    {
        ChildProcessOptions options;
        options.program = path;
        options.arguments = {flag};
        options.stdoutKeepBytes = 256 << 10;
        options.stderrKeepBytes = 4 << 10;
        options.maxOutputBytes = 1 << 20;
        options.timeoutSec = timeoutSec;
        return options;
    }

} // namespace

std::optional<QString> fromResult(const ChildProcessResult &result)
{
    if (!result.succeeded() || result.stdoutTruncated())
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringConverter::Flag::Stateless);
    const QString text = decoder(result.stdoutBytes);
    if (decoder.hasError())
        return std::nullopt;
    return text.trimmed();
}

std::optional<QString> run(const QString &path, const QString &flag, double timeoutSec)
{
    if (!isExecutableFile(path))
        return std::nullopt;
    return fromResult(ChildProcess::run(versionOptions(path, flag, timeoutSec)));
}

void runAsync(
    const QString &path, QObject *context, std::function<void(std::optional<QString>)> done, double timeoutSec)
{
    if (!isExecutableFile(path)) {
        QMetaObject::invokeMethod(
            context, [done = std::move(done)] { done(std::nullopt); }, Qt::QueuedConnection);
        return;
    }
    auto *child = new ChildProcess(context);
    ChildProcessCallbacks callbacks;
    callbacks.onFinished = [child, done = std::move(done)](const ChildProcessResult &result) {
        delete child;
        done(fromResult(result));
    };
    child->start(versionOptions(path, kGnuFlag, timeoutSec), std::move(callbacks));
}

QString shortForm(const QString &version)
{
    static const QRegularExpression ffmpegStyle(QStringLiteral("^\\S+ version (\\S+)"));
    const QString firstLine = version.section(QLatin1Char('\n'), 0, 0).trimmed();
    const auto match = ffmpegStyle.match(firstLine);
    return match.hasMatch() ? match.captured(1) : firstLine;
}

} // namespace ToolVersion
