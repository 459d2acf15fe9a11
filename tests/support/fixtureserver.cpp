#include "fixtureserver.h"

#include <QEventLoop>
#include <QMetaObject>
#include <QMutexLocker>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <atomic>

QByteArray FixtureServer::Request::header(QByteArrayView name) const
{
    for (const auto &[n, v] : headers) {
        if (QByteArrayView(n).compare(name, Qt::CaseInsensitive) == 0)
            return v;
    }
    return {};
}

FixtureServer::Script &FixtureServer::Script::send(QByteArray bytes)
{
    steps.append({Step::Kind::Send, std::move(bytes), 0, {}});
    return *this;
}

FixtureServer::Script &FixtureServer::Script::pause(int ms)
{
    steps.append({Step::Kind::Pause, {}, ms, {}});
    return *this;
}

FixtureServer::Script &FixtureServer::Script::close()
{
    steps.append({Step::Kind::Close, {}, 0, {}});
    return *this;
}

FixtureServer::Script &FixtureServer::Script::hang()
{
    steps.append({Step::Kind::Hang, {}, 0, {}});
    return *this;
}

FixtureServer::Script &FixtureServer::Script::produce(int intervalMs, std::function<QByteArray()> next)
{
    steps.append({Step::Kind::Produce, {}, intervalMs, std::move(next)});
    return *this;
}

FixtureServer::Script FixtureServer::Script::head(const QByteArray &statusLine,
                                                  const QList<std::pair<QByteArray, QByteArray>> &headers)
{
    QByteArray out = statusLine + "\r\n";
    for (const auto &[n, v] : headers)
        out += n + ": " + v + "\r\n";
    out += "\r\n";
    Script s;
    s.send(out);
    return s;
}

FixtureServer::Script FixtureServer::Script::response(int status, const QByteArray &contentType,
                                                      const QByteArray &body,
                                                      const QList<std::pair<QByteArray, QByteArray>> &extraHeaders)
{
    QList<std::pair<QByteArray, QByteArray>> headers{
        {"Content-Type", contentType},
        {"Content-Length", QByteArray::number(body.size())},
        {"Connection", "close"},
    };
    headers += extraHeaders;
    Script s = head("HTTP/1.1 " + QByteArray::number(status) + " Fixture", headers);
    s.send(body);
    return s;
}

class FixtureServer::Impl : public QObject {
public:
    QTcpServer server;
    mutable QMutex mutex; // guards routes, requests
    QList<std::pair<QByteArray, Handler>> routes;
    Handler fallbackHandler;
    QList<Request> requests;
    std::atomic<int> open{0};

    Impl()
    {
        fallbackHandler = [](const Request &) {
            return Script::response(404, "text/plain", "not found");
        };
        QObject::connect(&server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = server.nextPendingConnection())
                accept(socket);
        });
    }

    void accept(QTcpSocket *socket)
    {
        ++open;
        auto buffer = std::make_shared<QByteArray>();
        auto answered = std::make_shared<bool>(false);
        QObject::connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
            --open;
            socket->deleteLater();
        });
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer, answered] {
            *buffer += socket->readAll();
            if (*answered)
                return;
            const qsizetype end = buffer->indexOf("\r\n\r\n");
            if (end < 0) {
                if (buffer->size() > 65536)
                    socket->abort();
                return;
            }
            *answered = true;
            Request request = parse(buffer->left(end));
            Handler handler;
            {
                QMutexLocker lock(&mutex);
                requests.append(request);
                handler = fallbackHandler;
                for (qsizetype i = routes.size() - 1; i >= 0; --i) {
                    if (routes[i].first == request.path) {
                        handler = routes[i].second;
                        break;
                    }
                }
            }
            run(socket, std::make_shared<Script>(handler(request)), 0);
        });
    }

    static Request parse(const QByteArray &headBytes)
    {
        Request r;
        const QList<QByteArray> lines = headBytes.split('\n');
        const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
        r.method = first.value(0);
        r.target = first.value(1);
        const qsizetype q = r.target.indexOf('?');
        r.path = q < 0 ? r.target : r.target.left(q);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines[i].trimmed();
            const qsizetype colon = line.indexOf(':');
            if (colon > 0)
                r.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
        return r;
    }

    // Runs the script from `index` on; pauses re-enter through a timer with the socket
    // as context, so a client that disconnects simply ends the script.
    void run(QTcpSocket *socket, std::shared_ptr<Script> script, qsizetype index)
    {
        for (; index < script->steps.size(); ++index) {
            Step &step = script->steps[index];
            switch (step.kind) {
            case Step::Kind::Send:
                socket->write(step.bytes);
                socket->flush();
                break;
            case Step::Kind::Pause:
                QTimer::singleShot(step.ms, socket, [this, socket, script, index] { run(socket, script, index + 1); });
                return;
            case Step::Kind::Close:
                closeSoon(socket);
                return;
            case Step::Kind::Hang:
                return;
            case Step::Kind::Produce: {
                const QByteArray piece = step.produce();
                if (piece.isEmpty())
                    break;
                socket->write(piece);
                socket->flush();
                QTimer::singleShot(step.ms, socket, [this, socket, script, index] { run(socket, script, index); });
                return;
            }
            }
        }
        closeSoon(socket);
    }

    static void closeSoon(QTcpSocket *socket)
    {
        // Let the written bytes leave before the FIN.
        if (socket->bytesToWrite() > 0) {
            QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [socket] {
                if (socket->bytesToWrite() == 0)
                    socket->disconnectFromHost();
            });
        } else {
            socket->disconnectFromHost();
        }
    }
};

FixtureServer::FixtureServer()
{
    m_thread.setObjectName(QStringLiteral("fixture-server"));
    m_thread.start();
    QSemaphore ready;
    m_impl = new Impl;
    m_impl->moveToThread(&m_thread);
    m_impl->server.moveToThread(&m_thread);
    QMetaObject::invokeMethod(m_impl, [this, &ready] {
        m_impl->server.listen(QHostAddress::LocalHost, 0);
        m_port = m_impl->server.serverPort();
        ready.release();
    }, Qt::QueuedConnection);
    ready.acquire();
}

FixtureServer::~FixtureServer()
{
    QMetaObject::invokeMethod(m_impl, [this] { delete m_impl; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

QByteArray FixtureServer::url(const QByteArray &pathAndQuery) const
{
    return "http://127.0.0.1:" + QByteArray::number(m_port) + pathAndQuery;
}

void FixtureServer::route(const QByteArray &path, Script script)
{
    route(path, [script](const Request &) { return script; });
}

void FixtureServer::route(const QByteArray &path, Handler handler)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->routes.append({path, std::move(handler)});
}

void FixtureServer::fallback(Handler handler)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->fallbackHandler = std::move(handler);
}

QList<FixtureServer::Request> FixtureServer::requests() const
{
    QMutexLocker lock(&m_impl->mutex);
    return m_impl->requests;
}

int FixtureServer::requestCount(const QByteArray &path) const
{
    QMutexLocker lock(&m_impl->mutex);
    int n = 0;
    for (const Request &r : m_impl->requests)
        n += r.path == path;
    return n;
}

int FixtureServer::openConnections() const
{
    return m_impl->open.load();
}
