#include "playback/playqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

QList<Track> tracks(int count, QList<int> withoutFile = {})
{
    QList<Track> result;
    for (int i = 0; i < count; ++i) {
        Track t;
        t.id = i + 1;
        t.title = QStringLiteral("t%1").arg(i);
        if (!withoutFile.contains(i))
            t.filePath = QStringLiteral("/music/%1.flac").arg(i);
        result << t;
    }
    return result;
}

// Plays the queue to its end (or `limit` changes) and returns the entries in play order.
QList<int> playThrough(PlayQueue &queue, int limit = 100)
{
    QList<int> played { queue.current() };
    while (limit-- > 0) {
        const std::optional<int> next = queue.next();
        if (!next)
            break;
        queue.setCurrent(*next);
        played << *next;
    }
    return played;
}

} // namespace

TEST(PlayQueue, PlainOrderRepeatAndEntriesWithoutFile)
{
    PlayQueue queue;
    queue.setTracks(tracks(5, { 2 }), 1);
    EXPECT_EQ(queue.current(), 1);
    QList<int> passed;
    EXPECT_EQ(queue.next(false, &passed), 3);
    EXPECT_EQ(passed, QList<int>({ 2 }));
    EXPECT_EQ(queue.upNext(), QList<int>({ 2, 3, 4 }));
    EXPECT_EQ(playThrough(queue), QList<int>({ 1, 3, 4 }));
    EXPECT_EQ(queue.next(), std::nullopt);

    queue.setRepeat(PlayQueue::Repeat::all);
    EXPECT_EQ(queue.next(), 0);
    EXPECT_EQ(queue.upNext(), QList<int>({ 0, 1, 2, 3 }));

    queue.setRepeat(PlayQueue::Repeat::one);
    EXPECT_EQ(queue.next(), 4);
    EXPECT_EQ(queue.next(true), 0); // the user's next moves on, round the end as in repeat all
    queue.setCurrent(0);
    EXPECT_EQ(queue.next(true), 1);
    EXPECT_EQ(queue.previous(), std::nullopt);
    queue.setCurrent(3);
    EXPECT_EQ(queue.previous(), 1);

    queue.markUnplayable(4);
    queue.setRepeat(PlayQueue::Repeat::off);
    EXPECT_EQ(queue.next(), std::nullopt);
    queue.setTracks(tracks(5), 4); // a new queue forgets what failed
    EXPECT_EQ(queue.current(), 4);
}

TEST(PlayQueue, ShufflePlaysEachEntryOncePerRoundAndRepeatsWithASeed)
{
    PlayQueue a(7), b(7);
    for (PlayQueue *queue : { &a, &b }) {
        queue->setShuffle(true);
        queue->setTracks(tracks(20), 5);
    }
    EXPECT_EQ(a.current(), 5);
    const QList<int> order = playThrough(a);
    EXPECT_EQ(order, playThrough(b));
    EXPECT_EQ(order.size(), 20);
    EXPECT_EQ(std::set<int>(order.begin(), order.end()).size(), 20u);
    QList<int> plain(order);
    std::sort(plain.begin(), plain.end());
    EXPECT_NE(order, plain);

    // Repeat all: the next round is drawn once and stays what it was drawn as.
    a.setRepeat(PlayQueue::Repeat::all);
    const std::optional<int> first = a.next();
    ASSERT_TRUE(first);
    EXPECT_NE(*first, a.current());
    EXPECT_EQ(a.next(), first);
    EXPECT_EQ(a.upNext().first(), *first);
    a.setCurrent(*first);
    EXPECT_EQ(a.current(), *first);
    EXPECT_EQ(playThrough(a, 18).size(), 19);
}

TEST(PlayQueue, ShuffleJumpKeepsTheSkippedEntriesToCome)
{
    PlayQueue queue(3);
    queue.setTracks(tracks(6), 0);
    queue.setShuffle(true);
    EXPECT_EQ(queue.current(), 0);
    const QList<int> ahead = queue.upNext();
    ASSERT_EQ(ahead.size(), 5);
    // A track chosen from further down plays next; the ones before it still follow.
    queue.setCurrent(ahead[3]);
    QList<int> expected = ahead;
    expected.removeAt(3);
    EXPECT_EQ(queue.upNext(), expected);

    queue.setShuffle(false);
    EXPECT_EQ(queue.current(), ahead[3]);
    EXPECT_EQ(queue.next(), ahead[3] + 1 < 6 ? std::optional(ahead[3] + 1) : std::nullopt);
}
