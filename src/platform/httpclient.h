#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

struct HttpHeader {
    QByteArray name;
    QByteArray value;
};

struct HttpRequest {
    QByteArray url;
    // Sent exactly as given, in this order. The client adds nothing of its own but Host
    // (no Accept, no User-Agent, no Accept-Encoding: bodies are never decompressed).
    QList<HttpHeader> headers;
    // No byte received for this long ends the request with HttpError::Timeout, from the
    // start of the request through the last body byte. 0 = never.
    double idleTimeoutSec = 0;
    // The whole request must finish within this time. 0 = never.
    double totalTimeoutSec = 0;
    long maxRedirects = 10;
    // One-shot GETs only: a body larger than this fails with BodyTooLarge.
    qint64 maxBodyBytes = qint64(64) << 20;
};

struct HttpResponseHead {
    int statusCode = 0;
    QByteArray statusLine; // as received, e.g. "ICY 200 OK"
    QList<HttpHeader> headers;
    QByteArray url; // after redirects

    // First value of a header, name compared case-insensitively; empty when absent.
    [[nodiscard]] QByteArray header(QByteArrayView name) const;
    [[nodiscard]] bool hasHeader(QByteArrayView name) const;
};

enum class HttpError {
    None,
    InvalidUrl,
    HostNotFound,
    ConnectionFailed,
    Tls,
    Timeout,
    TooManyRedirects,
    Protocol,
    BodyTooLarge,
    FileWrite,
    Cancelled,
    Other,
};

struct HttpResult {
    HttpError error = HttpError::None;
    QString message; // human-readable description, empty on success
    [[nodiscard]] bool ok() const { return error == HttpError::None; }
};

// Human-readable text of an error, for display ("The request timed out.").
QString describe(HttpError error);

class HttpClient;

// A running request. Copyable handle; the transfer lives until it finishes or is
// cancelled, whether or not a handle is kept.
class HttpTransfer {
public:
    HttpTransfer() = default;
    // After cancel() returns on the context's thread no callback of this transfer runs
    // any more; the finished callback is not called. Safe from any thread, idempotent.
    void cancel();
    [[nodiscard]] bool isValid() const { return bool(m_state); }

    struct State; // shared by the worker and the context's thread; httpclient.cpp only
    explicit HttpTransfer(std::shared_ptr<State> state) : m_state(std::move(state)) {}

private:
    std::shared_ptr<State> m_state;
};

// Callbacks of a streaming GET. They run on the thread of the context object given to
// HttpClient::stream(), in this order: head once (when the final response's header block
// is complete), data zero or more times, finished once. Consecutive small chunks that
// arrive while the context thread is busy are delivered together in one call.
struct HttpStreamCallbacks {
    std::function<void(const HttpResponseHead &)> onHead;
    std::function<void(const QByteArray &chunk)> onData;
    std::function<void(const HttpResult &)> onFinished;
};

// The project's only HTTP client, over libcurl's multi interface.
//
// One worker thread runs every transfer; no other thread ever blocks on the network.
// Results are handed to the caller's thread through its Qt event loop (queued calls to
// the given context object; nothing is delivered once that object is gone).
// Accepts Shoutcast's "ICY 200 OK", follows redirects (bounded), verifies TLS against
// the system CA store.
class HttpClient {
public:
    HttpClient();
    ~HttpClient(); // cancels whatever still runs and joins the worker

    // Ends every transfer with HttpError::Cancelled (callbacks still run, on their
    // contexts) and refuses new ones the same way; for a shutdown that must first
    // release thread-pool tasks blocked in getBlocking(). Any thread; idempotent.
    void beginShutdown();
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;

    HttpTransfer stream(const HttpRequest &request, QObject *context, HttpStreamCallbacks callbacks);

    using GetCallback = std::function<void(const HttpResult &, const HttpResponseHead &, const QByteArray &body)>;
    // One-shot GET: the whole body in one callback.
    HttpTransfer get(const HttpRequest &request, QObject *context, GetCallback callback);

    // Writes the body to `filePath` (truncating it). On failure the file is removed.
    using DownloadCallback = std::function<void(const HttpResult &, const HttpResponseHead &)>;
    HttpTransfer download(const HttpRequest &request, const QString &filePath, QObject *context,
                          DownloadCallback callback);

    // For worker threads (thread-pool tasks) only, never the GUI thread: waits for the
    // whole answer. The request's time-outs bound the wait, and so does the shutdown:
    // once it has begun, a waiting or later call returns with HttpError::Cancelled.
    struct BlockingResult {
        HttpResult result;
        HttpResponseHead head;
        QByteArray body;
    };
    [[nodiscard]] BlockingResult getBlocking(const HttpRequest &request);

    // Number of transfers the worker is running (for tests and diagnostics).
    [[nodiscard]] int activeTransfers() const;

    struct Worker; // httpclient.cpp only

private:
    HttpTransfer start(std::shared_ptr<HttpTransfer::State> state);
    // Shared with every transfer's state, so a handle that outlives the client can still
    // be cancelled harmlessly.
    std::shared_ptr<Worker> m_worker;
};
