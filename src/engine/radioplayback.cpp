#include "engine/radioplayback.h"

#include "engine/relayrequest.h"
#include "platform/childprocess.h"

#include <QHash>
#include <QHostAddress>
#include <QMetaObject>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <atomic>

namespace {

// A client that has not finished its request by then is sent away: it would hold a
// socket and a buffer for nothing.
constexpr int kRequestTimeoutMs = 3000;
// Connections still sending their request at once; more are cut at once, so that a
// local program cannot pile up sockets (the player needs one).
constexpr int kMaxPendingRequests = 8;
// What a client that is being closed after ffmpeg's end gets to fetch the rest.
constexpr int kLingerMs = 10000;

using Done = std::function<void(std::optional<QUrl>)>;

} // namespace

// The relay itself: ffmpeg, the listener and its connections. Lives on the relay's thread
// "ov.radio.pb"; RadioPlayback reaches it only through queued calls, and it answers
// through the two report functions, which post to the owner's thread. `pid` is read
// from the owner's thread.
class RelayWorker : public QObject {
public:
    RelayWorker(QString ffmpegPath, std::function<void(quint64, std::optional<QUrl>, Done)> reportStart,
        std::function<void(quint64, QString)> reportEnd)
        : m_ffmpegPath(std::move(ffmpegPath))
        , m_reportStart(std::move(reportStart))
        , m_reportEnd(std::move(reportEnd))
    {
    }
    ~RelayWorker() override { Q_ASSERT(!m_child && !m_server); }

    void start(quint64 generation, const QString &streamUrl, Done done);
    // Ends ffmpeg, the listener and every connection at once; a start still waiting for
    // ffmpeg's launch is answered with nothing. Never from inside a callback of the child
    // or of a socket (it deletes them).
    void stopRelay();

    std::atomic<qint64> pid { 0 };

private:
    void onLaunched();
    void onAudio(const QByteArray &chunk);
    void onFfmpegFinished(const ChildProcessResult &result);
    void admit(QTcpSocket *socket);
    void onRequestBytes(QTcpSocket *socket);
    void refuse(QTcpSocket *socket, int status);
    void serve(QTcpSocket *socket);
    void closeGently(QTcpSocket *socket);
    void answerStart(std::optional<QUrl> url);
    // stopRelay(), except that with `abortClosing` off the connections being closed
    // gently keep their time to fetch the rest.
    void endRelay(bool abortClosing);

    const QString m_ffmpegPath;
    const std::function<void(quint64, std::optional<QUrl>, Done)> m_reportStart;
    const std::function<void(quint64, QString)> m_reportEnd;

    quint64 m_generation = 0;
    Done m_pendingDone; // set while ffmpeg is being launched
    ChildProcess *m_child = nullptr;
    QTcpServer *m_server = nullptr;
    quint16 m_port = 0;
    QTcpSocket *m_client = nullptr; // the one being served
    QHash<QTcpSocket *, QByteArray> m_requests; // still sending their request
    QList<QPointer<QTcpSocket>> m_closing; // refused, or served until ffmpeg's end
    // ffmpeg's newest output while nobody is served; trimmed in batches to kBacklogBytes.
    QByteArray m_backlog;
    QString m_lastStderrLine;
};

void RelayWorker::start(quint64 generation, const QString &streamUrl, Done done)
{
    stopRelay();
    m_generation = generation;
    // Only http(s) reaches ffmpeg: its argument list has no protocol whitelist, so an
    // address like file:, concat: or a device would read the machine, not a station.
    // What an http input leads to is safe as it is: ffmpeg 5.1 refuses a redirect to any
    // other scheme ("Invalid argument"), and holds everything an http input opens in turn
    // (an HLS playlist's segments) to http's default protocol whitelist, which has no
    // file or concat (both checked against ffmpeg with a local server).
    if (!RadioPlayback::isRelayableAddress(streamUrl)) {
        m_reportStart(generation, std::nullopt, std::move(done));
        return;
    }
    m_pendingDone = std::move(done);

    ChildProcessOptions options;
    options.program = m_ffmpegPath;
    options.arguments = RadioPlayback::ffmpegArguments(streamUrl);
    // The audio goes to the client as it comes; nothing of it is kept by the runner.
    options.stdoutKeepBytes = 0;
    options.stderrKeepBytes = 0;
    // This thread runs until the owner is destroyed, which ends the relay first, so the
    // death signal (sent when the forking *thread* ends) only comes when the process dies.
    options.dieWithParent = true;

    auto *child = new ChildProcess(this);
    m_child = child;
    ChildProcessCallbacks callbacks;
    callbacks.onStarted = [this, child] {
        if (child == m_child)
            onLaunched();
    };
    callbacks.onStdoutChunk = [this, child](const QByteArray &chunk) {
        if (child == m_child)
            onAudio(chunk);
    };
    // ffmpeg's progress line is rewritten a few times a second; it must be read anyway,
    // or ffmpeg blocks on a full pipe after some minutes.
    callbacks.onStderrLine = [this, child](const QByteArray &line) {
        if (child == m_child)
            m_lastStderrLine = QString::fromUtf8(line).trimmed();
    };
    callbacks.onFinished = [this, child](const ChildProcessResult &result) {
        if (child == m_child)
            onFfmpegFinished(result);
    };
    child->start(std::move(options), std::move(callbacks));
}

