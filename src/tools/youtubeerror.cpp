#include "tools/youtubeerror.h"

#include <array>

YouTubeError YouTubeError::searchFailed(const QString &message)
{
    return {Kind::SearchFailed, message};
}

YouTubeError YouTubeError::downloadFailed(const QString &message)
{
    return {Kind::DownloadFailed, message};
}

YouTubeError YouTubeError::notInstalled()
{
    return {Kind::NotInstalled, {}};
}

YouTubeError YouTubeError::streamUrlNotFound()
{
    return {Kind::StreamUrlNotFound, {}};
}

QString YouTubeError::description() const
{
    switch (kind) {
    case Kind::SearchFailed: return QStringLiteral("Suche fehlgeschlagen: ") + message;
    case Kind::DownloadFailed: return QStringLiteral("Download fehlgeschlagen: ") + message;
    case Kind::NotInstalled:
        return QStringLiteral(
            "yt-dlp ist nicht installiert.\nInstalliere es über das Terminal:\nsudo apt install yt-dlp");
    case Kind::StreamUrlNotFound: return QStringLiteral("Kein Audio-Stream gefunden");
    }
    return {};
}

bool isStaleYtDlpError(const YouTubeError &error)
{
    static const std::array<QLatin1String, 7> kSigns{
        QLatin1String("403"),
        QLatin1String("forbidden"),
        QLatin1String("unable to download video data"),
        QLatin1String("sign in to confirm"),
        QLatin1String("precondition check failed"),
        QLatin1String("unable to extract"),
        QLatin1String("failed to extract"),
    };
    const QString text
        = (error.kind == YouTubeError::Kind::DownloadFailed ? error.message : error.description()).toLower();
    for (const QLatin1String sign : kSigns) {
        if (text.contains(sign))
            return true;
    }
    return false;
}
