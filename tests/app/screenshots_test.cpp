#include "app/favoritesview.h"
#include "app/mainwindow.h"
#include "app/radioview.h"
#include "app/scheduledialog.h"
#include "engine/sniperscheduler.h"
#include "engine/radiorecorder.h"
#include "app/toolsgateview.h"
#include "app/uilanguage.h"
#include "library/librarystore.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"

#include "app/libraryview.h"
#include "app/nowplayingbar.h"
#include "app/transitionmenubutton.h"
#include "library/transitionsettings.h"

#include "appfixture.h"
#include "icystream.h"
#include "playerfixture.h"

#include <QImage>
#include <QLabel>
#include <QMenu>
#include <QPixmap>

namespace {

using Script = FixtureServer::Script;

QString outputDir()
{
    const QString binary = qEnvironmentVariable("ORVIDA_BINARY_DIR", QDir::currentPath());
    const QString dir = binary + QStringLiteral("/screenshots");
    QDir().mkpath(dir);
    return dir;
}

// <build>/screenshots/<name>.png, checked to show more than one flat colour.
void saveScreenshot(QWidget *widget, const QString &name)
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

// Renders every page of a filled window to PNG files, so a person can look at them:
// <build>/screenshots/<page>.png. Also checks each picture really shows its page.
class ScreenshotTest : public AppFixture {
protected:
    void TearDown() override
    {
        UiLanguage::apply(Texts::Language::English);
        AppFixture::TearDown();
    }

    static void save(QWidget *widget, const QString &name) { saveScreenshot(widget, name); }
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
        {MainWindow::RadioPage, "radio"},           {MainWindow::GlobePage, "globe"},
        {MainWindow::FavoritesPage, "favorites"},   {MainWindow::RecentsPage, "recents"},
        {MainWindow::RecordingsPage, "recordings"}, {MainWindow::LibraryPage, "library"},
        {MainWindow::SettingsPage, "settings"},     {MainWindow::SchedulePage, "schedule"}};
    // Half of a 1920 px screen and a wide window, in both languages: "library-de-800.png".
    const std::pair<Texts::Language, const char *> languages[] = {{Texts::Language::English, "en"},
                                                                   {Texts::Language::German, "de"}};
    for (const auto &[language, suffix] : languages) {
        window.setInterfaceLanguage(language);
        for (const int width : {800, 1600}) {
            window.resize(width, 700);
            for (const auto &[page, name] : pages) {
                window.showPage(page);
                ASSERT_EQ(window.currentPage(), page);
                QTest::qWait(50);
                // Nothing forces the window wider than asked.
                EXPECT_EQ(window.width(), width) << name;
                save(&window, QStringLiteral("%1-%2-%3").arg(QLatin1String(name), QLatin1String(suffix)).arg(width));
            }
        }
    }
    window.setInterfaceLanguage(Texts::Language::English);
    window.resize(1100, 700);

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

// The now-playing bar while a track with a cover plays, and the transition menu open, in
// both languages: "nowplaying-en.png", "transition-menu-de.png", ...
class PlayerScreenshotTest : public PlayerFixture {
protected:
    void TearDown() override
    {
        Texts::setLanguage(Texts::Language::English);
        PlayerFixture::TearDown();
    }
};

TEST_F(PlayerScreenshotTest, NowPlayingBarAndTransitionMenuRenderInBothLanguages)
{
    TestAudio::makePicture(home.file("cover.jpg"), "orange", 120, 120);
    const QString path = home.file("Music/Nachtfahrt.flac");
    TestAudio::makeTone(path, 200, 330, home.file("cover.jpg"));
    QList<Track> tracks{Track(QStringLiteral("Nachtfahrt"), QStringLiteral("Die Orvidas"),
                              QStringLiteral("Stadtlichter"), 200, QDateTime::currentDateTimeUtc(), QString(), true, 3,
                              QStringLiteral("radio"), QStringLiteral("Jazz Lounge"), path)};
    for (int i = 1; i <= 3; ++i)
        tracks << Track(QStringLiteral("Song %1").arg(i), QStringLiteral("Artist %1").arg(i), QString(), 180,
                        QDateTime::currentDateTimeUtc().addDays(-i), QString(), false, 0, QStringLiteral("radio"),
                        QStringLiteral("FM"), home.file(QStringLiteral("Music/%1.mp3").arg(i)));
    const QList<qint64> ids = app->library()->insertTracks(tracks);
    ASSERT_EQ(ids.size(), 4);
    for (int i = 0; i < 4; ++i)
        tracks[i].id = ids[i];
    app->transitionSettings().setMode(TransitionMode::crossfade);
    app->transitionSettings().setCrossfadeSeconds(8);

    const std::pair<Texts::Language, const char *> languages[] = {{Texts::Language::English, "en"},
                                                                   {Texts::Language::German, "de"}};
    for (const auto &[language, suffix] : languages) {
        Texts::setLanguage(language);
        MainWindow window(*app, MainWindowOptions{1800, false});
        window.resize(1100, 700);
        window.show();
        window.showPage(MainWindow::LibraryPage);
        NowPlayingBar *bar = window.nowPlayingBar();
        player().playQueue(tracks, 0);
        player().seek(83.0);
        advance(0.4);
        bar->refreshPosition();
        ASSERT_TRUE(waitUntil([&] { return bar->showsCover(); }));
        EXPECT_EQ(bar->titleLabel()->text(), QStringLiteral("Nachtfahrt"));
        EXPECT_EQ(bar->elapsedLabel()->text(), QStringLiteral("1:23"));
        EXPECT_EQ(bar->remainingLabel()->text(), QStringLiteral("-1:57"));
        saveScreenshot(bar, QStringLiteral("nowplaying-%1").arg(QLatin1String(suffix)));
        saveScreenshot(&window, QStringLiteral("library-playing-%1").arg(QLatin1String(suffix)));

        QMenu *menu = bar->transitionButton()->modeMenu();
        menu->popup(bar->transitionButton()->mapToGlobal(QPoint(0, 0)));
        ASSERT_TRUE(waitUntil([&] { return menu->isVisible(); }));
        EXPECT_EQ(bar->transitionButton()->crossfadeValue()->text(), QStringLiteral("8 s"));
        saveScreenshot(menu, QStringLiteral("transition-menu-%1").arg(QLatin1String(suffix)));
        menu->hide();
        player().stop();
    }
}

} // namespace
