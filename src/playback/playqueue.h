#pragma once

#include "library/track.h"

#include <QList>

#include <optional>
#include <random>
#include <vector>

// The order a queue of tracks is played in: plain or shuffled, with repeat off, all or
// one. Pure state, no files or decks: the player asks it which entry comes next and tells
// it which entry it moved to.
//
// Shuffle plays every entry once per round in a random order (the entry playing when
// shuffle was turned on comes first); with repeat all, each new round is shuffled again.
// The random source is seedable so that tests and renders can repeat a run.
//
// Entries without a file are passed over by next()/previous(), and so are entries the
// player found it cannot open (markUnplayable) until the queue is replaced.
//
// Used on the player's thread only.
class PlayQueue {
public:
    enum class Repeat { off, all, one };

    explicit PlayQueue(quint32 seed = std::random_device {}());

    // Replaces the entries; `startIndex` (clamped) becomes current and, in shuffle, first.
    void setTracks(const QList<Track> &tracks, int startIndex);
    [[nodiscard]] const QList<Track> &tracks() const { return m_tracks; }
    [[nodiscard]] bool isEmpty() const { return m_tracks.isEmpty(); }
    void seed(quint32 value) { m_random.seed(value); }
    // The entry that opens the play order, -1 for an empty queue.
    [[nodiscard]] int firstInOrder() const { return m_order.empty() ? -1 : m_order.front(); }

    // The current entry's index in tracks(), -1 when there is none.
    [[nodiscard]] int current() const;
    // Makes `index` current: in shuffle, it becomes the next one of this round's order
    // when it was still to come (so a track chosen ahead of time is the one that plays).
    void setCurrent(int index);

    void setShuffle(bool on);
    [[nodiscard]] bool shuffle() const { return m_shuffle; }
    void setRepeat(Repeat repeat) { m_repeat = repeat; }
    [[nodiscard]] Repeat repeat() const { return m_repeat; }

    // The entry that follows when the current one ends: itself in repeat one; absent at
    // the end of the queue without repeat all. With `skipRequested` (the user asked for
    // the next track) repeat one moves on like repeat all. In shuffle with repeat all, the
    // end of a round draws the next round's order; asking again returns the same entry.
    // Entries without a file that the answer passed over are added to `passedOver`, so the
    // player can say why they were not played.
    [[nodiscard]] std::optional<int> next(bool skipRequested = false, QList<int> *passedOver = nullptr);
    void markUnplayable(int index);
    // The entry before the current one in play order; absent at the start.
    [[nodiscard]] std::optional<int> previous() const;
    // The entries that will follow the current one, in play order (the rest of this round;
    // with repeat all, then the wrap-around up to the current entry).
    [[nodiscard]] QList<int> upNext() const;

    // Whether an entry can be handed to a deck at all.
    [[nodiscard]] static bool hasFile(const Track &track);
    [[nodiscard]] bool playable(int index) const;

private:
    [[nodiscard]] std::vector<int> shuffledOrder(int first);
    [[nodiscard]] std::optional<int> nextInOrder(const std::vector<int> &order, int from, QList<int> *passedOver) const;

    QList<Track> m_tracks;
    std::vector<int> m_order; // indices of m_tracks in play order
    int m_pos = -1; // position of the current entry in m_order
    // The next round's order once the end of a shuffled round asked for it.
    std::vector<int> m_nextRound;
    std::vector<bool> m_unplayable; // per entry of m_tracks
    bool m_shuffle = false;
    Repeat m_repeat = Repeat::off;
    std::mt19937 m_random;
};
