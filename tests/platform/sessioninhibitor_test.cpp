#include "platform/dbuslink.h"
#include "platform/sessioninhibitor.h"

#include "dbusfixture.h"
#include "testenv.h"

#include <QDBusMetaType>
#include <QTest>

#include <gtest/gtest.h>

namespace {

const QString kGnome = QStringLiteral("org.gnome.SessionManager");
const QString kGnomePath = QStringLiteral("/org/gnome/SessionManager");
const QString kPower = QStringLiteral("org.freedesktop.PowerManagement");
const QString kPowerPath = QStringLiteral("/org/freedesktop/PowerManagement/Inhibit");
const QString kPowerInterface = QStringLiteral("org.freedesktop.PowerManagement.Inhibit");
const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kRequestPath = QStringLiteral("/org/freedesktop/portal/desktop/request/1_1/orvida");

const QString kReason = QStringLiteral("Scheduled radio recording pending");

class SessionInhibitorTest : public PrivateBusTest {
protected:
    void startGnome(bool refuses = false)
    {
        ASSERT_TRUE(bus().startMock(kGnome, kGnomePath, kGnome));
        const QString inhibit = refuses ? QStringLiteral("raise dbus.exceptions.DBusException('refused', "
                                                         "name='org.gnome.SessionManager.GeneralError')")
                                        : QStringLiteral("ret = dbus.UInt32(17)");
        ASSERT_TRUE(bus().addMethod(kGnome, kGnomePath, kGnome, QStringLiteral("Inhibit"), QStringLiteral("susu"),
                                    QStringLiteral("u"), inhibit));
        ASSERT_TRUE(bus().addMethod(kGnome, kGnomePath, kGnome, QStringLiteral("Uninhibit"), QStringLiteral("u"), {},
                                    {}));
    }

    void startPowerManagement()
    {
        ASSERT_TRUE(bus().startMock(kPower, kPowerPath, kPowerInterface));
        ASSERT_TRUE(bus().addMethod(kPower, kPowerPath, kPowerInterface, QStringLiteral("Inhibit"), QStringLiteral("ss"),
                                    QStringLiteral("u"), QStringLiteral("ret = dbus.UInt32(5)")));
        ASSERT_TRUE(bus().addMethod(kPower, kPowerPath, kPowerInterface, QStringLiteral("UnInhibit"),
                                    QStringLiteral("u"), {}, {}));
    }

    void startPortal()
    {
        ASSERT_TRUE(bus().startMock(kPortal, kPortalPath, QStringLiteral("org.freedesktop.portal.Inhibit")));
        ASSERT_TRUE(bus().addMethod(
            kPortal, kPortalPath, QStringLiteral("org.freedesktop.portal.Inhibit"), QStringLiteral("Inhibit"),
            QStringLiteral("sua{sv}"), QStringLiteral("o"),
            QStringLiteral("self.AddObject('%1', 'org.freedesktop.portal.Request', {}, [('Close', '', '', '')]); "
                           "ret = dbus.ObjectPath('%1')")
                .arg(kRequestPath)));
    }

    QStringList methods(const QString &name, const QString &path)
    {
        QStringList result;
        for (const auto &call : bus().calls(name, path))
            result.append(call.method);
        return result;
    }
};

TEST_F(SessionInhibitorTest, GnomeSessionGetsOnlyTheSuspendFlagAndItsCookieBackOnReleaseAndDestruction)
{
    startGnome();
    auto link = connectedLink();
    auto inhibitor = std::make_unique<SessionInhibitor>(*link);

    inhibitor->acquire(kReason);
    ASSERT_TRUE(waitUntil([&] { return inhibitor->isHeld(); }));
    EXPECT_EQ(inhibitor->service(), SessionInhibitor::Service::GnomeSession);
    auto calls = bus().calls(kGnome, kGnomePath);
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls[0].method, QStringLiteral("Inhibit"));
    EXPECT_EQ(calls[0].args, (QVariantList{QStringLiteral("Orvida"), 0u, kReason, 4u}));