void RelayWorker::onLaunched()
{
    pid = m_child->processId();
    m_server = new QTcpServer(this);
    // Loopback only; the handed-out URL names 127.0.0.1 and so does the Host we accept.
    const bool listening = m_server->listen(QHostAddress::LocalHost, 0) && m_server->serverPort() != 0;
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/stream.mp3").arg(m_server->serverPort()), QUrl::StrictMode);
    if (!listening || !url.isValid()) {
        // We are inside the child's own signal: it is ended from the event loop.
        QMetaObject::invokeMethod(
            this,
            [this, generation = m_generation] {
                if (generation == m_generation && m_pendingDone)
                    stopRelay();
            },
            Qt::QueuedConnection);
        return;
    }
    m_port = m_server->serverPort();
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (m_server && m_server->hasPendingConnections())
            admit(m_server->nextPendingConnection());
    });
    answerStart(url);
}

void RelayWorker::answerStart(std::optional<QUrl> url)
{
    if (m_pendingDone)
        m_reportStart(m_generation, std::move(url), std::exchange(m_pendingDone, {}));
}

void RelayWorker::onAudio(const QByteArray &chunk)
{
    if (m_client) {
        m_client->write(chunk);
        // A client that stopped reading would make us hold the station for it forever.
        if (m_client->bytesToWrite() > RadioPlayback::kMaxClientBacklogBytes) {
            QTcpSocket *slow = std::exchange(m_client, nullptr);
            slow->abort();
            slow->deleteLater();
        }
        return;
    }
    m_backlog.append(chunk);
    if (m_backlog.size() > 2 * RadioPlayback::kBacklogBytes)
        m_backlog.remove(0, m_backlog.size() - RadioPlayback::kBacklogBytes);
}

void RelayWorker::onFfmpegFinished(const ChildProcessResult &)
{
    if (m_pendingDone) { // it never ran
        stopRelay();
        return;
    }
    const QString reason = m_lastStderrLine;
    // The client gets what ffmpeg wrote last and then the end of its body; everything
    // else ends now. (The child may be deleted from its own onFinished.)
    if (m_client)
        closeGently(std::exchange(m_client, nullptr));
    endRelay(false);
    m_reportEnd(m_generation, reason);
}

void RelayWorker::admit(QTcpSocket *socket)
{
    socket->setParent(this);
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
        m_requests.remove(socket);
        if (m_client == socket)
            m_client = nullptr; // the slot is free for the next client
        socket->deleteLater();
    });
    if (m_requests.size() >= kMaxPendingRequests) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    m_requests.insert(socket, {});
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onRequestBytes(socket); });
    QTimer::singleShot(kRequestTimeoutMs, socket, [this, socket] {
        if (m_requests.contains(socket))
            refuse(socket, 400);
    });
}

void RelayWorker::onRequestBytes(QTcpSocket *socket)
{
    const auto it = m_requests.find(socket);
    if (it == m_requests.end()) {
        // The client being served, or one being sent away: what it says changes nothing.
        socket->readAll();
        return;
    }
    QByteArray &received = *it;
    received += socket->read(RadioPlayback::kMaxRequestBytes + 1 - received.size());
    const std::optional<qsizetype> head = RelayRequest::headLength(received);
    if (!head) {
        if (received.size() > RadioPlayback::kMaxRequestBytes)
            refuse(socket, 400);
        return;
    }
    const int status = RelayRequest::status(QByteArrayView(received).first(*head), m_port);
    if (status != 200)
        refuse(socket, status);
    else if (m_client)
        refuse(socket, 503);
    else
        serve(socket);
}

void RelayWorker::refuse(QTcpSocket *socket, int status)
{
    m_requests.remove(socket);
    socket->write(RelayRequest::refusal(status));
    closeGently(socket);
}

void RelayWorker::serve(QTcpSocket *socket)
{
    m_requests.remove(socket);
    m_client = socket;
    socket->write(RadioPlayback::responseHead());
    if (m_backlog.size() > RadioPlayback::kBacklogBytes)
        m_backlog.remove(0, m_backlog.size() - RadioPlayback::kBacklogBytes);
    if (!m_backlog.isEmpty())
        socket->write(std::exchange(m_backlog, {}));
}

