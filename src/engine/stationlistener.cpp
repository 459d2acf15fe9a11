#include "engine/stationlistener.h"

#include "engine/radioenginesettings.h"
#include "engine/radioplayback.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/songsaver.h"
#include "engine/tracksegmenter.h"
#include "library/librarystore.h"
#include "platform/preferences.h"

#include <QThread>

namespace {

const QString kStreamLost = QStringLiteral("Stream unterbrochen");
const QString kInvalidUrl = QStringLiteral("Ungültige Stream-URL");

QString whyNotWhole(CutPlanner::Keep keep)
{
    switch (keep) {
    case CutPlanner::Keep::NoTitle:
        return QStringLiteral("the station has not named the song playing");
    case CutPlanner::Keep::JoinedLate:
        return QStringLiteral("this song began before listening did; songs from the next title on can be saved "
                              "from their start");
    case CutPlanner::Keep::TooLong:
        return QStringLiteral("this song has played longer than the %1 minutes a song is kept while listening")
            .arg(int(StationListener::kMaxSongSeconds / 60));
    case CutPlanner::Keep::Whole:
        break;
    }
    return {};
}

QString whyRefused(CutPlanner::ArmResult result)
{
    switch (result) {
    case CutPlanner::ArmResult::JoinedLate:
        return whyNotWhole(CutPlanner::Keep::JoinedLate);
    case CutPlanner::ArmResult::TooLong:
        return whyNotWhole(CutPlanner::Keep::TooLong);
    case CutPlanner::ArmResult::Ended:
        return QStringLiteral("the song ended before the save reached it");
    case CutPlanner::ArmResult::Armed:
        break;
    }
    return {};
}

} // namespace

StationListener::StationListener(RecordingContext &context, LibraryStore *library, QObject *parent)
    : QObject(parent), m_context(context), m_library(library),
      m_relay(std::make_unique<RadioPlayback>(context.ffmpegPath)),
      m_liveTitle(std::make_unique<StreamTitlePoller>(context.http()))
{
    connect(m_relay.get(), &RadioPlayback::ended, this, [this] {
        if (m_station)
            fail(kStreamLost);
    });
    connect(m_liveTitle.get(), &StreamTitlePoller::titleChanged, this, [this](const QString &title) {
        // Only while it is the source; an empty title (a restart) keeps the last one shown.
        if (!m_capture && m_station && !title.isEmpty())
            setTitle(title);
    });
}

StationListener::~StationListener()
{
    stopParts();
    // Their saves go on in the context; nobody here hears of them any more.
    for (const QPointer<RecordingSession> &session : std::as_const(m_retired)) {
        if (session)
            session->disconnect(this);
    }
}

void StationListener::start(const Station &station)
{
    Q_ASSERT(QThread::currentThread() == thread());
    stopParts();
    m_station = station;
    const quint64 generation = m_generation;
    Q_EMIT stationChanged(m_station);
    // The capture first: a relay that fails at once stops it again.
    startCapture(station);
    if (generation != m_generation)
        return;
    m_relay->start(station, [this, generation, address = station.streamUrl](std::optional<QUrl> url) {
        if (generation != m_generation)
            return;
        if (!url) {
            fail(RadioPlayback::isRelayableAddress(address) ? kStreamLost : kInvalidUrl);
            return;
        }
        m_streamUrl = url;
        Q_EMIT streamReady(*url);
    });
}

void StationListener::stop()
{
    Q_ASSERT(QThread::currentThread() == thread());
    const bool had = m_station.has_value();
    stopParts();
    m_station.reset();
    if (had)
        Q_EMIT stationChanged(m_station);
}

void StationListener::fail(const QString &message)
{
    // The station stays named, so whoever shows the failure can say which one it was.
    stopParts();
    Q_EMIT streamFailed(message);
}

void StationListener::stopParts()
{
    ++m_generation;
    m_relay->stop();
    m_liveTitle->stop();
    m_streamUrl.reset();
    if (m_capture) {
        RecordingSession *capture = std::exchange(m_capture, nullptr);
        // An armed song cannot end now: the capture reports it abandoned. Saving the
        // song so far instead would file half a song under its full title, which is not
        // what was asked for; a song whose title has already changed is whole and is
        // still saved.
        if (m_armedTitle) {
            m_armedTitle.reset();
            ++m_abandoning;
        }
        capture->stop();
        retire(capture);
    }
    setTitle(QString());
    updateSaveState();
}

void StationListener::startCapture(const Station &station)
{
    if (!keepsSong()) {
        m_liveTitle->start(station.streamUrl);
        return;
    }
    auto *capture = new RecordingSession(station, RecordingSession::Listening{kMaxSongSeconds}, m_context);
    m_capture = capture;
    connect(capture, &RecordingSession::currentStreamTitleChanged, this, [this, capture](const QString &title) {
        if (capture == m_capture)
            captureTitle(title);
    });
    connect(capture, &RecordingSession::keepChanged, this, [this, capture] {
        if (capture == m_capture)
            updateSaveState();
    });
    connect(capture, &RecordingSession::ended, this, [this, capture] {
        if (capture == m_capture)
            captureEnded(capture);
    });
    connectOutcomes(capture);
}

void StationListener::captureEnded(RecordingSession *capture)
{
    // It gave up on the station (or the address is none). The relay may well go on
    // playing; the title now comes from the poller and nothing can be saved.
    m_capture = nullptr;
    if (m_armedTitle) { // abandoned by the capture itself, reported through songAbandoned
        m_armedTitle.reset();
        ++m_abandoning;
    }
    capture->stop();
    retire(capture);
    if (m_station)
        m_liveTitle->start(m_station->streamUrl);
    updateSaveState();
}

