#pragma once

#include "engine/cutplanner.h"
#include "engine/segmentfile.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <map>
#include <optional>
#include <vector>

// Cuts one station's audio into songs at title changes: CutPlanner decides where, this
// class does the file work.
//
// Audio goes into hidden segment files in the radio folder's tmp folder, each locked
// while it is written. Audio runs are written from the caller's view, never copied.
//
// Listening (a CutPlanner::Listening given) names its segments ".listen_" + UUID so that
// recovery knows them for what they are, a song nobody asked for, and deletes rather than
// salvages them after a crash. An armed song becomes a recording when it is handed over:
// its segments get the ordinary names, so from then on a crash leaves it to be salvaged.
//
// Lives on the session's engine thread; every method is called there. The segment
// lists it hands over (`songReady`) are no longer touched by it.
class TrackSegmenter {
public:
    using Padding = CutPlanner::Padding;

    struct Hooks {
        // Re-read at every title so changed padding applies from the next song on.
        std::function<Padding()> readPadding;
        // A finished song: its segments oldest first, each still locked, and its title.
        std::function<void(std::vector<SegmentLock> segments, const QString &title)> songReady;
        // A title was accepted as the current one.
        std::function<void(const QString &title)> titleAccepted;
        // Listening: whether the song playing can be saved changed.
        std::function<void(CutPlanner::Keep keep)> keepChanged;
        // Listening: an armed song will not be handed over (a stop, or none of it kept).
        std::function<void(const QString &title)> songAbandoned;
    };

    static constexpr QLatin1String kListeningPrefix{".listen_"};

    TrackSegmenter(QString tmpDir, qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName,
                   Hooks hooks, std::optional<CutPlanner::Listening> listening = std::nullopt);

    // The response's content type; picks the extension of segments opened from now on.
    void setContentType(const QString &contentType) { m_contentType = contentType; }

    void openSegment();
    void writeAudio(QByteArrayView data);
    void handleTitle(const QString &title);
    void finalizeSegment(bool isStop);
    // Pushes buffered audio of the open segment to the file (before the system sleeps).
    void flush();
    // Listening: saves the song titled `title` at its end; see CutPlanner::arm.
    [[nodiscard]] CutPlanner::ArmResult arm(const QString &title) { return m_planner.arm(title); }
    [[nodiscard]] CutPlanner::Keep keep() const { return m_planner.keep(); }

    [[nodiscard]] const QString &lastTitle() const { return m_planner.lastTitle(); }
    [[nodiscard]] bool isCutPending() const { return m_planner.isCutPending(); }
    [[nodiscard]] qint64 bytesPerSec() const { return m_bytesPerSec; }

    // Seconds to bytes at the nominal rate; the bitrate rule that gives bytesPerSec.
    [[nodiscard]] static qint64 bytesPerSecForBitrate(qint64 kbps);

private:
    // `input` is the chunk the actions were planned for (empty for titles and closes).
    void apply(const CutPlanner::Actions &actions, QByteArrayView input = {});
    [[nodiscard]] QString segmentExtension() const;
    void reportKeep();

    const QString m_tmpDir;
    const qint64 m_bytesPerSec;
    Hooks m_hooks;
    CutPlanner m_planner;

    QString m_contentType;
    // The open segment; absent when none is open or it could not be created (its audio
    // is then dropped).
    std::optional<SegmentFile> m_segment;
    // Closed segments the planner has not yet handed over or discarded; an invalid lock
    // stands for a segment that could not be created.
    std::map<CutPlanner::SegmentId, SegmentLock> m_closed;
    CutPlanner::Keep m_reportedKeep = CutPlanner::Keep::NoTitle;
};
