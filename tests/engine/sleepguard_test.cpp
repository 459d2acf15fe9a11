#include "engine/apppaths.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "engine/sleepguard.h"
#include "platform/dbuslink.h"
#include "platform/httpclient.h"

#include "dbusfixture.h"
#include "fixtureserver.h"
#include "testenv.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using Entries = QList<PrivateBus::InhibitorEntry>;

const QString kRecording = QString(PowerAssertion::kRecordingReason);
const QString kPending = QString(PowerAssertion::kPendingReason);
const QString kGnome = QStringLiteral("org.gnome.SessionManager");
const QString kGnomePath = QStringLiteral("/org/gnome/SessionManager");

bool hasLock(const Entries &entries, const QString &mode, const QString &why)
{
    return std::any_of(entries.begin(), entries.end(), [&](const PrivateBus::InhibitorEntry &e) {
        return e.what == QLatin1String("sleep") && e.who == QLatin1String("Orvida") && e.mode == mode && e.why == why;
    });
}

bool hasDelayLock(const Entries &entries)
{
    return hasLock(entries, QStringLiteral("delay"), QString(SleepGuard::kFlushReason));
}

class SleepGuardTest : public LogindBusTest {
protected:
    void SetUp() override
    {
        LogindBusTest::SetUp();
        if (setUpFailed())
            return;
        // The one private bus is the session bus as well.
        m_session = std::make_unique<DBusLink>(m_bus->address(), QStringLiteral("session"));
    }

    // A guard whose flush hands its completion to the test.
    std::unique_ptr<SleepGuard> makeGuard()
    {
        auto guard = std::make_unique<SleepGuard>(*m_system, *m_session, [this](std::function<void()> done) {
            ++flushCalls;
            pendingFlush = std::move(done);
        });
        EXPECT_TRUE(waitUntil([&] { return guard->isWatchingForSleep(); }));
        return guard;
    }

    std::unique_ptr<DBusLink> m_session;
    int flushCalls = 0;
    std::function<void()> pendingFlush;
};

TEST_F(SleepGuardTest, TheHoldKeepsItsFirstReasonOnLogindAndTheSessionUntilReleased)
{
    ASSERT_TRUE(bus().startMock(kGnome, kGnomePath, kGnome));
    ASSERT_TRUE(bus().addMethod(kGnome, kGnomePath, kGnome, QStringLiteral("Inhibit"), QStringLiteral("susu"),
                                QStringLiteral("u"), QStringLiteral("ret = dbus.UInt32(9)")));
    ASSERT_TRUE(bus().addMethod(kGnome, kGnomePath, kGnome, QStringLiteral("Uninhibit"), QStringLiteral("u"), {}, {}));
    auto guard = makeGuard();

    // A plan is pending; then its recording starts and the scheduler asks again.
    guard->acquire(kPending);
    ASSERT_TRUE(waitUntil([&] { return guard->isBlockHeld() && guard->isSessionHeld(); }));
    guard->acquire(kRecording);
    EXPECT_FALSE(bus().waitForInhibitors([](const Entries &e) {
        return e.size() != 1 || !hasLock(e, QStringLiteral("block"), kPending);
    }, 200)) << "taken again for the new reason";
    auto calls = bus().calls(kGnome, kGnomePath);
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls[0].args, (QVariantList{QStringLiteral("Orvida"), 0u, kPending, 4u}));

    guard->release();
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) { return e.isEmpty(); }));
    ASSERT_TRUE(waitUntil([&] { return bus().calls(kGnome, kGnomePath).size() == 2; }));
    EXPECT_EQ(bus().calls(kGnome, kGnomePath)[1].args, QVariantList{9u});
}

TEST_F(SleepGuardTest, TheDelayLockGoesOnlyAfterTheFlushAndComesBackAfterWakingWhileRecording)
{
    auto guard = makeGuard();
    QSignalSpy ready(guard.get(), &SleepGuard::readyForSleep);
    guard->acquire(kRecording);
    guard->setRecording(true);
    ASSERT_TRUE(bus().waitForInhibitors([](const Entries &e) {
        return e.size() == 2 && hasDelayLock(e) && hasLock(e, QStringLiteral("block"), kRecording);
    }));

    ASSERT_TRUE(bus().emitPrepareForSleep(true));
    ASSERT_TRUE(waitUntil([&] { return flushCalls == 1; }));
    // The flush is slow: nothing may go before it reports.
    EXPECT_FALSE(waitUntil([&] { return !guard->isDelayHeld() || !ready.isEmpty(); }, 200));
    auto entries = bus().listInhibitors();
    ASSERT_TRUE(entries);
    EXPECT_TRUE(hasDelayLock(*entries));

    std::exchange(pendingFlush, nullptr)();
    EXPECT_EQ(ready.size(), 1);
    // The delay lock went; the block lock is the scheduler's and stays.
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) {
        return e.size() == 1 && hasLock(e, QStringLiteral("block"), kRecording);
    }));

    ASSERT_TRUE(bus().emitPrepareForSleep(false));
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) { return e.size() == 2 && hasDelayLock(e); }));
    EXPECT_FALSE(guard->isPreparingForSleep());

    guard->setRecording(false);
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) { return e.size() == 1 && !hasDelayLock(e); }));

    // Nothing records: nothing to flush, ready at once.
    ASSERT_TRUE(bus().emitPrepareForSleep(true));
    ASSERT_TRUE(waitUntil([&] { return ready.size() == 2; }));
    EXPECT_EQ(flushCalls, 1);
}

