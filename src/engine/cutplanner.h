#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QMetaType>
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
//
// Listening (a `Listening` given): the same cuts, but a song is only handed over when a
// save was armed for it; every other song is discarded at its end. Songs are numbered
// by the titles that began them, so an arm names one song even when a title recurs. The
// song on disk is bounded: when it would grow past `maxSongBytes` its pieces are
// discarded and it can no longer be saved from its start (an armed song is exempt: it is
// a recording now, and a recording has no bound).
class CutPlanner {
public:
    struct Padding {
        qint64 leadInSec = 0;
        qint64 leadOutSec = 0;
    };

    struct Listening {
        qint64 maxSongBytes = 0;
    };

    // Listening: whether the song playing could be saved from its start.
    enum class Keep {
        NoTitle,    // the station has named nothing yet
        JoinedLate, // it began before we connected (or while we were reconnecting)
        Whole,      // kept since its title change
        TooLong,    // it outgrew maxSongBytes and its start was dropped
    };

    enum class ArmResult {
        Armed,      // the song will be handed over at its end
        JoinedLate, // the song named cannot be saved from its start (see Keep)
        TooLong,
        Ended, // the song named is over and was discarded
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
            Abandon, // listening: the armed song `title` will not end (stop, no audio)
        };
        Kind kind;
        SegmentId segment = 0;
        std::vector<SegmentId> segments;
        QByteArray carry;
        QString title;

        friend bool operator==(const Action &, const Action &) = default;
    };
    using Actions = std::vector<Action>;

    CutPlanner(qint64 bytesPerSec, std::optional<QString> fullShowTitle, QString stationName, Padding padding,
               std::optional<Listening> listening = std::nullopt);

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

    // Listening. `title` is the song the user heard: the current one, or the one just
    // ended whose lead-out is still running. Arming an armed song again is Armed.
    [[nodiscard]] ArmResult arm(const QString &title);
    [[nodiscard]] Keep keep() const;
    [[nodiscard]] bool isListening() const { return m_listening.has_value(); }
    // Bytes in the segments of the song the open segment belongs to.
    [[nodiscard]] qint64 keptBytes() const { return m_keptBytes; }

private:
    [[nodiscard]] bool isPadded() const { return m_padding.leadInSec >= 1 || m_padding.leadOutSec >= 1; }
    // Closes the open segment and opens the next one; returns the closed one's id (0 when
    // none was open).
    SegmentId rotate(Actions &out);
    void performDeferredCut(Actions &out);
    void handOverPending(Actions &out, SegmentId last, const QString &title, qint64 song);
    [[nodiscard]] Actions finish(bool isStop);
    // Listening: drops the kept song's pieces when `incoming` more bytes would pass the bound.
    void boundKeptSong(Actions &out, qint64 incoming);
    [[nodiscard]] qint64 keptSong() const { return m_cutPrevTitle ? m_cutPrevSong : m_song; }
    [[nodiscard]] bool isArmed(qint64 song) const;
    static ArmResult armResultFor(Keep keep);

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

    const std::optional<Listening> m_listening;
    qint64 m_song = 0; // number of the song playing: titles accepted so far
    qint64 m_cutPrevSong = 0;
    Keep m_keep = Keep::NoTitle; // of m_song
    Keep m_cutPrevKeep = Keep::NoTitle;
    // At most two: the song in its lead-out and the one playing.
    std::vector<qint64> m_armed;
    qint64 m_keptBytes = 0;
};

Q_DECLARE_METATYPE(CutPlanner::Keep)
Q_DECLARE_METATYPE(CutPlanner::ArmResult)
