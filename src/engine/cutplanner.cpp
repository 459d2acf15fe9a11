#include "engine/cutplanner.h"

namespace {

using Action = CutPlanner::Action;
using Kind = CutPlanner::Action::Kind;

} // namespace

CutPlanner::CutPlanner(qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName, Padding padding)
    : m_bytesPerSec(bytesPerSec)
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_stationName(std::move(stationName))
    , m_padding(padding)
{
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

void CutPlanner::handOverPending(Actions &out, SegmentId last, const QString &title)
{
    std::vector<SegmentId> song = std::move(m_pending);
    m_pending.clear();
    if (last != 0)
        song.push_back(last);
    if (!song.empty())
        out.push_back({ .kind = Kind::HandOver, .segments = std::move(song), .title = title });
}

CutPlanner::Actions CutPlanner::onAudio(QByteArrayView chunk)
{
    if (chunk.isEmpty())
        return {};
    Actions out { { .kind = Kind::WriteInput } };
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

    Actions out;
    if (m_fullShowTitle || !m_segHasAudio)
        return out;

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
        return out;
    }

    if (!isPadded()) {
        const SegmentId old = rotate(out);
        handOverPending(out, old, prev);
        return out;
    }

    if (m_cutPrevTitle) // titles changed faster than the lead-out
        performDeferredCut(out);
    m_leadInSnapshot = m_padding.leadInSec > 0 ? m_leadInBuf : QByteArray();
    m_overlapBuf.clear();
    m_cutPrevTitle = prev;
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
    handOverPending(out, old, title);
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
    QString title;
    if (m_fullShowTitle)
        title = *m_fullShowTitle;
    else if (pendingCut)
        title = *pendingCut;
    else if (!m_lastTitle.isEmpty())
        title = m_lastTitle;
    else
        title = m_stationName;
    handOverPending(out, 0, title);
    return out;
}
