#pragma once

#include <QObject>
#include <QString>

#include <optional>

// One lock that keeps the system from doing something (sleeping, acting on the lid) while
// it is held, taken from a service over D-Bus. Callers say whether they want it; the
// asynchronous request and an answer that arrives after the caller changed its mind are
// dealt with here, so a lock granted after release() is given back at once.
//
// A lock that is wanted is kept as it is: acquire() with another reason changes nothing.
// Only a lock the service refused is asked for again, with the reason it was wanted with.
//
// Lives on the GUI thread; subclasses answer their requests on it.
class Inhibitor : public QObject {
    Q_OBJECT

public:
    void acquire(const QString &why);
    void release();

    [[nodiscard]] bool isWanted() const { return m_wantedWhy.has_value(); }
    // The service granted the lock and it has not been given back.
    [[nodiscard]] bool isHeld() const { return m_held; }
    // The reason the lock is wanted with (held or not).
    [[nodiscard]] const std::optional<QString> &reason() const { return m_wantedWhy; }

Q_SIGNALS:
    void heldChanged(bool held);

protected:
    explicit Inhibitor(QObject *parent);

    // Asks the service for the lock; the answer must come through settle(), possibly
    // from inside this call. Never called while a request is on its way.
    virtual void request(const QString &why) = 0;
    // Gives back the lock the last granted request took.
    virtual void drop() = 0;
    void settle(bool granted);

private:
    void startRequest();

    std::optional<QString> m_wantedWhy;
    std::optional<QString> m_requestedWhy; // the request on its way, if any
    bool m_held = false;
};
