#include "platform/dbuslink.h"
#include "platform/logindinhibitor.h"
#include "platform/logindsleepwatch.h"

#include "dbusfixture.h"
#include "testenv.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using Entries = QList<PrivateBus::InhibitorEntry>;

class LogindInhibitorTest : public PrivateBusTest {
protected:
    std::unique_ptr<DBusLink> connectedLink() { return PrivateBusTest::connectedLink(QStringLiteral("system")); }

    // Waits until logind lists exactly one lock, Orvida's, with these values.
    bool holdsExactly(const QString &what, const QString &why, const QString &mode = QStringLiteral("block"))
    {
        return bus().waitForInhibitors([&](const Entries &e) {
            return e.size() == 1 && e[0].what == what && e[0].who == QLatin1String("Orvida") && e[0].why == why
                && e[0].mode == mode;
        });
    }
    bool holdsNone(int timeoutMs = 5000)
    {
        return bus().waitForInhibitors([](const Entries &e) { return e.isEmpty(); }, timeoutMs);
    }
};

TEST_F(LogindInhibitorTest, HoldsTheLockWithItsReasonUntilReleasedOrDestroyed)
{
    ASSERT_TRUE(bus().startLogind());
    auto link = connectedLink();
    LogindInhibitor sleep(*link, QStringLiteral("sleep"), LogindInhibitor::Mode::Block);
    auto delay = std::make_unique<LogindInhibitor>(*link, QStringLiteral("sleep"), LogindInhibitor::Mode::Delay);
    QSignalSpy held(&sleep, &Inhibitor::heldChanged);

    sleep.acquire(QStringLiteral("Radio recording in progress"));
    ASSERT_TRUE(waitUntil([&] { return sleep.isHeld(); }));
    ASSERT_TRUE(holdsExactly(QStringLiteral("sleep"), QStringLiteral("Radio recording in progress")));

    sleep.release();
    EXPECT_FALSE(sleep.isHeld());
    EXPECT_FALSE(sleep.isWanted());
    EXPECT_TRUE(holdsNone());
    ASSERT_EQ(held.size(), 2);
    EXPECT_TRUE(held[0][0].toBool());
    EXPECT_FALSE(held[1][0].toBool());

    delay->acquire(QStringLiteral("flush"));
    ASSERT_TRUE(waitUntil([&] { return delay->isHeld(); }));
    ASSERT_TRUE(holdsExactly(QStringLiteral("sleep"), QStringLiteral("flush"), QStringLiteral("delay")));
    delay.reset();
    EXPECT_TRUE(holdsNone());
}

TEST_F(LogindInhibitorTest, ALockGrantedAfterItsReleaseIsGivenBack)
{
    ASSERT_TRUE(bus().startLogind());
    auto link = connectedLink();
    LogindInhibitor sleep(*link, QStringLiteral("sleep"), LogindInhibitor::Mode::Block);
    LogindInhibitor lid(*link, QStringLiteral("handle-lid-switch"), LogindInhibitor::Mode::Block);
    QSignalSpy sleepHeld(&sleep, &Inhibitor::heldChanged);

    // Released before logind answered.
    sleep.acquire(QStringLiteral("Scheduled radio recording pending"));
    sleep.release();
    // Released and wanted again for another reason before logind answered: the lock that
    // stays is the one wanted last.
    lid.acquire(QStringLiteral("first"));
    lid.release();
    lid.acquire(QStringLiteral("second"));

    ASSERT_TRUE(waitUntil([&] { return lid.isHeld(); }));
    EXPECT_TRUE(holdsExactly(QStringLiteral("handle-lid-switch"), QStringLiteral("second")));
    EXPECT_FALSE(sleep.isHeld());
    EXPECT_TRUE(sleepHeld.isEmpty());
}

TEST_F(LogindInhibitorTest, AChildProcessDoesNotKeepAReleasedLock)
{
    ASSERT_TRUE(bus().startLogind());
    auto link = connectedLink();
    LogindInhibitor sleep(*link, QStringLiteral("sleep"), LogindInhibitor::Mode::Block);
    sleep.acquire(QStringLiteral("Radio recording in progress"));
    ASSERT_TRUE(waitUntil([&] { return sleep.isHeld(); }));

    // Started while the lock is held, alive after it was released: an inherited copy of
    // the descriptor would keep logind's lock for as long as the child runs.
    QProcess child;
    child.start(QStringLiteral("/bin/sleep"), {QStringLiteral("30")});
    ASSERT_TRUE(child.waitForStarted());
    sleep.release();
    const bool released = holdsNone(3000);
    child.kill();
    child.waitForFinished();
    EXPECT_TRUE(released);
}

