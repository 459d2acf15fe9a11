#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>
#include <vector>

// Decides where one station's songs begin and end; TrackSegmenter carries the decisions
// out on files.
//
// Audio and titles go in, a short list of actions on numbered segments comes out. A
// title change ends the song: unpadded, at once; padded, after `leadOutSec` more seconds
// of audio, with the next song starting `leadInSec` (to leadInSec + 1) seconds before
// the change. Pieces of one song split by reconnects stay pending and are handed over
// together. Every length is a byte count at the station's nominal byte rate; nothing is
// decoded.
//
// The planner does no I/O. The only audio it copies is what a padded cut needs again
// (the lead-in window and the lead-out overlap); the chunk itself is written by the
// caller from its own view (`WriteInput`). A plain value, used by one thread at a time.
class CutPlanner {
public:
    struct Padding {
        qint64 leadInSec = 0;
        qint64 leadOutSec = 0;
    };

    // Segments are numbered from 1 in the order they are opened.
    using SegmentId = int;

    struct Action {
        enum class Kind {
            Open, // open a new segment `segment`; writes go there from now on
            Close, // close the open segment `segment`, keeping its file for later
            WriteInput, // write the whole chunk just passed to onAudio()
            WriteCarry, // write `carry` (lead-in and overlap of a padded cut)
            HandOver, // `segments` (oldest first) are one song titled `title`
            Discard, // delete the files of `segments`
        };
        Kind kind;
        SegmentId segment = 0;
        std::vector<SegmentId> segments;
        QByteArray carry;
        QString title;

        friend bool operator==(const Action &, const Action &) = default;
    };
    using Actions = std::vector<Action>;

    CutPlanner(qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName, Padding padding);

    // A successful connect: the song goes on in a new segment.
    [[nodiscard]] Actions openSegment();
    [[nodiscard]] Actions onAudio(QByteArrayView chunk);
    // False for titles that change nothing (blank, or the current one after trimming);
    // the caller reads the padding only for titles that pass.
    [[nodiscard]] bool isNewTitle(const QString &rawTitle) const;
    // `padding` is read afresh for every new title and applies from this cut on.
    [[nodiscard]] Actions onTitle(const QString &rawTitle, Padding padding);
    // The connection dropped: the open segment becomes a pending piece of the song.
    [[nodiscard]] Actions onDisconnect() { return finish(false); }
    // Recording ends: the song in progress is handed over, cut short.
    [[nodiscard]] Actions onStop() { return finish(true); }

    [[nodiscard]] const QString &lastTitle() const { return m_lastTitle; }
    [[nodiscard]] bool isCutPending() const { return m_cutPrevTitle.has_value(); }
    [[nodiscard]] qint64 leadInBytes() const { return m_leadInBuf.size(); }

private:
    [[nodiscard]] bool isPadded() const { return m_padding.leadInSec >= 1 || m_padding.leadOutSec >= 1; }
    // Closes the open segment and opens the next one; returns the closed one's id (0 when
    // none was open).
    SegmentId rotate(Actions &out);
    void performDeferredCut(Actions &out);
    void handOverPending(Actions &out, SegmentId last, const QString &title);
    [[nodiscard]] Actions finish(bool isStop);

    const qint64 m_bytesPerSec;
    const std::optional<QString> m_fullShowTitle;
    const QString m_stationName;
    Padding m_padding;

    SegmentId m_lastId = 0;
    std::optional<SegmentId> m_openId;
    bool m_segHasAudio = false;
    QString m_lastTitle;
    std::vector<SegmentId> m_pending;

    // The most recent audio; holds between leadInSec and leadInSec + 1 seconds.
    QByteArray m_leadInBuf;
    std::optional<QString> m_cutPrevTitle;
    qint64 m_cutRemaining = 0;
    QByteArray m_leadInSnapshot;
    QByteArray m_overlapBuf;
};
