#include "playback/crossfadeplanner.h"

#include "library/librarystore.h"
#include "playback/audiodecoder.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace CrossfadePlanner {

namespace {

    constexpr double kMinSoundSec = 0.1; // a first island shorter than this is a click, not the start
    constexpr double kFineWindowSec = 0.005; // the edges of sound are placed this closely
    constexpr double kMidSec = 8.0;
    constexpr double kMidMinDuration = 45.0;
    constexpr float kLowestDb = -120.0f;

    float toDb(double meanSquare)
    {
        return meanSquare > 0 ? std::max(kLowestDb, float(10.0 * std::log10(meanSquare))) : kLowestDb;
    }

    qint64 blocks(double seconds)
    {
        return qint64(std::llround(seconds / kWindowSec));
    }

    // The time of the first (or, with `last`, the end of the last) 5 ms window above
    // `threshold` within the two blocks that start at `blockStart`; `fallback` when none is.
    double refine(AudioDecoder &decoder, double blockStart, float threshold, bool last, double fallback)
    {
        const auto fine = rmsLevels(decoder, blockStart, blockStart + 2 * kWindowSec, kFineWindowSec);
        if (!fine || fine->empty())
            return fallback;
        const auto n = qint64(fine->size());
        if (last) {
            for (qint64 i = n - 1; i >= 0; --i) {
                if ((*fine)[size_t(i)] > threshold)
                    return blockStart + double(i + 1) * kFineWindowSec;
            }
        } else {
            for (qint64 i = 0; i < n; ++i) {
                if ((*fine)[size_t(i)] > threshold)
                    return blockStart + double(i) * kFineWindowSec;
            }
        }
        return fallback;
    }

    QJsonObject tailJson(const Tail &t)
    {
        return QJsonObject { { "duration", t.duration }, { "reference", double(t.reference) },
            { "silenceThreshold", double(t.silenceThreshold) }, { "silentEnd", t.silentEnd },
            { "audibleEnd", t.audibleEnd }, { "fades", t.fades } };
    }

    QJsonObject headJson(const Head &h)
    {
        return QJsonObject { { "duration", h.duration }, { "reference", double(h.reference) },
            { "silenceThreshold", double(h.silenceThreshold) }, { "firstSound", h.firstSound } };
    }

    std::optional<double> number(const QJsonObject &o, const char *key)
    {
        const QJsonValue v = o.value(QLatin1String(key));
        if (!v.isDouble() || !std::isfinite(v.toDouble()))
            return std::nullopt;
        return v.toDouble();
    }

} // namespace

std::optional<std::vector<float>> rmsLevels(AudioDecoder &decoder, double from, double to, double window)
{
    const double rate = decoder.outputRate();
    if (rate <= 0 || window <= 0 || !std::isfinite(from) || !std::isfinite(to))
        return std::nullopt;
    qint64 first = std::max<qint64>(0, std::llround(from * rate));
    qint64 last = std::llround(to * rate);
    if (decoder.length() >= 0)
        last = std::min(last, decoder.length());
    const qint64 windowFrames = std::max<qint64>(1, std::llround(window * rate));
    std::vector<float> levels;
    if (last <= first)
        return levels;
    if (decoder.position() != first && !decoder.seek(first))
        return std::nullopt;
    levels.reserve(size_t((last - first) / windowFrames + 1));

    constexpr qint64 kChunk = 4096;
    std::vector<float> buffer(2 * kChunk);
    double sum = 0;
    qint64 inWindow = 0;
    qint64 at = first;
    while (at < last) {
        const qint64 got = decoder.read(buffer.data(), std::min(kChunk, last - at));
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break;
        for (qint64 i = 0; i < got; ++i) {
            const double l = buffer[size_t(2 * i)];
            const double r = buffer[size_t(2 * i + 1)];
            sum += 0.5 * (l * l + r * r);
            if (++inWindow == windowFrames) {
                levels.push_back(toDb(sum / double(windowFrames)));
                sum = 0;
                inWindow = 0;
            }
        }
        at += got;
    }
    if (inWindow * 2 >= windowFrames)
        levels.push_back(toDb(sum / double(inWindow)));
    return levels;
}

