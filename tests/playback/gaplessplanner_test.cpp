#include "playback/gaplessplanner.h"

#include <QtEndian>

#include <gtest/gtest.h>

#include <vector>

using namespace GaplessPlanner;

namespace {

std::span<const uchar> bytes(const QByteArray &b)
{
    return std::span(reinterpret_cast<const uchar *>(b.constData()), size_t(b.size()));
}

// A 417-byte MPEG-1 Layer III frame (128 kbit/s, 44.1 kHz, joint stereo) whose side
// information is followed by an Info tag with all four optional fields and, when
// `encoder` is given, a LAME tag.
QByteArray infoFrame(quint32 frames, int delay, int padding, const QByteArray &encoder = "LAME3.100")
{
    QByteArray f(417, '\0');
    f[0] = char(0xFF);
    f[1] = char(0xFB);
    f[2] = char(0x90);
    f[3] = char(0x64);
    int at = 4 + 32;
    f.replace(at, 4, "Info");
    qToBigEndian<quint32>(0x0F, f.data() + at + 4);
    qToBigEndian<quint32>(frames, f.data() + at + 8);
    at += 8 + 4 + 4 + 100 + 4;
    if (!encoder.isEmpty()) {
        f.replace(at, encoder.size(), encoder);
        f[at + 21] = char(delay >> 4);
        f[at + 22] = char(((delay & 0x0F) << 4) | (padding >> 8));
        f[at + 23] = char(padding & 0xFF);
    }
    return f;
}

} // namespace

TEST(GaplessHeaders, FrameHeaderFollowsTheMpegLayout)
{
    const auto mpeg1 = frameHeader(bytes(QByteArray::fromHex("fffb9064")));
    ASSERT_TRUE(mpeg1);
    EXPECT_EQ(mpeg1->version, 1);
    EXPECT_EQ(mpeg1->layer, 3);
    EXPECT_EQ(mpeg1->bitrateKbps, 128);
    EXPECT_EQ(mpeg1->sampleRate, 44100);
    EXPECT_EQ(mpeg1->frameBytes, 417);
    EXPECT_EQ(mpeg1->samplesPerFrame, 1152);
    EXPECT_EQ(mpeg1->sideInfoBytes, 32);

    const auto padded = frameHeader(bytes(QByteArray::fromHex("fffb9264")));
    ASSERT_TRUE(padded);
    EXPECT_EQ(padded->frameBytes, 418);

    // MPEG-2, 22.05 kHz, 64 kbit/s, mono: half the samples and a short side information.
    const auto mpeg2 = frameHeader(bytes(QByteArray::fromHex("fff380c0")));
    ASSERT_TRUE(mpeg2);
    EXPECT_EQ(mpeg2->version, 2);
    EXPECT_EQ(mpeg2->sampleRate, 22050);
    EXPECT_EQ(mpeg2->channels, 1);
    EXPECT_EQ(mpeg2->samplesPerFrame, 576);
    EXPECT_EQ(mpeg2->sideInfoBytes, 9);
    EXPECT_EQ(mpeg2->frameBytes, 72 * 64000 / 22050);

    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("ffeb9064")))); // reserved version
    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("fffbf064")))); // bitrate index 15
    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("fffb9c64")))); // rate index 3
    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("fffb0064")))); // free format
    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("fe fb 90 64"))));
    EXPECT_FALSE(frameHeader(bytes(QByteArray::fromHex("fffb90"))));
}

TEST(GaplessHeaders, XingTagGivesFramesDelayAndPadding)
{
    const QByteArray frame = infoFrame(1234, 576, 1152);
    const auto header = frameHeader(bytes(frame));
    ASSERT_TRUE(header);
    const auto xing = parseXing(bytes(frame), *header);
    ASSERT_TRUE(xing);
    EXPECT_EQ(xing->frames, 1234);
    EXPECT_TRUE(xing->hasEncoderTag);
    EXPECT_EQ(xing->encoder, "LAME");
    EXPECT_EQ(xing->delay, 576);
    EXPECT_EQ(xing->padding, 1152);

    // Largest 12-bit values survive the nibble split.
    const auto extreme = parseXing(bytes(infoFrame(1, 4095, 4095)), *header);
    ASSERT_TRUE(extreme);
    EXPECT_EQ(extreme->delay, 4095);
    EXPECT_EQ(extreme->padding, 4095);

    // No printable encoder name: frames only.
    const auto bare = parseXing(bytes(infoFrame(77, 0, 0, QByteArray("\x01\x02\x03\x04", 4))), *header);
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->frames, 77);
    EXPECT_FALSE(bare->hasEncoderTag);

    QByteArray plain = infoFrame(1, 0, 0);
    plain.replace(36, 4, "abcd");
    EXPECT_FALSE(parseXing(bytes(plain), *header));
}

