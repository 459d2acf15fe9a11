#pragma once

#include "tools/toollocations.h"
#include "tools/youtubeerror.h"
#include "tools/ytdlpoutput.h"
#include "tools/ytdlpupdater.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class ChildProcess;
class HttpClient;
struct ChildProcessResult;

struct YouTubeServiceOptions {
    ToolLocations locations = ToolLocations::system();
    YtDlpUpdaterOptions updater;
    // A download that prints nothing at all for this long is taken for hung and killed
    // (with "--progress --newline" yt-dlp prints several lines a second while it works).
    double downloadIdleTimeoutSec = 300;
    // A run printing more than this (both pipes) is killed: no honest run comes close.
    qint64 maxOutputBytes = qint64(256) << 20;
};

// The tool service: where ffmpeg and yt-dlp are, yt-dlp's self-update, and yt-dlp
// download runs with their progress.
//
// The static part (folders and paths) may be used from any thread. The object lives on
// the GUI thread, which owns its observable state (downloadProgress, downloadingIds);
// child processes are read there without blocking it.
class YouTubeService : public QObject {
    Q_OBJECT
public:
    explicit YouTubeService(HttpClient &http, YouTubeServiceOptions options = {}, QObject *parent = nullptr);
    ~YouTubeService() override; // kills running downloads; their callbacks do not run

    // The folder of the running executable; cached.
    [[nodiscard]] static QString bundleBinDir();
    // $XDG_DATA_HOME/Orvida Studio/bin, the private yt-dlp's folder; cached.
    [[nodiscard]] static QString supportBinDir();
    // The folder holding ffmpeg, found once per process; ffmpeg is ffmpegDir() + "/ffmpeg".
    [[nodiscard]] static QString ffmpegDir();
    // yt-dlp's full path, looked up at every call.
    [[nodiscard]] static QString ytdlpPath();
    // The start-up gate's two checks, and where its rows send the user for a missing tool.
    [[nodiscard]] static bool ffmpegFound();
    [[nodiscard]] static bool ytdlpFound();
    static inline const QString kFfmpegDownloadPage = QStringLiteral("https://ffmpeg.org/download.html");
    static inline const QString kYtDlpDownloadPage = QStringLiteral("https://github.com/yt-dlp/yt-dlp/releases/latest");
    // Blocking "--version" query (see ToolVersion::run): not on the GUI thread.
    [[nodiscard]] static std::optional<QString> runVersion(const QString &path);

    YtDlpUpdater &updater() { return m_updater; }
    // Called at start with force = false; a stale-looking download failure forces it.
    void updateYtDlpIfNeeded(bool force, std::function<void(YtDlpUpdateOutcome)> done = {});

    // Runs yt-dlp with `args` (one of the YtDlpCommand download lists), publishes progress
    // under `resultId` and hands over the produced file's path. A failure that looks like an
    // outdated yt-dlp forces an update and is tried exactly once more; that outcome is final.
    // A second download under a running `resultId` is refused at once with
    // "Wird bereits heruntergeladen". `done` runs once, on this thread.
    using DownloadCallback = std::function<void(const YtDlpDownloadResult &)>;
    void runYtDlpDownload(const QStringList &args, const QString &resultId, DownloadCallback done);

    // Progress 0...1 of a download, kept after it ends until cleared.
    [[nodiscard]] std::optional<double> downloadProgress(const QString &resultId) const;
    void clearDownloadProgress(const QString &resultId);
    [[nodiscard]] QSet<QString> downloadingIds() const;

Q_SIGNALS:
    void downloadProgressChanged(const QString &resultId, double fraction);
    void downloadingIdsChanged();

private:
    struct Download {
        QStringList args;
        DownloadCallback done;
        QByteArray lastPathLine;
        bool retried = false;
    };

    void startAttempt(const QString &resultId);
    void attemptFinished(const QString &resultId, const ChildProcessResult &result);
    void onStdoutLine(const QString &resultId, const QByteArray &line);

    YouTubeServiceOptions m_options;
    YtDlpUpdater m_updater;
    QHash<QString, Download> m_downloads; // running, including those waiting for a forced update
    QHash<QString, double> m_progress;
};
