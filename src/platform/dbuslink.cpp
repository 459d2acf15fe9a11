#include "platform/dbuslink.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QThreadPool>

#include <atomic>

namespace {

std::optional<QString> addressFromEnvironment(const char *variable)
{
    const QString address = qEnvironmentVariable(variable);
    if (address.isEmpty())
        return std::nullopt;
    return address;
}

std::optional<QString> socketAddress(const QString &path)
{
    if (path.isEmpty() || !QFileInfo::exists(path))
        return std::nullopt;
    return QStringLiteral("unix:path=") + path;
}

} // namespace

// The pool thread and the link meet here. The thread posts its result while holding the
// mutex, and the link's destructor marks the attempt abandoned under it, so a result is
// never posted to a destroyed link and a connection made too late is closed again.
struct DBusLink::Attempt {
    QMutex mutex;
    bool abandoned = false;
};

DBusLink::DBusLink(std::optional<QString> address, QString label, QObject *parent)
    : QObject(parent)
    , m_label(std::move(label))
    , m_attempt(std::make_shared<Attempt>())
{
    static std::atomic<int> serial{0};
    m_connectionName = QStringLiteral("orvida-%1-%2").arg(m_label).arg(serial.fetch_add(1));
    if (!address) {
        m_state = State::Unavailable;
        noteOnce(QStringLiteral("bus"),
                 QStringLiteral("No D-Bus %1 bus on this machine; going on without it").arg(m_label));
        return;
    }
    QThreadPool::globalInstance()->start(
        [attempt = m_attempt, link = this, name = m_connectionName, address = *address] {
            QDBusConnection connection = QDBusConnection::connectToBus(address, name);
            const bool connected = connection.isConnected();
            const QString error = connected ? QString() : connection.lastError().message();
            QMutexLocker lock(&attempt->mutex);
            if (attempt->abandoned || !connected) {
                QDBusConnection::disconnectFromBus(name);
                if (attempt->abandoned)
                    return;
            }
            QMetaObject::invokeMethod(
                link, [link, connected, error] { link->finishConnecting(connected, error); }, Qt::QueuedConnection);
        });
}

DBusLink::~DBusLink()
{
    {
        QMutexLocker lock(&m_attempt->mutex);
        m_attempt->abandoned = true;
    }
    // A no-op when the pool thread has not connected yet: it sees the mark and closes
    // its connection itself.
    QDBusConnection::disconnectFromBus(m_connectionName);
}

std::optional<QString> DBusLink::systemBusAddress()
{
    if (auto address = addressFromEnvironment("DBUS_SYSTEM_BUS_ADDRESS"))
        return address;
    return socketAddress(QStringLiteral("/run/dbus/system_bus_socket"));
}

std::optional<QString> DBusLink::sessionBusAddress()
{
    if (auto address = addressFromEnvironment("DBUS_SESSION_BUS_ADDRESS"))
        return address;
    const QString runtimeDir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtimeDir.isEmpty())
        return std::nullopt;
    return socketAddress(runtimeDir + QStringLiteral("/bus"));
}

QDBusConnection DBusLink::connection() const
{
    Q_ASSERT(m_state == State::Connected);
    return QDBusConnection(m_connectionName);
}

void DBusLink::whenSettled(QObject *context, std::function<void()> then)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_state != State::Connecting) {
        then();
        return;
    }
    connect(this, &DBusLink::settled, context, std::move(then), Qt::SingleShotConnection);
}

void DBusLink::noteOnce(const QString &key, const QString &text)
{
    if (m_noted.contains(key))
        return;
    m_noted.insert(key);
    qInfo().noquote() << text;
}

void DBusLink::finishConnecting(bool connected, const QString &error)
{
    m_state = connected ? State::Connected : State::Unavailable;
    if (!connected)
        noteOnce(QStringLiteral("bus"),
                 QStringLiteral("D-Bus %1 bus not reachable (%2); going on without it").arg(m_label, error));
    Q_EMIT settled();
}
