#pragma once

#include <QString>

// Why a yt-dlp run failed, with the text the user sees.
struct YouTubeError {
    enum class Kind {
        SearchFailed,      // message: yt-dlp's own error text, or one of the texts below
        DownloadFailed,    // message: likewise
        NotInstalled,      // no yt-dlp was found before running it
        StreamUrlNotFound, // yt-dlp ran but gave no audio address
    };

    Kind kind = Kind::DownloadFailed;
    QString message;

    [[nodiscard]] static YouTubeError searchFailed(const QString &message);
    [[nodiscard]] static YouTubeError downloadFailed(const QString &message);
    [[nodiscard]] static YouTubeError notInstalled();
    [[nodiscard]] static YouTubeError streamUrlNotFound();

    // The user-facing text (German, as the rest of the error texts).
    [[nodiscard]] QString description() const;

    bool operator==(const YouTubeError &) const = default;
};

// Messages that runs put into the cases above.
namespace YouTubeErrorText {
// A failed run left no error text.
inline const QString kUnknown = QStringLiteral("Unbekannter Fehler");
// The info JSON of a video could not be parsed.
inline const QString kVideoInfoUnreadable = QStringLiteral("Video-Informationen nicht lesbar");
// A download of the same video is already running.
inline const QString kAlreadyDownloading = QStringLiteral("Wird bereits heruntergeladen");
} // namespace YouTubeErrorText

// Whether a failure looks like an outdated yt-dlp (the video site changed and refuses
// or confuses old versions), so that an update and one more try may help. Examines the
// message of DownloadFailed, the description of every other case.
[[nodiscard]] bool isStaleYtDlpError(const YouTubeError &error);