TEST(GaplessHeaders, SmpbIsFoundAsNarrowAndWideText)
{
    const QByteArray value = " 00000000 00000840 000001CA 00000000003F9E76 00000000 00000000";
    const QByteArray narrow
        = QByteArray::fromHex("434f4d4d0000012000") + "eng" + "iTunSMPB" + QByteArray(1, '\0') + value;
    const auto a = findSMPB(bytes(narrow));
    ASSERT_TRUE(a);
    EXPECT_EQ(a->delay, 0x840);
    EXPECT_EQ(a->padding, 0x1CA);
    EXPECT_EQ(a->valid, 0x3F9E76);

    QByteArray wide = QByteArray("\xff\xfe", 2);
    for (char c : QByteArray("iTunSMPB") + QByteArray(1, '\0') + value)
        wide.append(c).append('\0');
    const auto b = findSMPB(bytes(QByteArray(40, 'x') + wide));
    ASSERT_TRUE(b);
    EXPECT_EQ(b->delay, 0x840);
    EXPECT_EQ(b->valid, 0x3F9E76);

    EXPECT_FALSE(findSMPB(bytes(QByteArray("iTunNORM 00000001 00000002"))));
}

TEST(GaplessApply, DecoderThatAlreadyTrimsGivesTheWholeStream)
{
    // LAME delay 576 and padding 1152, and the decoder delivered the valid count (within
    // two frames): nothing is left to cut.
    const Smpb smpb { 576, 1152, 100000 };
    for (const qint64 length : { qint64(100000), qint64(100002), qint64(99998) }) {
        const auto cut = apply(smpb, length, 1152, Source::lameTag);
        ASSERT_TRUE(cut);
        EXPECT_EQ(cut->source, Source::coreAudio);
        EXPECT_EQ(cut->start, 0);
        EXPECT_EQ(cut->end, length);
    }
}

TEST(GaplessApply, StartOffsetsAreTriedInOrder)
{
    // The delay itself fits.
    auto cut = apply({ 576, 1152, 100000 }, 576 + 100000 + 1152, 1152, Source::lameTag);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 576);
    EXPECT_EQ(cut->end, 100576);
    EXPECT_EQ(cut->source, Source::lameTag);

    // Only delay - 529 fits: the encoder counted the decoder's delay in its own.
    cut = apply({ 1105, 300, 100000 }, 576 + 100000 + 200, 1152, Source::iTunSMPB);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 576);
    EXPECT_EQ(cut->end, 100576);
    EXPECT_EQ(cut->source, Source::iTunSMPB);

    // Only delay + one frame fits: a decoder that kept a frame more.
    cut = apply({ 576, 100, 100000 }, 576 + 1152 + 100000 + 1254, 1152, Source::lameTag);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 576 + 1152);

    // No offset fits, but all beyond the valid frames is padding: the start was trimmed.
    cut = apply({ 3000, 2000, 100000 }, 101500, 1152, Source::lameTag);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 0);
    EXPECT_EQ(cut->end, 100000);

    EXPECT_FALSE(apply({ 576, 1152, 0 }, 1000, 1152, Source::lameTag));
    EXPECT_FALSE(apply({ 576, 1152, 5000 }, 4997, 1152, Source::lameTag)); // more valid than decoded
    EXPECT_FALSE(apply({ 3000, 10, 100000 }, 150000, 1152, Source::lameTag));
}

TEST(GaplessPacketTable, NumbersAreMeasuredAgainstTheDecode)
{
    const PacketTable aac { 2112, 100000, 448, 44100, "mp4a" };
    // The decoder trims both ends.
    auto cut = fromPacketTable(aac, 100000, 44100, "aac", 1024);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->source, Source::coreAudio);
    EXPECT_TRUE(cut->cutKnown);
    // The decoder trims nothing.
    cut = fromPacketTable(aac, 2112 + 100000 + 448, 44100, "aac", 1024);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->source, Source::packetTable);
    EXPECT_EQ(cut->start, 2112);
    EXPECT_EQ(cut->end, 102112);
    // FFmpeg: priming dropped, the last packet decoded whole.
    cut = fromPacketTable(aac, 100000 + 448 + 700, 44100, "aac", 1024);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->source, Source::packetTable);
    EXPECT_EQ(cut->start, 0);
    EXPECT_EQ(cut->end, 100000);
    // Numbers that describe another decode.
    EXPECT_FALSE(fromPacketTable(aac, 150000, 44100, "aac", 1024));
    // No priming and no remainder: no gapless information.
    EXPECT_FALSE(fromPacketTable({ 0, 100000, 0, 44100, "mp4a" }, 100000, 44100, "aac", 1024));

    // AAC without a remainder: the start is trusted, the end is not.
    cut = fromPacketTable({ 1024, 100000, 0, 44100, "mp4a" }, 100000 + 352, 44100, "aac", 1024);
    ASSERT_TRUE(cut);
    EXPECT_FALSE(cut->cutKnown);
    EXPECT_TRUE(fromPacketTable({ 1024, 100000, 0, 44100, "alac" }, 101024, 44100, "alac", 4096)->cutKnown);

    // Stored at half the rate the decoder delivers (SBR): counts scale with it.
    cut = fromPacketTable({ 1056, 50000, 224, 22050, "mp4a" }, 2112 + 100000 + 448, 44100, "aac", 2048);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 2112);
    EXPECT_EQ(cut->end, 102112);
}

