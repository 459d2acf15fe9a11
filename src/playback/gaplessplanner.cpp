#include "playback/gaplessplanner.h"

#include "playback/audiodecoder.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace GaplessPlanner {

namespace {

    constexpr float kSilencePeak = 0.0001f;
    constexpr qint64 kMaxPriming = 2112; // the largest AAC priming in use
    constexpr qint64 kAacPrimingLimit = 1920 + 192;
    constexpr qint64 kMinScanLength = 12800;
    constexpr double kMinMusicSec = 0.05;

    bool isAacFormat(const QByteArray &format)
    {
        return format == "mp4a" || format == "aac " || format == "aach" || format == "aacp";
    }

    // The per-frame peaks of `frames` frames from `from`; absent when the read fails.
    std::optional<std::vector<float>> peaks(AudioDecoder &decoder, qint64 from, qint64 frames)
    {
        if (decoder.position() != from && !decoder.seek(from))
            return std::nullopt;
        std::vector<float> stereo(size_t(2 * frames));
        qint64 got = 0;
        while (got < frames) {
            const qint64 n = decoder.read(stereo.data() + 2 * got, frames - got);
            if (n <= 0)
                break;
            got += n;
        }
        if (got != frames)
            return std::nullopt;
        std::vector<float> result(static_cast<size_t>(frames));
        for (size_t i = 0; i < result.size(); ++i)
            result[i] = std::max(std::abs(stereo[2 * i]), std::abs(stereo[2 * i + 1]));
        return result;
    }

    std::optional<Cut> scan(AudioDecoder &decoder, qint64 length, bool aac, bool full)
    {
        if (length <= kMinScanLength)
            return std::nullopt;
        const auto head
            = full ? peaks(decoder, 0, kEdgeWindowFrames) : std::vector<float>(size_t(kEdgeWindowFrames), 1.0f);
        const auto tail = peaks(decoder, length - kEdgeWindowFrames, kEdgeWindowFrames);
        if (!head || !tail)
            return std::nullopt;
        return trimEdges(*head, *tail, length, aac, full);
    }

} // namespace

QString rawValue(Source source)
{
    switch (source) {
    case Source::coreAudio:
        return QStringLiteral("coreAudio");
    case Source::packetTable:
        return QStringLiteral("packetTable");
    case Source::lameTag:
        return QStringLiteral("lameTag");
    case Source::iTunSMPB:
        return QStringLiteral("iTunSMPB");
    case Source::silence:
        return QStringLiteral("silence");
    case Source::none:
        break;
    }
    return QStringLiteral("none");
}

std::optional<Cut> fromPacketTable(
    const PacketTable &table, qint64 length, double rate, const QString &decodedCodec, int frameSize)
{
    if (table.valid < 1 || table.priming < 0 || table.remainder < 0 || table.priming + table.remainder < 1)
        return std::nullopt;
    const double scale = table.storedRate > 0 ? rate / table.storedRate : 1.0;
    const qint64 priming = std::llround(double(table.priming) * scale);
    const qint64 valid = std::llround(double(table.valid) * scale);
    const qint64 remainder = std::llround(double(table.remainder) * scale);
    const qint64 tolerance = std::max<qint64>(std::llround(scale), 1);
    const bool aac = decodedCodec == QLatin1String("aac") || isAacFormat(table.format);
    Cut cut;
    cut.cutKnown = remainder >= 1 || !aac;
    if (std::abs(length - valid) <= tolerance) {
        cut.end = length;
        cut.source = Source::coreAudio;
        return cut;
    }
    if (std::abs(length - (priming + valid + remainder)) <= tolerance) {
        cut.start = priming;
        cut.end = std::min(priming + valid, length);
        cut.source = Source::packetTable;
        return cut;
    }
    // The edit list's priming is dropped by the demuxer, while the last packet decodes to a
    // whole codec frame: what follows the valid frames is the remainder plus that rounding.
    const qint64 tail = length - valid - remainder;
    if (tail >= -tolerance && tail <= std::max(frameSize, 1) + tolerance) {
        cut.end = std::min(valid, length);
        cut.source = Source::packetTable;
        return cut;
    }
    return std::nullopt;
}