std::optional<std::vector<float>> rmsLevels(const QString &path, double from, double to, double window)
{
    auto decoder = AudioDecoder::open(path, 0);
    if (!decoder)
        return std::nullopt;
    return rmsLevels(*decoder, from, to, window);
}

float referenceLevel(const std::vector<float> &levels)
{
    std::vector<float> loud;
    loud.reserve(levels.size());
    for (const float l : levels) {
        if (l > kFloorDb)
            loud.push_back(l);
    }
    if (loud.empty())
        return kFloorDb;
    std::sort(loud.begin(), loud.end());
    return loud[size_t(std::floor(0.9 * double(loud.size())))];
}

std::optional<float> midReference(AudioDecoder &decoder, double duration)
{
    if (!(duration > kMidMinDuration))
        return std::nullopt;
    const double from = duration * 0.5 - kMidSec / 2;
    const auto levels = rmsLevels(decoder, from, from + kMidSec);
    if (!levels)
        return std::nullopt;
    return referenceLevel(*levels);
}

std::vector<Island> islands(const std::vector<float> &levels, float threshold, double minGap)
{
    const qint64 gapBlocks = std::max<qint64>(1, blocks(minGap));
    std::vector<Island> found;
    qint64 quiet = 0; // blocks at or under the threshold since the last loud one
    for (qint64 i = 0; i < qint64(levels.size()); ++i) {
        const float l = levels[size_t(i)];
        if (l <= threshold) {
            ++quiet;
            continue;
        }
        if (!found.empty() && quiet < gapBlocks && found.back().end == i - quiet - 1) {
            found.back().end = i;
            found.back().peak = std::max(found.back().peak, l);
        } else {
            found.push_back(Island { i, i, l });
        }
        quiet = 0;
    }
    return found;
}

std::vector<float> smoothed(const std::vector<float> &levels, int radius)
{
    const auto n = qint64(levels.size());
    // Means of power, not of dB: a silent block beside loud ones lowers the mean by a few
    // dB, not by a hundred.
    std::vector<double> prefix(size_t(n + 1), 0.0);
    for (qint64 i = 0; i < n; ++i)
        prefix[size_t(i + 1)] = prefix[size_t(i)] + std::pow(10.0, double(levels[size_t(i)]) / 10.0);
    std::vector<float> out(static_cast<size_t>(n));
    for (qint64 i = 0; i < n; ++i) {
        const qint64 a = std::max<qint64>(0, i - radius);
        const qint64 b = std::min(n, i + radius + 1);
        out[size_t(i)] = toDb((prefix[size_t(b)] - prefix[size_t(a)]) / double(b - a));
    }
    return out;
}

bool detectFadeOut(const std::vector<float> &levels, qint64 endBlock, float reference)
{
    endBlock = std::min(endBlock, qint64(levels.size()));
    const qint64 begin = std::max<qint64>(0, endBlock - blocks(kFadeWindowSec));
    const qint64 count = endBlock - begin;
    if (count < blocks(kFadeWindowSec / 2))
        return false;
    // Least-squares slope of level over time.
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (qint64 i = begin; i < endBlock; ++i) {
        const double x = double(i - begin) * kWindowSec;
        const double y = std::max(levels[size_t(i)], kFloorDb);
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
    }
    const double c = double(count);
    const double denominator = c * sxx - sx * sx;
    if (denominator <= 0)
        return false;
    const double slope = (c * sxy - sx * sy) / denominator;
    float startLevel = kLowestDb;
    for (qint64 i = begin; i < std::min(endBlock, begin + blocks(1.0)); ++i)
        startLevel = std::max(startLevel, levels[size_t(i)]);
    const float endLevel = levels[size_t(endBlock - 1)];
    return slope <= kFadeSlopeDbPerSec && startLevel - endLevel >= kFadeDropDb
        && startLevel >= reference - kFadeStartDb;
}

