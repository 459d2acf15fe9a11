#include "playback/mpegheaders.h"

#include <QIODevice>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstring>

namespace GaplessPlanner {

namespace {

    // kbit/s by [MPEG-1?][layer - 1][index]; index 0 (free format) and 15 are not accepted.
    constexpr std::array<std::array<std::array<int, 16>, 3>, 2> kBitrates = { {
        { {
            // MPEG-2 and 2.5
            { 0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0 },
            { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0 },
            { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0 },
        } },
        { {
            // MPEG-1
            { 0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0 },
            { 0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0 },
            { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0 },
        } },
    } };
    constexpr std::array<int, 3> kMpeg1Rates = { 44100, 48000, 32000 };

    constexpr qint64 kMaxId3SearchBytes = 0x80000;
    constexpr qint64 kFirstFrameSearchBytes = 65536;
    // Junk a walk skips between two frames before it gives up on the rest of the file.
    constexpr qint64 kMaxResyncBytes = 65536;

    bool sameStream(const FrameHeader &a, const FrameHeader &b)
    {
        return a.version == b.version && a.layer == b.layer && a.sampleRate == b.sampleRate;
    }

    bool printable(uchar c)
    {
        return c >= 0x20 && c <= 0x7E;
    }

} // namespace

std::optional<FrameHeader> frameHeader(std::span<const uchar> b)
{
    if (b.size() < 4 || b[0] != 0xFF || (b[1] & 0xE0) != 0xE0)
        return std::nullopt;
    const int versionBits = (b[1] >> 3) & 3;
    const int layerBits = (b[1] >> 1) & 3;
    const int bitrateIndex = b[2] >> 4;
    const int rateIndex = (b[2] >> 2) & 3;
    if (versionBits == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3)
        return std::nullopt;
    FrameHeader h;
    h.version = versionBits == 3 ? 1 : versionBits == 2 ? 2 : 25;
    h.layer = 4 - layerBits;
    const bool mpeg1 = h.version == 1;
    h.bitrateKbps = kBitrates[mpeg1 ? 1 : 0][h.layer - 1][bitrateIndex];
    h.sampleRate = kMpeg1Rates[rateIndex] / (h.version == 1 ? 1 : h.version == 2 ? 2 : 4);
    h.padding = (b[2] >> 1) & 1;
    h.channels = (b[3] >> 6) == 3 ? 1 : 2;
    const int bitsPerSec = h.bitrateKbps * 1000;
    switch (h.layer) {
    case 1:
        h.samplesPerFrame = 384;
        h.frameBytes = (12 * bitsPerSec / h.sampleRate + int(h.padding)) * 4;
        break;
    case 2:
        h.samplesPerFrame = 1152;
        h.frameBytes = 144 * bitsPerSec / h.sampleRate + int(h.padding);
        break;
    default:
        h.samplesPerFrame = mpeg1 ? 1152 : 576;
        h.frameBytes = (mpeg1 ? 144 : 72) * bitsPerSec / h.sampleRate + int(h.padding);
        h.sideInfoBytes = mpeg1 ? (h.channels == 1 ? 17 : 32) : (h.channels == 1 ? 9 : 17);
        break;
    }
    return h;
}

std::optional<XingInfo> parseXing(std::span<const uchar> frame, const FrameHeader &header)
{
    size_t at = 4 + size_t(header.sideInfoBytes);
    if (frame.size() < at + 8)
        return std::nullopt;
    const QByteArray magic(reinterpret_cast<const char *>(frame.data() + at), 4);
    if (magic != "Xing" && magic != "Info")
        return std::nullopt;
    const quint32 flags = qFromBigEndian<quint32>(frame.data() + at + 4);
    at += 8;
    XingInfo info;
    if (flags & 1) {
        if (frame.size() < at + 4)
            return info;
        info.frames = qFromBigEndian<quint32>(frame.data() + at);
        at += 4;
    }
    at += (flags & 2) ? 4 : 0;
    at += (flags & 4) ? 100 : 0;
    at += (flags & 8) ? 4 : 0;
    if (frame.size() < at + 24
        || !std::all_of(frame.begin() + qsizetype(at), frame.begin() + qsizetype(at) + 4, printable))
        return info;
    const uchar *tag = frame.data() + at;
    info.hasEncoderTag = true;
    info.encoder = QByteArray(reinterpret_cast<const char *>(tag), 4);
    info.delay = (tag[21] << 4) | (tag[22] >> 4);
    info.padding = ((tag[22] & 0x0F) << 8) | tag[23];
    return info;
}

std::optional<qint64> parseVbri(std::span<const uchar> frame)
{
    constexpr size_t kAt = 36;
    if (frame.size() < kAt + 18 || std::memcmp(frame.data() + kAt, "VBRI", 4) != 0)
        return std::nullopt;
    return qFromBigEndian<quint32>(frame.data() + kAt + 14);
}

qint64 id3v2Size(std::span<const uchar> b)
{
    if (b.size() < 10 || b[0] != 'I' || b[1] != 'D' || b[2] != '3')
        return 0;
    if ((b[6] | b[7] | b[8] | b[9]) & 0x80)
        return 0; // not synchsafe: no tag we can measure
    const qint64 body = (qint64(b[6]) << 21) | (qint64(b[7]) << 14) | (qint64(b[8]) << 7) | qint64(b[9]);
    return body + 10 + ((b[5] & 0x10) ? 10 : 0);
}

std::optional<Smpb> findSMPB(std::span<const uchar> bytes)
{
    static const QByteArray kNarrow("iTunSMPB");
    static const QByteArray kWide = [] {
        QByteArray w;
        for (char c : kNarrow)
            w.append(c).append('\0');
        return w;
    }();
    const QByteArray haystack
        = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
    for (const QByteArray &needle : { kNarrow, kWide }) {
        qsizetype from = 0;
        while (true) {
            const qsizetype at = haystack.indexOf(needle, from);
            if (at < 0)
                break;
            from = at + 1;
            // The value follows within a short distance (an ID3 COMM/TXXX frame or an MP4
            // "data" box); 256 bytes hold it whatever the encoding.
            QByteArray text;
            const qsizetype end = std::min(haystack.size(), at + needle.size() + 256);
            for (qsizetype i = at + needle.size(); i < end; ++i) {
                const char c = haystack[i];
                if (c == '\0')
                    continue;
                if (!printable(uchar(c)) && c != '\t' && c != '\n' && c != '\r')
                    text.append(' ');
                else
                    text.append(c);
            }
            const QList<QByteArray> fields = text.simplified().split(' ');
            // The first field is often preceded by the box/frame's own bytes turned into
            // spaces, so look for the run of hexadecimal fields: the reserved one, delay,
            // padding, valid count.
            for (qsizetype i = 0; i + 3 < fields.size(); ++i) {
                bool ok[4] = {};
                qint64 v[4] = {};
                for (int k = 0; k < 4; ++k)
                    v[k] = fields[i + k].toLongLong(&ok[k], 16);
                if (ok[0] && ok[1] && ok[2] && ok[3] && fields[i].size() == 8 && fields[i + 1].size() == 8)
                    return Smpb { v[1], v[2], v[3] };
            }
        }
    }
    return std::nullopt;
}

std::optional<Mp3Start> mp3Info(QIODevice &file)
{
    if (!file.seek(0))
        return std::nullopt;
    const QByteArray head = file.read(10);
    const auto headSpan = std::span(reinterpret_cast<const uchar *>(head.constData()), size_t(head.size()));
    const qint64 tagSize = id3v2Size(headSpan);
    Mp3Start start;
    if (tagSize > 0 && tagSize <= kMaxId3SearchBytes) {
        file.seek(0);
        const QByteArray tag = file.read(tagSize);
        start.id3Smpb = findSMPB(std::span(reinterpret_cast<const uchar *>(tag.constData()), size_t(tag.size())));
    }
    if (!file.seek(tagSize))
        return std::nullopt;
    const QByteArray window = file.read(kFirstFrameSearchBytes);
    const auto w = std::span(reinterpret_cast<const uchar *>(window.constData()), size_t(window.size()));
    for (size_t i = 0; i + 4 <= w.size(); ++i) {
        const auto h = frameHeader(w.subspan(i));
        if (!h)
            continue;
        // A chance 0xFF byte in other data is not a frame unless the next frame follows it.
        const size_t next = i + size_t(h->frameBytes);
        if (next + 4 <= w.size()) {
            const auto n = frameHeader(w.subspan(next));
            if (!n || !sameStream(*h, *n))
                continue;
        }
        start.header = *h;
        start.firstFrameOffset = tagSize + qint64(i);
        start.audioOffset = start.firstFrameOffset;
        const auto frame = w.subspan(i, std::min(w.size() - i, size_t(h->frameBytes)));
        start.xing = parseXing(frame, *h);
        if (!start.xing)
            start.vbriFrames = parseVbri(frame);
        if (start.xing || start.vbriFrames)
            start.audioOffset += h->frameBytes;
        return start;
    }
    return std::nullopt;
}

std::vector<qint64> walkFrames(QIODevice &file, const Mp3Start &start)
{
    constexpr qint64 kChunk = 1 << 16;
    std::vector<qint64> offsets;
    const qint64 size = file.size();
    QByteArray buf;
    qint64 bufAt = -1;
    // Header bytes at `pos` (4 of them, or fewer at the end of the file), read through a
    // window so that the walk costs a read per 64 KiB, not per frame.
    auto bytesAt = [&](qint64 pos) -> std::span<const uchar> {
        if (bufAt < 0 || pos < bufAt || pos + 4 > bufAt + buf.size()) {
            if (!file.seek(pos))
                return {};
            buf = file.read(kChunk);
            bufAt = pos;
        }
        const qint64 off = pos - bufAt;
        return std::span(reinterpret_cast<const uchar *>(buf.constData()) + off, size_t(buf.size() - off));
    };
    qint64 pos = start.audioOffset;
    while (pos + 4 <= size) {
        auto h = frameHeader(bytesAt(pos));
        if (!h || !sameStream(*h, start.header)) {
            const auto b = bytesAt(pos);
            if (b.size() >= 3
                && (std::memcmp(b.data(), "TAG", 3) == 0
                    || (b.size() >= 8 && std::memcmp(b.data(), "APETAGEX", 8) == 0)))
                break;
            // Resynchronise: the next header of the same stream that another one follows.
            qint64 found = -1;
            for (qint64 p = pos + 1; p + 4 <= size && p < pos + kMaxResyncBytes; ++p) {
                const auto c = frameHeader(bytesAt(p));
                if (!c || !sameStream(*c, start.header))
                    continue;
                const auto n = frameHeader(bytesAt(p + c->frameBytes));
                if (p + c->frameBytes == size || (n && sameStream(*n, start.header))) {
                    found = p;
                    break;
                }
            }
            if (found < 0)
                break;
            pos = found;
            h = frameHeader(bytesAt(pos));
        }
        if (pos + h->frameBytes > size)
            break; // a cut-off last frame is not audio
        offsets.push_back(pos);
        pos += h->frameBytes;
    }
    offsets.push_back(offsets.empty() ? start.audioOffset : pos);
    return offsets;
}

Mp3Trim mp3Trim(const Mp3Start &start, qint64 frames)
{
    const qint64 total = frames * start.header.samplesPerFrame;
    Mp3Trim trim { 0, total };
    if (!start.xing || !start.xing->hasEncoderTag)
        return trim;
    const QByteArray &enc = start.xing->encoder;
    if (enc != "LAME" && enc != "Lavf" && enc != "Lavc")
        return trim;
    trim.start = std::min<qint64>(start.xing->delay + kMp3DecoderDelay, total);
    if (start.xing->frames)
        trim.end = std::clamp<qint64>(total - start.xing->padding + kMp3DecoderDelay, trim.start, total);
    return trim;
}

} // namespace GaplessPlanner
