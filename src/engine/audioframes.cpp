#include "engine/audioframes.h"

#include <QFile>
#include <QFileInfo>

namespace AudioFrames {

namespace {

// A frame as its header describes it. `signature` holds the header bits that stay the
// same from frame to frame of one stream (sync, version, layer or profile, sample rate),
// so a chance pair of 0xFF bytes inside audio data is not taken for a frame.
struct Frame {
    qint64 length = 0;
    int samples = 0;
    int sampleRateHz = 0;
    quint32 signature = 0;
};

constexpr int kMp3KbpsV1[3][16] = {
    { 0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0 }, // layer I
    { 0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0 }, // layer II
    { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0 }, // layer III
};
constexpr int kMp3KbpsV2[2][16] = {
    { 0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0 }, // layer I
    { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0 }, // layers II and III
};
// By the version bits: 0 MPEG 2.5, 2 MPEG 2, 3 MPEG 1.
constexpr int kMp3RatesHz[4][3] = { { 11025, 12000, 8000 }, { 0, 0, 0 }, { 22050, 24000, 16000 }, { 44100, 48000, 32000 } };
constexpr int kAdtsRatesHz[13] = { 96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350 };

std::optional<Frame> mp3Frame(const uchar *p, qint64 available)
{
    if (available < 4)
        return std::nullopt;
    const quint32 h = quint32(p[0]) << 24 | quint32(p[1]) << 16 | quint32(p[2]) << 8 | quint32(p[3]);
    if ((h & 0xFFE00000u) != 0xFFE00000u)
        return std::nullopt;
    const int version = int(h >> 19) & 3;
    const int layerBits = int(h >> 17) & 3; // 3: layer I, 2: layer II, 1: layer III
    const int bitrateIndex = int(h >> 12) & 0xF;
    const int rateIndex = int(h >> 10) & 3;
    const int padding = int(h >> 9) & 1;
    if (version == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3 || (h & 3) == 2)
        return std::nullopt;
    const int layer = 4 - layerBits;
    const bool v1 = version == 3;
    const int kbps = v1 ? kMp3KbpsV1[layer - 1][bitrateIndex] : kMp3KbpsV2[layer == 1 ? 0 : 1][bitrateIndex];
    const int rateHz = kMp3RatesHz[version][rateIndex];
    Frame f;
    f.sampleRateHz = rateHz;
    if (layer == 1) {
        f.samples = 384;
        f.length = (12 * qint64(kbps) * 1000 / rateHz + padding) * 4;
    } else {
        f.samples = layer == 3 && !v1 ? 576 : 1152;
        f.length = qint64(f.samples / 8) * kbps * 1000 / rateHz + padding;
    }
    f.signature = h & 0xFFFE0C00u;
    return f;
}

std::optional<Frame> adtsFrame(const uchar *p, qint64 available)
{
    if (available < 7 || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0)
        return std::nullopt;
    const int rateIndex = (p[2] >> 2) & 0xF;
    if (rateIndex >= 13)
        return std::nullopt;
    const qint64 length = qint64(p[3] & 3) << 11 | qint64(p[4]) << 3 | qint64(p[5] >> 5);
    const qint64 headerBytes = (p[1] & 1) ? 7 : 9; // without or with CRC
    if (length <= headerBytes)
        return std::nullopt;
    Frame f;
    f.length = length;
    f.samples = 1024 * ((p[6] & 3) + 1);
    f.sampleRateHz = kAdtsRatesHz[rateIndex];
    f.signature = quint32(p[0]) << 16 | quint32(p[1] & 0xFE) << 8 | quint32(p[2] & 0xFC);
    return f;
}

// A run of frames begins at `pos` when its frame is whole and the next two (as far as
// the data reaches) follow with the same signature.
bool startsRun(QByteArrayView data, qint64 pos, Format format)
{
    const auto *bytes = reinterpret_cast<const uchar *>(data.data());
    const auto frameAt = [&](qint64 at) {
        return format == Format::Mp3 ? mp3Frame(bytes + at, data.size() - at) : adtsFrame(bytes + at, data.size() - at);
    };
    const auto first = frameAt(pos);
    if (!first || pos + first->length > data.size())
        return false;
    qint64 next = pos + first->length;
    for (int i = 0; i < 2 && next < data.size(); ++i) {
        const auto f = frameAt(next);
        if (!f || f->signature != first->signature)
            return next + 4 > data.size(); // a header cut off by the end of the data proves nothing
        next += f->length;
    }
    return true;
}

// The encoder's header frame of a VBR or LAME-written MP3: a frame of silence whose
// side information is replaced by the "Xing", "Info" or "VBRI" tag. Players skip it.
bool isInfoFrame(QByteArrayView frame)
{
    if (frame.size() < 4)
        return false;
    const auto *p = reinterpret_cast<const uchar *>(frame.data());
    const bool v1 = ((p[1] >> 3) & 3) == 3;
    const bool mono = ((p[3] >> 6) & 3) == 3;
    const bool crc = (p[1] & 1) == 0;
    const qsizetype sideInfo = v1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
    const qsizetype at = 4 + (crc ? 2 : 0) + sideInfo;
    const QByteArrayView tag = frame.size() >= at + 4 ? frame.sliced(at, 4) : QByteArrayView();
    return tag == "Xing" || tag == "Info" || (frame.size() >= 40 && frame.sliced(36, 4) == "VBRI");
}

qint64 afterId3v2Tag(QByteArrayView data)
{
    if (data.size() < 10 || !data.startsWith("ID3"))
        return 0;
    const auto *p = reinterpret_cast<const uchar *>(data.data());
    if ((p[6] | p[7] | p[8] | p[9]) & 0x80)
        return 0; // not a synchsafe size: not a tag
    const qint64 size = qint64(p[6]) << 21 | qint64(p[7]) << 14 | qint64(p[8]) << 7 | qint64(p[9]);
    const qint64 footer = (p[5] & 0x10) ? 10 : 0;
    return std::min<qint64>(10 + size + footer, data.size());
}

} // namespace

std::optional<Walk> walk(QByteArrayView data, Format format)
{
    const auto *bytes = reinterpret_cast<const uchar *>(data.data());
    const qint64 size = data.size();
    Walk result;
    double samplesBySec = 0;
    std::optional<quint32> signature;
    qint64 pos = afterId3v2Tag(data);
    const qint64 audioStart = pos;
    while (pos < size) {
        const auto f = format == Format::Mp3 ? mp3Frame(bytes + pos, size - pos) : adtsFrame(bytes + pos, size - pos);
        const bool inStep = f && signature && f->signature == *signature;
        if (inStep || startsRun(data, pos, format)) {
            if (pos + f->length > size)
                break; // the last frame, cut short
            signature = f->signature;
            const bool skip = result.frames == 0 && pos == audioStart && format == Format::Mp3
                && isInfoFrame(data.sliced(pos, f->length));
            if (!skip) {
                if (result.firstFrameOffset < 0)
                    result.firstFrameOffset = pos;
                ++result.frames;
                samplesBySec += double(f->samples) / f->sampleRateHz;
                if (!result.runs.empty() && result.runs.back().offset + result.runs.back().bytes == pos)
                    result.runs.back().bytes += f->length;
                else
                    result.runs.push_back({pos, f->length});
            }
            pos += f->length;
            continue;
        }
        // Damage or the partial frame a cut began in: find the next run of frames.
        signature.reset();
        ++pos;
    }
    if (result.frames == 0)
        return std::nullopt;
    result.durationSec = samplesBySec;
    return result;
}

qint64 Walk::audioBytes() const
{
    qint64 total = 0;
    for (const Run &run : runs)
        total += run.bytes;
    return total;
}

std::optional<Format> formatOf(const QString &path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("mp3"))
        return Format::Mp3;
    if (suffix == QLatin1String("aac"))
        return Format::Adts;
    return std::nullopt;
}

std::optional<Walk> walkFile(const QString &path)
{
    const auto format = formatOf(path);
    if (!format)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() <= 0)
        return std::nullopt;
    const uchar *mapped = file.map(0, file.size());
    if (!mapped)
        return std::nullopt;
    auto walked = walk(QByteArrayView(reinterpret_cast<const char *>(mapped), file.size()), *format);
    file.unmap(const_cast<uchar *>(mapped));
    return walked;
}

std::optional<double> fileDurationSec(const QString &path)
{
    const auto walked = walkFile(path);
    if (!walked)
        return std::nullopt;
    return walked->durationSec;
}

} // namespace AudioFrames
