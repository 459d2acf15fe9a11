#include "engine/streamtitlepoller.h"

#include "engine/icydemux.h"

#include <QUrl>

#include <memory>

StreamTitlePoller::StreamTitlePoller(HttpClient &http, QObject *parent) : QObject(parent), m_http(http)
{
    m_timer.setInterval(std::chrono::seconds(15));
    m_timer.callOnTimeout(this, &StreamTitlePoller::poll);
}

void StreamTitlePoller::start(const QString &streamUrl)
{
    stop();
    m_streamUrl = streamUrl;
    if (!m_title.isEmpty()) {
        m_title.clear();
        Q_EMIT titleChanged(m_title);
    }
    m_timer.start();
    poll();
}

void StreamTitlePoller::stop()
{
    m_timer.stop();
    m_fetch.cancel();
}

void StreamTitlePoller::poll()
{
    m_fetch.cancel();
    m_fetch = fetchTitle(m_http, m_streamUrl, this, [this](std::optional<QString> title) {
        if (!title || title->isEmpty() || *title == m_title)
            return;
        m_title = *title;
        Q_EMIT titleChanged(m_title);
        if (onTitleChange)
            onTitleChange();
    });
}

HttpTransfer StreamTitlePoller::fetchTitle(HttpClient &http, const QString &streamUrl, QObject *context,
                                           std::function<void(std::optional<QString>)> done, double timeoutSec)
{
    const QUrl url(streamUrl, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()) {
        QMetaObject::invokeMethod(context, [done] { done(std::nullopt); }, Qt::QueuedConnection);
        return {};
    }
    // Only the first block matters: skip metaint audio bytes, read the length byte, then
    // collect the block.
    struct Reader {
        qint64 skipLeft = -1; // -1 until the head has told us metaint
        qint64 metaLen = -1;  // -1 until the length byte
        QByteArray meta;
        bool finished = false;
        HttpTransfer transfer;
    };
    auto reader = std::make_shared<Reader>();
    auto finish = [reader, done](std::optional<QString> title) {
        if (reader->finished)
            return;
        reader->finished = true;
        reader->transfer.cancel();
        done(std::move(title));
    };

    HttpRequest request{url.toEncoded(), {{"Icy-MetaData", "1"}, {"User-Agent", "Mozilla/5.0 Orvida/1.0"}}};
    request.idleTimeoutSec = timeoutSec;
    request.totalTimeoutSec = timeoutSec;
    reader->transfer = http.stream(
        request, context,
        {[reader, finish](const HttpResponseHead &head) {
             const auto metaint = IcyText::parseMetaint(head.header("icy-metaint"));
             if (!metaint || *metaint <= 0)
                 finish(std::nullopt);
             else
                 reader->skipLeft = *metaint;
         },
         [reader, finish](const QByteArray &chunk) {
             if (reader->finished || reader->skipLeft < 0)
                 return;
             QByteArrayView rest(chunk);
             const qint64 skip = std::min<qint64>(reader->skipLeft, rest.size());
             reader->skipLeft -= skip;
             rest = rest.sliced(skip);
             if (reader->skipLeft > 0 || rest.isEmpty())
                 return;
             if (reader->metaLen < 0) {
                 reader->metaLen = qint64(static_cast<unsigned char>(rest.front())) * 16;
                 rest = rest.sliced(1);
                 if (reader->metaLen == 0) {
                     finish(std::nullopt);
                     return;
                 }
             }
             reader->meta.append(rest.first(std::min<qint64>(rest.size(), reader->metaLen - reader->meta.size())));
             if (reader->meta.size() >= reader->metaLen)
                 finish(IcyText::extractStreamTitle(IcyText::decodeUtf8OrLatin1(reader->meta)));
         },
         [finish](const HttpResult &) { finish(std::nullopt); }});
    return reader->transfer;
}
