#include "platform/logindinhibitor.h"

#include "platform/dbuslink.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kCallTimeoutMs = 10000;

} // namespace

LogindInhibitor::LogindInhibitor(DBusLink &systemBus, QString what, Mode mode, QObject *parent)
    : Inhibitor(parent)
    , m_bus(systemBus)
    , m_what(std::move(what))
    , m_mode(mode)
{
}

LogindInhibitor::~LogindInhibitor()
{
    // No heldChanged from here: whoever listens may be halfway through its own teardown.
    if (m_fd >= 0)
        ::close(m_fd);
}

void LogindInhibitor::request(const QString &why)
{
    m_bus.whenSettled(this, [this, why] { sendInhibit(why); });
}

void LogindInhibitor::sendInhibit(const QString &why)
{
    if (m_bus.state() != DBusLink::State::Connected) {
        settle(false);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(Logind::kService),
                                                       QString::fromLatin1(Logind::kPath),
                                                       QString::fromLatin1(Logind::kManager), QStringLiteral("Inhibit"));
    call << m_what << QStringLiteral("Orvida") << why
         << (m_mode == Mode::Block ? QStringLiteral("block") : QStringLiteral("delay"));
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(call, kCallTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *watcher;
        if (reply.isError()) {
            m_bus.noteOnce(QStringLiteral("logind"),
                           QStringLiteral("No inhibitor locks from systemd-logind (%1); recording goes on without them")
                               .arg(reply.error().message()));
            settle(false);
            return;
        }
        // The reply's own copy goes with the watcher; ours is the one that holds the lock.
        const int fd = ::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
        if (fd < 0) {
            settle(false);
            return;
        }
        m_fd = fd;
        settle(true);
    });
}

void LogindInhibitor::drop()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}
