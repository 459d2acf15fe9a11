#pragma once

#include "library/librarystore.h"
#include "library/track.h"
#include "library/transitionplan.h"

#include <QByteArray>
#include <QFuture>
#include <QHash>
#include <QString>

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

class AudioDecoder;

// Where a crossfade from the ending track into the next one begins and how long it lasts,
// from the levels of the outgoing track's end and the incoming track's start.
//
// Levels are 50 ms power levels in dB of the decoder's output (AudioDecoder at the file's
// own rate). Every threshold is relative to the track's own reference level (the 90th
// percentile of its middle, or of the analysed windows for short tracks), never below an
// absolute floor: a quiet recording is judged against itself, not against a loud one.
// The analysis decodes the last kTailSec and the first kHeadSec of a file (and 8 s of its
// middle for the reference), never the whole file.
//
// Stateless apart from one process-wide cache; every function may run on any thread.
namespace CrossfadePlanner {

inline constexpr double kWindowSec = 0.05;
inline constexpr double kTailSec = 16.0;
inline constexpr double kHeadSec = 10.0;
inline constexpr float kFloorDb = -70.0f; // nothing below it counts as sound
// Sound this far under the reference is silence: a quiet intro 35 dB under is still music.
inline constexpr float kSilenceMarginDb = 45.0f;
// A fade-out is over, for a listener hearing the next track at full level, this far under.
inline constexpr float kFadeOverDb = 30.0f;

struct Tail {
    double duration = 0; // seconds
    float reference = kFloorDb; // dB
    float silenceThreshold = kFloorDb; // dB
    double silentEnd = 0; // from here to the end there is no sound at all (seconds)
    double audibleEnd = 0; // where the track itself ends: before a trailing lead-in, after a fade
    bool fades = false; // the recording fades out by itself

    friend bool operator==(const Tail &, const Tail &) = default;
};

struct Head {
    double duration = 0;
    float reference = kFloorDb;
    float silenceThreshold = kFloorDb;
    double firstSound = 0; // seconds

    friend bool operator==(const Head &, const Head &) = default;
};

// A file's analysis as one record: what is cached and stored in the library ("crossfade").
struct Analysis {
    Tail tail;
    Head head;

    friend bool operator==(const Analysis &, const Analysis &) = default;
};

// A run of blocks above a threshold: first and last block index, loudest level.
struct Island {
    qint64 start = 0;
    qint64 end = 0;
    float peak = kFloorDb;

    friend bool operator==(const Island &, const Island &) = default;
};

struct Result {
    double outgoingStart = 0;
    double outgoingEnd = 0;
    double incomingStart = 0;
    double duration = 0;
    bool outgoingFades = false;