TEST(GaplessTrimEdges, FindsPrimingAndTrailingSilence)
{
    const qint64 length = 100000;
    std::vector<float> head(size_t(kEdgeWindowFrames), 0.5f);
    std::vector<float> tail(size_t(kEdgeWindowFrames), 0.5f);
    // Music everywhere: nothing to cut.
    EXPECT_FALSE(trimEdges(head, tail, length, false, true));

    std::fill_n(head.begin(), 1105, 0.0f);
    auto cut = trimEdges(head, tail, length, false, true);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 1105);
    EXPECT_EQ(cut->end, length);
    EXPECT_EQ(cut->source, Source::silence);
    // The end-only mode leaves the start alone.
    EXPECT_FALSE(trimEdges(head, tail, length, false, false));

    std::fill_n(tail.end() - 700, 700, 0.00005f);
    cut = trimEdges(head, tail, length, false, false);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->start, 0);
    EXPECT_EQ(cut->end, length - 700);

    // Silence beyond any priming is capped for MP3 and kept as music for AAC.
    std::fill_n(head.begin(), 2500, 0.0f);
    EXPECT_EQ(trimEdges(head, tail, length, false, true)->start, 2112);
    EXPECT_EQ(trimEdges(head, tail, length, true, true)->start, 0);
    std::fill(head.begin(), head.end(), 0.0f);
    EXPECT_EQ(trimEdges(head, tail, length, false, true)->start, 2112);

    // A weak burst in the first codec frame before a loud second one is pre-roll.
    std::fill(head.begin(), head.end(), 0.8f);
    std::fill_n(head.begin(), 960, 0.1f);
    EXPECT_EQ(trimEdges(head, tail, length, true, true)->start, 1024);
    std::fill_n(head.begin(), 960, 0.3f); // loud enough to be music
    EXPECT_EQ(trimEdges(head, tail, length, true, true)->start, 0);

    EXPECT_FALSE(trimEdges(head, tail, 12800, false, true)); // too short to scan
}

TEST(GaplessPlan, JoinsAtTheOutgoingEndAndInsideTheIncomingFirstFrame)
{
    const Bounds a { 0, 441000, 441000, 44100, Source::coreAudio };
    const Bounds b { 2112, 90000, 92000, 48000, Source::packetTable };
    const TransitionPlan p = planFor(a, b);
    EXPECT_DOUBLE_EQ(p.outgoingStart, 10.0);
    EXPECT_DOUBLE_EQ(p.outgoingEnd, 10.0);
    EXPECT_DOUBLE_EQ(p.incomingStart, 2112.5 / 48000);
    EXPECT_EQ(p.fadeDuration, 0);
    EXPECT_EQ(p.fadeOut, FadeCurve::equalPower);
    EXPECT_EQ(p.fadeIn, FadeCurve::equalPower);
    EXPECT_EQ(p.incomingRate, 1);
    EXPECT_EQ(p.rateReturnDuration, 0);
    EXPECT_FALSE(p.bassSwapAt);
    EXPECT_EQ(sanitized(p), p);
    EXPECT_EQ(planFor(b, a).incomingStart, 0);
}

TEST(GaplessCache, TheEntryAfterAFullCacheEmptiesIt)
{
    BoundsCache cache;
    const Bounds b { 0, 10, 10, 44100, Source::none };
    for (int i = 0; i < BoundsCache::kCapacity; ++i)
        cache.put(QStringLiteral("/music/%1.mp3|100|5.000").arg(i), b);
    EXPECT_EQ(cache.size(), 512);
    EXPECT_TRUE(cache.get(QStringLiteral("/music/0.mp3|100|5.000")));
    cache.put(QStringLiteral("/music/512.mp3|100|5.000"), b);
    EXPECT_EQ(cache.size(), 1);
    EXPECT_FALSE(cache.get(QStringLiteral("/music/0.mp3|100|5.000")));
    EXPECT_TRUE(cache.get(QStringLiteral("/music/512.mp3|100|5.000")));
}

