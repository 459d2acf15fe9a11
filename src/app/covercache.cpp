#include "app/covercache.h"

#include "library/track.h"
#include "platform/paths.h"
#include "playback/coverart.h"

#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QSaveFile>
#include <QtConcurrent>

namespace {

// What kind of image `bytes` hold, judged by their first bytes; "" when none we know. The
// suffix tells the desktop's image loader what it reads.
QString imageSuffix(const QByteArray &bytes)
{
    if (bytes.startsWith("\xFF\xD8\xFF"))
        return QStringLiteral("jpg");
    if (bytes.startsWith("\x89PNG\r\n\x1A\n"))
        return QStringLiteral("png");
    if (bytes.startsWith("GIF87a") || bytes.startsWith("GIF89a"))
        return QStringLiteral("gif");
    if (bytes.size() >= 12 && bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WEBP")
        return QStringLiteral("webp");
    if (bytes.startsWith("BM"))
        return QStringLiteral("bmp");
    return {};
}

const QStringList kSuffixes { QStringLiteral("jpg"), QStringLiteral("png"), QStringLiteral("gif"),
    QStringLiteral("webp"), QStringLiteral("bmp") };

// Runs on a pool thread: the saved file for `trackId`, extracting it from `audioPath`
// when there is none yet or the audio file changed since.
std::optional<QString> findOrExtract(const QString &folder, qint64 trackId, const QString &audioPath)
{
    const QDir dir(folder);
    const QString stem = QString::number(trackId) + QLatin1Char('.');
    const QFileInfo audio(audioPath);
    for (const QString &suffix : kSuffixes) {
        const QFileInfo saved(dir.filePath(stem + suffix));
        if (saved.exists() && saved.lastModified() >= audio.lastModified())
            return saved.filePath();
    }
    // An outdated file of another format would be found again next time.
    for (const QString &suffix : kSuffixes)
        QFile::remove(dir.filePath(stem + suffix));

    const QByteArray picture = CoverArt::find(audioPath);
    const QString suffix = imageSuffix(picture);
    if (suffix.isEmpty())
        return std::nullopt;
    if (!dir.mkpath(QStringLiteral(".")))
        return std::nullopt;
    const QString path = dir.filePath(stem + suffix);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(picture) != picture.size() || !file.commit()) {
        qWarning(
            "Cannot save the cover of track %lld to %s: %s", trackId, qPrintable(path), qPrintable(file.errorString()));
        return std::nullopt;
    }
    return path;
}

} // namespace

CoverCache::CoverCache(QString folder, QObject *parent)
    : QObject(parent)
    , m_folder(folder.isEmpty() ? Paths::cacheDir() + QStringLiteral("/covers") : std::move(folder))
{
}

CoverCache::~CoverCache() = default;

std::optional<QString> CoverCache::coverPath(const Track &track)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (track.id <= 0 || !track.filePath || track.filePath->isEmpty())
        return std::nullopt;
    if (const auto known = m_known.constFind(track.id); known != m_known.cend())
        return *known;
    if (m_pending.contains(track.id))
        return std::nullopt;
    m_pending.insert(track.id);
    const qint64 id = track.id;
    // The watcher is our child: a task that ends after us delivers to no one.
    auto *watcher = new QFutureWatcher<std::optional<QString>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, id] {
        watcher->deleteLater();
        const std::optional<QString> path = watcher->result();
        m_pending.remove(id);
        m_known.insert(id, path);
        Q_EMIT coverLookedUp(id, path.value_or(QString()));
    });
    watcher->setFuture(QtConcurrent::run(findOrExtract, m_folder, id, *track.filePath));
    return std::nullopt;
}