Tail tailFromLevels(const std::vector<float> &levels, double start, double duration, float reference)
{
    Tail t;
    t.duration = duration;
    t.reference = reference;
    t.silenceThreshold = std::max(reference - kSilenceMarginDb, kFloorDb);
    const auto blockEnd = [&](qint64 i) { return std::min(duration, start + double(i + 1) * kWindowSec); };
    const auto found = islands(levels, t.silenceThreshold, kDipSec);
    if (found.empty()) {
        t.silentEnd = t.audibleEnd = start;
        return t;
    }
    const Island &last = found.back();
    t.silentEnd = blockEnd(last.end);
    qint64 endBlock = last.end + 1;
    const auto n = qint64(levels.size());
    const bool runsIntoEnd = last.end >= n - 2;
    if (found.size() >= 2 && runsIntoEnd && last.end - last.start + 1 <= blocks(kLeadInMaxSec)) {
        const Island &before = found[found.size() - 2];
        // Only a song that was playing before the dip has a lead-in after it.
        if (before.end - before.start + 1 >= blocks(kLeadInMaxSec / 2))
            endBlock = before.end + 1;
    }
    t.audibleEnd = blockEnd(endBlock - 1);
    const auto level = smoothed(levels, 5);
    t.fades = detectFadeOut(level, endBlock, reference);
    if (t.fades) {
        for (qint64 i = endBlock - 1; i >= 0; --i) {
            if (level[size_t(i)] >= reference - kFadeOverDb) {
                t.audibleEnd = blockEnd(i);
                break;
            }
        }
    }
    return t;
}

Head headFromLevels(const std::vector<float> &levels, double duration, float reference)
{
    Head h;
    h.duration = duration;
    h.reference = reference;
    h.silenceThreshold = std::max(reference - kSilenceMarginDb, kFloorDb);
    h.firstSound = std::min(duration, double(levels.size()) * kWindowSec);
    for (const Island &island : islands(levels, h.silenceThreshold, kMinSoundSec)) {
        if (island.end - island.start + 1 >= blocks(kMinSoundSec)) {
            h.firstSound = double(island.start) * kWindowSec;
            break;
        }
    }
    return h;
}

std::optional<Analysis> analyzeFile(const QString &path)
{
    auto decoder = AudioDecoder::open(path, 0);
    if (!decoder)
        return std::nullopt;
    const double rate = decoder->outputRate();
    const qint64 length = decoder->length();
    if (length < 1 || rate <= 0)
        return std::nullopt;
    const double duration = double(length) / rate;
    const auto head = rmsLevels(*decoder, 0, std::min(duration, kHeadSec));
    const double tailStart = std::max(0.0, duration - kTailSec);
    const auto tail = rmsLevels(*decoder, tailStart, duration);
    if (!head || !tail || head->empty() || tail->empty())
        return std::nullopt;
    std::vector<float> edges = *head;
    edges.insert(edges.end(), tail->begin(), tail->end());
    float reference = referenceLevel(edges);
    // The middle is what the track is; the edges may be a long fade or a quiet intro.
    if (const auto mid = midReference(*decoder, duration))
        reference = std::max(reference, *mid);

    Analysis a { tailFromLevels(*tail, tailStart, duration, reference), headFromLevels(*head, duration, reference) };
    if (a.head.firstSound > 0 && a.head.firstSound < std::min(duration, kHeadSec)) {
        const double block = std::max(0.0, a.head.firstSound - kWindowSec);
        a.head.firstSound = refine(*decoder, block, a.head.silenceThreshold, false, a.head.firstSound);
    }
    if (!a.tail.fades && a.tail.audibleEnd > tailStart && a.tail.audibleEnd < duration) {
        const double block = std::max(0.0, a.tail.audibleEnd - kWindowSec);
        a.tail.audibleEnd = refine(*decoder, block, a.tail.silenceThreshold, true, a.tail.audibleEnd);
        a.tail.silentEnd = std::max(a.tail.silentEnd, a.tail.audibleEnd);
    }
    return a;
}

