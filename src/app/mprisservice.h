#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

class CoverCache;
class DBusLink;
class MprisPlayerAdaptor;
class MprisRootAdaptor;
class Player;
class StationListener;
class QDBusAbstractAdaptor;

// The player on the session bus as org.mpris.MediaPlayer2.orvida, the protocol through
// which media keys and the desktop's media controls (GNOME Shell, Plasma, playerctl) drive
// a player. The object /org/mpris/MediaPlayer2 carries the two adaptors; this class takes
// the name once the bus is connected, announces every property change except the position
// with org.freedesktop.DBus.Properties.PropertiesChanged, and keeps the track's cover as a
// file for the metadata's art URL.
//
// A convenience, like notifications: without a session bus the service settles as
// unavailable, says so once in the log, and the player carries on. Nothing here blocks on
// the bus: the name is requested asynchronously.
//
// Lives on the GUI thread with the Player, which outlives it, as do the listener and the
// bus link.
class MprisService : public QObject {
    Q_OBJECT

public:
    static constexpr QLatin1StringView kBusName { "org.mpris.MediaPlayer2.orvida" };
    static constexpr QLatin1StringView kObjectPath { "/org/mpris/MediaPlayer2" };

    enum class State {
        connecting, // waiting for the bus link or for the name
        published, // the object is on the bus under busName()
        unavailable, // no bus, or the name could not be had
    };

    // `listener`: the station heard, shown instead of the queue while there is one; may be
    // null. `coverFolder` empty: $XDG_CACHE_HOME/Orvida/covers.
    MprisService(DBusLink &sessionBus, Player &player, StationListener *listener = nullptr,
        const QString &coverFolder = {}, QObject *parent = nullptr);
    ~MprisService() override;

    // What Raise and Quit do: show the window, end the program. Dropped when `window` is
    // destroyed; until set, the desktop is told that it can do neither.
    void setWindowHooks(QObject *window, std::function<void()> raise, std::function<void()> quit);

    [[nodiscard]] State state() const { return m_state; }
    // The name owned: kBusName, or kBusName + ".instance<pid>" when another program holds
    // it already (the protocol's rule for a second instance). Empty until published.
    [[nodiscard]] const QString &busName() const { return m_busName; }
    // The covers behind the art URLs, for anyone else who shows the current track's.
    [[nodiscard]] CoverCache &covers() { return *m_covers; }

Q_SIGNALS:
    void stateChanged(MprisService::State state);

private:
    void publish();
    void requestName(const QString &name, bool lastTry);
    void settle(State state);
    // Announces, after the current event, what changed since the last announcement.
    void scheduleAnnouncement();
    void announceChanges();
    [[nodiscard]] static QVariantMap announcedProperties(const QDBusAbstractAdaptor &adaptor);

    DBusLink &m_bus;
    Player &m_player;
    std::unique_ptr<CoverCache> m_covers;
    MprisRootAdaptor *m_root = nullptr; // child of this, the exported object
    MprisPlayerAdaptor *m_playerAdaptor = nullptr;
    QMetaObject::Connection m_windowGone;
    State m_state = State::connecting;
    QString m_busName;
    bool m_registered = false;
    bool m_announcementPending = false;
    QVariantMap m_announcedRoot;
    QVariantMap m_announcedPlayer;
};
