#include "app/autostart.h"
#include "app/closepolicy.h"
#include "app/mainwindow.h"
#include "app/recordertray.h"
#include "app/settingsview.h"
#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/sniperscheduler.h"
#include "platform/preferences.h"

#include "appfixture.h"
#include "icystream.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTimer>

namespace {

using Action = ClosePolicy::Action;
using Answer = MainWindow::CloseAnswer;

TEST(ClosePolicyTest, QuitsOnlyWhenNothingRecordsOrWaitsAndAsksBeforeTheFirstTrayStay)
{
    const struct {
        int recordings;
        int plans;
        bool tray;
        std::optional<bool> keepInTray;
        Action expected;
    } cases[] = {
        { 0, 0, true, true, Action::Quit },
        { 0, 0, false, std::nullopt, Action::Quit },
        // Without a tray there is no way back to a hidden window: ask every time.
        { 2, 0, false, std::nullopt, Action::AskBackground },
        { 0, 1, false, true, Action::AskBackground },
        { 1, 0, false, false, Action::AskBackground },
        { 1, 0, true, std::nullopt, Action::AskTray },
        { 0, 3, true, true, Action::HideToTray },
        { 1, 1, true, false, Action::Quit },
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ClosePolicy::decide({ c.recordings, c.plans, c.tray, c.keepInTray }), c.expected)
            << c.recordings << " recordings, " << c.plans << " plans, tray " << c.tray;
    }
}

TEST(AutostartTest, TheEntryStartsThisProgramHiddenWhateverItsPathHolds)
{
    const QString text = QString::fromUtf8(Autostart::entryText(QStringLiteral("/opt/My \"Apps\"/50%/$b\\in/orvida")));
    EXPECT_TRUE(text.startsWith(QStringLiteral("[Desktop Entry]\nType=Application\n")));
    // Quoting escapes ", $ and \ with a backslash, the key file doubles every backslash,
    // and % is doubled as the field-code escape.
    EXPECT_TRUE(
        text.contains(QStringLiteral("\nExec=\"/opt/My \\\\\"Apps\\\\\"/50%%/\\\\$b\\\\\\\\in/orvida\" --hidden\n")))
        << text.toStdString();
}

class CloseWindowTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        app->recordingContext().timings.statusPolling = false;
    }

    void TearDown() override
    {
        window.reset();
        AppFixture::TearDown();
    }

    // A window whose close questions are answered by `answers` in turn.
    MainWindow &openWindow(bool trayAvailable)
    {
        window = std::make_unique<MainWindow>(
            *app, MainWindowOptions { 1800, false, [trayAvailable] { return trayAvailable; } });
        window->askOnClose = [this](Action question) {
            questions << question;
            return answers.isEmpty() ? Answer::Cancel : answers.takeFirst();
        };
        window->show();
        return *window;
    }

    Station startStation(const QByteArray &path, const QString &name, QList<QByteArray> titles = { "Artist - One" })
    {
        server.route(path, IcyStream::station(std::move(titles), 20, 20));
        const Station station = Station::custom(QString::fromLatin1(server.url(path)), name);
        EXPECT_TRUE(app->startRecording(station));
        return station;
    }

    QStringList trayEntries() const
    {
        QStringList entries;
        for (QAction *action : window->tray()->menu()->actions())
            entries << (action->isSeparator() ? QStringLiteral("--") : action->text());
        return entries;
    }

    std::unique_ptr<MainWindow> window;
    QList<Action> questions;
    QList<Answer> answers;
};

TEST_F(CloseWindowTest, WithNothingRecordingOrPlannedClosingQuitsWithoutAQuestion)
{
    MainWindow &w = openWindow(true);
    QSignalSpy quit(&w, &MainWindow::quitRequested);
    EXPECT_TRUE(w.close());
    EXPECT_EQ(quit.count(), 1);
    EXPECT_TRUE(questions.isEmpty());
    EXPECT_FALSE(Preferences::contains(QString::fromLatin1(ClosePolicy::kCloseToTrayKey)));
}

// Seen: closing the window with two recordings running quit at once.
TEST_F(CloseWindowTest, WithoutATrayClosingAsksAndRecordingGoesOnInTheBackgroundUntilItEnds)
{
    MainWindow &w = openWindow(false);
    QSignalSpy quit(&w, &MainWindow::quitRequested);
    const Station one = startStation("/one", QStringLiteral("One"));
    const Station two = startStation("/two", QStringLiteral("Two"));

    answers = { Answer::Cancel };
    EXPECT_FALSE(w.close());
    EXPECT_EQ(questions, QList<Action> { Action::AskBackground });
    EXPECT_TRUE(w.isVisible());

    answers = { Answer::KeepRunning };
    EXPECT_FALSE(w.close());
    EXPECT_FALSE(w.isVisible());
    EXPECT_TRUE(w.runsInBackground());
    EXPECT_EQ(quit.count(), 0);
    EXPECT_EQ(app->recorder().sessions().size(), 2);
    // Nothing is remembered without a tray: the next close asks again.
    EXPECT_FALSE(Preferences::contains(QString::fromLatin1(ClosePolicy::kCloseToTrayKey)));

    app->recorder().stop(one);
    EXPECT_EQ(quit.count(), 0);
    app->recorder().stop(two);
    EXPECT_EQ(quit.count(), 1);
}