std::optional<QString> cacheKey(const QString &path)
{
    const auto stamp = LibraryStore::FileStamp::of(path);
    if (!stamp)
        return std::nullopt;
    return QStringLiteral("%1|%2|%3").arg(path).arg(stamp->size).arg(stamp->modifiedMs);
}

std::optional<Analysis> analysis(const QString &path)
{
    const auto key = cacheKey(path);
    if (key) {
        if (auto hit = AnalysisCache::shared().get(*key))
            return hit;
    }
    const auto result = analyzeFile(path);
    if (result && key)
        AnalysisCache::shared().put(*key, *result);
    return result;
}

std::optional<Tail> analyzeTail(const QString &path)
{
    const auto a = analysis(path);
    return a ? std::optional<Tail>(a->tail) : std::nullopt;
}

std::optional<Head> analyzeHead(const QString &path)
{
    const auto a = analysis(path);
    return a ? std::optional<Head>(a->head) : std::nullopt;
}

QByteArray toJson(const Analysis &a)
{
    return QJsonDocument(QJsonObject { { "tail", tailJson(a.tail) }, { "head", headJson(a.head) } })
        .toJson(QJsonDocument::Compact);
}

std::optional<Analysis> fromJson(const QByteArray &json)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonObject t = doc.object().value(QLatin1String("tail")).toObject();
    const QJsonObject h = doc.object().value(QLatin1String("head")).toObject();
    const auto td = number(t, "duration"), tr = number(t, "reference"), ts = number(t, "silenceThreshold"),
               te = number(t, "silentEnd"), ta = number(t, "audibleEnd");
    const auto hd = number(h, "duration"), hr = number(h, "reference"), hs = number(h, "silenceThreshold"),
               hf = number(h, "firstSound");
    if (!td || !tr || !ts || !te || !ta || !t.value(QLatin1String("fades")).isBool() || !hd || !hr || !hs || !hf)
        return std::nullopt;
    return Analysis { Tail { *td, float(*tr), float(*ts), *te, *ta, t.value(QLatin1String("fades")).toBool() },
        Head { *hd, float(*hr), float(*hs), *hf } };
}

std::optional<Result> decide(const Tail &tail, const Head &head, double seconds)
{
    if (tail.duration < 6 || head.duration < 6)
        return std::nullopt;
    Result r;
    r.incomingStart = std::max(0.0, std::min(head.duration - 6, head.firstSound - 0.03));
    r.duration = std::min({ seconds, 30.0, tail.audibleEnd / 3, (head.duration - r.incomingStart) / 3 });
    if (!(r.duration >= 0.5))
        return std::nullopt;
    r.outgoingStart = std::max(0.0, tail.audibleEnd - r.duration);
    r.outgoingEnd = tail.audibleEnd;
    r.outgoingFades = tail.fades;
    const bool finite = std::isfinite(r.outgoingStart) && std::isfinite(r.outgoingEnd) && std::isfinite(r.incomingStart)
        && std::isfinite(r.duration);
    if (!finite || !(r.incomingStart < head.duration) || !(tail.audibleEnd <= tail.duration))
        return std::nullopt;
    return r;
}

std::optional<Result> compute(const QString &from, const QString &to, double seconds)
{
    const auto tail = analyzeTail(from);
    if (!tail)
        return std::nullopt;
    const auto head = analyzeHead(to);
    if (!head)
        return std::nullopt;
    return decide(*tail, *head, seconds);
}

TransitionPlan planFor(const Result &r)
{
    TransitionPlan p;
    p.outgoingStart = r.outgoingStart;
    p.outgoingEnd = r.outgoingEnd;
    p.incomingStart = r.incomingStart;
    p.fadeDuration = r.duration;
    // Two unrelated recordings add in power: equal power keeps the sum level where a linear
    // fade would dip 3 dB in the middle. A recording that fades by itself needs no second fade.
    p.fadeOut = r.outgoingFades ? FadeCurve::hold : FadeCurve::equalPower;
    p.fadeIn = FadeCurve::equalPower;
    p.incomingRate = 1;
    p.rateReturnDuration = 0;
    p.bassSwapAt = std::nullopt;
    return p;
}

