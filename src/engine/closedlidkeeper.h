#pragma once

#include "platform/logindinhibitor.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

class DBusLink;

// Recording with the lid closed, for users who opt in ("ov.closedLidRecording", off by
// default): while a recording runs, or a planned one starts within the next hour, logind
// is asked to leave the lid switch alone (a "handle-lid-switch" lock in mode "block"), so
// closing the lid does not suspend the laptop. At all other times nothing is held and
// the lid does what the system is set up to do.
//
// The scheduler feeds it: whether anything records and the start of the first plan,
// then refresh(). A plan further away than the look-ahead arms a timer, so the lock is
// taken an hour ahead even when nothing else happens in between.
//
// Lives on the GUI thread.
class ClosedLidKeeper : public QObject {
    Q_OBJECT

public:
    static constexpr QLatin1StringView kPreferenceKey{"ov.closedLidRecording"};
    static constexpr QLatin1StringView kReason{"Radio recording with the lid closed"};
    static constexpr qint64 kLookAheadSec = 3600;

    using Clock = std::function<QDateTime()>;

    explicit ClosedLidKeeper(DBusLink &systemBus, QObject *parent = nullptr, Clock now = &QDateTime::currentDateTimeUtc);

    // The user's setting, read from the preferences on every use so orvida-cli and the
    // window agree. setEnabled() stores it and applies it at once.
    [[nodiscard]] static bool isEnabled();
    void setEnabled(bool enabled);

    void setRecording(bool recording) { m_recording = recording; }
    // The start of the earliest plan; absent when nothing is planned.
    void setNextPlannedStart(std::optional<QDateTime> start) { m_nextPlannedStart = std::move(start); }

    // At application start, once the plans are loaded: applies the stored setting to them
    // and says in the log whether the lid is kept.
    void reconcileAtLaunch();
    // A plan was added; it may start within the hour.
    void scheduleAdded();
    // Takes or gives back the lock for the current setting, recordings and plans.
    void refresh();

    // The lock is wanted (granted or not; without logind it never is).
    [[nodiscard]] bool isKeeping() const { return m_lid.isWanted(); }
    [[nodiscard]] bool isLockHeld() const { return m_lid.isHeld(); }

Q_SIGNALS:
    void keepingChanged(bool keeping);

private:
    void armLookAhead(const QDateTime &now);

    LogindInhibitor m_lid;
    Clock m_now;
    QTimer m_lookAhead; // fires when the next plan comes within kLookAheadSec
    bool m_recording = false;
    std::optional<QDateTime> m_nextPlannedStart;
};