TEST_F(SleepGuardTest, AFlushThatReportsAfterTheWakeUpLeavesTheNewPeriodsLockAlone)
{
    auto guard = makeGuard();
    QSignalSpy ready(guard.get(), &SleepGuard::readyForSleep);
    guard->setRecording(true);
    ASSERT_TRUE(waitUntil([&] { return guard->isDelayHeld(); }));

    ASSERT_TRUE(bus().emitPrepareForSleep(true));
    ASSERT_TRUE(waitUntil([&] { return flushCalls == 1; }));
    // logind stopped waiting (InhibitDelayMaxSec) and the system has slept and woken.
    ASSERT_TRUE(bus().emitPrepareForSleep(false));
    ASSERT_TRUE(waitUntil([&] { return !guard->isPreparingForSleep(); }));

    std::exchange(pendingFlush, nullptr)();
    EXPECT_FALSE(waitUntil([&] { return !ready.isEmpty() || !guard->isDelayHeld(); }, 100));
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) { return e.size() == 1 && hasDelayLock(e); }));
}

TEST_F(SleepGuardTest, ARunningSessionsBufferedAudioIsOnDiskBeforeTheDelayLockGoes)
{
    TestHome home;
    FixtureServer server;
    HttpClient http;
    RecordingContext context{http, nullptr};
    context.timings.statusPolling = false;
    // Less than the segment file's buffer: without a flush none of it is on disk yet.
    const QByteArray audio(5000, 'x');
    server.route("/live", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"Content-Type", "audio/mpeg"}})
                              .send(audio)
                              .hang());
    RecordingSession session(Station::custom(QString::fromLatin1(server.url("/live")), "Sleepy FM"), std::nullopt,
                             context);

    qint64 sizeWhenFlushed = -1;
    bool delayHeldWhenFlushed = false;
    SleepGuard guard(*m_system, *m_session, [&](std::function<void()> done) {
        SleepGuard::flushSessions({&session}, [&, done] {
            const QStringList files = QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden);
            sizeWhenFlushed = files.size() == 1 ? QFileInfo(QDir(AppPaths::tmpDir()).filePath(files[0])).size() : -2;
            const auto entries = bus().listInhibitors();
            delayHeldWhenFlushed = entries && hasDelayLock(*entries);
            done();
        });
    });
    guard.setRecording(true);
    ASSERT_TRUE(waitUntil([&] { return guard.isDelayHeld() && guard.isWatchingForSleep(); }));
    ASSERT_TRUE(waitUntil([&] {
        return !QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden).isEmpty();
    }));
    QTest::qWait(200); // the 5000 bytes cross the loopback and sit in the segment's buffer
    const QString segment = QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden).value(0);
    ASSERT_EQ(QFileInfo(QDir(AppPaths::tmpDir()).filePath(segment)).size(), 0);

    QSignalSpy ready(&guard, &SleepGuard::readyForSleep);
    ASSERT_TRUE(bus().emitPrepareForSleep(true));
    ASSERT_TRUE(waitUntil([&] { return ready.size() == 1; }));
    EXPECT_EQ(sizeWhenFlushed, audio.size());
    EXPECT_TRUE(delayHeldWhenFlushed);
    EXPECT_TRUE(bus().waitForInhibitors([](const Entries &e) { return e.isEmpty(); }));

    session.stop();
    EXPECT_TRUE(waitUntil([&] { return session.isIdle(); }, 10000));
}

TEST(SleepGuardWithoutBus, EverythingAnswersAtOnceAndNothingIsHeld)
{
    QElapsedTimer elapsed;
    elapsed.start();
    DBusLink system(std::nullopt, QStringLiteral("system"));
    DBusLink session(std::nullopt, QStringLiteral("session"));
    int flushes = 0;
    SleepGuard guard(system, session, [&](std::function<void()> done) {
        ++flushes;
        done();
    });

    guard.acquire(kPending);
    guard.setRecording(true);
    guard.acquire(kRecording);
    EXPECT_FALSE(guard.isBlockHeld());
    EXPECT_FALSE(guard.isDelayHeld());
    EXPECT_FALSE(guard.isSessionHeld());
    guard.setRecording(false);
    guard.release();
    bool flushedNothing = false;
    SleepGuard::flushSessions({}, [&] { flushedNothing = true; });
    EXPECT_TRUE(flushedNothing);
    EXPECT_EQ(flushes, 0); // no bus, no suspend announcements
    EXPECT_LT(elapsed.elapsed(), 500);
}

} // namespace
