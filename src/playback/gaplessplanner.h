#pragma once

#include "library/transitionplan.h"
#include "playback/mp4metadata.h"
#include "playback/mpegheaders.h"

#include <QFuture>
#include <QHash>
#include <QString>

#include <mutex>
#include <optional>
#include <span>

// Which frames of a decoded file are music and which are encoder priming or padding, so
// that two tracks join without a gap or a click; and the gapless TransitionPlan built from
// that. Frames are the decoder's (AudioDecoder at the file's own rate).
//
// Stateless apart from one process-wide cache; every function may run on any thread. The
// analysis opens the file, reads headers and two windows of 3,200 frames, and never decodes
// the whole file.
namespace GaplessPlanner {

enum class Source {
    coreAudio, // the decoder already delivers music only: the whole stream is used
    packetTable, // the container's edit list and sample table
    lameTag, // the encoder tag in the first MP3 frame
    iTunSMPB, // an "iTunSMPB" text
    silence, // digital silence found at the edges
    none, // nothing known: the whole stream is used
};
[[nodiscard]] QString rawValue(Source source);

struct Bounds {
    qint64 startFrame = 0; // first frame of music in the decoded stream
    qint64 endFrame = 0; // one past the last
    qint64 length = 0; // frames the decoder delivers
    double sampleRate = 0; // Hz
    Source source = Source::none;

    friend bool operator==(const Bounds &, const Bounds &) = default;
};

// One step's verdict on the edges of a decode of `length` frames.
struct Cut {
    qint64 start = 0;
    qint64 end = 0;
    Source source = Source::none;
    // False when the step trusts the start but not the end (AAC without a remainder).
    bool cutKnown = true;
};

// The packet table measured against the decode: which of "the decoder trims both ends",
// "the decoder drops the priming (as FFmpeg does for an MP4 edit list) but keeps the
// padding" or "the decoder trims nothing" the numbers describe. `decodedCodec` is
// FFmpeg's codec name; `frameSize` the codec's frame (the rounding of the last packet).
[[nodiscard]] std::optional<Cut> fromPacketTable(
    const PacketTable &table, qint64 length, double rate, const QString &decodedCodec, int frameSize);

// Delay, padding and valid count measured against the decode: start offsets `delay`,
// `delay` - 529 and `delay` + `frameSize` are tried in that order.
[[nodiscard]] std::optional<Cut> apply(const Smpb &smpb, qint64 length, int frameSize, Source source);

// What the MP3 start (Xing/LAME tag, ID3 "iTunSMPB") says, measured against the decode.
[[nodiscard]] std::optional<Cut> fromMp3Start(const Mp3Start &start, qint64 length);

// Reads the file's own headers: an MP4's "iTunSMPB" or an MP3's tags.
[[nodiscard]] std::optional<Cut> fromHeaders(const QString &path, qint64 length);

// The silence scan over per-frame peaks (largest absolute sample of the frame) of the
// first and the last kEdgeWindowFrames frames. Only for AAC and MP3 (`aac` picks the codec
// frame size); `full` also looks for the start, otherwise only the end.
inline constexpr qint64 kEdgeWindowFrames = 3200;
[[nodiscard]] std::optional<Cut> trimEdges(
    std::span<const float> headPeaks, std::span<const float> tailPeaks, qint64 length, bool aac, bool full);

// Opens `path` and works its bounds out; absent when the file cannot be decoded, its length
// is unknown or it is implausibly small for its length (still being written).
[[nodiscard]] std::optional<Bounds> analyze(const QString &path);

// analyze() through the shared cache, keyed by path, size and modification time.
[[nodiscard]] std::optional<Bounds> bounds(const QString &path);

// "path|size|mtime": absent when the file's size or time cannot be read (then nothing is cached).
[[nodiscard]] std::optional<QString> cacheKey(const QString &path);

// The gapless plan from the outgoing track's bounds to the incoming one's.
[[nodiscard]] TransitionPlan planFor(const Bounds &outgoing, const Bounds &incoming);
// bounds() of both files and planFor(); absent when either has no bounds. Blocks on file
// reads: call it on a worker thread (or in orvida-cli).
[[nodiscard]] std::optional<TransitionPlan> planNow(const QString &outgoingPath, const QString &incomingPath);
// planNow() on the global thread pool.
[[nodiscard]] QFuture<std::optional<TransitionPlan>> plan(const QString &outgoingPath, const QString &incomingPath);

// The bounds of up to kCapacity files. When full, the next store empties it completely
// first: no eviction order to maintain, and 512 files are more than a queue ever needs.
// Thread-safe: every access takes m_mutex; analysis runs outside it, so two threads may
// analyse one file at once and the later store wins.
class BoundsCache {
public:
    static constexpr int kCapacity = 512;
    static BoundsCache &shared();

    [[nodiscard]] std::optional<Bounds> get(const QString &key) const;
    void put(const QString &key, const Bounds &bounds);
    [[nodiscard]] int size() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    QHash<QString, Bounds> m_entries;
};

} // namespace GaplessPlanner
