#include "playback/playqueue.h"

#include <algorithm>
#include <numeric>

PlayQueue::PlayQueue(quint32 seed)
    : m_random(seed)
{
}

bool PlayQueue::hasFile(const Track &track)
{
    return track.filePath && !track.filePath->isEmpty();
}

bool PlayQueue::playable(int index) const
{
    return index >= 0 && index < m_tracks.size() && hasFile(m_tracks[index]) && !m_unplayable[size_t(index)];
}

void PlayQueue::markUnplayable(int index)
{
    if (index >= 0 && index < m_tracks.size())
        m_unplayable[size_t(index)] = true;
}

std::vector<int> PlayQueue::shuffledOrder(int first)
{
    std::vector<int> order(size_t(m_tracks.size()));
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), m_random);
    if (first >= 0) {
        const auto at = std::find(order.begin(), order.end(), first);
        std::rotate(order.begin(), at, at + 1);
    }
    return order;
}

void PlayQueue::setTracks(const QList<Track> &tracks, int startIndex)
{
    m_tracks = tracks;
    m_unplayable.assign(size_t(tracks.size()), false);
    m_nextRound.clear();
    if (m_tracks.isEmpty()) {
        m_order.clear();
        m_pos = -1;
        return;
    }
    const int start = std::clamp(startIndex, 0, int(m_tracks.size()) - 1);
    if (m_shuffle) {
        m_order = shuffledOrder(start);
        m_pos = 0;
    } else {
        m_order.resize(size_t(m_tracks.size()));
        std::iota(m_order.begin(), m_order.end(), 0);
        m_pos = start;
    }
}

int PlayQueue::current() const
{
    return m_pos >= 0 && size_t(m_pos) < m_order.size() ? m_order[size_t(m_pos)] : -1;
}

void PlayQueue::setCurrent(int index)
{
    if (index < 0 || index >= m_tracks.size())
        return;
    if (index == current())
        return;
    if (!m_nextRound.empty() && m_nextRound.front() == index) {
        // The end of the round was reached and the chosen first entry of the next one plays.
        m_order = std::move(m_nextRound);
        m_nextRound.clear();
        m_pos = 0;
        return;
    }
    const auto at = std::find(m_order.begin(), m_order.end(), index);
    const auto pos = at - m_order.begin();
    if (m_shuffle && pos > m_pos) {
        // A jump ahead in a shuffled round: the entry moves up to follow the current one,
        // and the ones it jumped over are still to come.
        std::rotate(m_order.begin() + m_pos + 1, at, at + 1);
        ++m_pos;
    } else {
        m_pos = int(pos);
    }
}

void PlayQueue::setShuffle(bool on)
{
    if (on == m_shuffle)
        return;
    m_shuffle = on;
    m_nextRound.clear();
    const int cur = current();
    if (m_tracks.isEmpty())
        return;
    if (on) {
        m_order = shuffledOrder(cur);
        m_pos = cur >= 0 ? 0 : -1;
    } else {
        m_order.resize(size_t(m_tracks.size()));
        std::iota(m_order.begin(), m_order.end(), 0);
        m_pos = cur;
    }
}

std::optional<int> PlayQueue::nextInOrder(const std::vector<int> &order, int from, QList<int> *passedOver) const
{
    for (size_t i = size_t(from); i < order.size(); ++i) {
        if (playable(order[i]))
            return order[i];
        if (passedOver && !hasFile(m_tracks[order[i]]))
            *passedOver << order[i];
    }
    return std::nullopt;
}

std::optional<int> PlayQueue::next(bool skipRequested, QList<int> *passedOver)
{
    const int cur = current();
    if (cur < 0)
        return std::nullopt;
    if (m_repeat == Repeat::one && !skipRequested && playable(cur))
        return cur;
    if (auto found = nextInOrder(m_order, m_pos + 1, passedOver))
        return found;
    if (m_repeat == Repeat::off)
        return std::nullopt;
    if (m_shuffle) {
        if (m_nextRound.empty()) {
            m_nextRound = shuffledOrder(-1);
            // A new round does not open with the track that just closed the old one.
            if (m_nextRound.size() > 1 && m_nextRound.front() == cur)
                std::swap(m_nextRound.front(), m_nextRound.back());
        }
        const auto found = nextInOrder(m_nextRound, 0, passedOver);
        if (found && *found != m_nextRound.front()) {
            // Entries without a file at the head of the round are skipped, not replayed.
            const auto at = std::find(m_nextRound.begin(), m_nextRound.end(), *found);
            std::rotate(m_nextRound.begin(), at, at + 1);
        }
        return found;
    }
    return nextInOrder(m_order, 0, passedOver);
}

std::optional<int> PlayQueue::previous() const
{
    for (int i = m_pos - 1; i >= 0; --i) {
        if (playable(m_order[size_t(i)]))
            return m_order[size_t(i)];
    }
    return std::nullopt;
}

QList<int> PlayQueue::upNext() const
{
    QList<int> result;
    if (m_pos < 0)
        return result;
    for (size_t i = size_t(m_pos) + 1; i < m_order.size(); ++i)
        result << m_order[i];
    if (m_repeat == Repeat::all) {
        const std::vector<int> &wrap = m_nextRound.empty() ? m_order : m_nextRound;
        for (int index : wrap) {
            if (index == current())
                break;
            result << index;
        }
    }
    return result;
}
