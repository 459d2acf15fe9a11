#pragma once

#include "engine/segmentfile.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

// Cuts one station's audio into songs at title changes.
//
// Audio goes into hidden segment files in the radio folder's tmp folder. A title change
// ends the song: unpadded, at once; padded, after `leadOutSec` more seconds of audio,
// with the next song starting `leadInSec` (to leadInSec + 1) seconds before the change.
// Pieces of one song split by reconnects stay pending and are handed over together.
// Every length is a byte count at the station's nominal byte rate; nothing is decoded.
//
// Lives on the session's engine thread; every method is called there. The segment
// lists it hands over (`songReady`) are no longer touched by it.
class TrackSegmenter {
public:
    struct Padding {
        qint64 leadInSec = 0;
        qint64 leadOutSec = 0;
    };

    struct Hooks {
        // Re-read at every title so changed padding applies from the next song on.
        std::function<Padding()> readPadding;
        // A finished song: its segments oldest first, each still locked, and its title.
        std::function<void(std::vector<SegmentLock> segments, const QString &title)> songReady;
        // A title was accepted as the current one.
        std::function<void(const QString &title)> titleAccepted;
    };

    TrackSegmenter(QString tmpDir, qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName,
                   Hooks hooks);

    // The response's content type; picks the extension of segments opened from now on.
    void setContentType(const QString &contentType) { m_contentType = contentType; }

    void openSegment();
    void writeAudio(QByteArrayView data);
    void handleTitle(const QString &title);
    void finalizeSegment(bool isStop);
    // Pushes buffered audio of the open segment to the file (before the system sleeps).
    void flush();

    [[nodiscard]] const QString &lastTitle() const { return m_lastTitle; }
    [[nodiscard]] bool isCutPending() const { return m_cutPrevTitle.has_value(); }
    [[nodiscard]] qint64 bytesPerSec() const { return m_bytesPerSec; }

    // Seconds to bytes at the nominal rate; the bitrate rule that gives bytesPerSec.
    [[nodiscard]] static qint64 bytesPerSecForBitrate(qint64 kbps);

private:
    void performDeferredCut();
    // Closes the open segment and opens the next; returns the closed one's lock
    // (invalid when it could not be opened in the first place).
    SegmentLock rotateSegment();
    void handOver(std::vector<SegmentLock> segments, const QString &title);
    void appendLeadIn(QByteArrayView data);
    [[nodiscard]] QString segmentExtension() const;

    const QString m_tmpDir;
    const qint64 m_bytesPerSec;
    const std::optional<QString> m_fullShowTitle;
    const QString m_stationName;
    Hooks m_hooks;
    Padding m_padding;

    QString m_contentType;
    std::optional<SegmentFile> m_segment;
    bool m_segHasAudio = false;
    QString m_lastTitle;
    std::vector<SegmentLock> m_pendingSegments;

    QByteArray m_leadInBuf;
    std::optional<QString> m_cutPrevTitle;
    qint64 m_cutRemaining = 0;
    QByteArray m_leadInSnapshot;
    QByteArray m_overlapBuf;
};