TEST_F(CloseWindowTest, WithoutATrayQuittingFromTheQuestionEndsAtOnce)
{
    MainWindow &w = openWindow(false);
    QSignalSpy quit(&w, &MainWindow::quitRequested);
    const QDateTime start = QDateTime::currentDateTimeUtc().addSecs(3600);
    ASSERT_TRUE(app->scheduler().add(ScheduledRecording::make(makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz")), start,
        start.addSecs(600), ScheduledRecording::Mode::SplitTracks, std::nullopt)));
    answers = { Answer::Quit };
    EXPECT_TRUE(w.close());
    EXPECT_EQ(questions, QList<Action> { Action::AskBackground });
    EXPECT_EQ(quit.count(), 1);
}

TEST_F(CloseWindowTest, TheTrayIsOfferedOnceAndItsMenuFollowsTheRecordingsAndQuits)
{
    MainWindow &w = openWindow(true);
    QSignalSpy quit(&w, &MainWindow::quitRequested);
    const Station one = startStation("/one", QStringLiteral("One"), { "Artist - One", "Artist - Two" });

    answers = { Answer::KeepRunning };
    EXPECT_FALSE(w.close());
    EXPECT_EQ(questions, QList<Action> { Action::AskTray });
    EXPECT_EQ(Preferences::value(QString::fromLatin1(ClosePolicy::kCloseToTrayKey)).toBool(), true);
    EXPECT_FALSE(w.isVisible());
    ASSERT_TRUE(w.tray());
    EXPECT_TRUE(w.tray()->isShown());
    EXPECT_TRUE(waitUntil(
        [&] {
            return trayEntries() == QStringList({ "One — Artist - Two", "--", "Show Orvida", "Quit" });
        },
        10000))
        << trayEntries().join(u'|').toStdString();

    w.tray()->showAction()->trigger();
    EXPECT_TRUE(w.isVisible());
    // Remembered: the second close goes to the tray without a question.
    EXPECT_FALSE(w.close());
    EXPECT_EQ(questions.size(), 1);
    EXPECT_FALSE(w.isVisible());

    app->recorder().stop(one);
    EXPECT_EQ(trayEntries(), QStringList({ "Nothing is being recorded", "--", "Show Orvida", "Quit" }));
    EXPECT_EQ(quit.count(), 0); // the tray stays until the user quits

    w.tray()->quitAction()->trigger();
    EXPECT_EQ(quit.count(), 1);
}

TEST_F(CloseWindowTest, ARefusedTrayIsRememberedAndLaterClosesQuit)
{
    MainWindow &w = openWindow(true);
    QSignalSpy quit(&w, &MainWindow::quitRequested);
    startStation("/one", QStringLiteral("One"));
    answers = { Answer::Quit };
    EXPECT_TRUE(w.close());
    EXPECT_EQ(quit.count(), 1);
    EXPECT_EQ(Preferences::value(QString::fromLatin1(ClosePolicy::kCloseToTrayKey)).toBool(), false);

    // A second window (the next start) quits at once.
    openWindow(true);
    QSignalSpy quitAgain(window.get(), &MainWindow::quitRequested);
    EXPECT_TRUE(window->close());
    EXPECT_EQ(quitAgain.count(), 1);
    EXPECT_EQ(questions.size(), 1);
}

TEST_F(CloseWindowTest, TheRealQuestionOffersItsThreeAnswersAndCancelKeepsTheWindow)
{
    startStation("/one", QStringLiteral("One"));
    window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false, [] { return false; } });
    window->show();
    QStringList buttons;
    QString question;
    QTimer::singleShot(0, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        question = box->text();
        for (QAbstractButton *button : box->buttons())
            buttons << button->text();
        box->escapeButton()->click();
    });
    EXPECT_FALSE(window->close());
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(question, tx("close.backgroundQuestion"));
    buttons.sort();
    EXPECT_EQ(buttons, QStringList({ "Cancel", "Keep Recording in the Background", "Quit and Stop Recordings" }));
}

