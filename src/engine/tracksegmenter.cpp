#include "engine/tracksegmenter.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

TrackSegmenter::TrackSegmenter(QString tmpDir, qint64 bytesPerSec, std::optional<QString> fullShowTitle,
                               QString stationName, Hooks hooks, std::optional<CutPlanner::Listening> listening)
    : m_tmpDir(std::move(tmpDir))
    , m_bytesPerSec(bytesPerSec)
    , m_hooks(std::move(hooks))
    , m_planner(bytesPerSec, std::move(fullShowTitle), std::move(stationName),
          m_hooks.readPadding ? m_hooks.readPadding() : Padding {}, listening)
{
}

void TrackSegmenter::reportKeep()
{
    if (!m_planner.isListening() || m_planner.keep() == m_reportedKeep)
        return;
    m_reportedKeep = m_planner.keep();
    if (m_hooks.keepChanged)
        m_hooks.keepChanged(m_reportedKeep);
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
    apply(m_planner.openSegment());
}

void TrackSegmenter::writeAudio(QByteArrayView data)
{
    apply(m_planner.onAudio(data), data);
    reportKeep();
}

void TrackSegmenter::handleTitle(const QString &rawTitle)
{
    if (!m_planner.isNewTitle(rawTitle))
        return;
    const CutPlanner::Actions actions
        = m_planner.onTitle(rawTitle, m_hooks.readPadding ? m_hooks.readPadding() : Padding {});
    // Whether the new song can be saved is known before its title is shown.
    reportKeep();
    if (m_hooks.titleAccepted)
        m_hooks.titleAccepted(m_planner.lastTitle());
    apply(actions);
}

void TrackSegmenter::finalizeSegment(bool isStop)
{
    apply(isStop ? m_planner.onStop() : m_planner.onDisconnect());
    reportKeep();
}

void TrackSegmenter::flush()
{
    if (m_segment)
        m_segment->flush();
}

void TrackSegmenter::apply(const CutPlanner::Actions &actions, QByteArrayView input)
{
    using Kind = CutPlanner::Action::Kind;
    for (const CutPlanner::Action &action : actions) {
        switch (action.kind) {
        case Kind::Open: {
            QDir().mkpath(m_tmpDir);
            const QString name = (m_planner.isListening() ? QString(kListeningPrefix) : QStringLiteral("."))
                + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + QLatin1Char('.') + segmentExtension();
            // A segment that cannot be created records nothing until the next one opens.
            m_segment = SegmentFile::create(m_tmpDir + QLatin1Char('/') + name);
            break;
        }
        case Kind::Close:
            m_closed[action.segment] = m_segment ? m_segment->close() : SegmentLock();
            m_segment.reset();
            break;
        case Kind::WriteInput:
            if (m_segment)
                m_segment->write(input);
            break;
        case Kind::WriteCarry:
            if (m_segment)
                m_segment->write(action.carry);
            break;
        case Kind::HandOver: {
            std::vector<SegmentLock> song;
            for (const CutPlanner::SegmentId id : action.segments) {
                if (auto it = m_closed.find(id); it != m_closed.end()) {
                    if (it->second.isValid())
                        song.push_back(std::move(it->second));
                    m_closed.erase(it);
                }
            }
            if (m_planner.isListening()) {
                // Asked for: a recording from now on (a failed rename only costs the
                // salvage after a crash).
                for (SegmentLock &segment : song) {
                    const QFileInfo info(segment.path());
                    const QString name = info.fileName();
                    if (name.startsWith(kListeningPrefix))
                        segment.moveTo(info.path() + QStringLiteral("/.") + name.mid(kListeningPrefix.size()));
                }
                if (song.empty()) {
                    if (m_hooks.songAbandoned)
                        m_hooks.songAbandoned(action.title);
                    break;
                }
            }
            if (!song.empty() && m_hooks.songReady)
                m_hooks.songReady(std::move(song), action.title);
            break;
        }
        case Kind::Abandon:
            if (m_hooks.songAbandoned)
                m_hooks.songAbandoned(action.title);
            break;
        case Kind::Discard:
            for (const CutPlanner::SegmentId id : action.segments) {
                if (auto it = m_closed.find(id); it != m_closed.end()) {
                    it->second.removeFile();
                    m_closed.erase(it);
                }
            }
            break;
        }
    }
}
