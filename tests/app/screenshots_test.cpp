#include "app/favoritesview.h"
#include "app/mainwindow.h"
#include "app/radioview.h"
#include "app/scheduledialog.h"
#include "engine/sniperscheduler.h"
#include "engine/radiorecorder.h"
#include "app/toolsgateview.h"
#include "library/librarystore.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"

#include "appfixture.h"
#include "icystream.h"

#include <QImage>
#include <QPixmap>

namespace {

using Script = FixtureServer::Script;

// Renders every page of a filled window to PNG files, so a person can look at them:
// <build>/screenshots/<page>.png. Also checks each picture really shows its page.
class ScreenshotTest : public AppFixture {
protected:
    static QString outputDir()
    {
        const QString binary = qEnvironmentVariable("ORVIDA_BINARY_DIR", QDir::currentPath());
        const QString dir = binary + QStringLiteral("/screenshots");
        QDir().mkpath(dir);
        return dir;
    }

    void save(QWidget *widget, const QString &name)
    {
        const QPixmap picture = widget->grab();
        const QString path = outputDir() + QLatin1Char('/') + name + QStringLiteral(".png");
        ASSERT_TRUE(picture.save(path)) << path.toStdString();
        const QImage image(path);
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.size(), widget->size() * widget->devicePixelRatio());
        // A page that failed to lay out is one flat colour.
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 7)
            for (int x = 0; x < image.width(); x += 7)
                colours.insert(image.pixel(x, y));
        EXPECT_GT(colours.size(), 5) << name.toStdString();
    }
};

TEST_F(ScreenshotTest, EveryPageRenders)
{
    server.route("/live", Script::head("ICY 200 OK", {{"icy-metaint", "1000"}})
                              .send(QByteArray(1000, 'a') + IcyStream::metaBlock("StreamTitle='Band - Song';"))
                              .hang());
    const QStringList names{"Jazz Lounge", "Rock Antenne", "Klassik Radio", "Deep House Berlin"};
    for (int i = 0; i < names.size(); ++i) {
        Station station = makeStation(QStringLiteral("s%1").arg(i), names[i], i % 2 ? "Austria" : "Germany");
        ASSERT_TRUE(app->favorites().add(station));
        app->recents().add(station);
    }
    // Plans days ahead, so none starts while the pictures are taken.
    const QDateTime evening(QDate::currentDate().addDays(3), QTime(20, 0));
    ASSERT_TRUE(app->scheduler().add(ScheduledRecording::make(makeStation("s0", names[0]), evening.toUTC(),
                                                              evening.addSecs(7200).toUTC(),
                                                              ScheduledRecording::Mode::FullShow,
                                                              ScheduledRecording::RepeatRule::Weekly)));
    ASSERT_TRUE(app->scheduler().add(ScheduledRecording::make(makeStation("s2", names[2]),
                                                              evening.addSecs(10800).toUTC(),
                                                              evening.addSecs(18000).toUTC(),
                                                              ScheduledRecording::Mode::SplitTracks, std::nullopt)));
    QList<Track> tracks;
    for (int i = 0; i < 30; ++i)
        tracks << Track(QStringLiteral("Song %1").arg(i), QStringLiteral("Artist %1").arg(i % 7),
                        QStringLiteral("Album %1").arg(i % 3), 180 + i * 7, QDateTime::currentDateTimeUtc().addDays(-i),
                        QString(), false, i % 5, QStringLiteral("radio"), names[i % names.size()],
                        home.file(QStringLiteral("Music/%1.mp3").arg(i)));
    ASSERT_EQ(app->library()->insertTracks(tracks).size(), 30);
    app->recordingContext().timings.statusPolling = false;
    app->recorder().start(Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM")));
    ASSERT_TRUE(waitUntil([&] { return !app->recorder().sessions().first()->currentStreamTitle().isEmpty(); }));

    MainWindow window(*app, MainWindowOptions{1800, false});
    window.resize(1100, 700);
    window.show();
    const std::pair<MainWindow::Page, const char *> pages[] = {
        {MainWindow::RadioPage, "radio"},           {MainWindow::FavoritesPage, "favorites"},
        {MainWindow::RecentsPage, "recents"},       {MainWindow::RecordingsPage, "recordings"},
        {MainWindow::LibraryPage, "library"},       {MainWindow::SettingsPage, "settings"},
        {MainWindow::SchedulePage, "schedule"}};
    for (const auto &[page, name] : pages) {
        window.showPage(page);
        ASSERT_EQ(window.currentPage(), page);
        QTest::qWait(50);
        save(&window, QString::fromLatin1(name));
    }

    ScheduleDialog scheduleDialog(app->scheduler(), makeStation("s1", names[1]), app->now());
    scheduleDialog.show();
    QTest::qWait(50);
    save(&scheduleDialog, QStringLiteral("schedule-dialog"));

    ToolsGateView gate;
    gate.resize(1100, 700);
    gate.show();
    save(&gate, QStringLiteral("tools"));

    // The empty pages, with their hints.
    app->recorder().stop();
    const QList<Station> favorites = app->favorites().list(); // remove() changes the list
    for (const Station &station : favorites)
        ASSERT_TRUE(app->favorites().remove(station.id));
    window.showPage(MainWindow::FavoritesPage);
    EXPECT_TRUE(window.favoritesView()->showsEmptyState());
    QTest::qWait(50);
    save(&window, QStringLiteral("favorites-empty"));
    window.showPage(MainWindow::RecordingsPage);
    save(&window, QStringLiteral("recordings-empty"));
}

TEST(ToolsGate, CopyCommandsQuoteEveryPathAndContinueTheChmodLine)
{
    const QString commands = ToolsGateView::copyCommands(QStringLiteral("/opt/My Apps/orvida"));
    const QStringList lines = commands.split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 6);
    EXPECT_EQ(lines[0], QStringLiteral("# ffmpeg und yt-dlp herunterladen, dann:"));
    EXPECT_EQ(lines[1], QStringLiteral("mkdir -p \"/opt/My Apps/orvida\""));
    EXPECT_EQ(lines[2], QStringLiteral("cp /path/to/ffmpeg \"/opt/My Apps/orvida/ffmpeg\""));
    EXPECT_EQ(lines[3], QStringLiteral("cp /path/to/yt-dlp \"/opt/My Apps/orvida/yt-dlp\""));
    EXPECT_EQ(lines[4], QStringLiteral("chmod +x \"/opt/My Apps/orvida/ffmpeg\" \\"));
    EXPECT_EQ(lines[5], QStringLiteral("         \"/opt/My Apps/orvida/yt-dlp\""));
}

} // namespace
