#pragma once

#include "platform/inhibitor.h"

#include <QString>

class DBusLink;

// The desktop session's own "don't suspend" request, for desktops whose power daemon
// suspends an idle machine by itself and asks the session, not logind, whether anyone
// objects. Only the suspend flag is set, never idle or screensaver: the display may
// still blank and lock while we record.
//
// Tried in this order, the first that answers wins:
//   GnomeSession     org.gnome.SessionManager.Inhibit (flag 4, suspend)
//   PowerManagement  org.freedesktop.PowerManagement.Inhibit (KDE, Xfce)
//   Portal           org.freedesktop.portal.Inhibit (flag 4; sandboxes and the rest)
// The direct services come first because a portal backend without a session manager
// behind it may accept the request and do nothing. Each service drops our request
// when our connection closes, so a crash gives it back too.
//
// Without a session bus, or with none of these on it, the lock is never held.
//
// Lives on the GUI thread. Every D-Bus call is asynchronous.
class SessionInhibitor : public Inhibitor {
    Q_OBJECT

public:
    enum class Service { None, GnomeSession, PowerManagement, Portal };

    explicit SessionInhibitor(DBusLink &sessionBus, QObject *parent = nullptr);
    ~SessionInhibitor() override;

    // The service that granted the lock held now; None when nothing is held.
    [[nodiscard]] Service service() const { return m_service; }

protected:
    void request(const QString &why) override;
    void drop() override;

private:
    void tryService(Service service, const QString &why);

    DBusLink &m_bus;
    Service m_service = Service::None;
    uint m_cookie = 0;      // GnomeSession, PowerManagement
    QString m_requestPath; // Portal: the request object that is the lock
};
