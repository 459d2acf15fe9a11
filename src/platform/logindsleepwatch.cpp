#include "platform/logindsleepwatch.h"

#include "platform/dbuslink.h"
#include "platform/logindinhibitor.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>

LogindSleepWatch::LogindSleepWatch(DBusLink &systemBus, QObject *parent)
    : QObject(parent)
    , m_bus(systemBus)
{
    m_bus.whenSettled(this, [this] {
        if (m_bus.state() != DBusLink::State::Connected)
            return;
        QDBusConnection connection = m_bus.connection();
        // No sender name in the match: naming logind would make QtDBus look up its owner
        // with a blocking call. Only logind publishes at this path and interface, and a
        // forged signal would do no more than flush the recordings early.
        connection.connect(QString(), QString::fromLatin1(Logind::kPath), QString::fromLatin1(Logind::kManager),
                           QStringLiteral("PrepareForSleep"), this, SLOT(handlePrepareForSleep(bool)));
        // The bus handles one client's messages in order: once this round trip is back,
        // the match rule sent before it is in force.
        const QDBusMessage roundTrip = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"));
        auto *watcher = new QDBusPendingCallWatcher(connection.asyncCall(roundTrip), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            watcher->deleteLater();
            m_watching = true;
            Q_EMIT watchingChanged();
        });
    });
}

void LogindSleepWatch::handlePrepareForSleep(bool start)
{
    Q_EMIT prepareForSleep(start);
}