void StationListener::connectOutcomes(RecordingSession *capture)
{
    // These stay connected after the capture stops: a song that ended before the stop is
    // still saved, and its outcome still belongs to whoever listens here.
    LibraryStore *library = m_library;
    QPointer<StationListener> self(this);
    // The callback files even after the listener is gone: the song is on disk by then and
    // the library must know it.
    capture->onTrackSaved = [self, library](const Track &track) {
        if (library && !RadioRecorder::upsertIntoLibrary(track, *library)) {
            if (self) {
                self->settle(track.title, false);
                Q_EMIT self->saveFailed(QStringLiteral("\"%1\" was saved as %2 but the library refused it: %3")
                                            .arg(track.title, track.filePath.value_or(QString()), library->lastError()));
            }
            return;
        }
        if (self) {
            self->settle(track.title, false);
            Q_EMIT self->songSaved(track);
        }
    };
    connect(capture, &RecordingSession::songSkipped, this, [this](const QString &title, const QString &reason) {
        settle(title, false);
        Q_EMIT songSkipped(title, reason);
    });
    connect(capture, &RecordingSession::saveFailed, this, [this](const QString &message) {
        // A radio folder that cannot be written is reported at the start, before any save.
        if (m_savesInFlight > 0)
            settle(QString(), false);
        Q_EMIT saveFailed(message);
    });
    connect(capture, &RecordingSession::saveRefused, this, [this](const QString &title, CutPlanner::ArmResult why) {
        settle(title, true);
        Q_EMIT songSkipped(title, whyRefused(why));
    });
    connect(capture, &RecordingSession::songAbandoned, this, [this](const QString &title, const QString &reason) {
        settle(title, true);
        Q_EMIT songSkipped(title, reason);
    });
}

void StationListener::settle(const QString &title, bool mayBeArmed)
{
    // A refusal or an abandonment may answer the song still armed, or one a stop dropped;
    // everything else answers a song that ended and went to be saved.
    if (mayBeArmed && m_armedTitle == title)
        m_armedTitle.reset();
    else if (mayBeArmed && m_abandoning > 0)
        --m_abandoning;
    else if (m_savesInFlight > 0)
        --m_savesInFlight;
    updateSaveState();
}

void StationListener::retire(RecordingSession *capture)
{
    m_retired.removeIf([](const QPointer<RecordingSession> &s) { return s.isNull(); });
    m_retired.append(capture);
    capture->deleteWhenIdle();
}

void StationListener::captureTitle(const QString &title)
{
    if (m_armedTitle && *m_armedTitle != title) {
        // The armed song ended: from now on it is being saved.
        m_lastSavingTitle = *std::exchange(m_armedTitle, std::nullopt);
        ++m_savesInFlight;
    }
    setTitle(title);
    updateSaveState();
}

void StationListener::setTitle(const QString &title)
{
    if (m_title == title)
        return;
    m_title = title;
    Q_EMIT titleChanged(m_title);
}

void StationListener::updateSaveState()
{
    SaveState state = SaveState::unavailable;
    if (m_armedTitle)
        state = SaveState::armed;
    else if (m_savesInFlight > 0)
        state = SaveState::saving;
    else if (m_capture && m_capture->keep() == CutPlanner::Keep::Whole)
        state = SaveState::ready;
    m_savingTitle = m_armedTitle ? *m_armedTitle : (m_savesInFlight > 0 ? m_lastSavingTitle : QString());
    if (state == m_saveState)
        return;
    m_saveState = state;
    Q_EMIT saveStateChanged(state);
}

std::optional<QUrl> StationListener::streamUrl() const
{
    return m_streamUrl;
}

QString StationListener::title() const
{
    return m_title;
}

bool StationListener::saveCurrentSong(QString *why)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const auto refuse = [why](const QString &text) {
        if (why)
            *why = text;
        return false;
    };
    if (!m_station)
        return refuse(QStringLiteral("nothing is playing"));
    if (!m_capture) {
        return refuse(keepsSong() && m_streamUrl ? QStringLiteral("the song cannot be kept: the connection that keeps "
                                                                  "it was lost")
                                                 : QStringLiteral("keeping the song playing is switched off"));
    }
    const QString title = m_title;
    if (m_armedTitle == title)
        return true;
    if (const CutPlanner::Keep keep = m_capture->keep(); keep != CutPlanner::Keep::Whole)
        return refuse(whyNotWhole(keep));

    // A jingle would be dropped at its end anyway; say so now rather than after it.
    const RadioEngineSettings settings = RadioEngineSettings::effective(m_station->id);
    if (const auto skip = SongSaver::screen(title, 1, TrackSegmenter::bytesPerSecForBitrate(m_station->bitrate),
                                            {settings.skipJingles, settings.lossless, 0}, false)) {
        QMetaObject::invokeMethod(
            this, [this, title, reason = *skip] { Q_EMIT songSkipped(title, reason); }, Qt::QueuedConnection);
        return true;
    }
    m_armedTitle = title;
    m_capture->saveSong(title);
    updateSaveState();
    return true;
}

bool StationListener::keepsSong() const
{
    const QVariant stored = Preferences::value(kKeepSongKey);
    return stored.isValid() ? stored.toBool() : true;
}

void StationListener::setKeepSong(bool on)
{
    Preferences::setValue(kKeepSongKey, on);
}

bool StationListener::hasPendingSaves() const
{
    if (m_armedTitle || m_savesInFlight > 0 || m_abandoning > 0)
        return true;
    return std::any_of(m_retired.cbegin(), m_retired.cend(),
                       [](const QPointer<RecordingSession> &s) { return s && !s->isIdle(); });
}
