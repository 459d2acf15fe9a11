#pragma once

#include <QCache>
#include <QHash>
#include <QIcon>
#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <memory>
#include <mutex>
#include <optional>

class HttpClient;
class HttpTransfer;
struct HttpResponseHead;
struct HttpResult;

namespace StationLogo {

// The longest side of a logo as kept on disk and in memory, in device pixels: twice the
// tables' icon size, so a high-density screen still gets a sharp picture.
inline constexpr int kPixels = 64;

// Decodes a downloaded favicon and scales it to fit `pixels` (never up). Null when the
// bytes are no image Qt reads or the picture would decode to more than `maxSourcePixels`
// (width times height): a few hundred bytes of PNG can claim a gigapixel canvas.
[[nodiscard]] QImage decode(const QByteArray &bytes, qint64 maxSourcePixels, int pixels = kPixels);

// The name of a logo's file in the cache folder: the address's hash, so any text is a
// safe name. `suffix` is "png" for a logo, "bad" for a favicon that proved broken.
[[nodiscard]] QString fileName(const QString &favicon, QLatin1StringView suffix);

// What a favicon may cost.
struct Limits {
    qint64 maxDownloadBytes = 512 * 1024;
    qint64 maxSourcePixels = 4096 * 4096;
    qint64 maxDiskBytes = 16 * 1024 * 1024;
    double timeoutSec = 20;
    int parallelFetches = 4;
    // Logos kept decoded in memory; the rest are read from disk again when shown.
    int memoryLogos = 600;
};

struct CachedFile {
    QString path;
    qint64 bytes = 0;
    qint64 lastUsedMs = 0; // modification time, renewed when the file is read
};
// The files to delete so the rest add up to at most `maxBytes`: least recently used first.
[[nodiscard]] QStringList filesToEvict(QList<CachedFile> files, qint64 maxBytes);

} // namespace StationLogo

// Station logos from the directory's favicon addresses, for the station tables and the
// now-playing bar.
//
// A logo is looked for in memory, then in the cache folder, then fetched through the
// HttpClient (http and https only, a bounded body, a time-out). What arrives is decoded,
// scaled down and saved as a small PNG; the folder is trimmed to a total size, least
// recently used files first. Until a logo is there, and for good when it cannot be had,
// callers show placeholder(). A favicon that proved broken (an error status, no image,
// too large) gets a marker file and is not asked for again for kRetryBrokenDays; a
// network failure (offline, time-out) is remembered for this run only.
//
// Lives on the GUI thread. Disk work and decoding run on a small pool of this object's
// own, so the destructor can wait for them; answers come back on this thread as
// logoChanged(). At most Limits::parallelFetches requests run at once: a page of search
// results must not open forty connections.
class StationLogoCache : public QObject {
    Q_OBJECT

public:
    using Limits = StationLogo::Limits;
    static constexpr int kRetryBrokenDays = 7;

    // `folder` empty: $XDG_CACHE_HOME/Orvida/logos.
    StationLogoCache(HttpClient &http, QString folder = {}, Limits limits = {}, QObject *parent = nullptr);
    ~StationLogoCache() override; // cancels the fetches and waits for the pool

    // The station's logo once loaded. Otherwise the placeholder, and for an address not
    // yet tried the look on disk, then the fetch starts; logoChanged() follows if it
    // brings a logo. No favicon: the placeholder.
    [[nodiscard]] QIcon icon(const std::optional<QString> &favicon);
    // The loaded logo (at most StationLogo::kPixels a side); null while there is none.
    // Starts the look-up like icon().
    [[nodiscard]] QPixmap pixmap(const std::optional<QString> &favicon);
    [[nodiscard]] bool hasFailed(const QString &favicon) const { return m_failed.contains(favicon); }

    // A neutral radio: the theme's, else one drawn in the palette's colours.
    [[nodiscard]] static QIcon placeholder();

    [[nodiscard]] const QString &folder() const { return m_folder; }
    // Requests made since this object was built (diagnostics and tests).
    [[nodiscard]] int requestsMade() const { return m_requestsMade; }

Q_SIGNALS:
    // The logo of `favicon` is now there: rows and bars showing that address redraw.
    void logoChanged(const QString &favicon);

private:
    enum class DiskAnswer { Found, Broken, Missing };
    struct DiskResult {
        DiskAnswer answer = DiskAnswer::Missing;
        QImage image;
    };
    void lookUp(const QString &favicon);
    void diskAnswered(const QString &favicon, const DiskResult &result);
    void startFetches();
    void fetched(const QString &favicon, const HttpResult &result, const HttpResponseHead &head,
                 const QByteArray &body);
    void fail(const QString &favicon, bool remember);
    void store(const QString &favicon, const QImage &image);

    HttpClient &m_http;
    QString m_folder;
    Limits m_limits;
    QThreadPool m_pool;
    // Writes and trims of the folder, from pool tasks, one at a time.
    std::shared_ptr<std::mutex> m_diskMutex = std::make_shared<std::mutex>();
    QCache<QString, QIcon> m_logos;
    QSet<QString> m_pending; // on disk or on the network now
    QList<QString> m_queue;  // waiting for a free fetch
    QHash<QString, std::shared_ptr<HttpTransfer>> m_fetches;
    QSet<QString> m_failed;
    int m_requestsMade = 0;
};
