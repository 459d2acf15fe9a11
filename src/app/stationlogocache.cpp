#include "app/stationlogocache.h"

#include "platform/httpclient.h"
#include "platform/paths.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFuture>
#include <QGuiApplication>
#include <QImageReader>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QSaveFile>
#include <QThread>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

namespace StationLogo {

QImage decode(const QByteArray &bytes, qint64 maxSourcePixels, int pixels)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setDecideFormatFromContent(true);
    // The header's claim is checked first; the allocation limit (MiB) is Qt's own guard
    // for readers that learn the size only while decoding.
    const QSize size = reader.size();
    if (size.isValid() && qint64(size.width()) * size.height() > maxSourcePixels)
        return {};
    reader.setAllocationLimit(int(std::max<qint64>(1, maxSourcePixels * 4 >> 20)));
    QImage image = reader.read();
    if (image.isNull() || qint64(image.width()) * image.height() > maxSourcePixels)
        return {};
    if (image.width() > pixels || image.height() > pixels)
        image = image.scaled(pixels, pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QString fileName(const QString &favicon, QLatin1StringView suffix)
{
    return QString::fromLatin1(QCryptographicHash::hash(favicon.toUtf8(), QCryptographicHash::Sha1).toHex()) +
           QLatin1Char('.') + suffix;
}

QStringList filesToEvict(QList<CachedFile> files, qint64 maxBytes)
{
    qint64 total = 0;
    for (const CachedFile &file : files)
        total += file.bytes;
    std::sort(files.begin(), files.end(),
              [](const CachedFile &a, const CachedFile &b) { return a.lastUsedMs < b.lastUsedMs; });
    QStringList out;
    for (const CachedFile &file : files) {
        if (total <= maxBytes)
            break;
        out << file.path;
        total -= file.bytes;
    }
    return out;
}

} // namespace StationLogo

namespace {

using namespace StationLogo;

constexpr QLatin1StringView kLogoSuffix("png");
constexpr QLatin1StringView kBrokenSuffix("bad");

// Pool thread: a marker younger than the retry period, a saved logo (marked as used
// just now), or nothing.
struct DiskLook {
    bool broken = false;
    QImage image;
};
DiskLook lookOnDisk(const QString &folder, const QString &favicon, int retryDays)
{
    const QDir dir(folder);
    const QFileInfo marker(dir.filePath(fileName(favicon, kBrokenSuffix)));
    if (marker.exists()) {
        if (marker.lastModified().daysTo(QDateTime::currentDateTime()) < retryDays)
            return {true, {}};
        QFile::remove(marker.filePath());
    }
    const QString path = dir.filePath(fileName(favicon, kLogoSuffix));
    QImage image;
    if (!QFileInfo::exists(path) || !image.load(path, "PNG")) {
        // A damaged file would be found again and again.
        QFile::remove(path);
        return {};
    }
    // Its place in the least-recently-used order.
    QFile file(path);
    if (file.open(QIODevice::ReadWrite))
        file.setFileTime(QDateTime::currentDateTime(), QFileDevice::FileModificationTime);
    return {false, image.convertToFormat(QImage::Format_ARGB32_Premultiplied)};
}

void trim(const QDir &dir, qint64 maxBytes)
{
    QList<CachedFile> files;
    const QFileInfoList entries = dir.entryInfoList(QDir::Files | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries)
        files.append({entry.filePath(), entry.size(), entry.lastModified().toMSecsSinceEpoch()});
    for (const QString &path : filesToEvict(files, maxBytes))
        QFile::remove(path);
}

// Pool thread, under the folder's mutex: writes the logo (or the marker, for a null
// image) and keeps the folder within its bound.
void saveToDisk(const QString &folder, const QString &favicon, const QImage &image, qint64 maxBytes)
{
    const QDir dir(folder);
    if (!dir.mkpath(QStringLiteral(".")))
        return;
    const QString path = dir.filePath(fileName(favicon, image.isNull() ? kBrokenSuffix : kLogoSuffix));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    if (!image.isNull() && !image.save(&file, "PNG")) {
        file.cancelWriting();
        return;
    }
    if (!file.commit())
        qWarning("Cannot save a station logo to %s: %s", qPrintable(path), qPrintable(file.errorString()));
    trim(dir, maxBytes);
}

// A table radio: a body with a speaker grille and a dial, an antenna. Drawn rather than
// taken from the theme: no common icon name means "radio station".
QIcon drawnRadio()
{
    QIcon icon;
    const QPalette palette = QGuiApplication::palette();
    const QColor ink = palette.color(QPalette::PlaceholderText);
    for (const int size : {16, 32, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const qreal u = size / 16.0;
        painter.setPen(QPen(ink, std::max(1.0, 1.2 * u), Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(4.5 * u, 5.5 * u), QPointF(11.5 * u, 1.5 * u));
        painter.setPen(Qt::NoPen);
        painter.setBrush(ink);
        QPainterPath body;
        body.addRoundedRect(QRectF(1 * u, 5.5 * u, 14 * u, 9.5 * u), 2 * u, 2 * u);
        // Grille and dial are cut out, so the icon reads on light and dark rows alike.
        body.addEllipse(QRectF(2.8 * u, 7.3 * u, 5.9 * u, 5.9 * u));
        body.addRoundedRect(QRectF(10 * u, 7.8 * u, 3.4 * u, 1.6 * u), 0.5 * u, 0.5 * u);
        body.setFillRule(Qt::OddEvenFill);
        painter.drawPath(body);
        painter.drawEllipse(QRectF(4.6 * u, 9.1 * u, 2.3 * u, 2.3 * u));
        painter.drawEllipse(QRectF(10.7 * u, 10.6 * u, 2 * u, 2 * u));
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

StationLogoCache::StationLogoCache(HttpClient &http, QString folder, Limits limits, QObject *parent)
    : QObject(parent)
    , m_http(http)
    , m_folder(folder.isEmpty() ? Paths::cacheDir() + QStringLiteral("/logos") : std::move(folder))
    , m_limits(limits)
{
    // Disk and decoding only; two tasks keep a page of logos moving without taking the
    // global pool from the library's and the player's work.
    m_pool.setMaxThreadCount(2);
    m_logos.setMaxCost(std::max(1, m_limits.memoryLogos));
}

StationLogoCache::~StationLogoCache()
{
    for (const auto &transfer : std::as_const(m_fetches))
        transfer->cancel();
    m_pool.waitForDone();
}

QIcon StationLogoCache::placeholder()
{
    static const QIcon icon = drawnRadio();
    return icon;
}

QIcon StationLogoCache::icon(const std::optional<QString> &favicon)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!favicon || favicon->isEmpty())
        return placeholder();
    if (const QIcon *logo = m_logos.object(*favicon))
        return *logo;
    lookUp(*favicon);
    return placeholder();
}

QPixmap StationLogoCache::pixmap(const std::optional<QString> &favicon)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!favicon || favicon->isEmpty())
        return {};
    if (const QIcon *logo = m_logos.object(*favicon))
        return logo->pixmap(logo->availableSizes().value(0));
    lookUp(*favicon);
    return {};
}

void StationLogoCache::lookUp(const QString &favicon)
{
    if (m_pending.contains(favicon) || m_failed.contains(favicon))
        return;
    const QUrl url(favicon);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != u"http" && scheme != u"https")) {
        fail(favicon, false);
        return;
    }
    m_pending.insert(favicon);
    const QString folder = m_folder;
    QtConcurrent::run(&m_pool, [folder, favicon] {
        const DiskLook look = lookOnDisk(folder, favicon, kRetryBrokenDays);
        return DiskResult{look.broken ? DiskAnswer::Broken : look.image.isNull() ? DiskAnswer::Missing
                                                                                  : DiskAnswer::Found,
                          look.image};
    }).then(this, [this, favicon](const DiskResult &result) { diskAnswered(favicon, result); });
}

