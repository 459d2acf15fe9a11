#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <span>
#include <vector>

class QIODevice;

// Byte-level readers of MPEG audio frames, their Xing/Info/LAME tags and the "iTunSMPB"
// text, shared by the decoder (exact MP3 lengths and seek positions) and the gapless
// planner (encoder delay and padding). Pure functions over bytes, except the two that read
// a device, and those read with hard limits.
namespace GaplessPlanner {

// One MPEG audio frame header (4 bytes), as the MPEG-1/2/2.5 standard lays it out.
struct FrameHeader {
    int version = 1; // 1, 2, or 25 (MPEG 2.5)
    int layer = 3; // 1, 2 or 3
    int bitrateKbps = 0;
    int sampleRate = 0; // Hz
    int channels = 2;
    bool padding = false;
    int frameBytes = 0; // whole frame including the header
    int samplesPerFrame = 0; // 384, 1152 or 576 (Layer III of MPEG-2/2.5)
    int sideInfoBytes = 0; // Layer III side information after the header (0 for layers I/II)
};

// Absent for bytes that are no valid header (no sync, reserved values, free format).
[[nodiscard]] std::optional<FrameHeader> frameHeader(std::span<const uchar> bytes);

// What a Xing or Info frame says (its encoder part is the LAME tag).
struct XingInfo {
    std::optional<qint64> frames; // audio frames after this one
    bool hasEncoderTag = false;
    QByteArray encoder; // the 4 printable bytes that start the encoder name ("LAME", "Lavc")
    int delay = 0; // encoder delay in samples (12 bits)
    int padding = 0; // encoder padding in samples (12 bits)
};

// `frame` starts at the frame header. Absent when neither "Xing" nor "Info" follows the
// side information.
[[nodiscard]] std::optional<XingInfo> parseXing(std::span<const uchar> frame, const FrameHeader &header);

// A Fraunhofer "VBRI" frame's frame count; absent when the frame is none.
[[nodiscard]] std::optional<qint64> parseVbri(std::span<const uchar> frame);

// Size of the ID3v2 tag at the start of `bytes` (header, body and footer), 0 when there is none.
[[nodiscard]] qint64 id3v2Size(std::span<const uchar> bytes);

struct Smpb {
    qint64 delay = 0;
    qint64 padding = 0;
    qint64 valid = 0;
};
// The "iTunSMPB" text in `bytes`, as single-byte or UTF-16 text.
[[nodiscard]] std::optional<Smpb> findSMPB(std::span<const uchar> bytes);

// Where an MP3's audio starts and what its first frame says.
struct Mp3Start {
    FrameHeader header; // of the first frame
    qint64 firstFrameOffset = 0; // byte offset of the first frame (the tag frame when there is one)
    qint64 audioOffset = 0; // byte offset of the first audio frame (after a Xing/Info/VBRI frame)
    std::optional<XingInfo> xing;
    std::optional<qint64> vbriFrames;
    std::optional<Smpb> id3Smpb; // from an ID3v2 tag of at most 512 KiB
};

// Reads the ID3v2 tag and up to 64 KiB after it. Absent when no MPEG audio frame is found.
[[nodiscard]] std::optional<Mp3Start> mp3Info(QIODevice &file);

// The byte offsets of every complete audio frame from `start.audioOffset`, with the offset
// one past the last as the final element, found by reading frame headers only (no decoding).
// Junk between frames is skipped by resynchronising; trailing tags end the walk.
[[nodiscard]] std::vector<qint64> walkFrames(QIODevice &file, const Mp3Start &start);

// The frames FFmpeg's MP3 demuxer and our own decoder remove at the edges: the encoder delay
// plus the decoder's 529 at the start, and the padding (less those 529) at the end, both only
// when the tag names an encoder known to write them.
struct Mp3Trim {
    qint64 start = 0;
    qint64 end = 0; // one past the last delivered sample of the untrimmed decode
};
[[nodiscard]] Mp3Trim mp3Trim(const Mp3Start &start, qint64 frames);

inline constexpr int kMp3DecoderDelay = 529;

} // namespace GaplessPlanner
