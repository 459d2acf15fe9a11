#include "tools/youtubeservice.h"

#include "platform/childprocess.h"
#include "tools/toolversion.h"
#include "tools/ytdlpcommand.h"

#include <QThread>

YouTubeService::YouTubeService(HttpClient &http, YouTubeServiceOptions options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
    , m_updater(http, m_options.locations, m_options.updater, this)
{
}

YouTubeService::~YouTubeService() = default;

QString YouTubeService::bundleBinDir()
{
    return ToolLocations::system().bundleBinDir;
}

QString YouTubeService::supportBinDir()
{
    return ToolLocations::system().supportBinDir;
}

QString YouTubeService::ffmpegDir()
{
    static const QString dir = ToolLocations::system().findFfmpegDir();
    return dir;
}

QString YouTubeService::ytdlpPath()
{
    return ToolLocations::system().findYtDlpPath();
}

bool YouTubeService::ffmpegFound()
{
    return ToolLocations::ffmpegPresent(ffmpegDir());
}

bool YouTubeService::ytdlpFound()
{
    return ToolLocations::ytdlpPresent(ytdlpPath());
}

std::optional<QString> YouTubeService::runVersion(const QString &path)
{
    return ToolVersion::run(path);
}

void YouTubeService::updateYtDlpIfNeeded(bool force, std::function<void(YtDlpUpdateOutcome)> done)
{
    m_updater.updateYtDlpIfNeeded(force, std::move(done));
}

void YouTubeService::runYtDlpDownload(const QStringList &args, const QString &resultId, DownloadCallback done)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_downloads.contains(resultId)) {
        QMetaObject::invokeMethod(
            this,
            [done = std::move(done)] {
                done({{}, YouTubeError::downloadFailed(YouTubeErrorText::kAlreadyDownloading)});
            },
            Qt::QueuedConnection);
        return;
    }
    m_downloads.insert(resultId, Download{args, std::move(done), {}, false});
    Q_EMIT downloadingIdsChanged();
    startAttempt(resultId);
}

void YouTubeService::startAttempt(const QString &resultId)
{
    Download &download = m_downloads[resultId];
    download.lastPathLine.clear();

    // Looked up per attempt: the retry must run the copy the forced update just installed.
    ChildProcessOptions options = YtDlpCommand::launchOptions(m_options.locations.findYtDlpPath(), download.args);
    options.stdoutKeepBytes = 0; // lines are read as they come; the path is the only keeper
    options.idleTimeoutSec = m_options.downloadIdleTimeoutSec;
    options.maxOutputBytes = m_options.maxOutputBytes;

    auto *process = new ChildProcess(this);
    ChildProcessCallbacks callbacks;
    callbacks.onStdoutLine = [this, resultId](const QByteArray &line) { onStdoutLine(resultId, line); };
    callbacks.onFinished = [this, resultId, process](const ChildProcessResult &result) {
        delete process;
        attemptFinished(resultId, result);
    };
    process->start(std::move(options), std::move(callbacks));
}

void YouTubeService::onStdoutLine(const QString &resultId, const QByteArray &line)
{
    if (const auto fraction = YtDlpOutput::progressFraction(line)) {
        m_progress.insert(resultId, *fraction);
        Q_EMIT downloadProgressChanged(resultId, *fraction);
    } else if (YtDlpOutput::isPathLine(line)) {
        m_downloads[resultId].lastPathLine = line;
    }
}

void YouTubeService::attemptFinished(const QString &resultId, const ChildProcessResult &result)
{
    Download &download = m_downloads[resultId];
    YtDlpDownloadResult outcome = YtDlpOutput::downloadOutcome(result, download.lastPathLine);
    if (!outcome.ok() && !download.retried && isStaleYtDlpError(*outcome.error)) {
        download.retried = true;
        m_updater.updateYtDlpIfNeeded(true, [this, resultId](YtDlpUpdateOutcome) { startAttempt(resultId); });
        return;
    }
    const DownloadCallback done = std::move(download.done);
    m_downloads.remove(resultId);
    Q_EMIT downloadingIdsChanged();
    if (done)
        done(outcome);
}

std::optional<double> YouTubeService::downloadProgress(const QString &resultId) const
{
    const auto it = m_progress.constFind(resultId);
    return it == m_progress.constEnd() ? std::nullopt : std::optional(*it);
}

void YouTubeService::clearDownloadProgress(const QString &resultId)
{
    m_progress.remove(resultId);
}

QSet<QString> YouTubeService::downloadingIds() const
{
    const QList<QString> ids = m_downloads.keys();
    return QSet<QString>(ids.begin(), ids.end());
}
