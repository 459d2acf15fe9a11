#include "engine/cutplanner.h"

#include <algorithm>

namespace {

using Action = CutPlanner::Action;
using Kind = CutPlanner::Action::Kind;

} // namespace

CutPlanner::CutPlanner(qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName, Padding padding,
                       std::optional<Listening> listening)
    : m_bytesPerSec(bytesPerSec)
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_stationName(std::move(stationName))
    , m_padding(padding)
    , m_listening(listening)
{
    // Listening keeps single songs; a whole show is a recording's business.
    Q_ASSERT(!(m_listening && m_fullShowTitle));
}

CutPlanner::Actions CutPlanner::openSegment()
{
    m_openId = ++m_lastId;
    m_segHasAudio = false;
    return { Action { .kind = Kind::Open, .segment = *m_openId } };
}

CutPlanner::SegmentId CutPlanner::rotate(Actions &out)
{
    const SegmentId old = m_openId.value_or(0);
    if (old != 0)
        out.push_back({ .kind = Kind::Close, .segment = old });
    Actions opened = openSegment();
    out.push_back(std::move(opened.front()));
    return old;
}

void CutPlanner::handOverPending(Actions &out, SegmentId last, const QString &title, qint64 songNumber)
{
    std::vector<SegmentId> song = std::move(m_pending);
    m_pending.clear();
    if (last != 0)
        song.push_back(last);
    if (m_listening) {
        if (!isArmed(songNumber)) {
            if (!song.empty())
                out.push_back({ .kind = Kind::Discard, .segments = std::move(song) });
            return;
        }
        std::erase(m_armed, songNumber);
        if (song.empty()) { // nothing of it reached a segment: it must not wait for a save forever
            out.push_back({ .kind = Kind::Abandon, .title = title });
            return;
        }
    }
    if (!song.empty())
        out.push_back({ .kind = Kind::HandOver, .segments = std::move(song), .title = title });
}

bool CutPlanner::isArmed(qint64 song) const
{
    return std::find(m_armed.cbegin(), m_armed.cend(), song) != m_armed.cend();
}

void CutPlanner::boundKeptSong(Actions &out, qint64 incoming)
{
    if (isArmed(keptSong()) || m_keptBytes + incoming <= m_listening->maxSongBytes)
        return;
    const SegmentId old = rotate(out);
    std::vector<SegmentId> dropped = std::move(m_pending);
    m_pending.clear();
    if (old != 0)
        dropped.push_back(old);
    if (!dropped.empty())
        out.push_back({ .kind = Kind::Discard, .segments = std::move(dropped) });
    m_keptBytes = 0;
    Keep &keep = m_cutPrevTitle ? m_cutPrevKeep : m_keep;
    if (keep == Keep::Whole)
        keep = Keep::TooLong;
}

CutPlanner::ArmResult CutPlanner::armResultFor(Keep keep)
{
    switch (keep) {
    case Keep::Whole:
        return ArmResult::Armed;
    case Keep::TooLong:
        return ArmResult::TooLong;
    case Keep::NoTitle:
    case Keep::JoinedLate:
        break;
    }
    return ArmResult::JoinedLate;
}

CutPlanner::ArmResult CutPlanner::arm(const QString &rawTitle)
{
    const QString title = rawTitle.trimmed();
    const auto armSong = [this](qint64 song, Keep keep) {
        const ArmResult result = isArmed(song) ? ArmResult::Armed : armResultFor(keep);
        if (result == ArmResult::Armed && !isArmed(song))
            m_armed.push_back(song);
        return result;
    };
    if (!m_listening || title.isEmpty())
        return ArmResult::Ended;
    if (title == m_lastTitle)
        return armSong(m_song, m_keep);
    // Pressed as the title changed: the song heard is in its lead-out and still whole.
    if (m_cutPrevTitle && title == *m_cutPrevTitle)
        return armSong(m_cutPrevSong, m_cutPrevKeep);
    return ArmResult::Ended;
}

CutPlanner::Keep CutPlanner::keep() const
{
    return m_lastTitle.isEmpty() ? Keep::NoTitle : m_keep;
}

CutPlanner::Actions CutPlanner::onAudio(QByteArrayView chunk)
{
    if (chunk.isEmpty())
        return {};
    Actions out;
    if (m_listening)
        boundKeptSong(out, chunk.size());
    out.push_back({ .kind = Kind::WriteInput });
    if (m_openId)
        m_keptBytes += chunk.size();
    m_segHasAudio = true;
    if (!isPadded())
        return out;
    if (m_padding.leadInSec > 0) {
        m_leadInBuf.append(chunk);
        const qint64 cap = m_bytesPerSec * m_padding.leadInSec;
        // Trim about once a second rather than shifting the buffer for every chunk.
        if (m_leadInBuf.size() > cap + m_bytesPerSec)
            m_leadInBuf.remove(0, m_leadInBuf.size() - cap);
    }
    if (m_cutPrevTitle) {
        m_overlapBuf.append(chunk);
        m_cutRemaining -= chunk.size();
        if (m_cutRemaining < 1)
            performDeferredCut(out);
    }
    return out;
}

