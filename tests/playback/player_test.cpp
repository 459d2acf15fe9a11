#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/mixstate.h"
#include "playback/player.h"

#include "playbackaudio.h"
#include "testenv.h"

#include <QPromise>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace PlaybackAudio;

namespace {

// Short tracks of distinct levels on the offline output: which one sounds can be read off
// the render, and the player is driven tick by tick like renderQueue() does.
class PlayerTest : public ::testing::Test {
protected:
    static constexpr qint64 kBlock = kRate / 64;

    Track makeTrack(int n, double seconds)
    {
        const QString path = home.file(QStringLiteral("t%1.wav").arg(n));
        EXPECT_TRUE(makeLevels(path, 0.1 * (n + 1), -0.1 * (n + 1), qint64(seconds * kRate)));
        Track t(QStringLiteral("Track %1").arg(n), QStringLiteral("Artist"), QString(), seconds,
            QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"), std::nullopt, path);
        t.id = n + 1;
        return t;
    }

    void step(Player &player)
    {
        player.transitionTick();
        std::vector<float> block(size_t(2 * kBlock));
        engine.renderOffline(block.data(), kBlock);
    }
    void playFor(Player &player, double seconds)
    {
        const quint64 until = engine.hostFrame() + quint64(seconds * kRate);
        while (engine.hostFrame() < until && player.status() == Player::Status::playing)
            step(player);
    }

    TestHome home;
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 } };
    TransitionSettings settings;
};

QList<int> indices(const QSignalSpy &changed)
{
    QList<int> result;
    for (const QList<QVariant> &args : changed)
        result << args[1].toInt();
    return result;
}

} // namespace

TEST_F(PlayerTest, QueuePlaysInOrderAndPassesOverMissingFiles)
{
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::off);
    QList<Track> queue { makeTrack(0, 0.5), makeTrack(1, 0.4), makeTrack(2, 0.3), makeTrack(3, 0.2) };
    queue[1].filePath = home.file(QStringLiteral("gone.wav"));
    queue[3].filePath.reset();
    queue << makeTrack(4, 0.25);
    player.setQueue(queue);
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    QSignalSpy skipped(&player, &Player::trackSkipped);
    QSignalSpy ended(&player, &Player::queueEnded);
    QString error;
    ASSERT_TRUE(player.renderQueue(home.file("render.wav"), &error)) << error.toStdString();

    EXPECT_EQ(indices(changed), QList<int>({ 0, 2, 4, -1 }));
    ASSERT_EQ(skipped.size(), 2);
    EXPECT_EQ(skipped[0][0].value<Track>().id, 2);
    EXPECT_EQ(skipped[1][0].value<Track>().id, 4);
    EXPECT_EQ(ended.size(), 1);
    EXPECT_EQ(player.status(), Player::Status::stopped);
    // The ordinary change starts the next track on the frame after the last one.
    const std::vector<float> out = readFloatWav(home.file("render.wav"));
    std::vector<float> expected;
    for (int n : { 0, 2, 4 }) {
        const std::vector<float> part = ffmpegDecode(queue[n].filePath.value());
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(firstDifference(out, expected), -1);
}

TEST_F(PlayerTest, PlayCountRisesOncePastHalfTheTrack)
{
    const QString dbPath = home.file("library.sqlite");
    LibraryOpenResult opened = LibraryStore::open(dbPath);
    ASSERT_TRUE(opened) << opened.message.toStdString();
    LibraryStore &store = *opened.store;
    QList<Track> queue { makeTrack(0, 2), makeTrack(1, 2), makeTrack(2, 2) };
    for (Track &t : queue)
        t.id = store.insert(t).value_or(0);
    Player player(engine, settings, &store);
    QSignalSpy played(&player, &Player::trackPlayed);
    player.playQueue(queue);
    playFor(player, 0.9);
    player.next(); // the first track is left before its middle
    playFor(player, 4.5); // the other two to their ends

    EXPECT_EQ(store.track(queue[0].id)->playCount, 0);
    EXPECT_EQ(store.track(queue[1].id)->playCount, 1);
    EXPECT_EQ(store.track(queue[2].id)->playCount, 1);
    ASSERT_EQ(played.size(), 2);
    EXPECT_EQ(played[0][0].value<Track>().playCount, 1);
}

TEST_F(PlayerTest, PreviousGoesBackEarlyAndRestartsLater)
{
    Player player(engine, settings, nullptr);
    player.playQueue({ makeTrack(0, 8), makeTrack(1, 8) }, 1);
    QSignalSpy seeked(&player, &Player::seeked);
    playFor(player, 1);
    player.previous();
    EXPECT_EQ(player.currentIndex(), 0);
    EXPECT_TRUE(seeked.isEmpty());
    playFor(player, 3.5);
    ASSERT_GT(player.position().value_or(0), Player::kRestartAfterSec);
    player.previous();
    EXPECT_EQ(player.currentIndex(), 0);
    ASSERT_EQ(seeked.size(), 1);
    EXPECT_EQ(seeked[0][0].toDouble(), 0.0);
    step(player);
    EXPECT_LT(player.position().value_or(99), 0.1);
}

