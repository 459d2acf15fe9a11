#include "engine/tracksegmenter.h"

#include <QDir>
#include <QUuid>

TrackSegmenter::TrackSegmenter(QString tmpDir, qint64 bytesPerSec, std::optional<QString> fullShowTitle,
                               QString stationName, Hooks hooks)
    : m_tmpDir(std::move(tmpDir))
    , m_bytesPerSec(bytesPerSec)
    , m_fullShowTitle(std::move(fullShowTitle))
    , m_stationName(std::move(stationName))
    , m_hooks(std::move(hooks))
{
    if (m_hooks.readPadding)
        m_padding = m_hooks.readPadding();
}

qint64 TrackSegmenter::bytesPerSecForBitrate(qint64 kbps)
{
    const qint64 rate = (kbps < 1 ? 128 : kbps) * 1000 / 8;
    return rate <= 4000 ? 4000 : rate;
}

QString TrackSegmenter::segmentExtension() const
{
    return m_contentType.contains(QLatin1String("aac")) ? QStringLiteral("aac") : QStringLiteral("mp3");
}

void TrackSegmenter::openSegment()
{
    QDir().mkpath(m_tmpDir);
    const QString name = QLatin1Char('.') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()
        + QLatin1Char('.') + segmentExtension();
    // A segment that cannot be created records nothing until the next one opens.
    m_segment = SegmentFile::create(m_tmpDir + QLatin1Char('/') + name);
    m_segHasAudio = false;
}

SegmentLock TrackSegmenter::rotateSegment()
{
    std::optional<SegmentFile> old = std::move(m_segment);
    m_segment.reset();
    openSegment();
    return old ? old->close() : SegmentLock();
}

void TrackSegmenter::handOver(std::vector<SegmentLock> segments, const QString &title)
{
    std::erase_if(segments, [](const SegmentLock &s) { return !s.isValid(); });
    if (segments.empty())
        return;
    if (m_hooks.songReady)
        m_hooks.songReady(std::move(segments), title);
}

void TrackSegmenter::appendLeadIn(QByteArrayView data)
{
    m_leadInBuf.append(data);
    const qint64 cap = m_bytesPerSec * m_padding.leadInSec;
    // Trim about once a second rather than shifting the buffer for every chunk.
    if (m_leadInBuf.size() > cap + m_bytesPerSec)
        m_leadInBuf.remove(0, m_leadInBuf.size() - cap);
}

void TrackSegmenter::writeAudio(QByteArrayView data)
{
    if (data.isEmpty())
        return;
    if (m_segment)
        m_segment->write(data);
    m_segHasAudio = true;
    if (m_padding.leadInSec < 1 && m_padding.leadOutSec < 1)
        return;
    if (m_padding.leadInSec > 0)
        appendLeadIn(data);
    if (m_cutPrevTitle) {
        m_overlapBuf.append(data);
        m_cutRemaining -= data.size();
        if (m_cutRemaining < 1)
            performDeferredCut();
    }
}

void TrackSegmenter::handleTitle(const QString &rawTitle)
{
    const QString title = rawTitle.trimmed();
    if (title.isEmpty() || title == m_lastTitle)
        return;
    if (m_hooks.readPadding)
        m_padding = m_hooks.readPadding();
    const QString prev = m_lastTitle;
    m_lastTitle = title;
    if (m_hooks.titleAccepted)
        m_hooks.titleAccepted(title);

    if (m_fullShowTitle || !m_segHasAudio)
        return;

    if (prev.isEmpty()) {
        // The audio so far belongs to a song whose start we missed: throw it away.
        if (m_cutPrevTitle)
            performDeferredCut();
        SegmentLock old = rotateSegment();
        for (SegmentLock &piece : m_pendingSegments)
            piece.removeFile();
        m_pendingSegments.clear();
        old.removeFile();
        m_leadInBuf.clear();
        return;
    }

    if (m_padding.leadInSec < 1 && m_padding.leadOutSec < 1) {
        std::vector<SegmentLock> song = std::move(m_pendingSegments);
        m_pendingSegments.clear();
        song.push_back(rotateSegment());
        handOver(std::move(song), prev);
        return;
    }

    if (m_cutPrevTitle) // titles changed faster than the lead-out
        performDeferredCut();
    m_leadInSnapshot = m_padding.leadInSec > 0 ? m_leadInBuf : QByteArray();
    m_overlapBuf.clear();
    m_cutPrevTitle = prev;
    m_cutRemaining = m_bytesPerSec * m_padding.leadOutSec;
    if (m_cutRemaining < 1)
        performDeferredCut();
}

void TrackSegmenter::performDeferredCut()
{
    if (!m_cutPrevTitle)
        return;
    SegmentLock old = rotateSegment();

    QByteArray carry = m_leadInSnapshot + m_overlapBuf;
    if (!carry.isEmpty()) {
        if (m_segment)
            m_segment->write(carry);
        m_segHasAudio = true;
        if (m_padding.leadInSec > 0) {
            const qint64 keep = m_bytesPerSec * m_padding.leadInSec;
            m_leadInBuf = carry.size() > keep ? carry.right(keep) : carry;
        }
    }
    m_leadInSnapshot.clear();
    m_overlapBuf.clear();
    const QString title = *m_cutPrevTitle;
    m_cutPrevTitle.reset();
    m_cutRemaining = 0;

    std::vector<SegmentLock> song = std::move(m_pendingSegments);
    m_pendingSegments.clear();
    song.push_back(std::move(old));
    handOver(std::move(song), title);
}

void TrackSegmenter::finalizeSegment(bool isStop)
{
    const std::optional<QString> pendingCut = m_cutPrevTitle;
    m_cutPrevTitle.reset();
    m_cutRemaining = 0;
    m_leadInSnapshot.clear();
    m_overlapBuf.clear();

    std::optional<SegmentFile> segment = std::move(m_segment);
    m_segment.reset();
    const bool hadAudio = m_segHasAudio;
    m_segHasAudio = false;
    if (segment) {
        SegmentLock closed = segment->close();
        if (hadAudio)
            m_pendingSegments.push_back(std::move(closed));
        else
            closed.removeFile();
    }

    // A dropout does not split a song: its pieces wait for the next connection.
    if (!isStop && !pendingCut)
        return;
    std::vector<SegmentLock> song = std::move(m_pendingSegments);
    m_pendingSegments.clear();
    if (song.empty())
        return;
    QString title;
    if (m_fullShowTitle)
        title = *m_fullShowTitle;
    else if (pendingCut)
        title = *pendingCut;
    else if (!m_lastTitle.isEmpty())
        title = m_lastTitle;
    else
        title = m_stationName;
    handOver(std::move(song), title);
}

void TrackSegmenter::flush()
{
    if (m_segment)
        m_segment->flush();
}
