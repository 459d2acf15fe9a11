#pragma once

#include <QObject>
#include <QString>

class DBusLink;

// Desktop notifications: org.freedesktop.Notifications.Notify on the session bus, the
// one call every notification daemon (GNOME Shell, Plasma, dunst, mako, ...) answers.
// A notification is a courtesy: without a session bus, or with no daemon on it, nothing
// is shown and that is said once in the log; the caller never hears of it.
//
// Lives on the GUI thread. The call is asynchronous; nothing waits for the daemon.
class DesktopNotifier : public QObject {
    Q_OBJECT

public:
    static constexpr QLatin1StringView kAppName { "Orvida" };
    // The icon and the desktop file share this name, so the daemon can group our
    // notifications under the application.
    static constexpr QLatin1StringView kDesktopEntry { "app.orvida.Orvida" };

    explicit DesktopNotifier(DBusLink &sessionBus, QObject *parent = nullptr);

    // Shows `summary` (the bold first line) and `body` (plain text; markup characters are
    // escaped, since daemons that understand body markup would eat them).
    void notify(const QString &summary, const QString &body);

Q_SIGNALS:
    // The daemon took the notification and gave it this id (diagnostics and tests).
    void shown(uint id);

private:
    DBusLink &m_bus;
};