TEST_F(PlayerTest, RepeatOneAndRepeatAll)
{
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::off);
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    player.setRepeat(Player::Repeat::one);
    player.playQueue({ makeTrack(0, 0.3), makeTrack(1, 0.3) });
    playFor(player, 1.0);
    EXPECT_EQ(indices(changed).mid(0, 3), QList<int>({ 0, 0, 0 }));
    player.setRepeat(Player::Repeat::all);
    changed.clear();
    playFor(player, 1.3);
    EXPECT_EQ(indices(changed).mid(0, 4), QList<int>({ 1, 0, 1, 0 }));
    EXPECT_EQ(player.status(), Player::Status::playing);
}

TEST_F(PlayerTest, ShuffleKeepsItsChoiceWhileThePlanIsComputed)
{
    Player player(engine, settings, nullptr);
    player.setShuffleSeed(11);
    player.setModeOverride(TransitionMode::gapless);
    QList<std::pair<qint64, qint64>> asked;
    QPromise<std::optional<TransitionPlan>> pending;
    player.setPlanner(TransitionMode::gapless, [&](const Track &from, const Track &to) {
        asked << std::pair(from.id, to.id);
        return pending.future();
    });
    QList<Track> queue;
    for (int n = 0; n < 6; ++n)
        queue << makeTrack(n, 2);
    player.setShuffle(true);
    player.playQueue(queue);
    playFor(player, 0.2);
    ASSERT_EQ(asked.size(), 1);
    ASSERT_TRUE(player.mixState().shuffleNext);
    const Track chosen = player.mixState().shuffleNext->second;
    EXPECT_EQ(chosen.id, asked[0].second);

    // A new shuffle order while the plan is still being made does not change the next track.
    player.setShuffle(false);
    player.setShuffle(true);
    playFor(player, 0.2);
    EXPECT_EQ(asked.size(), 1);
    EXPECT_EQ(player.upNext().first(), chosen);

    TransitionPlan plan;
    plan.outgoingStart = plan.outgoingEnd = 2.0;
    pending.start();
    pending.addResult(std::optional(plan));
    pending.finish();
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    playFor(player, 2.0);
    ASSERT_FALSE(changed.isEmpty());
    EXPECT_EQ(changed[0][0].value<std::optional<Track>>(), std::optional(chosen));
}

TEST_F(PlayerTest, TracksOfOneAlbumJoinGaplessInCrossfadeMode)
{
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::crossfade);
    QList<QString> asked;
    auto recording = [&](const QString &name) {
        return [&asked, name](const Track &, const Track &) {
            asked << name;
            return QtFuture::makeReadyFuture(std::optional<TransitionPlan>());
        };
    };
    player.setPlanner(TransitionMode::crossfade, recording(QStringLiteral("crossfade")));
    player.setPlanner(TransitionMode::gapless, recording(QStringLiteral("gapless")));
    QList<Track> queue { makeTrack(0, 0.5), makeTrack(1, 0.5), makeTrack(2, 0.5), makeTrack(3, 0.5) };
    queue[0].album = queue[1].album = QStringLiteral("One");
    queue[2].album = QStringLiteral("Other");
    queue[3].album = QStringLiteral("One");
    queue[3].artist = QStringLiteral("Someone else");
    player.playQueue(queue);
    playFor(player, 2.2);
    EXPECT_EQ(asked, QList<QString>({ "gapless", "crossfade", "crossfade" }));

    asked.clear();
    player.setAlbumGapless(false);
    player.playQueue(queue);
    playFor(player, 0.1);
    EXPECT_EQ(asked, QList<QString>({ "crossfade" }));
    // The choice is kept for the next start.
    Player again(engine, settings, nullptr);
    EXPECT_FALSE(again.albumGapless());
}

// A file cut short under the player (a disk going away, another program rewriting it)
// ends its track early and the queue goes on; the player never waits for it.
TEST_F(PlayerTest, FileCutShortWhilePlayingEndsItsTrack)
{
    Player player(engine, settings, nullptr);
    player.setModeOverride(TransitionMode::off);
    const QList<Track> queue { makeTrack(0, 20), makeTrack(1, 1) };
    player.playQueue(queue);
    playFor(player, 0.5);
    ASSERT_TRUE(QFile::resize(queue[0].filePath.value(), 8 * kRate * 2));
    QSignalSpy changed(&player, &Player::currentTrackChanged);
    playFor(player, 8);
    ASSERT_FALSE(changed.isEmpty());
    EXPECT_EQ(changed[0][1].toInt(), 1);
    EXPECT_LT(engine.hostFrame(), quint64(8 * kRate)); // long before the 20 s it had
}
