#include "engine/radioplayback.h"

// Scaffolding until the relay lands: every start fails.
class RelayWorker : public QObject {};

RadioPlayback::RadioPlayback(QString ffmpegPath, QObject *parent) : QObject(parent), m_ffmpegPath(std::move(ffmpegPath)) {}
RadioPlayback::~RadioPlayback() = default;
void RadioPlayback::start(const Station &, std::function<void(std::optional<QUrl>)> done) { done(std::nullopt); }
void RadioPlayback::stop() {}
bool RadioPlayback::isRunning() const { return false; }
std::optional<QUrl> RadioPlayback::url() const { return m_url; }
qint64 RadioPlayback::processId() const { return 0; }
QStringList RadioPlayback::ffmpegArguments(const QString &streamUrl)
{
    return {QStringLiteral("-i"), streamUrl, QStringLiteral("-vn"), QStringLiteral("-acodec"), QStringLiteral("libmp3lame"),
            QStringLiteral("-q:a"), QStringLiteral("4"), QStringLiteral("-f"), QStringLiteral("mp3"), QStringLiteral("pipe:1")};
}
QByteArray RadioPlayback::responseHead()
{
    return QByteArrayLiteral("HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nCache-Control: no-cache\r\n\r\n");
}
bool RadioPlayback::isRelayableAddress(const QString &) { return false; }
