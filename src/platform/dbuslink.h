#pragma once

#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QDBusConnection;

// One connection to a D-Bus bus (the system bus for logind, the session bus for the
// desktop's own power daemon), opened on a pool thread: connecting authenticates with
// the bus daemon, and a stuck daemon must not stall the GUI thread. Many machines have
// no bus at all (containers, CI, servers running orvida-cli): the link then settles as
// Unavailable, says so once in the log, and everything built on it carries on without.
//
// Lives on the GUI thread and outlives the inhibitors and watchers that use it.
class DBusLink : public QObject {
    Q_OBJECT

public:
    enum class State { Connecting, Connected, Unavailable };

    // Starts connecting to `address` at once; without an address the link is Unavailable
    // from the start. `label` names the bus in log lines ("system", "session").
    DBusLink(std::optional<QString> address, QString label, QObject *parent = nullptr);
    ~DBusLink() override;

    // DBUS_SYSTEM_BUS_ADDRESS when set, else the standard socket when it exists.
    [[nodiscard]] static std::optional<QString> systemBusAddress();
    // DBUS_SESSION_BUS_ADDRESS when set, else $XDG_RUNTIME_DIR/bus when it exists. Never
    // autolaunches a bus: that would start daemons on a machine that has none.
    [[nodiscard]] static std::optional<QString> sessionBusAddress();

    [[nodiscard]] State state() const { return m_state; }
    [[nodiscard]] const QString &label() const { return m_label; }
    // Valid only while Connected. Calls on it must be asynchronous from the GUI thread.
    [[nodiscard]] QDBusConnection connection() const;

    // Runs `then` on this thread once the state is Connected or Unavailable: at once when
    // it already is, else when connecting ends. Dropped when `context` is destroyed first.
    void whenSettled(QObject *context, std::function<void()> then);

    // Logs `text` (qInfo) the first time `key` comes up on this link, so a missing service
    // is reported once and not on every attempt.
    void noteOnce(const QString &key, const QString &text);

Q_SIGNALS:
    void settled();

private:
    struct Attempt;
    void finishConnecting(bool connected, const QString &error);

    QString m_label;
    QString m_connectionName; // unique per link: QtDBus shares connections by name
    State m_state = State::Connecting;
    std::shared_ptr<Attempt> m_attempt; // shared with the pool thread while it connects
    QSet<QString> m_noted;
};