    friend bool operator==(const Result &, const Result &) = default;
};

// Levels (dB) of `decoder`'s output between the times, in windows of `window` seconds; a
// last partial window counts when it holds at least half a window. Seeks to `from`; absent
// when the decoder cannot seek or read there.
[[nodiscard]] std::optional<std::vector<float>> rmsLevels(
    AudioDecoder &decoder, double from, double to, double window = kWindowSec);
[[nodiscard]] std::optional<std::vector<float>> rmsLevels(
    const QString &path, double from, double to, double window = kWindowSec);
// The 90th percentile of the levels above kFloorDb; kFloorDb when there are none.
[[nodiscard]] float referenceLevel(const std::vector<float> &levels);
// The reference of the 8 s around the middle, for tracks longer than 45 s.
[[nodiscard]] std::optional<float> midReference(AudioDecoder &decoder, double duration);
// Runs of blocks above `threshold`. Runs separated by fewer than minGap / kWindowSec
// blocks below it are one island (a drum break is not an ending).
[[nodiscard]] std::vector<Island> islands(const std::vector<float> &levels, float threshold, double minGap);
// Each level the power mean of its neighbours within `radius` blocks, in dB.
[[nodiscard]] std::vector<float> smoothed(const std::vector<float> &levels, int radius);
// Whether the smoothed levels up to block `endBlock` (exclusive) fall like a fade-out: a
// least-squares slope over the last kFadeWindowSec steeper than kFadeSlopeDbPerSec and a
// drop of at least kFadeDropDb from a level within kFadeStartDb of the reference (a long
// fade is well under way when the window begins; a quiet ending is not a fade).
inline constexpr double kFadeWindowSec = 8.0;
inline constexpr double kFadeSlopeDbPerSec = -1.2;
inline constexpr float kFadeDropDb = 12.0f;
inline constexpr float kFadeStartDb = 20.0f;
[[nodiscard]] bool detectFadeOut(const std::vector<float> &smoothedLevels, qint64 endBlock, float reference);

// The analyses of levels already measured: `levels` are the blocks from `start` seconds to
// the end of a file of `duration` seconds, or the blocks of its first seconds.
//
// The tail's audible end is the end of its last sound, with two exceptions. A recording
// cut off by the next song (at most kLeadInMaxSec of sound running into the file's end,
// after a dip of at least kDipSec) ends before that lead-in. A fade-out ends where it has
// fallen kFadeOverDb under the reference: the rest is inaudible under the next track.
inline constexpr double kDipSec = 0.3;
inline constexpr double kLeadInMaxSec = 6.0;
[[nodiscard]] Tail tailFromLevels(const std::vector<float> &levels, double start, double duration, float reference);
[[nodiscard]] Head headFromLevels(const std::vector<float> &levels, double duration, float reference);

// Decodes the file's tail, head and middle. Absent when it cannot be decoded, its length is
// unknown, or it is too short to hold sound.
[[nodiscard]] std::optional<Analysis> analyzeFile(const QString &path);
// analyzeFile() through the shared cache.
[[nodiscard]] std::optional<Analysis> analysis(const QString &path);
[[nodiscard]] std::optional<Tail> analyzeTail(const QString &path);
[[nodiscard]] std::optional<Head> analyzeHead(const QString &path);

// The library's "crossfade" record.
[[nodiscard]] QByteArray toJson(const Analysis &analysis);
[[nodiscard]] std::optional<Analysis> fromJson(const QByteArray &json);

// The decision from two analyses and the requested length; absent when no crossfade fits.
[[nodiscard]] std::optional<Result> decide(const Tail &tail, const Head &head, double seconds);
[[nodiscard]] std::optional<Result> compute(const QString &from, const QString &to, double seconds);
// Equal power for the incoming side; the outgoing side holds when its recording fades by
// itself, else equal power too. Rate 1, no return, no bass swap.
[[nodiscard]] TransitionPlan planFor(const Result &result);

// What the caller already knows of the two files (the library's stored analyses), and
// where newly computed ones go (called on the worker thread with the file's stamp as it
// was before the analysis began).
struct Known {
    std::optional<Analysis> from;
    std::optional<Analysis> to;
};
using Computed
    = std::function<void(const QString &path, const LibraryStore::FileStamp &stamp, const Analysis &analysis)>;
// Blocks on file reads: a worker thread or orvida-cli.
[[nodiscard]] std::optional<TransitionPlan> planNow(
    const QString &from, const QString &to, double seconds, const Known &known = {}, const Computed &computed = {});
// planNow() on the global thread pool.
[[nodiscard]] QFuture<std::optional<TransitionPlan>> plan(
    const QString &from, const QString &to, double seconds, Known known = {}, Computed computed = {});

// The library's kind for toJson() records.
inline constexpr char kAnalysisKind[] = "crossfade";
// What the library's background analysis runs for a file: analysis() as toJson().
[[nodiscard]] std::optional<QByteArray> analyseForLibrary(const QString &path);

// The player's crossfade planner (Player::Planner). Called on the library's owner thread:
// it looks up both files' stored analyses there, plans on the pool, and hands analyses it
// had to compute back to the library with LibraryStore::post. `library` may be null (then
// nothing is stored); the planner is not called once it is gone, while a plan still
// running then stores nothing. `seconds` is read when a plan is asked for.
using TrackPlanner = std::function<QFuture<std::optional<TransitionPlan>>(const Track &from, const Track &to)>;
[[nodiscard]] TrackPlanner playerPlanner(LibraryStore *library, std::function<double()> seconds);

// "path|size|mtime"; absent when the file cannot be read.
[[nodiscard]] std::optional<QString> cacheKey(const QString &path);

// The analyses of up to kCapacity files; the next store empties it when full. Thread-safe:
// every access takes m_mutex, analysis runs outside it (two tasks may analyse one file at
// once; the later store wins).
class AnalysisCache {
public:
    static constexpr int kCapacity = 512;
    static AnalysisCache &shared();

    [[nodiscard]] std::optional<Analysis> get(const QString &key) const;
    void put(const QString &key, const Analysis &analysis);
    [[nodiscard]] int size() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    QHash<QString, Analysis> m_entries;
};

} // namespace CrossfadePlanner
