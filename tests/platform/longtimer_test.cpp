#include "platform/longtimer.h"

#include "testenv.h"

#include <QTimer>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

// `record --for 2147484` (just over 24.8 days) once overflowed QTimer's int interval and
// never ended.
TEST(LongTimer, WaitsLongerThanAQTimerCanAndStillFiresShortWaits)
{
    const std::chrono::milliseconds longWait = 2'147'484'000ms;
    LongTimer timer;
    timer.start(longWait);
    EXPECT_TRUE(timer.isActive());
    EXPECT_GT(timer.remainingMs(), longWait.count() - 60'000);
    EXPECT_LE(timer.remainingMs(), longWait.count());
    timer.start(std::chrono::milliseconds(std::numeric_limits<qint64>::max()));
    EXPECT_TRUE(timer.isActive());

    int fired = 0;
    QObject::connect(&timer, &LongTimer::timeout, [&] { ++fired; });
    timer.start(30ms); // a restart replaces the long wait
    ASSERT_TRUE(waitUntil([&] { return fired == 1; }, 2000));
    EXPECT_FALSE(timer.isActive());
    timer.start(0ms);
    ASSERT_TRUE(waitUntil([&] { return fired == 2; }, 2000)); // also from the event loop, never inside start()
}

} // namespace
