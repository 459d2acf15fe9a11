#include "app/application.h"
#include "app/texts.h"
#include "library/transitionsettings.h"
#include "playback/beatanalysis.h"

#include "playerfixture.h"

#include <QtConcurrent/QtConcurrentRun>

namespace {

class ApplicationPlayerTest : public PlayerFixture { };

// This machine has no sound card; a developer's may have one. Either way the player
// plays: on the device, or paced by the null output with a notice saying so.
TEST_F(ApplicationPlayerTest, PlaysOnTheDeviceOrSaysWhyItPlaysSilently)
{
    const QList<Track> songs = addSongs(1, 3.0);
    app->shutDown();
    app.reset();
    ApplicationOptions options = testOptions(home, server);
    options.audioOutput = AudioEngine::Output::device;
    app = std::make_unique<Application>(options);

    const QString notice = Texts::text("player.noDeviceFormat").section(QLatin1Char('('), 0, 0);
    const bool noticed = std::any_of(app->startupProblems().cbegin(), app->startupProblems().cend(),
        [&](const QString &problem) { return problem.startsWith(notice); });
    if (app->audioEngine().output() == AudioEngine::Output::device) {
        EXPECT_FALSE(noticed);
    } else {
        EXPECT_EQ(app->audioEngine().output(), AudioEngine::Output::null);
        EXPECT_TRUE(noticed) << app->startupProblems().join(QLatin1Char('\n')).toStdString();
    }
    // Real time passes on either output.
    player().playQueue(songs);
    EXPECT_EQ(player().status(), Player::Status::playing);
    EXPECT_TRUE(waitUntil([&] { return player().position().value_or(0) > 0.3; }));
}

// The player ends before the library closes: what it was playing no longer matters, and
// nothing it holds outlives the services it uses.
TEST_F(ApplicationPlayerTest, ShutDownStopsThePlayerFirst)
{
    const QList<Track> songs = addSongs(2, 2.0);
    bool stoppedWithLibraryOpen = false;
    QObject::connect(&player(), &Player::statusChanged, [&](Player::Status status) {
        if (status == Player::Status::stopped)
            stoppedWithLibraryOpen = app->library() != nullptr && app->library()->track(songs[0].id).has_value();
    });
    player().playQueue(songs);
    advance(0.5);
    app->shutDown();
    EXPECT_TRUE(stoppedWithLibraryOpen);
}

// The mode chosen in the window's settings is the one the player plans with, from the
// next pair of tracks on.
TEST_F(ApplicationPlayerTest, PlayerFollowsTheApplicationsTransitionSettings)
{
    player().setPlanner(TransitionMode::crossfade, [](const Track &from, const Track &) {
        TransitionPlan plan;
        plan.outgoingStart = from.duration - 0.5;
        plan.outgoingEnd = from.duration;
        plan.fadeDuration = 0.5;
        return QtConcurrent::run([plan] { return std::optional(plan); });
    });
    const QList<Track> songs = addSongs(3, 1.5);
    QList<TransitionMode> modes;
    QObject::connect(
        &player(), &Player::transitionStarted, [&](TransitionMode mode, const TransitionPlan &) { modes << mode; });
    player().playQueue(songs);
    advance(1.6); // off: the ordinary change
    EXPECT_EQ(player().currentIndex(), 1);
    EXPECT_TRUE(modes.isEmpty());

    app->transitionSettings().setMode(TransitionMode::crossfade);
    EXPECT_EQ(TransitionSettings::readMode(), TransitionMode::crossfade);
    advance(1.2);
    EXPECT_EQ(modes, QList<TransitionMode>({ TransitionMode::crossfade }));
    EXPECT_EQ(player().currentIndex(), 2);
}

// Automix plans from the beat grids the library holds, and files the ones it had to work
// out itself.
TEST_F(ApplicationPlayerTest, AutomixUsesAndFillsTheLibrarysBeatGrids)
{
    const QList<Track> songs = addSongs(3, 6.0);
    LibraryStore &store = *app->library();
    // Grids only the library knows (the tones have no beat): if they are used, the first
    // change is tempo-matched with a bass swap.
    for (int i : { 0, 1 }) {
        const auto stamp = LibraryStore::FileStamp::of(*songs[i].filePath);
        ASSERT_TRUE(stamp);
        ASSERT_TRUE(store.setAnalysis(*songs[i].filePath, QStringLiteral("beats"), *stamp,
            BeatAnalysis::toJson(BeatAnalysis::Grid { 120, 0, 0, 6 })));
    }
    app->transitionSettings().setAutomixSeconds(4);
    app->transitionSettings().setMode(TransitionMode::automix);
    QList<TransitionPlan> plans;
    QObject::connect(
        &player(), &Player::transitionStarted, [&](TransitionMode, const TransitionPlan &plan) { plans << plan; });
    player().playQueue(songs);
    advance(10);
    ASSERT_EQ(plans.size(), 2);
    EXPECT_DOUBLE_EQ(plans[0].fadeDuration, 4);
    EXPECT_TRUE(plans[0].bassSwapAt);
    // The third song was analysed on the way: no beat, so a plain crossfade, and its grid
    // is in the library now.
    EXPECT_FALSE(plans[1].bassSwapAt);
    const auto stamp = LibraryStore::FileStamp::of(*songs[2].filePath);
    ASSERT_TRUE(stamp);
    std::optional<QByteArray> stored;
    EXPECT_TRUE(waitUntil([&] {
        stored = store.analysis(*songs[2].filePath, QStringLiteral("beats"), *stamp);
        return stored.has_value();
    }));
    const std::optional<BeatAnalysis::Grid> grid = BeatAnalysis::fromJson(stored.value_or(QByteArray()));
    ASSERT_TRUE(grid);
    EXPECT_FALSE(grid->hasTempo());
    EXPECT_NEAR(grid->duration, 6, 0.01);
}

} // namespace
