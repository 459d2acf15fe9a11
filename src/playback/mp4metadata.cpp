#include "playback/mp4metadata.h"

#include <QIODevice>
#include <QtEndian>

#include <cstdlib>
#include <cstring>

namespace GaplessPlanner {

namespace {

    // A moov of a few hours of AAC is a few MB; anything beyond this is not worth reading.
    constexpr qint64 kMaxMoovBytes = 32 << 20;
    constexpr int kMaxTopLevelBoxes = 1024;

    struct Box {
        QByteArray type;
        std::span<const uchar> body; // after the header
    };

    // The child boxes of `bytes`, stopping at the first box whose size does not fit.
    template <typename Visit> void forEachBox(std::span<const uchar> bytes, Visit visit)
    {
        size_t at = 0;
        while (at + 8 <= bytes.size()) {
            quint64 size = qFromBigEndian<quint32>(bytes.data() + at);
            size_t header = 8;
            if (size == 1) {
                if (at + 16 > bytes.size())
                    return;
                size = qFromBigEndian<quint64>(bytes.data() + at + 8);
                header = 16;
            } else if (size == 0) {
                size = bytes.size() - at;
            }
            if (size < header || size > bytes.size() - at)
                return;
            const QByteArray type(reinterpret_cast<const char *>(bytes.data() + at + 4), 4);
            if (!visit(Box { type, bytes.subspan(at + header, size_t(size) - header) }))
                return;
            at += size_t(size);
        }
    }

    std::optional<std::span<const uchar>> child(std::span<const uchar> bytes, const char *type)
    {
        std::optional<std::span<const uchar>> found;
        forEachBox(bytes, [&](const Box &box) {
            if (box.type == type) {
                found = box.body;
                return false;
            }
            return true;
        });
        return found;
    }

    std::optional<std::span<const uchar>> path(std::span<const uchar> bytes, std::initializer_list<const char *> types)
    {
        std::optional<std::span<const uchar>> at = bytes;
        for (const char *type : types) {
            at = child(*at, type);
            if (!at)
                return std::nullopt;
        }
        return at;
    }

    // The media time scale from mdhd (version 0 or 1).
    std::optional<quint32> mediaTimescale(std::span<const uchar> mdhd)
    {
        if (mdhd.empty())
            return std::nullopt;
        const size_t at = mdhd[0] == 1 ? 4 + 16 : 4 + 8;
        if (mdhd.size() < at + 4)
            return std::nullopt;
        return qFromBigEndian<quint32>(mdhd.data() + at);
    }