TEST_F(CloseWindowTest, StartedHiddenItWaitsInTheTrayOrInTheBackgroundWhilePlansExist)
{
    window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false, [] { return true; } });
    window->startHidden();
    EXPECT_FALSE(window->isVisible());
    ASSERT_TRUE(window->tray());
    EXPECT_TRUE(window->tray()->isShown());

    const QDateTime start = QDateTime::currentDateTimeUtc().addSecs(3600);
    const ScheduledRecording plan
        = ScheduledRecording::make(makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz")), start,
            start.addSecs(600), ScheduledRecording::Mode::SplitTracks, std::nullopt);
    ASSERT_TRUE(app->scheduler().add(plan));
    window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false, [] { return false; } });
    QSignalSpy quit(window.get(), &MainWindow::quitRequested);
    window->startHidden();
    QTest::qWait(50); // the check comes from the event loop
    EXPECT_TRUE(window->runsInBackground());
    EXPECT_FALSE(window->isVisible());
    EXPECT_EQ(quit.count(), 0);
    ASSERT_TRUE(app->scheduler().remove(plan));
    EXPECT_EQ(quit.count(), 1);

    // The panel with the tray may come up after us at login: then the tray takes over.
    ASSERT_TRUE(app->scheduler().add(plan));
    bool trayUp = false;
    window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false, [&] { return trayUp; }, 20, 50 });
    window->startHidden();
    EXPECT_TRUE(window->runsInBackground());
    trayUp = true;
    ASSERT_TRUE(waitUntil([&] { return window->tray() != nullptr; }));
    EXPECT_FALSE(window->runsInBackground());
    EXPECT_FALSE(window->isVisible());

    // Started hidden without a tray and without plans, there is nothing to wait for.
    ASSERT_TRUE(app->scheduler().remove(plan));
    window = std::make_unique<MainWindow>(*app, MainWindowOptions { 1800, false, [] { return false; } });
    QSignalSpy quitAtOnce(window.get(), &MainWindow::quitRequested);
    window->startHidden();
    EXPECT_TRUE(quitAtOnce.wait(1000));
}

TEST_F(CloseWindowTest, StartAtLoginWritesAndRemovesTheEntryAndShowsWhenItCannot)
{
    SettingsView view(*app);
    ASSERT_FALSE(view.startAtLoginBox()->isChecked());
    const QString entry = Autostart::entryPath();
    EXPECT_TRUE(entry.startsWith(home.path()));

    view.startAtLoginBox()->setChecked(true);
    EXPECT_EQ(readFile(entry), Autostart::entryText(QCoreApplication::applicationFilePath()));
    EXPECT_TRUE(view.startAtLoginError()->isHidden());
    view.startAtLoginBox()->setChecked(false);
    EXPECT_FALSE(QFile::exists(entry));

    // A file where the autostart folder belongs: the entry cannot be written.
    const QString folder = entry.section(u'/', 0, -2);
    QDir().rmdir(folder);
    writeFile(folder, "not a folder");
    view.startAtLoginBox()->setChecked(true);
    EXPECT_FALSE(view.startAtLoginBox()->isChecked());
    EXPECT_FALSE(view.startAtLoginError()->isHidden());
    EXPECT_TRUE(view.startAtLoginError()->text().contains(entry));
}

// A logout or a `kill` once ended the window at once, and the song in progress with it.
TEST(WindowProcessTest, SigtermQuitsTheRunningProgramAndSavesTheSongInProgress)
{
    TestHome home; // the program started below inherits these folders
    FixtureServer server;
    // More than the segment's write buffer after the title, so the song shows on disk.
    QByteArray body = IcyStream::audioBlock(0) + IcyStream::metaBlock("StreamTitle='Artist - One';");
    for (int n = 1; n <= 40; ++n)
        body += IcyStream::audioBlock(n) + IcyStream::metaBlock({});
    server.route("/live", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "1000"}, {"Content-Type", "audio/mpeg"}})
                              .send(body)
                              .hang());
    ASSERT_TRUE(Preferences::store(QStringLiteral("ov.radioSaveDir"), home.file(QStringLiteral("Radio"))));
    RadioEngineSettings settings;
    settings.lossless = true; // no ffmpeg needed
    settings.minDurationSec = 0;
    ASSERT_TRUE(EngineSettingsStore().setGlobal(settings));
    // A plan whose window is open: the program records as soon as it starts.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    writeFile(home.file(QStringLiteral("data/Orvida/sniper_schedule.json")),
              Schedule::encode({ScheduledRecording::make(
                  Station::custom(QString::fromLatin1(server.url("/live")), QStringLiteral("Fixture FM")),
                  now.addSecs(-60), now.addSecs(3600), ScheduledRecording::Mode::SplitTracks, std::nullopt)}));

    QProcess program;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    program.setProcessEnvironment(env);
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.start(QStringLiteral(ORVIDA_WINDOW_PATH), QStringList());
    ASSERT_TRUE(program.waitForStarted());
    const auto segmentWritten = [&] {
        QDirIterator it(home.file(QStringLiteral("Radio/tmp")), QDir::Files | QDir::Hidden);
        while (it.hasNext()) {
            if (it.next(), it.fileInfo().size() > 0)
                return true;
        }
        return false;
    };
    ASSERT_TRUE(waitUntil(segmentWritten, 15000));

    program.terminate();
    ASSERT_TRUE(waitUntil([&] { return program.state() == QProcess::NotRunning; }, 20000));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(program.exitCode(), 0);
    QStringList saved;
    QDirIterator it(home.file(QStringLiteral("Radio")), {QStringLiteral("*.mp3")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        saved << it.next().section(QLatin1Char('/'), -1);
    EXPECT_EQ(saved, QStringList({"Artist - One.mp3"}));
}

} // namespace
