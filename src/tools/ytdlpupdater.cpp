#include "tools/ytdlpupdater.h"

#include "platform/httpclient.h"
#include "platform/preferences.h"
#include "tools/toolversion.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFutureWatcher>
#include <QTemporaryFile>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <cstdio>
#include <sys/stat.h>

namespace {

// Timeouts are idle limits, as the platform's URL session counts them; the total bound
// only stops a server that trickles bytes forever.
constexpr double kTotalPerIdle = 10;

HttpRequest releaseRequest(const QByteArray &url, double idleTimeoutSec)
{
    HttpRequest request;
    request.url = url;
    request.headers = {{"User-Agent", YtDlpUpdater::kUserAgent}};
    request.idleTimeoutSec = idleTimeoutSec;
    request.totalTimeoutSec = idleTimeoutSec * kTotalPerIdle;
    return request;
}

std::optional<QDateTime> storedLastCheck()
{
    const QVariant value = Preferences::value(YtDlpUpdater::kLastCheckKey);
    if (value.typeId() == QMetaType::QDateTime && value.toDateTime().isValid())
        return value.toDateTime();
    const QDateTime parsed = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (parsed.isValid())
        return parsed;
    return std::nullopt;
}

QByteArray sha256OfFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return {};
    return hash.result().toHex();
}

// Runs on a pool thread. Moves the verified download into place; every failure removes
// what it left and keeps the previous copy.
bool placeVerifiedCopy(const QString &downloadPath, const QByteArray &expectedSha256, const QString &supportBinDir)
{
    const QString target = supportBinDir + QStringLiteral("/yt-dlp");
    const QString staging = target + QStringLiteral(".new");
    const auto fail = [&] {
        QFile::remove(downloadPath);
        QFile::remove(staging);
        return false;
    };
    if (sha256OfFile(downloadPath) != expectedSha256)
        return fail();
    if (!QDir().mkpath(supportBinDir))
        return fail();
    QFile::remove(staging);
    if (!QFile::rename(downloadPath, staging))
        return fail();
    if (::chmod(QFile::encodeName(staging).constData(), 0755) != 0)
        return fail();
    // rename(2) replaces the target in one step: a yt-dlp starting right now runs either
    // the old copy or the new one, never a half-written file.
    if (std::rename(QFile::encodeName(staging).constData(), QFile::encodeName(target).constData()) != 0)
        return fail();
    return true;
}

} // namespace

YtDlpUpdater::YtDlpUpdater(HttpClient &http, ToolLocations locations, YtDlpUpdaterOptions options, QObject *parent)
    : QObject(parent)
    , m_http(http)
    , m_locations(std::move(locations))
    , m_options(std::move(options))
{
}

YtDlpUpdater::~YtDlpUpdater()
{
    m_transfer.cancel();
    if (!m_downloadPath.isEmpty())
        QFile::remove(m_downloadPath);
}

QDateTime YtDlpUpdater::now() const
{
    return m_options.now ? m_options.now() : QDateTime::currentDateTimeUtc();
}

void YtDlpUpdater::updateYtDlpIfNeeded(bool force, std::function<void(YtDlpUpdateOutcome)> done)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const bool running = isUpdating();
    m_waiting.push_back(std::move(done));
    if (running)
        return;

    if (!force) {
        // A date in the future (a clock that was wrong) does not hold updates back for good.
        const auto last = storedLastCheck();
        const double elapsedSec = last ? double(last->msecsTo(now())) / 1000.0 : -1;
        if (last && elapsedSec >= 0 && elapsedSec < kCheckIntervalSec) {
            QMetaObject::invokeMethod(
                this, [this] { finishUpdate(YtDlpUpdateOutcome::CheckedRecently); }, Qt::QueuedConnection);
            return;
        }
    }
    fetchLatestYtDlpTag([this](std::optional<QString> tag) {
        if (!tag) {
            finishUpdate(YtDlpUpdateOutcome::NoRelease);
            return;
        }
        continueWithTag(*tag);
    });
}

