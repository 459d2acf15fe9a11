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
                             std::shared_ptr<std::atomic<bool>> stopped, std::optional<CutPlanner::Listening> listening)
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
                   [this](const QString &title) { Q_EMIT titleAccepted(title); },
                   [this](CutPlanner::Keep keep) { Q_EMIT keepChanged(keep); },
                   [this](const QString &title) { Q_EMIT songAbandoned(title, m_abandonReason); }},
                  listening)
{
    m_status.maxAttempts = m_timings.maxReconnects;
    m_reconnectTimer.setSingleShot(true);
    m_reconnectTimer.callOnTimeout(this, [this] {
        if (m_stopped->load())
            return;
        setState(SessionStatus::State::Connecting);
        doConnect();
    });
    // One poll at a time: the next wait starts when a poll is done, never on a fixed beat
    // that could send a second request while the first is still out.
    m_statusTimer.setSingleShot(true);
    m_statusTimer.callOnTimeout(this, &SessionWorker::pollIcecastStatus);
    m_flushTimer.setTimerType(Qt::CoarseTimer);
    m_flushTimer.callOnTimeout(this, &SessionWorker::onFlushTick);
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
    m_flushTimer.start(kFlushIntervalMs);
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
        giveUp(SessionOutcome::InvalidAddress, QStringLiteral("Ungültige Stream-URL"));
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
    QByteArray contentEncoding;
    for (const HttpHeader &h : head.headers) {
        const QByteArray name = h.name.toLower();
        if (name == "content-encoding") {
            contentEncoding = h.value;
        } else if (name == "icy-metaint") {
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

    const StreamAnswer::Judgement judgement = StreamAnswer::judge(head.statusCode, m_contentType, contentEncoding,
                                                                  m_demux.has_value(), m_usedFallbackUA);
    switch (judgement.verdict) {
    case StreamAnswer::Verdict::RetryWithPlayerAgent:
        // Some servers show browsers a web page; a player's agent gets the stream.
        m_usedFallbackUA = true;
        m_stream.cancel();
        m_demux.reset();
        QMetaObject::invokeMethod(this, &SessionWorker::doConnect, Qt::QueuedConnection);
        return;
    case StreamAnswer::Verdict::Failed:
        // Not an answer: the count goes on, and nothing of the body reaches a segment.
        m_stream.cancel();
        m_demux.reset();
        scheduleReconnect(judgement.reason);
        return;
    case StreamAnswer::Verdict::Audio:
        break;
    }
    m_segmenter.setContentType(m_contentType);
    m_reconnectCount = 0;
    m_status.attempt = 0;
    m_status.reason.clear();
    setState(SessionStatus::State::Recording);
    m_segmenter.openSegment();
}

void SessionWorker::processBody(const QByteArray &chunk)
{
    if (m_stopped->load() || chunk.isEmpty())
        return;
    m_status.bytesReceived += chunk.size();
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
    scheduleReconnect(result.ok() ? QStringLiteral("the server ended the stream") : result.message);
}

void SessionWorker::scheduleReconnect(const QString &reason)
{
    if (m_stopped->load() || m_ended)
        return;
    m_status.reason = reason;
    if (m_reconnectCount < m_timings.maxReconnects) {
        ++m_reconnectCount;
        const int delayMs = toMs(m_timings.reconnectDelaySec(m_reconnectCount));
        m_status.attempt = m_reconnectCount;
        m_status.reconnectAt = QDeadlineTimer(delayMs);
        setState(SessionStatus::State::Reconnecting);
        m_reconnectTimer.start(delayMs);
        return;
    }
    m_abandonReason = QStringLiteral("the stream was lost before the song ended");
    m_segmenter.finalizeSegment(true);
    giveUp(SessionOutcome::GaveUp, QStringLiteral("Stream unterbrochen"));
}

void SessionWorker::giveUp(SessionOutcome outcome, const QString &message)
{
    if (m_ended)
        return;
    m_ended = true;
    m_flushTimer.stop();
    m_statusTimer.stop();
    m_statusPoll.cancel();
    if (m_status.reason.isEmpty())
        m_status.reason = message;
    m_status.reconnectAt = QDeadlineTimer(QDeadlineTimer::Forever);
    setState(SessionStatus::State::GaveUp);
    Q_EMIT errorChanged(message);
    Q_EMIT ended(outcome);
}

void SessionWorker::setState(SessionStatus::State state)
{
    m_status.state = state;
    if (state != SessionStatus::State::Reconnecting)
        m_status.reconnectAt = QDeadlineTimer(QDeadlineTimer::Forever);
    m_reportedBytes = m_status.bytesReceived;
    Q_EMIT statusChanged(m_status);
}

void SessionWorker::onFlushTick()
{
    if (m_stopped->load())
        return;
    // Segments batch their writes; this bounds what a kill or a power cut can take.
    m_segmenter.flush();
    if (m_status.bytesReceived != m_reportedBytes) {
        m_reportedBytes = m_status.bytesReceived;
        Q_EMIT statusChanged(m_status);
    }
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
    if (m_stopped->load() || m_ended || !m_statusUrl)
        return;
    HttpRequest request{m_statusUrl->toEncoded()};
    // A dead status server costs one interval per poll at the most.
    request.totalTimeoutSec = std::max(1.0, m_timings.statusPollIntervalSec);
    request.maxBodyBytes = 2 << 20;
    m_statusPoll = m_context.http().get(request, this, [this](const HttpResult &result, const HttpResponseHead &,
                                                              const QByteArray &body) {
        if (m_stopped->load() || m_ended)
            return;
        m_statusTimer.start(toMs(m_timings.statusPollIntervalSec));
        if (!result.ok())
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
    m_flushTimer.stop();
    m_statusTimer.stop();
    m_statusPoll.cancel();
    m_reconnectTimer.stop();
    m_playlist.cancel();
    m_stream.cancel();
    m_abandonReason = QStringLiteral("listening stopped before the song ended");
    m_segmenter.finalizeSegment(true);
}

void SessionWorker::flushToDisk()
{
    m_segmenter.flush();
}

void SessionWorker::armSave(const QString &title)
{
    Q_ASSERT(QThread::currentThread() == thread());
    // After a give-up the song playing has been abandoned already. A stop set since the
    // arm was sent is not checked: its shutDown() is queued behind this and abandons the
    // song, which is then reported as such.
    const CutPlanner::ArmResult result = m_ended ? CutPlanner::ArmResult::Ended : m_segmenter.arm(title);
    if (result != CutPlanner::ArmResult::Armed)
        Q_EMIT saveRefused(title, result);
}