bool CutPlanner::isNewTitle(const QString &rawTitle) const
{
    const QString title = rawTitle.trimmed();
    return !title.isEmpty() && title != m_lastTitle;
}

CutPlanner::Actions CutPlanner::onTitle(const QString &rawTitle, Padding padding)
{
    if (!isNewTitle(rawTitle))
        return {};
    m_padding = padding;
    const QString prev = std::exchange(m_lastTitle, rawTitle.trimmed());
    const qint64 prevSong = m_song++;
    const Keep prevKeep = std::exchange(m_keep, prev.isEmpty() || !m_segHasAudio ? Keep::JoinedLate : Keep::Whole);

    Actions out;
    if (m_fullShowTitle)
        return out;
    if (!m_segHasAudio) {
        // A recording lets the pieces pending from before a reconnect go on under the new
        // title; listening ends each song at its own title, so an armed one is not lost.
        if (m_listening && !prev.isEmpty())
            handOverPending(out, 0, prev, prevSong);
        return out;
    }

    if (prev.isEmpty()) {
        // The audio so far belongs to a song whose start we missed: throw it away.
        if (m_cutPrevTitle)
            performDeferredCut(out);
        const SegmentId old = rotate(out);
        std::vector<SegmentId> junk = std::move(m_pending);
        m_pending.clear();
        if (old != 0)
            junk.push_back(old);
        if (!junk.empty())
            out.push_back({ .kind = Kind::Discard, .segments = std::move(junk) });
        m_leadInBuf.clear();
        m_keptBytes = 0;
        return out;
    }

    if (!isPadded()) {
        const SegmentId old = rotate(out);
        m_keptBytes = 0;
        handOverPending(out, old, prev, prevSong);
        return out;
    }

    if (m_cutPrevTitle) // titles changed faster than the lead-out
        performDeferredCut(out);
    m_leadInSnapshot = m_padding.leadInSec > 0 ? m_leadInBuf : QByteArray();
    m_overlapBuf.clear();
    m_cutPrevTitle = prev;
    m_cutPrevSong = prevSong;
    m_cutPrevKeep = prevKeep;
    m_cutRemaining = m_bytesPerSec * m_padding.leadOutSec;
    if (m_cutRemaining < 1)
        performDeferredCut(out);
    return out;
}

void CutPlanner::performDeferredCut(Actions &out)
{
    if (!m_cutPrevTitle)
        return;
    const SegmentId old = rotate(out);

    QByteArray carry = m_leadInSnapshot + m_overlapBuf;
    m_keptBytes = carry.size();
    if (!carry.isEmpty()) {
        m_segHasAudio = true;
        if (m_padding.leadInSec > 0) {
            const qint64 keep = m_bytesPerSec * m_padding.leadInSec;
            m_leadInBuf = carry.size() > keep ? carry.right(keep) : carry;
        }
        out.push_back({ .kind = Kind::WriteCarry, .carry = std::move(carry) });
    }
    m_leadInSnapshot.clear();
    m_overlapBuf.clear();
    const QString title = *std::exchange(m_cutPrevTitle, std::nullopt);
    m_cutRemaining = 0;
    handOverPending(out, old, title, m_cutPrevSong);
}

CutPlanner::Actions CutPlanner::finish(bool isStop)
{
    const std::optional<QString> pendingCut = std::exchange(m_cutPrevTitle, std::nullopt);
    m_cutRemaining = 0;
    m_leadInSnapshot.clear();
    m_overlapBuf.clear();
    // The lead-in window stays: after a reconnect it still holds the song's latest audio.

    Actions out;
    const bool hadAudio = std::exchange(m_segHasAudio, false);
    if (const std::optional<SegmentId> open = std::exchange(m_openId, std::nullopt)) {
        out.push_back({ .kind = Kind::Close, .segment = *open });
        if (hadAudio)
            m_pending.push_back(*open);
        else
            out.push_back({ .kind = Kind::Discard, .segments = { *open } });
    }

    // A dropout does not split a song: its pieces wait for the next connection.
    if (!isStop && !pendingCut)
        return out;
    m_keptBytes = 0;
    if (m_listening) {
        if (pendingCut)
            handOverPending(out, 0, *pendingCut, m_cutPrevSong);
        if (isStop) {
            // The song playing cannot end now. Listening saves whole songs only: half a
            // song is not what the user asked for, and a stop or a lost stream is no end.
            if (!m_pending.empty())
                out.push_back({ .kind = Kind::Discard, .segments = std::exchange(m_pending, {}) });
            if (isArmed(m_song))
                out.push_back({ .kind = Kind::Abandon, .title = m_lastTitle });
            m_armed.clear();
        } else if (m_keep == Keep::Whole) {
            m_keep = Keep::JoinedLate; // its lead-in and first seconds went with the connection
        }
        return out;
    }
    QString title;
    if (m_fullShowTitle)
        title = *m_fullShowTitle;
    else if (pendingCut)
        title = *pendingCut;
    else if (!m_lastTitle.isEmpty())
        title = m_lastTitle;
    else
        title = m_stationName;
    handOverPending(out, 0, title, pendingCut ? m_cutPrevSong : m_song);
    return out;
}
