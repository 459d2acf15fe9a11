#include "engine/sessionworker.h"

#include "engine/apppaths.h"
#include "engine/icecaststatus.h"
#include "engine/radioenginesettings.h"
#include "engine/streamplaylist.h"
#include "engine/tracktitle.h"

#include <QThread>

namespace {

const QByteArray kUserAgent = "Mozilla/5.0 Orvida/1.0";
const QByteArray kFallbackUserAgent = "WinampMPEG/5.0";

TrackSegmenter::Padding paddingFor(const QString &stationId)
{
    const RadioEngineSettings s = RadioEngineSettings::effective(stationId);
    return {s.leadInSec, s.leadOutSec};
}

int toMs(double seconds)
{
    return int(std::clamp(seconds * 1000.0, 0.0, double(std::numeric_limits<int>::max())));
}

} // namespace

SessionWorker::SessionWorker(Station station, std::optional<QString> fullShowTitle, RecordingContext &context,
                             std::shared_ptr<std::atomic<bool>> stopped)
    : m_station(std::move(station))
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_context(context)
    , m_timings(context.timings)
    , m_stopped(std::move(stopped))
    , m_segmenter(AppPaths::tmpDir(), TrackSegmenter::bytesPerSecForBitrate(m_station.bitrate), m_fullShowTitle,
                  m_station.name,
                  {[id = m_station.id] { return paddingFor(id); },
                   [this](std::vector<SegmentLock> segments, const QString &title) {
                       Q_EMIT songReady(std::make_shared<std::vector<SegmentLock>>(std::move(segments)), title);
                   },
                   [this](const QString &title) { Q_EMIT titleAccepted(title); }})
{
    m_reconnectTimer.setSingleShot(true);
    m_reconnectTimer.callOnTimeout(this, [this] {
        if (!m_stopped->load())
            doConnect();
    });
    m_statusTimer.callOnTimeout(this, &SessionWorker::pollIcecastStatus);
}

SessionWorker::~SessionWorker()
{
    m_stream.cancel();
    m_playlist.cancel();
    m_statusPoll.cancel();
}

void SessionWorker::start()
{
    Q_ASSERT(QThread::currentThread() == thread());
    AppPaths::ensure();
    doConnect();
    startIcecastPolling();
}

void SessionWorker::doConnect()
{
    if (m_stopped->load())
        return;
    if (m_resolvedUrl) { // a reconnect: playlists are never fetched twice
        connectTo(*m_resolvedUrl);
        return;
    }
    const QUrl url(m_station.streamUrl, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        Q_EMIT errorChanged(QStringLiteral("Ungültige Stream-URL"));
        return;
    }
    if (!StreamPlaylist::isPlaylistUrl(url)) {
        m_resolvedUrl = url;
        connectTo(url);
        return;
    }
    HttpRequest request{url.toEncoded(), {{"User-Agent", kUserAgent}}};
    request.totalTimeoutSec = m_timings.playlistTimeoutSec;
    request.maxBodyBytes = 1 << 20;
    m_playlist = m_context.http().get(request, this, [this, url](const HttpResult &result, const HttpResponseHead &,
                                                                 const QByteArray &body) {
        if (m_stopped->load())
            return;
        std::optional<QUrl> stream = result.ok() ? StreamPlaylist::firstStreamUrl(body) : std::nullopt;
        // Without a usable entry the playlist address itself is tried as the stream.
        m_resolvedUrl = stream.value_or(url);
        connectTo(*m_resolvedUrl);
    });
}

void SessionWorker::connectTo(const QUrl &url)
{
    if (m_stopped->load())
        return;
    m_contentType.clear();
    m_demux.reset();
    m_stream.cancel();

    HttpRequest request;
    request.url = url.toEncoded();
    request.headers = {
        {"User-Agent", m_usedFallbackUA ? kFallbackUserAgent : kUserAgent},
        {"Icy-MetaData", "1"},
        {"Accept", "*/*"},
        {"Accept-Encoding", "identity"},
    };
    request.idleTimeoutSec = m_timings.idleTimeoutSec;
    request.totalTimeoutSec = m_timings.resourceTimeoutSec;
    m_stream = m_context.http().stream(request, this,
                                       {[this](const HttpResponseHead &head) { handleResponse(head); },
                                        [this](const QByteArray &chunk) { processBody(chunk); },
                                        [this](const HttpResult &result) { handleFinished(result); }});
}

