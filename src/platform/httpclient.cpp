#include "platform/httpclient.h"

#include <QFile>
#include <QMetaObject>

#include <curl/curl.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A stream whose consumer falls this far behind is paused at the socket instead of
// buffering without bound; it resumes once the consumer has taken the data.
constexpr qsizetype kMaxPendingStreamBytes = 4 << 20;

// With many streams open, the worker lets data collect in the sockets for a moment
// between rounds: every round costs a wake-up, a system call per ready socket and a hand-
// over per stream, and a recording gains nothing from hearing of each packet at once. A
// few transfers (a search, a download) are served without delay.
constexpr int kBatchFromStreams = 8;
constexpr auto kBatchInterval = std::chrono::milliseconds(40);

bool startsWithCaseless(QByteArrayView line, QByteArrayView prefix)
{
    return line.size() >= prefix.size() && line.first(prefix.size()).compare(prefix, Qt::CaseInsensitive) == 0;
}

} // namespace

QByteArray HttpResponseHead::header(QByteArrayView name) const
{
    for (const HttpHeader &h : headers) {
        if (QByteArrayView(h.name).compare(name, Qt::CaseInsensitive) == 0)
            return h.value;
    }
    return {};
}

bool HttpResponseHead::hasHeader(QByteArrayView name) const
{
    for (const HttpHeader &h : headers) {
        if (QByteArrayView(h.name).compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QString describe(HttpError error)
{
    switch (error) {
    case HttpError::None: return {};
    case HttpError::InvalidUrl: return QStringLiteral("The URL is not valid.");
    case HttpError::HostNotFound: return QStringLiteral("A server with the specified hostname could not be found.");
    case HttpError::ConnectionFailed: return QStringLiteral("Could not connect to the server.");
    case HttpError::Tls: return QStringLiteral("A secure connection to the server could not be made.");
    case HttpError::Timeout: return QStringLiteral("The request timed out.");
    case HttpError::TooManyRedirects: return QStringLiteral("Too many HTTP redirects.");
    case HttpError::Protocol: return QStringLiteral("The server sent an invalid response.");
    case HttpError::BodyTooLarge: return QStringLiteral("The response is too large.");
    case HttpError::FileWrite: return QStringLiteral("The download could not be written to disk.");
    case HttpError::Cancelled: return QStringLiteral("The request was cancelled.");
    case HttpError::Other: return QStringLiteral("The network connection failed.");
    }
    return {};
}

// Shared between the worker thread (which fills it) and the context's thread (which
// drains it). Fields under `mutex` are touched by both; the worker-only and
// context-only groups are marked.
struct HttpTransfer::State : std::enable_shared_from_this<HttpTransfer::State> {
    enum class Mode { Stream, Buffer, File };

    Mode mode = Mode::Stream;
    HttpRequest request;
    QString filePath;
    QObject *context = nullptr;
    std::weak_ptr<HttpClient::Worker> worker;
    std::atomic<bool> cancelled{false};

    // Context thread only.
    HttpStreamCallbacks streamCallbacks;
    HttpClient::GetCallback getCallback;
    HttpClient::DownloadCallback downloadCallback;
    bool headDelivered = false;
    QMetaObject::Connection contextGuard;

    // Guarded by mutex.
    std::mutex mutex;
    bool contextAlive = true;
    bool deliveryScheduled = false;
    bool headReady = false;
    HttpResponseHead head;
    QByteArray pending;
    bool paused = false;
    bool finished = false;
    HttpResult result;

    // Worker thread only.
    HttpClient::Worker *owner = nullptr;
    CURL *easy = nullptr;
    curl_slist *headerList = nullptr;
    FILE *file = nullptr;
    HttpResponseHead parsing; // head of the response being received (redirects reset it)
    Clock::time_point lastActivity;
    Clock::time_point startedAt;
    bool workerPaused = false;
    bool dirty = false; // something to hand over after this round of curl work
    bool bodyTooLarge = false;
    bool fileFailed = false;
    bool done = false;
};

struct HttpClient::Worker {
    enum class Command { Add, Remove, Resume };

    std::thread thread;
    std::mutex mutex;
    std::deque<std::pair<Command, std::shared_ptr<HttpTransfer::State>>> commands;
    bool quit = false;
    CURLM *multi = nullptr;
    curl_slist *icyAliases = nullptr;
    int epollFd = -1; // the sockets curl wants watched, and wakeFd
    int wakeFd = -1; // an eventfd: commands are waiting, or quit
    std::atomic<int> activeCount{0};

    // Worker thread only.
    std::unordered_set<std::shared_ptr<HttpTransfer::State>> active;
    std::vector<HttpTransfer::State *> dirty; // active transfers with something to hand over
    std::optional<Clock::time_point> curlDeadline; // when curl wants to be called without an event
    Clock::time_point nextTimeoutScan; // no time-out of ours can fall before this
    int activeStreams = 0;

    ~Worker()
    {
        curl_multi_cleanup(multi);
        curl_slist_free_all(icyAliases);
        if (epollFd >= 0)
            ::close(epollFd);
        if (wakeFd >= 0)
            ::close(wakeFd);
    }

    void wake() const
    {
        const quint64 one = 1;
        [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
    }

    void post(Command command, std::shared_ptr<HttpTransfer::State> state)
    {
        {
            std::lock_guard lock(mutex);
            if (!quit) {
                const bool first = commands.empty();
                commands.emplace_back(command, std::move(state));
                if (first)
                    wake();
                return;
            }
        }
        // Shutting down: a request that will never run still ends, or a blocking caller
        // would wait for ever.
        if (command == Command::Add)
            abandon(state);
    }

    static void post(const std::weak_ptr<Worker> &worker, Command command,
                     std::shared_ptr<HttpTransfer::State> state)
    {
        if (auto w = worker.lock())
            w->post(command, std::move(state));
    }

    void run();
    static void abandon(const std::shared_ptr<HttpTransfer::State> &s);
    void add(const std::shared_ptr<HttpTransfer::State> &s);
    void finish(const std::shared_ptr<HttpTransfer::State> &s, HttpResult result);
    void scheduleDelivery(const std::shared_ptr<HttpTransfer::State> &s);

    void markDirty(HttpTransfer::State *s);
    void deliverDirty();
    void readMessages();
    void expireTimeouts(Clock::time_point now);
    void socketAction(curl_socket_t fd, int events);

    static size_t onHeader(char *data, size_t size, size_t count, void *user);
    static size_t onBody(char *data, size_t size, size_t count, void *user);
    static int onSocket(CURL *easy, curl_socket_t fd, int what, void *user, void *socketData);
    static int onTimer(CURLM *multi, long timeoutMs, void *user);
};

namespace {

void drain(const std::shared_ptr<HttpTransfer::State> &s)
{
    HttpResponseHead head;
    bool deliverHead = false;
    QByteArray data;
    bool finished = false;
    HttpResult result;
    bool resume = false;
    {
        std::lock_guard lock(s->mutex);
        s->deliveryScheduled = false;
        if (s->headReady && !s->headDelivered) {
            head = s->head;
            deliverHead = true;
            s->headDelivered = true;
        }
        data.swap(s->pending);
        finished = s->finished;
        result = s->result;
        if (s->paused && !finished) {
            s->paused = false;
            resume = true;
        }
    }
    if (s->cancelled.load()) {
        // Callbacks often capture the handle of their own transfer; dropping them here,
        // outside any of them, breaks that cycle once a cancelled transfer is done.
        if (finished) {
            [[maybe_unused]] auto stream = std::move(s->streamCallbacks);
            [[maybe_unused]] auto get = std::move(s->getCallback);
            [[maybe_unused]] auto download = std::move(s->downloadCallback);
            QObject::disconnect(s->contextGuard);
        }
        return;
    }
    if (resume)
        HttpClient::Worker::post(s->worker, HttpClient::Worker::Command::Resume, s);

    using Mode = HttpTransfer::State::Mode;
    if (s->mode == Mode::Stream) {
        if (deliverHead && s->streamCallbacks.onHead)
            s->streamCallbacks.onHead(head);
        if (!data.isEmpty() && !s->cancelled.load() && s->streamCallbacks.onData)
            s->streamCallbacks.onData(data);
    }
    if (!finished || s->cancelled.load())
        return;

    QObject::disconnect(s->contextGuard);
    // Move the callbacks out so their captures die with this call, not with the state.
    switch (s->mode) {
    case Mode::Stream: {
        auto callbacks = std::move(s->streamCallbacks);
        if (callbacks.onFinished)
            callbacks.onFinished(result);
        break;
    }
    case Mode::Buffer: {
        auto callback = std::move(s->getCallback);
        if (callback)
            callback(result, s->head, data);
        break;
    }
    case Mode::File: {
        auto callback = std::move(s->downloadCallback);
        if (callback)
            callback(result, s->head);
        break;
    }
    }
}

HttpError mapCurlError(CURLcode code)
{
    switch (code) {
    case CURLE_OK: return HttpError::None;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL: return HttpError::InvalidUrl;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return HttpError::HostNotFound;
    case CURLE_COULDNT_CONNECT:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING: return HttpError::ConnectionFailed;
    case CURLE_OPERATION_TIMEDOUT: return HttpError::Timeout;
    case CURLE_TOO_MANY_REDIRECTS: return HttpError::TooManyRedirects;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR: return HttpError::Tls;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return HttpError::Protocol;
    default: return HttpError::Other;
    }
}

} // namespace

void HttpClient::Worker::scheduleDelivery(const std::shared_ptr<HttpTransfer::State> &s)
{
    // Called with s->mutex held. One queued drain at a time per transfer: chunks that
    // arrive before it runs are appended to `pending` and ride along.
    if (s->deliveryScheduled || !s->contextAlive || (s->cancelled.load() && !s->finished))
        return;
    s->deliveryScheduled = true;
    QMetaObject::invokeMethod(s->context, [s] { drain(s); }, Qt::QueuedConnection);
}

size_t HttpClient::Worker::onHeader(char *data, size_t size, size_t count, void *user)
{
    auto *s = static_cast<HttpTransfer::State *>(user);
    const size_t bytes = size * count;
    s->lastActivity = Clock::now();
    QByteArrayView line(data, qsizetype(bytes));
    const QByteArrayView trimmed = line.trimmed();

    if (startsWithCaseless(line, "HTTP/") || startsWithCaseless(line, "ICY ")) {
        s->parsing = HttpResponseHead{};
        s->parsing.statusLine = trimmed.toByteArray();
        const qsizetype space = trimmed.indexOf(' ');
        if (space > 0)
            s->parsing.statusCode = trimmed.sliced(space + 1).first(std::min<qsizetype>(3, trimmed.size() - space - 1)).toByteArray().toInt();
        return bytes;
    }
    if (trimmed.isEmpty()) {
        const int code = s->parsing.statusCode;
        const bool interim = code >= 100 && code < 200;
        const bool redirect = (code == 301 || code == 302 || code == 303 || code == 307 || code == 308)
            && s->parsing.hasHeader("location") && s->request.maxRedirects > 0;
        if (interim || redirect)
            return bytes;
        char *effective = nullptr;
        curl_easy_getinfo(s->easy, CURLINFO_EFFECTIVE_URL, &effective);
        s->parsing.url = effective ? QByteArray(effective) : s->request.url;
        std::lock_guard lock(s->mutex);
        s->head = s->parsing;
        s->headReady = true;
        if (s->mode == HttpTransfer::State::Mode::Stream)
            s->owner->markDirty(s);
        return bytes;
    }
    if ((line.startsWith(' ') || line.startsWith('\t')) && !s->parsing.headers.isEmpty()) {
        // Obsolete line folding: continues the previous header's value.
        s->parsing.headers.last().value += ' ' + trimmed.toByteArray();
        return bytes;
    }
    const qsizetype colon = line.indexOf(':');
    if (colon > 0) {
        s->parsing.headers.append({line.first(colon).trimmed().toByteArray(),
                                   line.sliced(colon + 1).trimmed().toByteArray()});
    }
    return bytes;
}

size_t HttpClient::Worker::onBody(char *data, size_t size, size_t count, void *user)
{
    auto *s = static_cast<HttpTransfer::State *>(user);
    const size_t bytes = size * count;
    s->lastActivity = Clock::now();
    using Mode = HttpTransfer::State::Mode;
    switch (s->mode) {
    case Mode::File:
        if (std::fwrite(data, 1, bytes, s->file) != bytes) {
            s->fileFailed = true;
            return 0;
        }
        return bytes;
    case Mode::Buffer: {
        std::lock_guard lock(s->mutex);
        if (s->pending.size() + qsizetype(bytes) > s->request.maxBodyBytes) {
            s->bodyTooLarge = true;
            return 0;
        }
        s->pending.append(data, qsizetype(bytes));
        return bytes;
    }
    case Mode::Stream: {
        std::lock_guard lock(s->mutex);
        if (s->pending.size() >= kMaxPendingStreamBytes) {
            s->paused = true;
            s->workerPaused = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        s->pending.append(data, qsizetype(bytes));
        s->owner->markDirty(s);
        return bytes;
    }
    }
    return 0;
}

void HttpClient::Worker::add(const std::shared_ptr<HttpTransfer::State> &s)
{
    if (s->cancelled.load())
        return;
    s->startedAt = s->lastActivity = Clock::now();
    s->owner = this;
    using Mode = HttpTransfer::State::Mode;
    if (s->mode == Mode::File) {
        s->file = std::fopen(QFile::encodeName(s->filePath).constData(), "wb");
        if (!s->file) {
            finish(s, {HttpError::FileWrite, describe(HttpError::FileWrite)});
            return;
        }
    }

    CURL *e = curl_easy_init();
    s->easy = e;
    curl_easy_setopt(e, CURLOPT_URL, s->request.url.constData());
    curl_easy_setopt(e, CURLOPT_PRIVATE, s.get());
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, s->request.maxRedirects > 0 ? 1L : 0L);
    curl_easy_setopt(e, CURLOPT_MAXREDIRS, s->request.maxRedirects);
    curl_easy_setopt(e, CURLOPT_HTTP200ALIASES, icyAliases);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &Worker::onHeader);
    curl_easy_setopt(e, CURLOPT_HEADERDATA, s.get());
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &Worker::onBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, s.get());
    // A stream's small receive buffer keeps memory per connection low; curl reads
    // whatever is there on each wake-up anyway.
    if (s->mode == Mode::Stream)
        curl_easy_setopt(e, CURLOPT_BUFFERSIZE, 16384L);

    // curl sends "Accept: */*" unless told otherwise; we send only what we were given.
    bool hasAccept = false;
    for (const HttpHeader &h : s->request.headers) {
        hasAccept = hasAccept || h.name.compare("accept", Qt::CaseInsensitive) == 0;
        const QByteArray line = h.name + ": " + h.value;
        s->headerList = curl_slist_append(s->headerList, line.constData());
    }
    if (!hasAccept)
        s->headerList = curl_slist_append(s->headerList, "Accept:");
    curl_easy_setopt(e, CURLOPT_HTTPHEADER, s->headerList);

    curl_multi_add_handle(multi, e);
    active.insert(s);
    activeCount.store(int(active.size()));
    activeStreams += s->mode == Mode::Stream ? 1 : 0;
    nextTimeoutScan = Clock::now(); // its deadlines may come before the ones known
}

void HttpClient::Worker::finish(const std::shared_ptr<HttpTransfer::State> &s, HttpResult result)
{
    if (s->done)
        return;
    s->done = true;
    if (s->easy) {
        curl_multi_remove_handle(multi, s->easy);
        curl_easy_cleanup(s->easy);
        s->easy = nullptr;
    }
    curl_slist_free_all(s->headerList);
    s->headerList = nullptr;
    if (s->file) {
        if (std::fclose(s->file) != 0 && result.ok())
            result = {HttpError::FileWrite, describe(HttpError::FileWrite)};
        s->file = nullptr;
    }
    if (s->mode == HttpTransfer::State::Mode::File && !result.ok())
        QFile::remove(s->filePath);
    if (s->dirty) {
        s->dirty = false;
        std::erase(dirty, s.get());
    }
    if (active.erase(s) > 0 && s->mode == HttpTransfer::State::Mode::Stream)
        --activeStreams;
    activeCount.store(int(active.size()));

    {
        std::lock_guard lock(s->mutex);
        if (!s->headReady && s->parsing.statusCode != 0) {
            // The last response was one we expected curl to follow but it did not.
            s->head = s->parsing;
            s->headReady = true;
        }
        s->finished = true;
        s->result = std::move(result);
        s->deliveryScheduled = false; // the final hand-over must go out even if one is queued
        if (s->context)
            scheduleDelivery(s);
    }
    // A blocking get has no context: its waiting thread is woken from here.
    if (!s->context)
        drain(s);
}

void HttpClient::Worker::markDirty(HttpTransfer::State *s)
{
    if (!s->dirty) {
        s->dirty = true;
        dirty.push_back(s);
    }
}

void HttpClient::Worker::deliverDirty()
{
    for (HttpTransfer::State *s : dirty) {
        s->dirty = false;
        std::lock_guard lock(s->mutex);
        scheduleDelivery(s->shared_from_this());
    }
    dirty.clear();
}

void HttpClient::Worker::readMessages()
{
    int queued = 0;
    while (CURLMsg *msg = curl_multi_info_read(multi, &queued)) {
        if (msg->msg != CURLMSG_DONE)
            continue;
        HttpTransfer::State *raw = nullptr;
        curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, &raw);
        if (!raw)
            continue;
        auto s = raw->shared_from_this();
        const CURLcode code = msg->data.result;
        HttpError error = mapCurlError(code);
        if (code == CURLE_WRITE_ERROR)
            error = s->bodyTooLarge ? HttpError::BodyTooLarge
                : s->fileFailed     ? HttpError::FileWrite
                                    : HttpError::Other;
        QString message;
        if (error != HttpError::None)
            message = describe(error);
        finish(s, {error, message});
    }
}

// Our own time-outs: curl's low-speed limit has one-second resolution and counts a
// paused (back-pressured) transfer as idle. Activity only moves deadlines later, so the
// earliest one found here is a safe time for the next look.
void HttpClient::Worker::expireTimeouts(Clock::time_point now)
{
    if (now < nextTimeoutScan)
        return;
    auto next = now + std::chrono::hours(24);
    std::vector<std::shared_ptr<HttpTransfer::State>> expired;
    for (const auto &s : active) {
        auto consider = [&](double seconds, Clock::time_point from, bool applies) {
            if (seconds <= 0 || !applies)
                return;
            const auto deadline = from + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
            if (deadline <= now)
                expired.push_back(s);
            else
                next = std::min(next, deadline);
        };
        consider(s->request.idleTimeoutSec, s->lastActivity, !s->workerPaused);
        consider(s->request.totalTimeoutSec, s->startedAt, true);
    }
    nextTimeoutScan = next;
    for (const auto &s : expired)
        finish(s, {HttpError::Timeout, describe(HttpError::Timeout)});
}

void HttpClient::Worker::socketAction(curl_socket_t fd, int events)
{
    int running = 0;
    curl_multi_socket_action(multi, fd, events, &running);
}

int HttpClient::Worker::onSocket(CURL *, curl_socket_t fd, int what, void *user, void *socketData)
{
    auto *w = static_cast<Worker *>(user);
    if (what == CURL_POLL_REMOVE) {
        epoll_ctl(w->epollFd, EPOLL_CTL_DEL, fd, nullptr);
        curl_multi_assign(w->multi, fd, nullptr);
        return 0;
    }
    epoll_event event{};
    event.events = ((what & CURL_POLL_IN) ? EPOLLIN : 0u) | ((what & CURL_POLL_OUT) ? EPOLLOUT : 0u);
    event.data.fd = fd;
    // A socket number curl closed and opened again may still be known to us, or not.
    if (socketData) {
        if (epoll_ctl(w->epollFd, EPOLL_CTL_MOD, fd, &event) != 0 && errno == ENOENT)
            epoll_ctl(w->epollFd, EPOLL_CTL_ADD, fd, &event);
    } else {
        if (epoll_ctl(w->epollFd, EPOLL_CTL_ADD, fd, &event) != 0 && errno == EEXIST)
            epoll_ctl(w->epollFd, EPOLL_CTL_MOD, fd, &event);
        curl_multi_assign(w->multi, fd, w);
    }
    return 0;
}

int HttpClient::Worker::onTimer(CURLM *, long timeoutMs, void *user)
{
    auto *w = static_cast<Worker *>(user);
    if (timeoutMs < 0)
        w->curlDeadline.reset();
    else
        w->curlDeadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    return 0;
}

void HttpClient::Worker::run()
{
    constexpr int kMaxEvents = 256;
    epoll_event events[kMaxEvents];
    for (;;) {
        std::deque<std::pair<Command, std::shared_ptr<HttpTransfer::State>>> todo;
        {
            std::lock_guard lock(mutex);
            if (quit)
                break;
            todo.swap(commands);
        }
        for (auto &[command, s] : todo) {
            switch (command) {
            case Command::Add:
                add(s);
                break;
            case Command::Remove:
                if (!s->done && active.count(s))
                    finish(s, {HttpError::Cancelled, describe(HttpError::Cancelled)});
                break;
            case Command::Resume:
                if (s->easy && s->workerPaused) {
                    s->workerPaused = false;
                    s->lastActivity = Clock::now();
                    nextTimeoutScan = s->lastActivity; // its idle deadline counts again
                    curl_easy_pause(s->easy, CURLPAUSE_CONT);
                }
                break;
            }
        }

        auto now = Clock::now();
        if (curlDeadline && *curlDeadline <= now) {
            curlDeadline.reset();
            socketAction(CURL_SOCKET_TIMEOUT, 0);
        }
        readMessages();
        deliverDirty();
        now = Clock::now();
        expireTimeouts(now);

        auto until = std::min(nextTimeoutScan, now + std::chrono::seconds(1));
        if (curlDeadline)
            until = std::min(until, *curlDeadline);
        const auto waitMs = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
        const int ready = epoll_wait(epollFd, events, kMaxEvents, int(std::clamp<qint64>(waitMs, 0, 1000)));
        for (int i = 0; i < ready; ++i) {
            const int fd = events[i].data.fd;
            if (fd == wakeFd) {
                quint64 count = 0;
                [[maybe_unused]] const ssize_t got = ::read(wakeFd, &count, sizeof count);
                continue;
            }
            const quint32 e = events[i].events;
            int mask = 0;
            if (e & EPOLLIN)
                mask |= CURL_CSELECT_IN;
            if (e & EPOLLOUT)
                mask |= CURL_CSELECT_OUT;
            if (e & (EPOLLERR | EPOLLHUP))
                mask |= CURL_CSELECT_ERR;
            socketAction(fd, mask);
        }
        readMessages();
        deliverDirty();
        if (ready > 0 && activeStreams >= kBatchFromStreams)
            std::this_thread::sleep_for(kBatchInterval);
    }

    for (const auto &s : std::vector(active.begin(), active.end()))
        finish(s, {HttpError::Cancelled, describe(HttpError::Cancelled)});
    std::deque<std::pair<Command, std::shared_ptr<HttpTransfer::State>>> unstarted;
    {
        std::lock_guard lock(mutex);
        unstarted.swap(commands);
    }
    for (auto &[command, s] : unstarted) {
        if (command == Command::Add)
            abandon(s);
    }
}

void HttpClient::Worker::abandon(const std::shared_ptr<HttpTransfer::State> &s)
{
    {
        std::lock_guard lock(s->mutex);
        if (s->finished)
            return;
        s->finished = true;
        s->result = {HttpError::Cancelled, describe(HttpError::Cancelled)};
        s->deliveryScheduled = false;
        if (s->context && s->contextAlive && !s->cancelled.load()) {
            s->deliveryScheduled = true;
            QMetaObject::invokeMethod(s->context, [s] { drain(s); }, Qt::QueuedConnection);
        }
    }
    if (!s->context)
        drain(s);
}

void HttpTransfer::cancel()
{
    if (!m_state || m_state->cancelled.exchange(true))
        return;
    HttpClient::Worker::post(m_state->worker, HttpClient::Worker::Command::Remove, m_state);
}

HttpClient::HttpClient() : m_worker(std::make_shared<Worker>())
{
    static std::once_flag globalInit;
    std::call_once(globalInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    Worker &w = *m_worker;
    w.multi = curl_multi_init();
    w.icyAliases = curl_slist_append(nullptr, "ICY 200 OK");
    // One epoll set for every socket: a wake-up costs the same with one stream or hundreds.
    w.epollFd = epoll_create1(EPOLL_CLOEXEC);
    w.wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (w.epollFd < 0 || w.wakeFd < 0)
        qFatal("HttpClient: no epoll or eventfd (%s)", std::strerror(errno));
    epoll_event wakeEvent{};
    wakeEvent.events = EPOLLIN;
    wakeEvent.data.fd = w.wakeFd;
    epoll_ctl(w.epollFd, EPOLL_CTL_ADD, w.wakeFd, &wakeEvent);
    curl_multi_setopt(w.multi, CURLMOPT_SOCKETFUNCTION, &Worker::onSocket);
    curl_multi_setopt(w.multi, CURLMOPT_SOCKETDATA, m_worker.get());
    curl_multi_setopt(w.multi, CURLMOPT_TIMERFUNCTION, &Worker::onTimer);
    curl_multi_setopt(w.multi, CURLMOPT_TIMERDATA, m_worker.get());
    m_worker->thread = std::thread([w = m_worker.get()] { w->run(); });
}

HttpClient::~HttpClient()
{
    beginShutdown();
    m_worker->thread.join();
}

void HttpClient::beginShutdown()
{
    {
        std::lock_guard lock(m_worker->mutex);
        m_worker->quit = true;
    }
    m_worker->wake();
}

int HttpClient::activeTransfers() const
{
    return m_worker->activeCount.load();
}

HttpTransfer HttpClient::start(std::shared_ptr<HttpTransfer::State> s)
{
    s->worker = m_worker;
    if (!s->context) {
        m_worker->post(Worker::Command::Add, s);
        return HttpTransfer(std::move(s));
    }
    // The worker posts to the context from its own thread; this guard (taken under the
    // state's mutex on both sides) keeps it from posting to an object being destroyed.
    std::weak_ptr<HttpTransfer::State> weak = s;
    s->contextGuard = QObject::connect(s->context, &QObject::destroyed, [weak] {
        if (auto state = weak.lock()) {
            std::lock_guard lock(state->mutex);
            state->contextAlive = false;
            state->cancelled.store(true);
            Worker::post(state->worker, Worker::Command::Remove, state);
        }
    });
    m_worker->post(Worker::Command::Add, s);
    return HttpTransfer(std::move(s));
}

HttpTransfer HttpClient::stream(const HttpRequest &request, QObject *context, HttpStreamCallbacks callbacks)
{
    auto s = std::make_shared<HttpTransfer::State>();
    s->mode = HttpTransfer::State::Mode::Stream;
    s->request = request;
    s->context = context;
    s->streamCallbacks = std::move(callbacks);
    return start(std::move(s));
}

HttpTransfer HttpClient::get(const HttpRequest &request, QObject *context, GetCallback callback)
{
    auto s = std::make_shared<HttpTransfer::State>();
    s->mode = HttpTransfer::State::Mode::Buffer;
    s->request = request;
    s->context = context;
    s->getCallback = std::move(callback);
    return start(std::move(s));
}

HttpTransfer HttpClient::download(const HttpRequest &request, const QString &filePath, QObject *context,
                                  DownloadCallback callback)
{
    auto s = std::make_shared<HttpTransfer::State>();
    s->mode = HttpTransfer::State::Mode::File;
    s->request = request;
    s->filePath = filePath;
    s->context = context;
    s->downloadCallback = std::move(callback);
    return start(std::move(s));
}

HttpClient::BlockingResult HttpClient::getBlocking(const HttpRequest &request)
{
    Q_ASSERT(!m_worker->thread.joinable() || std::this_thread::get_id() != m_worker->thread.get_id());
    std::mutex mutex;
    std::condition_variable cv;
    std::optional<BlockingResult> outcome;
    auto s = std::make_shared<HttpTransfer::State>();
    s->mode = HttpTransfer::State::Mode::Buffer;
    s->request = request;
    s->getCallback = [&](const HttpResult &r, const HttpResponseHead &h, const QByteArray &body) {
        std::lock_guard lock(mutex);
        outcome = BlockingResult{r, h, body};
        cv.notify_one();
    };
    start(s);
    std::unique_lock lock(mutex);
    cv.wait(lock, [&] { return outcome.has_value(); });
    return *outcome;
}
