#include "engine/closedlidkeeper.h"
#include "platform/dbuslink.h"
#include "platform/preferences.h"

#include "dbusfixture.h"
#include "testenv.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using Entries = QList<PrivateBus::InhibitorEntry>;

bool holdsLid(const Entries &entries)
{
    return entries.size() == 1 && entries[0].what == QLatin1String("handle-lid-switch")
        && entries[0].who == QLatin1String("Orvida") && entries[0].why == QString(ClosedLidKeeper::kReason)
        && entries[0].mode == QLatin1String("block");
}

bool holdsNothing(const Entries &entries)
{
    return entries.isEmpty();
}

class ClosedLidKeeperTest : public LogindBusTest {
protected:
    // A keeper whose clock stands at `now` until the test moves it.
    std::unique_ptr<ClosedLidKeeper> makeKeeper()
    {
        return std::make_unique<ClosedLidKeeper>(*m_system, nullptr, [this] { return now; });
    }

    TestHome home; // the preference lives in this test's own config folder
    QDateTime now = QDateTime(QDate(2024, 3, 10), QTime(20, 0), Qt::UTC);
};

TEST_F(ClosedLidKeeperTest, OffByDefaultThenWhenOnTheLidIsKeptWhileRecordingAndLetGoAfterwards)
{
    auto keeper = makeKeeper();
    QSignalSpy keeping(keeper.get(), &ClosedLidKeeper::keepingChanged);
    keeper->setRecording(true);
    keeper->setNextPlannedStart(now.addSecs(60));
    keeper->reconcileAtLaunch();
    keeper->scheduleAdded();
    EXPECT_FALSE(ClosedLidKeeper::isEnabled());
    EXPECT_FALSE(keeper->isKeeping());

    keeper->setNextPlannedStart(std::nullopt);
    keeper->setEnabled(true);
    EXPECT_EQ(Preferences::value(QString(ClosedLidKeeper::kPreferenceKey)).toBool(), true);
    ASSERT_TRUE(waitUntil([&] { return keeper->isLockHeld(); }));
    ASSERT_TRUE(bus().waitForInhibitors(holdsLid));
    keeper->refresh(); // asked again: still the one lock
    EXPECT_FALSE(bus().waitForInhibitors([](const Entries &e) { return !holdsLid(e); }, 100));

    keeper->setRecording(false);
    keeper->refresh();
    EXPECT_TRUE(bus().waitForInhibitors(holdsNothing));
    ASSERT_EQ(keeping.size(), 2);
    EXPECT_TRUE(keeping[0][0].toBool());
    EXPECT_FALSE(keeping[1][0].toBool());

    // Turned off while keeping: let go at once.
    keeper->setRecording(true);
    keeper->refresh();
    ASSERT_TRUE(bus().waitForInhibitors(holdsLid));
    keeper->setEnabled(false);
    EXPECT_FALSE(keeper->isKeeping());
    EXPECT_TRUE(bus().waitForInhibitors(holdsNothing));
}

TEST_F(ClosedLidKeeperTest, APlanIsCoveredFromAnHourBeforeItsStart)
{
    Preferences::setValue(QString(ClosedLidKeeper::kPreferenceKey), true);
    auto keeper = makeKeeper();

    keeper->setNextPlannedStart(now.addSecs(ClosedLidKeeper::kLookAheadSec + 60));
    keeper->scheduleAdded();
    EXPECT_FALSE(keeper->isKeeping()) << "61 minutes ahead";

    keeper->setNextPlannedStart(now.addSecs(ClosedLidKeeper::kLookAheadSec));
    keeper->scheduleAdded();
    EXPECT_TRUE(keeper->isKeeping()) << "exactly an hour ahead";
    ASSERT_TRUE(bus().waitForInhibitors(holdsLid));

    // Its window has opened but the recording has not started yet (the tick comes within 20 s).
    keeper->setNextPlannedStart(now.addSecs(-30));
    keeper->refresh();
    EXPECT_TRUE(keeper->isKeeping());

    keeper->setNextPlannedStart(std::nullopt);
    keeper->refresh();
    EXPECT_FALSE(keeper->isKeeping());
    EXPECT_TRUE(bus().waitForInhibitors(holdsNothing));
}

TEST_F(ClosedLidKeeperTest, ALaterPlanIsPickedUpAnHourAheadWithoutAnotherRefresh)
{
    Preferences::setValue(QString(ClosedLidKeeper::kPreferenceKey), true);
    ClosedLidKeeper keeper(*m_system); // the real clock: the timer must fire by itself
    keeper.setNextPlannedStart(QDateTime::currentDateTimeUtc().addMSecs(ClosedLidKeeper::kLookAheadSec * 1000 + 300));
    keeper.reconcileAtLaunch();
    EXPECT_FALSE(keeper.isKeeping());

    EXPECT_TRUE(waitUntil([&] { return keeper.isKeeping(); }, 3000));
    EXPECT_TRUE(bus().waitForInhibitors(holdsLid));
}

TEST(ClosedLidKeeperWithoutBus, TheDecisionStandsEvenThoughNothingCanBeHeld)
{
    TestHome home;
    LogCapture log;
    DBusLink none(std::nullopt, QStringLiteral("system"));
    ClosedLidKeeper keeper(none);
    keeper.setEnabled(true);
    keeper.setRecording(true);
    keeper.reconcileAtLaunch();

    EXPECT_TRUE(keeper.isKeeping());
    EXPECT_FALSE(keeper.isLockHeld());
    EXPECT_EQ(LogCapture::count(QStringLiteral("Closed-lid recording is on")), 1);
    EXPECT_EQ(LogCapture::count(QStringLiteral("No D-Bus system bus")), 1);
}

} // namespace
