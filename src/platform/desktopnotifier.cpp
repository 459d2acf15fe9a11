#include "platform/desktopnotifier.h"

#include "platform/dbuslink.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace {

constexpr int kCallTimeoutMs = 10000;
constexpr int kDaemonDefaultExpiry = -1;

} // namespace

DesktopNotifier::DesktopNotifier(DBusLink &sessionBus, QObject *parent)
    : QObject(parent)
    , m_bus(sessionBus)
{
}

void DesktopNotifier::notify(const QString &summary, const QString &body)
{
    m_bus.whenSettled(this, [this, summary, body] {
        if (m_bus.state() != DBusLink::State::Connected)
            return; // the link has said once that there is no bus
        QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("/org/freedesktop/Notifications"), QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("Notify"));
        const QVariantMap hints { { QStringLiteral("desktop-entry"), QString(kDesktopEntry) } };
        call << QString(kAppName) << uint(0) /* a new notification, replacing none */ << QString(kDesktopEntry)
             << summary << body.toHtmlEscaped() << QStringList() /* no actions */ << hints << int(kDaemonDefaultExpiry);
        auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(call, kCallTimeoutMs), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            watcher->deleteLater();
            const QDBusPendingReply<uint> reply = *watcher;
            if (reply.isError()) {
                m_bus.noteOnce(QStringLiteral("notifications"),
                    QStringLiteral("No notification service on the D-Bus %1 bus (%2); recordings are "
                                   "not announced on the desktop")
                        .arg(m_bus.label(), reply.error().name()));
                return;
            }
            Q_EMIT shown(reply.value());
        });
    });
}
