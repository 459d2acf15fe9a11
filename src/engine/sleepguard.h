#pragma once

#include "engine/powerassertion.h"
#include "platform/logindinhibitor.h"
#include "platform/logindsleepwatch.h"
#include "platform/sessioninhibitor.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class DBusLink;
class RecordingSession;

// Keeps the system from sleeping while recordings run or are planned, and gets the
// recordings' audio onto the disk when the user suspends all the same.
//
// The scheduler's hold (PowerAssertion) is a logind "sleep" lock in mode "block" plus the
// desktop session's own suspend inhibit, both with the scheduler's reason; the display
// may still sleep. While a recording runs there is also a "sleep" lock in mode "delay":
// when logind announces the suspend, the sessions' buffered audio is written out and only
// then is that lock given back, so what was recorded up to the lid closing is on disk.
// After the wake-up the delay lock is taken again if recording goes on.
//
// Without a system or session bus nothing is held and nothing waits; recording goes on.
//
// Lives on the GUI thread, like the scheduler and recorder that drive it.
class SleepGuard : public QObject, public PowerAssertion {
    Q_OBJECT

public:
    static constexpr QLatin1StringView kFlushReason{"Saving radio recordings before sleep"};

    // Writes every running session's buffered audio to disk and calls `done` on the GUI
    // thread once all of it is there. Must call `done` exactly once.
    using Flush = std::function<void(std::function<void()> done)>;

    SleepGuard(DBusLink &systemBus, DBusLink &sessionBus, Flush flush, QObject *parent = nullptr);

    void acquire(const QString &reason) override;
    void release() override;

    // Whether any recording runs; holds the delay lock while it does.
    void setRecording(bool recording);

    // The Flush of a set of sessions: each pushes its buffered audio to disk on the
    // engine thread; `done` follows the last report (at once when there are none).
    static void flushSessions(const QList<RecordingSession *> &sessions, std::function<void()> done);

    // Locks granted by logind (tests and diagnostics; the hold itself is acquire()'s).
    [[nodiscard]] bool isBlockHeld() const { return m_block.isHeld(); }
    [[nodiscard]] bool isDelayHeld() const { return m_delay.isHeld(); }
    [[nodiscard]] bool isSessionHeld() const { return m_session.isHeld(); }
    // Subscribed to logind's suspend announcements.
    [[nodiscard]] bool isWatchingForSleep() const { return m_watch.isWatching(); }
    // Between logind's announcement of a suspend and the wake-up.
    [[nodiscard]] bool isPreparingForSleep() const { return m_preparingForSleep; }

Q_SIGNALS:
    // The recordings are on disk and the delay lock is given back for this suspend.
    void readyForSleep();

private:
    void prepareForSleep(bool start);
    void updateDelayLock();

    LogindInhibitor m_block;
    LogindInhibitor m_delay;
    SessionInhibitor m_session;
    LogindSleepWatch m_watch;
    Flush m_flush;
    bool m_recording = false;
    bool m_preparingForSleep = false;
    quint64 m_sleepSerial = 0; // tells a late flush of an earlier suspend from the current one
};
