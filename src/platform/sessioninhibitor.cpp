#include "platform/sessioninhibitor.h"

#include "platform/dbuslink.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace {

using Service = SessionInhibitor::Service;

constexpr uint kSuspendFlag = 4; // the same bit in the GNOME session and the portal
constexpr int kCallTimeoutMs = 10000;
const QString kAppName = QStringLiteral("Orvida");

Service nextService(Service service)
{
    switch (service) {
    case Service::None:
        return Service::GnomeSession;
    case Service::GnomeSession:
        return Service::PowerManagement;
    case Service::PowerManagement:
        return Service::Portal;
    case Service::Portal:
        return Service::None;
    }
    return Service::None;
}

QDBusMessage inhibitCall(Service service, const QString &why)
{
    switch (service) {
    case Service::GnomeSession: {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.gnome.SessionManager"), QStringLiteral("/org/gnome/SessionManager"),
            QStringLiteral("org.gnome.SessionManager"), QStringLiteral("Inhibit"));
        call << kAppName << uint(0) /* no toplevel window */ << why << kSuspendFlag;
        return call;
    }
    case Service::PowerManagement: {
        QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.PowerManagement"),
                                                           QStringLiteral("/org/freedesktop/PowerManagement/Inhibit"),
                                                           QStringLiteral("org.freedesktop.PowerManagement.Inhibit"),
                                                           QStringLiteral("Inhibit"));
        call << kAppName << why;
        return call;
    }
    case Service::Portal: {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.portal.Inhibit"), QStringLiteral("Inhibit"));
        call << QString() /* no parent window */ << kSuspendFlag << QVariantMap{{QStringLiteral("reason"), why}};
        return call;
    }
    case Service::None:
        break;
    }
    return {};
}

} // namespace

SessionInhibitor::SessionInhibitor(DBusLink &sessionBus, QObject *parent)
    : Inhibitor(parent)
    , m_bus(sessionBus)
{
}

SessionInhibitor::~SessionInhibitor()
{
    // Not release(): no heldChanged to listeners that may be going away themselves.
    if (isHeld())
        drop();
}

void SessionInhibitor::request(const QString &why)
{
    m_bus.whenSettled(this, [this, why] {
        if (m_bus.state() != DBusLink::State::Connected) {
            settle(false);
            return;
        }
        tryService(nextService(Service::None), why);
    });
}

void SessionInhibitor::tryService(Service service, const QString &why)
{
    if (service == Service::None) {
        m_bus.noteOnce(QStringLiteral("session-inhibit"),
                       QStringLiteral("No desktop power service on the session bus takes inhibit requests; "
                                      "logind's lock alone keeps the system awake"));
        settle(false);
        return;
    }
    QDBusMessage call = inhibitCall(service, why);
    // Starting a session service just to ask it is not worth it; the portal is the
    // exception, since sandboxes activate it on demand.
    call.setAutoStartService(service == Service::Portal);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(call, kCallTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, service, why] {
        watcher->deleteLater();
        if (watcher->isError()) {
            tryService(nextService(service), why);
            return;
        }
        m_service = service;
        if (service == Service::Portal)
            m_requestPath = QDBusPendingReply<QDBusObjectPath>(*watcher).value().path();
        else
            m_cookie = QDBusPendingReply<uint>(*watcher).value();
        settle(true);
    });
}

void SessionInhibitor::drop()
{
    QDBusMessage call;
    switch (m_service) {
    case Service::GnomeSession:
        call = QDBusMessage::createMethodCall(QStringLiteral("org.gnome.SessionManager"),
                                              QStringLiteral("/org/gnome/SessionManager"),
                                              QStringLiteral("org.gnome.SessionManager"), QStringLiteral("Uninhibit"));
        call << m_cookie;
        break;
    case Service::PowerManagement:
        call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.PowerManagement"),
                                              QStringLiteral("/org/freedesktop/PowerManagement/Inhibit"),
                                              QStringLiteral("org.freedesktop.PowerManagement.Inhibit"),
                                              QStringLiteral("UnInhibit"));
        call << m_cookie;
        break;
    case Service::Portal:
        call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"), m_requestPath,
                                              QStringLiteral("org.freedesktop.portal.Request"),
                                              QStringLiteral("Close"));
        break;
    case Service::None:
        return;
    }
    m_service = Service::None;
    m_cookie = 0;
    m_requestPath.clear();
    // Nobody waits for the answer: the request is gone from our side either way, and the
    // service forgets it at the latest when our connection closes.
    if (m_bus.state() == DBusLink::State::Connected)
        m_bus.connection().send(call);
}
