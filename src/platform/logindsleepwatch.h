#pragma once

#include <QObject>

class DBusLink;

// Tells when logind is about to suspend the system and when it has resumed
// (org.freedesktop.login1.Manager.PrepareForSleep). Holders of a "sleep" delay lock get
// until they give it back (at most logind's InhibitDelayMaxSec) to prepare.
//
// Lives on the GUI thread; the signal arrives there. Without a system bus it never fires.
class LogindSleepWatch : public QObject {
    Q_OBJECT

public:
    explicit LogindSleepWatch(DBusLink &systemBus, QObject *parent = nullptr);

    // Subscribed on the bus: signals sent from now on reach us.
    [[nodiscard]] bool isWatching() const { return m_watching; }

Q_SIGNALS:
    // true: the system is going to sleep; false: it has woken up (or the sleep was cancelled).
    void prepareForSleep(bool start);
    void watchingChanged();

private Q_SLOTS:
    void handlePrepareForSleep(bool start);

private:
    DBusLink &m_bus;
    bool m_watching = false;
};
