#pragma once

#include "platform/inhibitor.h"

class DBusLink;

// Where logind answers on the system bus.
namespace Logind {
inline constexpr char kService[] = "org.freedesktop.login1";
inline constexpr char kPath[] = "/org/freedesktop/login1";
inline constexpr char kManager[] = "org.freedesktop.login1.Manager";
} // namespace Logind

// An inhibitor lock of systemd-logind (org.freedesktop.login1.Manager.Inhibit on the
// system bus), e.g. what "sleep" in mode "block". logind hands the lock over as a file
// descriptor and keeps it until every copy is closed: giving it back is closing ours, and
// a crashed process gives it back with its other descriptors. Our copy is close-on-exec,
// so ffmpeg and other children never keep a lock alive after we dropped it.
//
// Without a system bus or without logind the lock is simply never held; the first
// failure is logged once per bus.
//
// Lives on the GUI thread. Every D-Bus call is asynchronous.
class LogindInhibitor : public Inhibitor {
    Q_OBJECT

public:
    enum class Mode {
        Block, // the action waits until the lock is gone
        Delay, // the action waits up to logind's InhibitDelayMaxSec for the lock to go
    };

    // `what` is logind's colon-separated list ("sleep", "handle-lid-switch", ...).
    LogindInhibitor(DBusLink &systemBus, QString what, Mode mode, QObject *parent = nullptr);
    ~LogindInhibitor() override;

    [[nodiscard]] const QString &what() const { return m_what; }
    [[nodiscard]] Mode mode() const { return m_mode; }

protected:
    void request(const QString &why) override;
    void drop() override;

private:
    void sendInhibit(const QString &why);

    DBusLink &m_bus;
    const QString m_what;
    const Mode m_mode;
    int m_fd = -1; // the lock while held
};