std::optional<Cut> apply(const Smpb &smpb, qint64 length, int frameSize, Source source)
{
    if (smpb.valid < 1 || length + 2 < smpb.valid)
        return std::nullopt;
    if (std::abs(length - smpb.valid) < 3)
        return Cut { 0, length, Source::coreAudio, true };
    for (const qint64 c : { smpb.delay, smpb.delay - kMp3DecoderDelay, smpb.delay + frameSize }) {
        if (c < 0)
            continue;
        const qint64 rest = length - c - smpb.valid;
        if (rest >= 0 && rest <= smpb.padding + frameSize + 2)
            return Cut { c, c + smpb.valid, source, true };
    }
    if (smpb.padding + 2 >= length - smpb.valid)
        return Cut { 0, smpb.valid, source, true };
    return std::nullopt;
}

std::optional<Cut> fromMp3Start(const Mp3Start &start, qint64 length)
{
    const int spf = start.header.samplesPerFrame;
    if (start.id3Smpb)
        return apply(*start.id3Smpb, length, spf, Source::iTunSMPB);
    if (!start.xing || !start.xing->frames || !start.xing->hasEncoderTag)
        return std::nullopt;
    const qint64 delay = start.xing->delay;
    const qint64 padding = start.xing->padding;
    if (delay + padding < 1)
        return std::nullopt;
    // The frame count leaves the tag frame out, as FFmpeg and LAME count it.
    const qint64 valid = *start.xing->frames * spf - delay - padding;
    return apply(Smpb { delay, padding, valid }, length, spf, Source::lameTag);
}

std::optional<Cut> fromHeaders(const QString &path, qint64 length)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray head = file.read(16);
    if (head.size() < 12)
        return std::nullopt;
    if (head.mid(4, 4) == "ftyp") {
        const auto smpb = mp4SMPB(file);
        return smpb ? apply(*smpb, length, 1024, Source::iTunSMPB) : std::nullopt;
    }
    const auto start = mp3Info(file);
    return start ? fromMp3Start(*start, length) : std::nullopt;
}

std::optional<Cut> trimEdges(
    std::span<const float> head, std::span<const float> tail, qint64 length, bool aac, bool full)
{
    if (length <= kMinScanLength || head.empty() || tail.empty())
        return std::nullopt;
    qint64 start = 0;
    if (full) {
        const qint64 frameSize = aac ? 1024 : 576;
        const auto loud = std::find_if(head.begin(), head.end(), [](float p) { return p > kSilencePeak; });
        const qint64 found = loud - head.begin();
        start = loud == head.end() ? kMaxPriming : std::min(found, kMaxPriming);
        // Silence longer than any AAC priming is the music's own: the whole window counts
        // as music.
        if (aac && loud != head.end() && found > kAacPrimingLimit)
            start = 0;
        // A weak burst in the first codec frame before a much louder second one is the
        // decoder's pre-roll, not music. (Two silent frames are no burst.)
        const auto maxOf = [&](qint64 from, qint64 to) {
            from = std::clamp<qint64>(from, 0, qint64(head.size()));
            to = std::clamp<qint64>(to, from, qint64(head.size()));
            return from == to ? 0.0f : *std::max_element(head.begin() + from, head.begin() + to);
        };
        const float first = maxOf(0, frameSize - 64);
        const float second = maxOf(frameSize, frameSize + 1024);
        if (second > kSilencePeak && first < 0.2f && first <= 0.25f * second)
            start = std::max(start, frameSize);
    }
    qint64 end = length;
    for (qint64 i = qint64(tail.size()) - 1; i >= 0; --i) {
        if (tail[size_t(i)] > kSilencePeak) {
            end = length - qint64(tail.size()) + i + 1;
            break;
        }
    }
    if (start > 0)
        return Cut { start, end, Source::silence, true };
    if (end < length)
        return Cut { 0, end, Source::silence, true };
    return std::nullopt;
}

