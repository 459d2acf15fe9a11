#include "app/mprisservice.h"

#include "app/covercache.h"
#include "app/mprisplayeradaptor.h"
#include "app/mprisrootadaptor.h"
#include "engine/stationlistener.h"
#include "platform/dbuslink.h"
#include "playback/player.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMetaProperty>
#include <QStringList>
#include <QThread>
#include <QTimer>

namespace {

constexpr int kCallTimeoutMs = 10000;
// RequestName: fail rather than wait in line behind another owner.
constexpr uint kDoNotQueue = 4;
constexpr uint kPrimaryOwner = 1;
constexpr uint kAlreadyOwner = 4;

const QString kDBus = QStringLiteral("org.freedesktop.DBus");
const QString kDBusPath = QStringLiteral("/org/freedesktop/DBus");

} // namespace

MprisService::MprisService(
    DBusLink &sessionBus, Player &player, StationListener *listener, const QString &coverFolder, QObject *parent)
    : QObject(parent)
    , m_bus(sessionBus)
    , m_player(player)
    , m_covers(std::make_unique<CoverCache>(coverFolder))
{
    m_root = new MprisRootAdaptor(this);
    m_playerAdaptor = new MprisPlayerAdaptor(this, m_player, *m_covers, listener);

    // Every signal of the player may change what the properties say; they are compared once
    // the player is done with the event that sent them.
    connect(&m_player, &Player::statusChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::currentTrackChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::queueChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::shuffleChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::repeatChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::volumeChanged, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::queueEnded, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::trackPlayed, this, &MprisService::scheduleAnnouncement);
    connect(m_covers.get(), &CoverCache::coverLookedUp, this, &MprisService::scheduleAnnouncement);
    connect(&m_player, &Player::liveChanged, this, &MprisService::scheduleAnnouncement);
    if (listener) {
        // The adaptor takes the title from the same signal, connected before this one.
        connect(listener, &StationListener::stationChanged, this, &MprisService::scheduleAnnouncement);
        connect(listener, &StationListener::titleChanged, this, &MprisService::scheduleAnnouncement);
    }

    m_bus.whenSettled(this, [this] { publish(); });
}

MprisService::~MprisService()
{
    if (!m_registered || m_bus.state() != DBusLink::State::Connected)
        return;
    QDBusConnection connection = m_bus.connection();
    connection.unregisterObject(QString(kObjectPath));
    if (!m_busName.isEmpty()) {
        // Fire and forget: the bus frees the name anyway when the program ends, but a
        // service that goes while the program runs (tests, a restart of the player) must
        // not leave the desktop talking to nobody.
        QDBusMessage release = QDBusMessage::createMethodCall(kDBus, kDBusPath, kDBus, QStringLiteral("ReleaseName"));
        release << m_busName;
        connection.send(release);
    }
}

void MprisService::setWindowHooks(QObject *window, std::function<void()> raise, std::function<void()> quit)
{
    Q_ASSERT(QThread::currentThread() == thread());
    disconnect(m_windowGone);
    m_root->raiseHook = std::move(raise);
    m_root->quitHook = std::move(quit);
    if (window) {
        m_windowGone = connect(window, &QObject::destroyed, this, [this] {
            m_root->raiseHook = {};
            m_root->quitHook = {};
            scheduleAnnouncement();
        });
    }
    scheduleAnnouncement();
}

void MprisService::publish()
{
    if (m_bus.state() != DBusLink::State::Connected) {
        settle(State::unavailable); // the link has said once that there is no bus
        return;
    }
    QDBusConnection connection = m_bus.connection();
    if (!connection.registerObject(QString(kObjectPath), this, QDBusConnection::ExportAdaptors)) {
        m_bus.noteOnce(QStringLiteral("mpris"),
            QStringLiteral("Cannot export the media controls on the D-Bus %1 bus: %2")
                .arg(m_bus.label(), connection.lastError().message()));
        settle(State::unavailable);
        return;
    }
    m_registered = true;
    m_announcedRoot = announcedProperties(*m_root);
    m_announcedPlayer = announcedProperties(*m_playerAdaptor);
    requestName(QString(kBusName), false);
}

void MprisService::requestName(const QString &name, bool lastTry)
{
    QDBusMessage call = QDBusMessage::createMethodCall(kDBus, kDBusPath, kDBus, QStringLiteral("RequestName"));
    call << name << kDoNotQueue;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(call, kCallTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, name, lastTry] {
        watcher->deleteLater();
        const QDBusPendingReply<uint> reply = *watcher;
        if (!reply.isError() && (reply.value() == kPrimaryOwner || reply.value() == kAlreadyOwner)) {
            m_busName = name;
            settle(State::published);
            return;
        }
        if (!reply.isError() && !lastTry) {
            requestName(
                QString(kBusName) + QStringLiteral(".instance%1").arg(QCoreApplication::applicationPid()), true);
            return;
        }
        m_bus.noteOnce(QStringLiteral("mpris"),
            QStringLiteral("The media controls did not get the "
                           "name %1 on the D-Bus %2 bus (%3)")
                .arg(name, m_bus.label(), reply.isError() ? reply.error().message() : QStringLiteral("taken")));
        settle(State::unavailable);
    });
}

void MprisService::settle(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}

void MprisService::scheduleAnnouncement()
{
    if (m_announcementPending)
        return;
    m_announcementPending = true;
    QTimer::singleShot(0, this, &MprisService::announceChanges);
}

QVariantMap MprisService::announcedProperties(const QDBusAbstractAdaptor &adaptor)
{
    QVariantMap values;
    const QMetaObject *meta = adaptor.metaObject();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        if (qstrcmp(property.name(), MprisPlayerAdaptor::kLiveProperty) == 0)
            continue;
        values.insert(QString::fromLatin1(property.name()), property.read(&adaptor));
    }
    return values;
}

void MprisService::announceChanges()
{
    m_announcementPending = false;
    if (!m_registered || m_bus.state() != DBusLink::State::Connected)
        return;
    const auto announce = [this](const char *interface, const QVariantMap &now, QVariantMap &before) {
        QVariantMap changed;
        for (auto it = now.cbegin(); it != now.cend(); ++it) {
            if (before.value(it.key()) != it.value())
                changed.insert(it.key(), it.value());
        }
        before = now;
        if (changed.isEmpty())
            return;
        QDBusMessage signal = QDBusMessage::createSignal(QString(kObjectPath),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
        signal << QString::fromLatin1(interface) << changed << QStringList();
        m_bus.connection().send(signal);
    };
    announce(MprisRootAdaptor::kInterface, announcedProperties(*m_root), m_announcedRoot);
    announce(MprisPlayerAdaptor::kInterface, announcedProperties(*m_playerAdaptor), m_announcedPlayer);
}