void SessionWorker::handleResponse(const HttpResponseHead &head)
{
    if (m_stopped->load())
        return;
    for (const HttpHeader &h : head.headers) {
        const QByteArray name = h.name.toLower();
        if (name == "icy-metaint") {
            const auto metaint = IcyText::parseMetaint(h.value);
            if (metaint && *metaint > 0) {
                m_demux.emplace(*metaint);
                m_demux->onAudio = [this](QByteArrayView run) { m_segmenter.writeAudio(run); };
                m_demux->onTitle = [this](const QString &title) { handleInBandTitle(title); };
            }
        } else if (name == "content-type") {
            m_contentType = QString::fromLatin1(h.value.trimmed().toLower());
        }
    }
    m_segmenter.setContentType(m_contentType);

    // Some servers show browsers a web page; a player's agent gets the stream.
    if (!m_demux && m_contentType.contains(QLatin1String("html")) && !m_usedFallbackUA) {
        m_usedFallbackUA = true;
        m_stream.cancel();
        QMetaObject::invokeMethod(this, &SessionWorker::doConnect, Qt::QueuedConnection);
        return;
    }
    m_reconnectCount = 0;
    m_segmenter.openSegment();
}

void SessionWorker::processBody(const QByteArray &chunk)
{
    if (m_stopped->load() || chunk.isEmpty())
        return;
    if (m_demux)
        m_demux->feed(chunk);
    else
        m_segmenter.writeAudio(chunk);
}

void SessionWorker::handleFinished(const HttpResult &result)
{
    if (m_stopped->load() || result.error == HttpError::Cancelled)
        return;
    m_segmenter.finalizeSegment(false);
    scheduleReconnect();
}

void SessionWorker::scheduleReconnect()
{
    if (m_stopped->load())
        return;
    if (m_reconnectCount < m_timings.maxReconnects) {
        ++m_reconnectCount;
        m_reconnectTimer.start(toMs(m_timings.reconnectDelaySec(m_reconnectCount)));
        return;
    }
    m_segmenter.finalizeSegment(true);
    Q_EMIT errorChanged(QStringLiteral("Stream unterbrochen"));
    Q_EMIT gaveUp();
}

void SessionWorker::handleInBandTitle(const QString &raw)
{
    const QString title = TrackTitle::withoutControlCharacters(raw);
    if (!title.isEmpty() && title != m_segmenter.lastTitle())
        m_sinceInBandTitle.start();
    m_segmenter.handleTitle(title);
}

void SessionWorker::startIcecastPolling()
{
    m_statusTimer.stop();
    m_statusPoll.cancel();
    if (!m_timings.statusPolling)
        return;
    m_statusUrl = m_timings.statusUrlFor(m_station.streamUrl);
    if (!m_statusUrl)
        return;
    m_mountPath = IcecastStatus::mountPath(m_station.streamUrl);
    m_statusTimer.start(toMs(m_timings.statusPollIntervalSec));
}

void SessionWorker::pollIcecastStatus()
{
    if (m_stopped->load() || !m_statusUrl) {
        m_statusTimer.stop();
        return;
    }
    HttpRequest request{m_statusUrl->toEncoded()};
    // A poll never outlives its interval, so polls never pile up on a dead server.
    request.totalTimeoutSec = std::max(1.0, m_timings.statusPollIntervalSec);
    request.maxBodyBytes = 2 << 20;
    m_statusPoll.cancel();
    m_statusPoll = m_context.http().get(request, this, [this](const HttpResult &result, const HttpResponseHead &,
                                                              const QByteArray &body) {
        if (m_stopped->load() || !result.ok())
            return;
        const auto title = IcecastStatus::titleFor(body, m_mountPath);
        if (!title)
            return;
        // In-band titles win: a polled one only counts after a while of in-band silence.
        if (m_sinceInBandTitle.isValid() && m_sinceInBandTitle.elapsed() < qint64(m_timings.inBandPrecedenceSec * 1000))
            return;
        m_segmenter.handleTitle(TrackTitle::withoutControlCharacters(*title));
    });
}

void SessionWorker::shutDown()
{
    m_statusTimer.stop();
    m_statusPoll.cancel();
    m_reconnectTimer.stop();
    m_playlist.cancel();
    m_stream.cancel();
    m_segmenter.finalizeSegment(true);
}

void SessionWorker::flushToDisk()
{
    m_segmenter.flush();
}