    inhibitor->release();
    EXPECT_EQ(inhibitor->service(), SessionInhibitor::Service::None);
    ASSERT_TRUE(waitUntil([&] { return bus().calls(kGnome, kGnomePath).size() == 2; }));
    calls = bus().calls(kGnome, kGnomePath);
    EXPECT_EQ(calls[1].method, QStringLiteral("Uninhibit"));
    EXPECT_EQ(calls[1].args, QVariantList{17u});

    // Taken again, then the object goes away while holding it.
    inhibitor->acquire(kReason);
    ASSERT_TRUE(waitUntil([&] { return inhibitor->isHeld(); }));
    inhibitor.reset();
    ASSERT_TRUE(waitUntil([&] { return bus().calls(kGnome, kGnomePath).size() == 4; }));
    EXPECT_EQ(bus().calls(kGnome, kGnomePath).last().method, QStringLiteral("Uninhibit"));
}

TEST_F(SessionInhibitorTest, FallsBackToPowerManagementWhenTheSessionManagerRefuses)
{
    startGnome(/*refuses=*/true);
    startPowerManagement();
    auto link = connectedLink();
    SessionInhibitor inhibitor(*link);

    inhibitor.acquire(kReason);
    ASSERT_TRUE(waitUntil([&] { return inhibitor.isHeld(); }));
    EXPECT_EQ(inhibitor.service(), SessionInhibitor::Service::PowerManagement);
    EXPECT_EQ(methods(kGnome, kGnomePath), QStringList{QStringLiteral("Inhibit")});
    auto calls = bus().calls(kPower, kPowerPath);
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls[0].args, (QVariantList{QStringLiteral("Orvida"), kReason}));

    inhibitor.release();
    ASSERT_TRUE(waitUntil([&] { return bus().calls(kPower, kPowerPath).size() == 2; }));
    calls = bus().calls(kPower, kPowerPath);
    EXPECT_EQ(calls[1].method, QStringLiteral("UnInhibit"));
    EXPECT_EQ(calls[1].args, QVariantList{5u});
    // The refusing service was never asked to give anything back.
    EXPECT_EQ(methods(kGnome, kGnomePath), QStringList{QStringLiteral("Inhibit")});
}

TEST_F(SessionInhibitorTest, ThePortalIsAskedForSuspendWithTheReasonAndItsRequestIsClosedOnRelease)
{
    startPortal();
    auto link = connectedLink();
    SessionInhibitor inhibitor(*link);

    inhibitor.acquire(kReason);
    ASSERT_TRUE(waitUntil([&] { return inhibitor.isHeld(); }));
    EXPECT_EQ(inhibitor.service(), SessionInhibitor::Service::Portal);
    const auto calls = bus().calls(kPortal, kPortalPath);
    ASSERT_EQ(calls.size(), 1);
    ASSERT_EQ(calls[0].args.size(), 3);
    EXPECT_EQ(calls[0].args[0], QString());
    EXPECT_EQ(calls[0].args[1], 4u);
    const QVariantMap options = qdbus_cast<QVariantMap>(calls[0].args[2]);
    EXPECT_EQ(options.value(QStringLiteral("reason")), kReason);

    EXPECT_TRUE(methods(kPortal, kRequestPath).isEmpty());
    inhibitor.release();
    EXPECT_TRUE(waitUntil([&] { return methods(kPortal, kRequestPath) == QStringList{QStringLiteral("Close")}; }));
}

TEST_F(SessionInhibitorTest, WithNoDesktopServiceNothingIsHeldAndThatIsLoggedOnce)
{
    LogCapture log;
    {
        auto link = connectedLink();
        ASSERT_EQ(link->state(), DBusLink::State::Connected);
        SessionInhibitor first(*link);
        SessionInhibitor second(*link);
        first.acquire(kReason);
        second.acquire(kReason);
        EXPECT_TRUE(waitUntil([&] { return LogCapture::count(QStringLiteral("No desktop power service")) > 0; }));
        QTest::qWait(200); // the second refusal comes in as well
        EXPECT_FALSE(first.isHeld());
        EXPECT_FALSE(second.isHeld());
        EXPECT_EQ(first.service(), SessionInhibitor::Service::None);
    }
    EXPECT_EQ(LogCapture::count(QStringLiteral("No desktop power service")), 1) << LogCapture::all().toStdString();
}

} // namespace
