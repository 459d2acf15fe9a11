#include "tools/ytdlpcommand.h"

namespace YtDlpCommand {

namespace {

    // Both downloads print the final path after all post-processing and report progress one
    // line at a time.
    QStringList downloadTail(const QString &folder, const QString &videoId, const QString &ffmpegDir)
    {
        return {QStringLiteral("--output"), folder + QStringLiteral("/%(title)s.%(ext)s"), QStringLiteral("--print"),
            QStringLiteral("after_move:filepath"), QStringLiteral("--ffmpeg-location"), ffmpegDir,
            QStringLiteral("--progress"), QStringLiteral("--newline"), QStringLiteral("--no-warnings"),
            watchUrl(videoId)};
    }

} // namespace

QStringList fixedArguments()
{
    return {QStringLiteral("--extractor-args"), QStringLiteral("youtube:player_client=default,tv,mweb,web_safari")};
}

ChildProcessOptions launchOptions(const QString &ytdlpPath, const QStringList &callArguments)
{
    ChildProcessOptions options;
    options.program = ytdlpPath;
    options.arguments = fixedArguments() + callArguments;
    options.environment = {{QStringLiteral("PYTHONUNBUFFERED"), QStringLiteral("1")}};
    return options;
}

QString watchUrl(const QString &videoId)
{
    return QStringLiteral("https://www.youtube.com/watch?v=") + videoId;
}

QStringList search(const QString &query)
{
    return {QStringLiteral("ytsearch10:") + query, QStringLiteral("--dump-json"), QStringLiteral("--flat-playlist"),
        QStringLiteral("--no-warnings"), QStringLiteral("--quiet")};
}

QStringList videoInfo(const QString &url)
{
    return {QStringLiteral("--dump-json"), QStringLiteral("--no-playlist"), QStringLiteral("--no-warnings"), url};
}

QStringList playlistExpansion(const QString &url)
{
    return {QStringLiteral("--flat-playlist"), QStringLiteral("--no-warnings"), QStringLiteral("--print"),
        QStringLiteral("id"), QStringLiteral("--yes-playlist"), url};
}

QStringList streamAddress(const QString &videoId)
{
    return {QStringLiteral("--get-url"), QStringLiteral("--format"),
        QStringLiteral("140/bestaudio[ext=m4a]/bestaudio[ext=aac]"), QStringLiteral("--no-warnings"),
        watchUrl(videoId)};
}

QStringList audioDownload(const QString &folder, const QString &videoId, const QString &ffmpegDir)
{
    return QStringList{QStringLiteral("--extract-audio"), QStringLiteral("--audio-format"), QStringLiteral("mp3"),
               QStringLiteral("--audio-quality"), QStringLiteral("0")}
    + downloadTail(folder, videoId, ffmpegDir);
}

QStringList videoDownload(const QString &folder, const QString &videoId, const QString &ffmpegDir)
{
    return QStringList{QStringLiteral("-f"), QStringLiteral("bv*+ba/b"), QStringLiteral("--merge-output-format"),
               QStringLiteral("mp4")}
    + downloadTail(folder, videoId, ffmpegDir);
}

} // namespace YtDlpCommand