void StationLogoCache::diskAnswered(const QString &favicon, const DiskResult &result)
{
    switch (result.answer) {
    case DiskAnswer::Found:
        m_pending.remove(favicon);
        m_logos.insert(favicon, new QIcon(QPixmap::fromImage(result.image)));
        Q_EMIT logoChanged(favicon);
        return;
    case DiskAnswer::Broken:
        m_pending.remove(favicon);
        m_failed.insert(favicon);
        return;
    case DiskAnswer::Missing:
        m_queue.append(favicon);
        startFetches();
        return;
    }
}

void StationLogoCache::startFetches()
{
    while (!m_queue.isEmpty() && m_fetches.size() < m_limits.parallelFetches) {
        const QString favicon = m_queue.takeFirst();
        HttpRequest request;
        request.url = QUrl(favicon).toEncoded();
        request.headers = {{"User-Agent", "Orvida/1.0"}, {"Accept", "image/*"}};
        request.idleTimeoutSec = m_limits.timeoutSec;
        request.totalTimeoutSec = m_limits.timeoutSec;
        request.maxRedirects = 5;
        request.maxBodyBytes = m_limits.maxDownloadBytes;
        ++m_requestsMade;
        // The handle is stored before the callback can run: answers come through the event loop.
        m_fetches.insert(favicon, std::make_shared<HttpTransfer>(m_http.get(
                                      request, this,
                                      [this, favicon](const HttpResult &result, const HttpResponseHead &head,
                                                      const QByteArray &body) { fetched(favicon, result, head, body); })));
    }
}

void StationLogoCache::fetched(const QString &favicon, const HttpResult &result, const HttpResponseHead &head,
                               const QByteArray &body)
{
    m_fetches.remove(favicon);
    startFetches();
    if (!result.ok()) {
        // Too large is the favicon's fault; the rest may be the network's, so next run tries again.
        fail(favicon, result.error == HttpError::BodyTooLarge);
        return;
    }
    if (head.statusCode != 200) {
        // A server error may pass; a missing or refused file stays so.
        fail(favicon, head.statusCode < 500);
        return;
    }
    const Limits limits = m_limits;
    const QString folder = m_folder;
    const auto mutex = m_diskMutex;
    QtConcurrent::run(&m_pool, [body, limits, folder, favicon, mutex] {
        const QImage image = decode(body, limits.maxSourcePixels);
        const std::lock_guard lock(*mutex);
        saveToDisk(folder, favicon, image, limits.maxDiskBytes);
        return image;
    }).then(this, [this, favicon](const QImage &image) {
        if (image.isNull()) {
            m_pending.remove(favicon);
            m_failed.insert(favicon);
            return;
        }
        store(favicon, image);
    });
}

void StationLogoCache::fail(const QString &favicon, bool remember)
{
    m_pending.remove(favicon);
    m_failed.insert(favicon);
    if (!remember)
        return;
    const QString folder = m_folder;
    const qint64 maxBytes = m_limits.maxDiskBytes;
    const auto mutex = m_diskMutex;
    (void)QtConcurrent::run(&m_pool, [folder, favicon, maxBytes, mutex] {
        const std::lock_guard lock(*mutex);
        saveToDisk(folder, favicon, QImage(), maxBytes);
    });
}

void StationLogoCache::store(const QString &favicon, const QImage &image)
{
    m_pending.remove(favicon);
    m_logos.insert(favicon, new QIcon(QPixmap::fromImage(image)));
    Q_EMIT logoChanged(favicon);
}
