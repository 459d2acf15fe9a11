#include "platform/dbuslink.h"
#include "platform/desktopnotifier.h"

#include "dbusfixture.h"
#include "testenv.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using DesktopNotifierTest = PrivateBusTest;

TEST_F(DesktopNotifierTest, TheDaemonReceivesSummaryAndEscapedBodyUnderTheApplicationsName)
{
    ASSERT_TRUE(bus().startNotificationDaemon());
    auto link = connectedLink();
    DesktopNotifier notifier(*link);
    QSignalSpy shown(&notifier, &DesktopNotifier::shown);

    notifier.notify(QStringLiteral("Scheduled recording started"), QStringLiteral("Rock & Pop <FM>, 20:00–21:00"));
    notifier.notify(QStringLiteral("Scheduled recording ended"), QStringLiteral("Rock & Pop <FM>"));
    ASSERT_TRUE(waitUntil([&] { return shown.count() == 2; }));
    // Two notifications, not one replacing the other.
    EXPECT_NE(shown[0][0].toUInt(), shown[1][0].toUInt());

    const auto calls = bus().notifyCalls();
    ASSERT_EQ(calls.size(), 2);
    const QVariantList &args = calls[0].args;
    ASSERT_EQ(args.size(), 8);
    EXPECT_EQ(args[0].toString(), QStringLiteral("Orvida"));
    EXPECT_EQ(args[1].toUInt(), 0u);
    EXPECT_EQ(args[2].toString(), QStringLiteral("app.orvida.Orvida"));
    EXPECT_EQ(args[3].toString(), QStringLiteral("Scheduled recording started"));
    EXPECT_EQ(args[4].toString(), QStringLiteral("Rock &amp; Pop &lt;FM&gt;, 20:00–21:00"));
    EXPECT_EQ(args[7].toInt(), -1);
    EXPECT_EQ(calls[1].args[3].toString(), QStringLiteral("Scheduled recording ended"));
}

TEST_F(DesktopNotifierTest, ABusWithoutADaemonIsReportedOnceAndShowsNothing)
{
    LogCapture log;
    auto link = connectedLink();
    ASSERT_EQ(link->state(), DBusLink::State::Connected);
    DesktopNotifier notifier(*link);
    QSignalSpy shown(&notifier, &DesktopNotifier::shown);
    notifier.notify(QStringLiteral("one"), QString());
    notifier.notify(QStringLiteral("two"), QString());
    ASSERT_TRUE(waitUntil([&] { return LogCapture::count(QStringLiteral("No notification service")) > 0; }));
    QTest::qWait(200); // the second refusal arrives as well
    EXPECT_EQ(LogCapture::count(QStringLiteral("No notification service")), 1);
    EXPECT_EQ(shown.count(), 0);

    // A daemon that appears later gets the next one.
    ASSERT_TRUE(bus().startNotificationDaemon());
    notifier.notify(QStringLiteral("three"), QString());
    ASSERT_TRUE(waitUntil([&] { return shown.count() == 1; }));
    ASSERT_EQ(bus().notifyCalls().size(), 1);
    EXPECT_EQ(bus().notifyCalls()[0].args[3].toString(), QStringLiteral("three"));
}

} // namespace
