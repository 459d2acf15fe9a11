// The window's services when the library cannot be opened: plans still record.
#include "app/application.h"
#include "engine/radiorecorder.h"
#include "engine/scheduledrecording.h"
#include "engine/sniperscheduler.h"

#include "appfixture.h"
#include "icystream.h"

#include <QDir>

#include <gtest/gtest.h>

TEST(ApplicationWithoutLibrary, RunsThePlansAndKeepsTheComputerAwake)
{
    TestHome home;
    FixtureServer server;
    server.route("/live", IcyStream::station({ "A - One", "B - Two" }, 4, 25));
    const Station live = Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    writeFile(home.file("data/Orvida/sniper_schedule.json"),
        Schedule::encode({ ScheduledRecording::make(
            live, now.addSecs(-5), now.addSecs(600), ScheduledRecording::Mode::SplitTracks, std::nullopt) }));

    ApplicationOptions options = AppFixture::testOptions(home, server);
    // A folder where the library file belongs: it cannot be opened.
    ASSERT_TRUE(QDir().mkpath(options.libraryPath));
    Application app(options);
    ASSERT_EQ(app.library(), nullptr);
    EXPECT_FALSE(app.libraryError().isEmpty());

    EXPECT_TRUE(app.scheduler().isConfigured());
    EXPECT_TRUE(app.scheduler().runsPlans());
    EXPECT_TRUE(app.recorder().isRecordingStation(live));
    EXPECT_TRUE(app.scheduler().holdsPowerAssertion());
    app.shutDown();
}
