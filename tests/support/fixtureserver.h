#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QThread>

#include <functional>
#include <memory>

// A loopback HTTP server for tests whose answers are scripted byte by byte: status
// line, headers, body pieces, pauses and disconnects. It runs on its own thread, so a
// test may block its own thread while the server keeps answering.
//
// Every later test of the network code (directory, streams, releases, faults) uses it.
class FixtureServer {
public:
    struct Request {
        QByteArray method;
        QByteArray target; // path and query, as sent
        QByteArray path;   // target without the query
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray header(QByteArrayView name) const;
    };

    // One step of an answer.
    struct Step {
        enum class Kind { Send, Pause, Close, Hang, Produce };
        Kind kind = Kind::Send;
        QByteArray bytes;    // Send
        int ms = 0;          // Pause; Produce: interval between pieces
        // Produce: called repeatedly; returns the next piece, or an empty array to end.
        std::function<QByteArray()> produce;
    };

    class Script {
    public:
        Script &send(QByteArray bytes);
        Script &pause(int ms);
        Script &close();           // drop the connection here (also the implied end)
        Script &hang();            // keep the connection open and send nothing more
        Script &produce(int intervalMs, std::function<QByteArray()> next);

        // Convenience: a complete response with Content-Length (or none with `chunked` off and
        // `closeDelimited` on), e.g. Script::response(200, "application/json", body).
        static Script response(int status, const QByteArray &contentType, const QByteArray &body,
                               const QList<std::pair<QByteArray, QByteArray>> &extraHeaders = {});
        static Script head(const QByteArray &statusLine, const QList<std::pair<QByteArray, QByteArray>> &headers);

        QList<Step> steps;
    };

    using Handler = std::function<Script(const Request &)>;

    FixtureServer();
    ~FixtureServer();

    // Answers requests whose path equals `path` (query ignored). Later routes win.
    void route(const QByteArray &path, Script script);
    void route(const QByteArray &path, Handler handler);
    // Requests no route matches get this; default: 404 with a short body.
    void fallback(Handler handler);

    quint16 port() const { return m_port; }
    QByteArray url(const QByteArray &pathAndQuery = "/") const;

    // Requests seen so far (thread-safe copy).
    QList<Request> requests() const;
    int requestCount(const QByteArray &path) const;
    // Connections currently open.
    int openConnections() const;

private:
    class Impl;
    QThread m_thread;
    Impl *m_impl = nullptr; // lives on m_thread
    quint16 m_port = 0;
};
