#pragma once

#include "playback/mpegheaders.h"

#include <QByteArray>
#include <QtGlobal>

#include <optional>
#include <span>

class QIODevice;

// What an MP4 file says about its own edges, read from the box tree with our own bounded
// code because libavformat applies part of it and exposes none of it.
namespace GaplessPlanner {

// The container's account of the first audio track, in the track's media time scale: the
// edit list's media time is the priming, its segment duration the valid frames, and what
// the sample table holds beyond both is the remainder.
struct PacketTable {
    qint64 priming = 0;
    qint64 valid = 0;
    qint64 remainder = 0;
    double storedRate = 0; // the media time scale the three counts are in (Hz)
    QByteArray format; // the sample entry's four characters ("mp4a", "alac", ...)
};

// The moov box of an MP4 family file (anywhere among the top-level boxes), absent when the
// file is none or the box is larger than the reader's limit.
[[nodiscard]] std::optional<QByteArray> readMoov(QIODevice &file);

// Parses a moov box's bytes. Absent when no audio track or no edit list with a media time
// is found, or the counts are negative.
[[nodiscard]] std::optional<PacketTable> packetTableFromMoov(std::span<const uchar> moov);

// The "iTunSMPB" entry of a moov box's user data.
[[nodiscard]] std::optional<Smpb> smpbFromMoov(std::span<const uchar> moov);

// Both read through readMoov().
[[nodiscard]] std::optional<PacketTable> mp4PacketTable(QIODevice &file);
[[nodiscard]] std::optional<Smpb> mp4SMPB(QIODevice &file);

} // namespace GaplessPlanner