TEST_F(LogindInhibitorTest, WithoutLogindNothingIsHeldItIsLoggedOnceAndALaterAcquireRetries)
{
    LogCapture log;
    auto link = connectedLink();
    LogindInhibitor sleep(*link, QStringLiteral("sleep"), LogindInhibitor::Mode::Block);
    LogindInhibitor lid(*link, QStringLiteral("handle-lid-switch"), LogindInhibitor::Mode::Block);

    sleep.acquire(QStringLiteral("Scheduled radio recording pending"));
    lid.acquire(QStringLiteral("lid"));
    ASSERT_TRUE(waitUntil([&] { return LogCapture::count(QStringLiteral("systemd-logind")) > 0; }));
    QTest::qWait(200); // the second refusal arrives as well
    EXPECT_EQ(LogCapture::count(QStringLiteral("systemd-logind")), 1);
    EXPECT_FALSE(sleep.isHeld());
    EXPECT_TRUE(sleep.isWanted());

    // logind appears later: the next acquire asks again, with the reason it was wanted with.
    ASSERT_TRUE(bus().startLogind());
    sleep.acquire(QStringLiteral("Radio recording in progress"));
    ASSERT_TRUE(waitUntil([&] { return sleep.isHeld(); }));
    EXPECT_TRUE(holdsExactly(QStringLiteral("sleep"), QStringLiteral("Scheduled radio recording pending")));
}

// No fixture: this is the machine without any bus, where recording must work all the same.
TEST(LogindWithoutBus, NothingBlocksNothingIsHeldAndItIsSaidOnce)
{
    LogCapture log;
    QTemporaryDir dir;
    QElapsedTimer elapsed;
    elapsed.start();

    DBusLink none(std::nullopt, QStringLiteral("system"));
    EXPECT_EQ(none.state(), DBusLink::State::Unavailable);
    LogindInhibitor sleep(none, QStringLiteral("sleep"), LogindInhibitor::Mode::Block);
    LogindSleepWatch watch(none);
    sleep.acquire(QStringLiteral("Radio recording in progress"));
    EXPECT_FALSE(sleep.isHeld());
    sleep.acquire(QStringLiteral("Radio recording in progress"));
    sleep.release();

    // An address that leads nowhere (a stale DBUS_SYSTEM_BUS_ADDRESS).
    DBusLink gone(QStringLiteral("unix:path=") + dir.filePath(QStringLiteral("no-bus")), QStringLiteral("system"));
    LogindInhibitor lid(gone, QStringLiteral("handle-lid-switch"), LogindInhibitor::Mode::Block);
    lid.acquire(QStringLiteral("lid"));
    EXPECT_LT(elapsed.elapsed(), 1000) << "the GUI thread waited for a bus";
    ASSERT_TRUE(waitUntil([&] { return gone.state() == DBusLink::State::Unavailable; }));
    QTest::qWait(50);
    EXPECT_FALSE(lid.isHeld());
    EXPECT_FALSE(watch.isWatching());
    EXPECT_EQ(LogCapture::count(QStringLiteral("D-Bus system bus")), 2); // once per link
}

TEST(LogindWithoutBus, BusAddressesComeFromTheEnvironmentOrAnExistingSocketOnly)
{
    const QByteArray savedSystem = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    const QByteArray savedSession = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR");
    QTemporaryDir runtime;

    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/tmp/private-system");
    EXPECT_EQ(DBusLink::systemBusAddress(), QStringLiteral("unix:path=/tmp/private-system"));

    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    EXPECT_EQ(DBusLink::sessionBusAddress(), std::nullopt) << "must not fall back to autolaunch";
    writeFile(runtime.filePath(QStringLiteral("bus")), {});
    EXPECT_EQ(DBusLink::sessionBusAddress(), QStringLiteral("unix:path=") + runtime.filePath(QStringLiteral("bus")));
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(DBusLink::sessionBusAddress(), std::nullopt);

    for (auto [name, value] : {std::pair{"DBUS_SYSTEM_BUS_ADDRESS", savedSystem},
                               std::pair{"DBUS_SESSION_BUS_ADDRESS", savedSession},
                               std::pair{"XDG_RUNTIME_DIR", savedRuntime}}) {
        if (value.isEmpty())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
}

} // namespace