    std::optional<quint32> movieTimescale(std::span<const uchar> mvhd)
    {
        return mediaTimescale(mvhd); // same layout up to the time scale
    }

} // namespace

std::optional<QByteArray> readMoov(QIODevice &file)
{
    if (!file.seek(0))
        return std::nullopt;
    qint64 at = 0;
    for (int i = 0; i < kMaxTopLevelBoxes; ++i) {
        if (!file.seek(at))
            return std::nullopt;
        const QByteArray header = file.read(16);
        if (header.size() < 8)
            return std::nullopt;
        const auto *h = reinterpret_cast<const uchar *>(header.constData());
        quint64 size = qFromBigEndian<quint32>(h);
        qint64 headerBytes = 8;
        if (size == 1 && header.size() == 16) {
            size = qFromBigEndian<quint64>(h + 8);
            headerBytes = 16;
        } else if (size == 0) {
            size = quint64(file.size() - at);
        }
        if (size < quint64(headerBytes))
            return std::nullopt;
        if (header.mid(4, 4) == "moov") {
            if (size > quint64(kMaxMoovBytes))
                return std::nullopt;
            file.seek(at + headerBytes);
            const QByteArray body = file.read(qint64(size) - headerBytes);
            if (body.size() != qint64(size) - headerBytes)
                return std::nullopt;
            return body;
        }
        at += qint64(size);
    }
    return std::nullopt;
}

std::optional<PacketTable> packetTableFromMoov(std::span<const uchar> moov)
{
    const auto mvhd = child(moov, "mvhd");
    const auto movieScale = mvhd ? movieTimescale(*mvhd) : std::nullopt;
    if (!movieScale || *movieScale == 0)
        return std::nullopt;
    std::optional<PacketTable> table;
    forEachBox(moov, [&](const Box &trak) {
        if (trak.type != "trak")
            return true;
        const auto hdlr = path(trak.body, { "mdia", "hdlr" });
        if (!hdlr || hdlr->size() < 12 || std::memcmp(hdlr->data() + 8, "soun", 4) != 0)
            return true;
        const auto mdhd = path(trak.body, { "mdia", "mdhd" });
        const auto scale = mdhd ? mediaTimescale(*mdhd) : std::nullopt;
        const auto stbl = path(trak.body, { "mdia", "minf", "stbl" });
        const auto elst = path(trak.body, { "edts", "elst" });
        if (!scale || *scale == 0 || !stbl || !elst)
            return false;
        const qint64 mediaScale = *scale;
        const qint64 movieTicks = *movieScale;
        PacketTable t;
        t.storedRate = double(mediaScale);
        if (const auto stsd = child(*stbl, "stsd"); stsd && stsd->size() >= 16)
            t.format = QByteArray(reinterpret_cast<const char *>(stsd->data() + 12), 4);
        qint64 total = 0;
        if (const auto stts = child(*stbl, "stts"); stts && stts->size() >= 8) {
            const quint32 entries = qFromBigEndian<quint32>(stts->data() + 4);
            for (quint32 i = 0; i < entries && 8 + 8 * size_t(i) + 8 <= stts->size(); ++i) {
                const auto *e = stts->data() + 8 + 8 * size_t(i);
                total += qint64(qFromBigEndian<quint32>(e)) * qint64(qFromBigEndian<quint32>(e + 4));
            }
        }
        // The first edit that plays media (an empty edit, media time -1, only delays it).
        const bool v1 = !elst->empty() && (*elst)[0] == 1;
        const size_t entrySize = v1 ? 20 : 12;
        if (elst->size() < 8)
            return false;
        const quint32 entries = qFromBigEndian<quint32>(elst->data() + 4);
        for (quint32 i = 0; i < entries && 8 + entrySize * (i + 1) <= elst->size(); ++i) {
            const auto *e = elst->data() + 8 + entrySize * i;
            const qint64 segment = v1 ? qint64(qFromBigEndian<quint64>(e)) : qint64(qFromBigEndian<quint32>(e));
            const qint64 mediaTime = v1 ? qFromBigEndian<qint64>(e + 8) : qint64(qFromBigEndian<qint32>(e + 4));
            if (mediaTime < 0)
                continue;
            t.priming = mediaTime;
            t.valid = qint64(double(segment) * double(mediaScale) / double(movieTicks) + 0.5);
            t.remainder = total - t.priming - t.valid;
            // The segment duration is in the movie's time scale, often milliseconds, so it
            // can miss the sample count by a tick. Muxers that end the sample table on the
            // last valid frame (FFmpeg does) leave no remainder: then the table is exact.
            const qint64 tick = (mediaScale + movieTicks - 1) / movieTicks;
            if (mediaScale != movieTicks && std::abs(t.remainder) <= tick) {
                t.valid = total - t.priming;
                t.remainder = 0;
            }
            if (t.valid >= 1 && t.remainder >= 0)
                table = t;
            break;
        }
        return false;
    });
    return table;
}

std::optional<Smpb> smpbFromMoov(std::span<const uchar> moov)
{
    // iTunes puts it in moov/udta/meta/ilst as a "----" entry; some tools put a meta box
    // straight under moov. Searching the user data and metadata bytes finds either.
    for (const char *holder : { "udta", "meta" }) {
        if (const auto box = child(moov, holder)) {
            if (auto smpb = findSMPB(*box))
                return smpb;
        }
    }
    return std::nullopt;
}

std::optional<PacketTable> mp4PacketTable(QIODevice &file)
{
    const auto moov = readMoov(file);
    if (!moov)
        return std::nullopt;
    return packetTableFromMoov(std::span(reinterpret_cast<const uchar *>(moov->constData()), size_t(moov->size())));
}

std::optional<Smpb> mp4SMPB(QIODevice &file)
{
    const auto moov = readMoov(file);
    if (!moov)
        return std::nullopt;
    return smpbFromMoov(std::span(reinterpret_cast<const uchar *>(moov->constData()), size_t(moov->size())));
}

} // namespace GaplessPlanner