void RelayWorker::closeGently(QTcpSocket *socket)
{
    m_closing.removeAll(nullptr);
    m_closing << socket;
    socket->disconnectFromHost();
    // A peer that does not read what is left cannot keep the socket.
    QTimer::singleShot(kLingerMs, socket, [socket] { socket->abort(); });
}

void RelayWorker::stopRelay()
{
    endRelay(true);
}

void RelayWorker::endRelay(bool abortClosing)
{
    pid = 0;
    // Kills the process group and reaps ffmpeg; no callback of it follows.
    delete std::exchange(m_child, nullptr);
    delete std::exchange(m_server, nullptr);
    m_port = 0;
    QList<QTcpSocket *> sockets = m_requests.keys();
    m_requests.clear();
    if (m_client)
        sockets << std::exchange(m_client, nullptr);
    m_closing.removeAll(nullptr);
    if (abortClosing) {
        for (const QPointer<QTcpSocket> &closing : std::exchange(m_closing, {}))
            sockets << closing.data();
    }
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
    m_backlog.clear();
    m_lastStderrLine.clear();
    answerStart(std::nullopt);
}

RadioPlayback::RadioPlayback(QString ffmpegPath, QObject *parent)
    : QObject(parent)
    , m_ffmpegPath(std::move(ffmpegPath))
{
    auto reportStart = [this](quint64 generation, std::optional<QUrl> url, Done done) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, url = std::move(url), done = std::move(done)] {
                // Overtaken by a later start() or a stop(): its relay is gone already.
                if (generation != m_startGeneration) {
                    done(std::nullopt);
                    return;
                }
                m_url = url;
                done(url);
            },
            Qt::QueuedConnection);
    };
    auto reportEnd = [this](quint64 generation, QString reason) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, reason = std::move(reason)] {
                if (generation != m_startGeneration || !m_url)
                    return;
                m_url.reset();
                Q_EMIT ended(reason);
            },
            Qt::QueuedConnection);
    };
    m_worker = new RelayWorker(m_ffmpegPath, std::move(reportStart), std::move(reportEnd));
    m_worker->moveToThread(&m_thread);
    m_thread.setObjectName(QStringLiteral("ov.radio.pb"));
    m_thread.start();
}

RadioPlayback::~RadioPlayback()
{
    ++m_startGeneration;
    // Blocking: ffmpeg must be gone when we are, and the worker may touch nothing of ours
    // afterwards. It only kills and reaps, which takes milliseconds.
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker] { worker->stopRelay(); }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    delete m_worker; // its thread has ended
}

void RadioPlayback::start(const Station &station, std::function<void(std::optional<QUrl>)> done)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const quint64 generation = ++m_startGeneration;
    m_url.reset();
    QMetaObject::invokeMethod(
        m_worker,
        [worker = m_worker, generation, streamUrl = station.streamUrl, done = std::move(done)]() mutable {
            worker->start(generation, streamUrl, std::move(done));
        },
        Qt::QueuedConnection);
}

void RadioPlayback::stop()
{
    Q_ASSERT(QThread::currentThread() == thread());
    ++m_startGeneration;
    m_url.reset();
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker] { worker->stopRelay(); }, Qt::QueuedConnection);
}

bool RadioPlayback::isRunning() const
{
    return m_url.has_value();
}

std::optional<QUrl> RadioPlayback::url() const
{
    return m_url;
}

qint64 RadioPlayback::processId() const
{
    return m_worker->pid;
}

QStringList RadioPlayback::ffmpegArguments(const QString &streamUrl)
{
    return { QStringLiteral("-i"), streamUrl, QStringLiteral("-vn"), QStringLiteral("-acodec"),
        QStringLiteral("libmp3lame"), QStringLiteral("-q:a"), QStringLiteral("4"), QStringLiteral("-f"),
        QStringLiteral("mp3"), QStringLiteral("pipe:1") };
}

QByteArray RadioPlayback::responseHead()
{
    return QByteArrayLiteral("HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nCache-Control: no-cache\r\n\r\n");
}

bool RadioPlayback::isRelayableAddress(const QString &streamUrl)
{
    // ffmpeg picks its protocol from the raw text before the first colon, so the text
    // itself must start with the scheme QUrl found; no whitespace or control characters
    // that the two might read differently.
    for (const QChar c : streamUrl) {
        if (c.unicode() <= 0x20 || c.unicode() == 0x7F)
            return false;
    }
    const QUrl url(streamUrl, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString scheme = url.scheme();
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https"))
        return false;
    return streamUrl.startsWith(scheme + QLatin1String("://"), Qt::CaseInsensitive);
}