std::optional<Bounds> analyze(const QString &path)
{
    auto decoder = AudioDecoder::open(path, 0);
    if (!decoder)
        return std::nullopt;
    const qint64 length = decoder->info().fileLength;
    const double rate = decoder->info().fileRate;
    if (length < 1 || rate <= 0)
        return std::nullopt;
    const qint64 size = QFileInfo(path).size();
    if (size > 0 && double(size) / 1000.0 + 1 < double(length) / rate)
        return std::nullopt;

    const QString codec = decoder->info().codec;
    const bool aac = codec == QLatin1String("aac");
    const bool scannable = aac || codec == QLatin1String("mp3");
    std::optional<Cut> chosen;
    std::optional<PacketTable> table;
    if (decoder->info().container.startsWith(QLatin1String("mov,"))) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            table = mp4PacketTable(file);
    }
    const auto fromTable = table ? fromPacketTable(*table, length, rate, codec, aac ? 1024 : 0) : std::nullopt;
    if (fromTable && fromTable->cutKnown) {
        chosen = fromTable;
    } else if (fromTable) {
        // The start is known but the end is not trusted: an encoder tag may know better.
        // Where the stream's end still rests on the decoder's word (it trims, or only the
        // table's untrusted count says where the music stops), the end is also not later
        // than the last sound.
        const auto fromTag = fromHeaders(path, length);
        chosen = fromTag ? fromTag : fromTable;
        if (scannable && (!fromTag || chosen->source == Source::coreAudio)) {
            if (const auto end = scan(*decoder, length, aac, false))
                chosen->end = std::min(chosen->end, end->end);
        }
    } else {
        chosen = fromHeaders(path, length);
    }
    if (!chosen && scannable) {
        if (const auto cut = scan(*decoder, length, aac, true))
            chosen = Cut { cut->start, cut->end, Source::silence, true };
    }
    Bounds b { 0, length, length, rate, Source::none };
    if (chosen) {
        const qint64 minFrames = qint64(std::floor(rate * kMinMusicSec));
        if (chosen->start >= 0 && chosen->end <= length && chosen->end - chosen->start >= minFrames)
            b = Bounds { chosen->start, chosen->end, length, rate, chosen->source };
    }
    return b;
}

std::optional<QString> cacheKey(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    const QDateTime modified = info.lastModified();
    const double mtime = modified.isValid() ? double(modified.toMSecsSinceEpoch()) / 1000.0 : 0.0;
    return QStringLiteral("%1|%2|%3").arg(path).arg(info.size()).arg(QString::number(mtime, 'f', 3));
}

std::optional<Bounds> bounds(const QString &path)
{
    const auto key = cacheKey(path);
    if (key) {
        if (auto hit = BoundsCache::shared().get(*key))
            return hit;
    }
    const auto result = analyze(path);
    if (result && key)
        BoundsCache::shared().put(*key, *result);
    return result;
}

TransitionPlan planFor(const Bounds &a, const Bounds &b)
{
    TransitionPlan p;
    p.outgoingStart = double(a.endFrame) / a.sampleRate;
    p.outgoingEnd = p.outgoingStart;
    // Half a frame in, so that a seek by time lands inside the first frame of music.
    p.incomingStart = b.startFrame == 0 ? 0.0 : (double(b.startFrame) + 0.5) / b.sampleRate;
    p.fadeDuration = 0;
    p.fadeOut = FadeCurve::equalPower;
    p.fadeIn = FadeCurve::equalPower;
    p.incomingRate = 1;
    p.rateReturnDuration = 0;
    return p;
}

std::optional<TransitionPlan> planNow(const QString &outgoingPath, const QString &incomingPath)
{
    const auto a = bounds(outgoingPath);
    if (!a)
        return std::nullopt;
    const auto b = bounds(incomingPath);
    if (!b)
        return std::nullopt;
    return planFor(*a, *b);
}

QFuture<std::optional<TransitionPlan>> plan(const QString &outgoingPath, const QString &incomingPath)
{
    return QtConcurrent::run(
        QThreadPool::globalInstance(), [outgoingPath, incomingPath] { return planNow(outgoingPath, incomingPath); });
}

BoundsCache &BoundsCache::shared()
{
    static BoundsCache cache;
    return cache;
}

std::optional<Bounds> BoundsCache::get(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_entries.constFind(key);
    if (it == m_entries.cend())
        return std::nullopt;
    return *it;
}

void BoundsCache::put(const QString &key, const Bounds &bounds)
{
    std::lock_guard lock(m_mutex);
    if (m_entries.size() >= kCapacity)
        m_entries.clear();
    m_entries.insert(key, bounds);
}

int BoundsCache::size() const
{
    std::lock_guard lock(m_mutex);
    return int(m_entries.size());
}

void BoundsCache::clear()
{
    std::lock_guard lock(m_mutex);
    m_entries.clear();
}

} // namespace GaplessPlanner