void YtDlpUpdater::continueWithTag(const QString &tag)
{
    Preferences::setValue(kLastCheckKey, now().toUTC().toString(Qt::ISODateWithMs));
    // Only a copy we installed ourselves is compared by its recorded tag; copies of the
    // package managers are never asked, so the private copy is what gets updated.
    if (isExecutableFile(m_locations.privateYtDlpPath())) {
        compareAndInstall(tag, Preferences::string(kInstalledVersionKey).value_or(QString()));
        return;
    }
    ToolVersion::runAsync(
        m_locations.bundleYtDlpPath(), this,
        [this, tag](std::optional<QString> version) { compareAndInstall(tag, version.value_or(QString())); },
        m_options.versionTimeoutSec);
}

void YtDlpUpdater::compareAndInstall(const QString &tag, const QString &installedVersion)
{
    if (tag.isEmpty() || tag == installedVersion) {
        finishUpdate(YtDlpUpdateOutcome::UpToDate);
        return;
    }
    installYtDlp(tag, [this, tag](bool installed) {
        if (installed)
            Preferences::setValue(kInstalledVersionKey, tag);
        finishUpdate(installed ? YtDlpUpdateOutcome::Installed : YtDlpUpdateOutcome::InstallFailed);
    });
}

void YtDlpUpdater::finishUpdate(YtDlpUpdateOutcome outcome)
{
    auto waiting = std::exchange(m_waiting, {});
    for (const auto &done : waiting) {
        if (done)
            done(outcome);
    }
}

void YtDlpUpdater::fetchLatestYtDlpTag(std::function<void(std::optional<QString>)> done)
{
    HttpRequest request = releaseRequest(YtDlpRelease::latestUrl(m_options.releasesBase), m_options.apiTimeoutSec);
    request.maxBodyBytes = 4 << 20;
    m_transfer = m_http.get(request, this,
        [done = std::move(done)](const HttpResult &result, const HttpResponseHead &head, const QByteArray &body) {
            done(result.ok() ? YtDlpRelease::parseLatestTag(head.statusCode, body) : std::nullopt);
        });
}

void YtDlpUpdater::installYtDlp(const QString &tag, std::function<void(bool)> done)
{
    if (!YtDlpRelease::isSafeTag(tag)) {
        QMetaObject::invokeMethod(
            this, [done = std::move(done)] { done(false); }, Qt::QueuedConnection);
        return;
    }
    HttpRequest request = releaseRequest(
        YtDlpRelease::downloadUrl(m_options.releasesBase, tag, YtDlpRelease::kChecksumsFile), m_options.apiTimeoutSec);
    request.maxBodyBytes = 1 << 20;
    m_transfer = m_http.get(request, this,
        [this, tag, done = std::move(done)](
            const HttpResult &result, const HttpResponseHead &head, const QByteArray &body) mutable {
            const auto expected = result.ok() && head.statusCode == 200
                ? YtDlpRelease::expectedSha256(body, m_options.assetName)
                : std::nullopt;
            if (!expected) {
                done(false);
                return;
            }
            downloadAsset(tag, *expected, std::move(done));
        });
}

void YtDlpUpdater::downloadAsset(const QString &tag, const QByteArray &expectedSha256, std::function<void(bool)> done)
{
    const QString dir = m_options.downloadDir.isEmpty() ? QDir::tempPath() : m_options.downloadDir;
    QTemporaryFile reserve(dir + QStringLiteral("/orvida-yt-dlp-XXXXXX"));
    if (!reserve.open()) {
        QMetaObject::invokeMethod(
            this, [done = std::move(done)] { done(false); }, Qt::QueuedConnection);
        return;
    }
    reserve.setAutoRemove(false);
    const QString downloadPath = reserve.fileName();
    reserve.close();

    const HttpRequest request = releaseRequest(
        YtDlpRelease::downloadUrl(m_options.releasesBase, tag, m_options.assetName), m_options.downloadTimeoutSec);
    m_downloadPath = downloadPath;
    m_transfer = m_http.download(request, downloadPath, this,
        [this, downloadPath, expectedSha256, done = std::move(done)](
            const HttpResult &result, const HttpResponseHead &head) mutable {
            m_downloadPath.clear();
            if (!result.ok() || head.statusCode != 200) {
                QFile::remove(downloadPath);
                done(false);
                return;
            }
            auto *watcher = new QFutureWatcher<bool>(this);
            connect(watcher, &QFutureWatcher<bool>::finished, this, [watcher, done = std::move(done)] {
                watcher->deleteLater();
                done(watcher->result());
            });
            watcher->setFuture(
                QtConcurrent::run(placeVerifiedCopy, downloadPath, expectedSha256, m_locations.supportBinDir));
        });
}