std::optional<TransitionPlan> planNow(
    const QString &from, const QString &to, double seconds, const Known &known, const Computed &computed)
{
    const auto obtain = [&](const QString &path, const std::optional<Analysis> &stored) -> std::optional<Analysis> {
        if (stored) {
            if (const auto key = cacheKey(path))
                AnalysisCache::shared().put(*key, *stored);
            return stored;
        }
        // Taken before the analysis, so that a file rewritten meanwhile is not stored
        // under its new stamp with the old sound's analysis.
        const auto stamp = LibraryStore::FileStamp::of(path);
        auto result = analysis(path);
        if (result && stamp && computed)
            computed(path, *stamp, *result);
        return result;
    };
    const auto a = obtain(from, known.from);
    if (!a)
        return std::nullopt;
    const auto b = obtain(to, known.to);
    if (!b)
        return std::nullopt;
    const auto result = decide(a->tail, b->head, seconds);
    if (!result)
        return std::nullopt;
    return planFor(*result);
}

QFuture<std::optional<TransitionPlan>> plan(
    const QString &from, const QString &to, double seconds, Known known, Computed computed)
{
    return QtConcurrent::run(
        QThreadPool::globalInstance(), [from, to, seconds, known = std::move(known), computed = std::move(computed)] {
            return planNow(from, to, seconds, known, computed);
        });
}

std::optional<QByteArray> analyseForLibrary(const QString &path)
{
    const auto a = analysis(path);
    return a ? std::optional<QByteArray>(toJson(*a)) : std::nullopt;
}

TrackPlanner playerPlanner(LibraryStore *library, std::function<double()> seconds)
{
    // A plan may still run on the pool when the library closes at shutdown: it posts to
    // the library only while it exists, and what it posted before is dropped with it.
    struct LibraryHandle {
        std::mutex mutex;
        LibraryStore *library = nullptr;
    };
    auto handle = std::make_shared<LibraryHandle>();
    handle->library = library;
    if (library) {
        QObject::connect(library, &QObject::destroyed, [handle] {
            std::lock_guard lock(handle->mutex);
            handle->library = nullptr;
        });
    }
    return [library, handle, seconds = std::move(seconds)](const Track &from, const Track &to) {
        const QString fromPath = from.filePath.value_or(QString());
        const QString toPath = to.filePath.value_or(QString());
        Known known;
        Computed computed;
        if (library) {
            const auto stored = [library](const QString &path) -> std::optional<Analysis> {
                const auto stamp = LibraryStore::FileStamp::of(path);
                if (!stamp)
                    return std::nullopt;
                const auto json = library->analysis(path, QString::fromLatin1(kAnalysisKind), *stamp);
                return json ? fromJson(*json) : std::nullopt;
            };
            known = Known { stored(fromPath), stored(toPath) };
            computed = [handle](const QString &path, const LibraryStore::FileStamp &stamp, const Analysis &a) {
                std::lock_guard lock(handle->mutex);
                if (!handle->library)
                    return;
                handle->library->post([path, stamp, json = toJson(a)](LibraryStore &store) {
                    (void)store.setAnalysis(path, QString::fromLatin1(kAnalysisKind), stamp, json);
                });
            };
        }
        return plan(fromPath, toPath, seconds(), std::move(known), std::move(computed));
    };
}

AnalysisCache &AnalysisCache::shared()
{
    static AnalysisCache cache;
    return cache;
}

std::optional<Analysis> AnalysisCache::get(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_entries.constFind(key);
    if (it == m_entries.cend())
        return std::nullopt;
    return *it;
}

void AnalysisCache::put(const QString &key, const Analysis &analysis)
{
    std::lock_guard lock(m_mutex);
    if (m_entries.size() >= kCapacity && !m_entries.contains(key))
        m_entries.clear();
    m_entries.insert(key, analysis);
}

int AnalysisCache::size() const
{
    std::lock_guard lock(m_mutex);
    return int(m_entries.size());
}

void AnalysisCache::clear()
{
    std::lock_guard lock(m_mutex);
    m_entries.clear();
}

} // namespace CrossfadePlanner