TEST(GaplessSource, RawValuesAreTheCaseNames)
{
    EXPECT_EQ(rawValue(Source::coreAudio), "coreAudio");
    EXPECT_EQ(rawValue(Source::packetTable), "packetTable");
    EXPECT_EQ(rawValue(Source::lameTag), "lameTag");
    EXPECT_EQ(rawValue(Source::iTunSMPB), "iTunSMPB");
    EXPECT_EQ(rawValue(Source::silence), "silence");
    EXPECT_EQ(rawValue(Source::none), "none");
}

namespace {

QByteArray box(const char *type, const QByteArray &body)
{
    QByteArray b(4, '\0');
    qToBigEndian<quint32>(quint32(8 + body.size()), b.data());
    return b + QByteArray(type, 4) + body;
}

QByteArray be32(quint32 v)
{
    QByteArray b(4, '\0');
    qToBigEndian(v, b.data());
    return b;
}

// A moov with one sound track: movie time scale `movieScale`, media time scale 44100, an
// edit list of `priming` and `segment` (movie ticks), a sample table of `packets` AAC
// packets of 1024 and a last one of `lastDuration`.
QByteArray moov(quint32 movieScale, quint32 priming, quint32 segment, quint32 packets, quint32 lastDuration,
    const QByteArray &udta = {})
{
    const QByteArray mvhd = box("mvhd", be32(0) + be32(0) + be32(0) + be32(movieScale) + be32(0));
    const QByteArray mdhd = box("mdhd", be32(0) + be32(0) + be32(0) + be32(44100) + be32(0));
    const QByteArray hdlr = box("hdlr", be32(0) + be32(0) + QByteArray("soun") + QByteArray(12, '\0'));
    const QByteArray stsd = box("stsd", be32(0) + be32(1) + be32(36) + QByteArray("mp4a") + QByteArray(28, '\0'));
    const QByteArray stts = box("stts", be32(0) + be32(2) + be32(packets) + be32(1024) + be32(1) + be32(lastDuration));
    const QByteArray stbl = box("stbl", stsd + stts);
    const QByteArray mdia = box("mdia", mdhd + hdlr + box("minf", stbl));
    const QByteArray elst = box("elst", be32(0) + be32(1) + be32(segment) + be32(priming) + be32(0x00010000));
    const QByteArray trak = box("trak", box("tkhd", QByteArray(84, '\0')) + box("edts", elst) + mdia);
    return mvhd + trak + (udta.isEmpty() ? QByteArray() : box("udta", udta));
}

} // namespace

TEST(GaplessMp4, EditListAndSampleTableMakeThePacketTable)
{
    // Time scales equal: the counts are exact and the remainder is what the table holds beyond.
    auto table = packetTableFromMoov(bytes(moov(44100, 2112, 100000, 100, 960)));
    ASSERT_TRUE(table);
    EXPECT_EQ(table->priming, 2112);
    EXPECT_EQ(table->valid, 100000);
    EXPECT_EQ(table->remainder, 100 * 1024 + 960 - 2112 - 100000);
    EXPECT_EQ(table->storedRate, 44100);
    EXPECT_EQ(table->format, "mp4a");

    // Milliseconds: 1134 ms is 50009.4 frames, but the table ends 9 frames earlier, on the
    // valid frames FFmpeg wrote: the table's own count wins and nothing remains.
    table = packetTableFromMoov(bytes(moov(1000, 1024, 1134, 49, 848)));
    ASSERT_TRUE(table);
    EXPECT_EQ(table->valid, 50000);
    EXPECT_EQ(table->remainder, 0);

    // A segment longer than the table describes another file.
    EXPECT_FALSE(packetTableFromMoov(bytes(moov(44100, 1024, 200000, 100, 1024))));
}

TEST(GaplessMp4, SmpbIsReadFromTheUserData)
{
    const QByteArray value = " 00000000 00000840 000001CA 00000000003F9E76 00000000";
    const QByteArray entry = box("----",
        box("mean", be32(0) + "com.apple.iTunes") + box("name", be32(0) + "iTunSMPB")
            + box("data", be32(1) + be32(0) + value));
    const QByteArray udta = box("meta", be32(0) + box("ilst", entry));
    const auto smpb = smpbFromMoov(bytes(moov(44100, 0, 100, 1, 100, udta)));
    ASSERT_TRUE(smpb);
    EXPECT_EQ(smpb->delay, 0x840);
    EXPECT_EQ(smpb->padding, 0x1CA);
    EXPECT_EQ(smpb->valid, 0x3F9E76);
    EXPECT_FALSE(smpbFromMoov(bytes(moov(44100, 0, 100, 1, 100))));
}
