#pragma once

#include "engine/icydemux.h"
#include "engine/recordingcontext.h"
#include "engine/sessionstatus.h"
#include "engine/tracksegmenter.h"
#include "platform/httpclient.h"
#include "stations/station.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include <atomic>
#include <memory>
#include <optional>

// The stream side of one recording: resolving the address, the ICY request, reconnects,
// demultiplexing, segmentation and the status-document title poll. An answer that is no
// audio (error status, unfollowable redirect, a web page after the player agent, a
// compressed body) is a failed attempt like a lost connection: its body is dropped and
// it does not reset the reconnect count.
//
// Listening (a CutPlanner::Listening given) keeps songs only when armed; see CutPlanner.
//
// Lives on the engine thread (RecordingContext::engineThread()); every slot and callback
// runs there, so its state needs no lock. `stopped` is shared with the owning
// RecordingSession, which sets it from the GUI thread; every entry point checks it first.
// Talks to the session only through its signals (queued across threads).
class SessionWorker : public QObject {
    Q_OBJECT

public:
    SessionWorker(Station station, std::optional<QString> fullShowTitle, RecordingContext &context,
                  std::shared_ptr<std::atomic<bool>> stopped,
                  std::optional<CutPlanner::Listening> listening = std::nullopt);
    ~SessionWorker() override;

    // Entry points, each to be invoked on the engine thread.
    void start();
    void shutDown(); // the stop: cancels everything, finalises the open segment
    void flushToDisk();
    // Listening: saves the song titled `title` at its end, or says why not (saveRefused).
    void armSave(const QString &title);

    // How often buffered audio goes to disk (and the byte count to the status): what a
    // crash or a kill can lose.
    static constexpr int kFlushIntervalMs = 1000;

Q_SIGNALS:
    void titleAccepted(const QString &title);
    void errorChanged(const QString &message);
    // The session ended on its own (GaveUp, InvalidAddress); emitted at most once.
    void ended(SessionOutcome outcome);
    // State changes at once; the byte count at most once per kFlushIntervalMs.
    void statusChanged(const SessionStatus &status);
    // A finished song, handed to a save. The locks keep its segments safe until then.
    void songReady(std::shared_ptr<std::vector<SegmentLock>> segments, const QString &title);
    // Listening only.
    void keepChanged(CutPlanner::Keep keep);
    void saveRefused(const QString &title, CutPlanner::ArmResult why);
    void songAbandoned(const QString &title, const QString &reason);

private:
    void doConnect();
    void connectTo(const QUrl &url);
    void handleResponse(const HttpResponseHead &head);
    void processBody(const QByteArray &chunk);
    void handleFinished(const HttpResult &result);
    void scheduleReconnect(const QString &reason);
    void giveUp(SessionOutcome outcome, const QString &message);
    void setState(SessionStatus::State state);
    void onFlushTick();
    void handleInBandTitle(const QString &title);
    void startIcecastPolling();
    void pollIcecastStatus();

    const Station m_station;
    const std::optional<QString> m_fullShowTitle;
    RecordingContext &m_context;
    const RecordingTimings m_timings;
    std::shared_ptr<std::atomic<bool>> m_stopped;

    TrackSegmenter m_segmenter;
    std::optional<IcyDemux> m_demux;
    HttpTransfer m_stream;
    HttpTransfer m_playlist;
    QString m_contentType;
    std::optional<QUrl> m_resolvedUrl;
    bool m_usedFallbackUA = false;
    qint64 m_reconnectCount = 0;
    QTimer m_reconnectTimer{this}; // children, so they move to the engine thread with us
    QTimer m_flushTimer{this};
    SessionStatus m_status;
    qint64 m_reportedBytes = 0;
    bool m_ended = false;

    std::optional<QUrl> m_statusUrl;
    QString m_mountPath;
    QTimer m_statusTimer{this};
    HttpTransfer m_statusPoll;
    QElapsedTimer m_sinceInBandTitle; // invalid until the first in-band title
    QString m_abandonReason; // why an armed song would end unsaved now
};
