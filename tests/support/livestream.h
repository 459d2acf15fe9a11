#pragma once

#include "fixtureserver.h"
#include "testenv.h"

#include <QElapsedTimer>

#include <algorithm>
#include <functional>
#include <memory>

// A station as the live relay hands it to the player: an MP3 made by ffmpeg with the
// relay's encoder settings, behind the relay's fixed response head, sent at the pace of
// its audio (or faster) for FixtureServer's Produce steps. For the player's tests and
// benchmarks.
namespace LiveStream {

inline constexpr double kToneHz = 440;
inline constexpr int kPieceMs = 50;

// Relay-made MP3 of lavfi `source`: the relay's encoder and its settings ("-q:a 4"),
// unless `quality` names others (a constant "-b:a 128k", say). Empty with ffmpeg's
// complaint in `error` when it failed.
inline std::shared_ptr<const QByteArray> makeMp3(
    const QString &source, QString *error, const QStringList &quality = { "-q:a", "4" })
{
    const std::optional<QByteArray> mp3 = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
        QStringList { "-v", "error", "-f", "lavfi", "-i", source, "-vn", "-acodec", "libmp3lame" } + quality
            + QStringList { "-f", "mp3", "pipe:1" },
        error);
    return std::make_shared<const QByteArray>(mp3.value_or(QByteArray()));
}

// `seconds` of a half-scale kToneHz tone on both channels at 44.1 kHz.
inline QString toneSource(double seconds)
{
    const QString wave = QStringLiteral("0.5*sin(2*PI*%1*t)").arg(kToneHz);
    return QStringLiteral("aevalsrc=%1|%1:s=44100:d=%2").arg(wave).arg(seconds);
}

inline FixtureServer::Script head()
{
    return FixtureServer::Script::head(
        "HTTP/1.0 200 OK", { { "Content-Type", "audio/mpeg" }, { "Cache-Control", "no-cache" } });
}

// A Produce source sending the part of `mp3` (of `seconds` in all) from `fromSec` to
// `toSec`, `speed` times as fast as it plays. The pace follows a clock rather than the
// timer's ticks, so late ticks do not slow it down; each piece is what is due by the
// next tick, so no piece is empty before the end.
inline std::function<QByteArray()> paced(
    std::shared_ptr<const QByteArray> mp3, double seconds, double fromSec, double toSec, double speed)
{
    const double bytesPerSec = double(mp3->size()) / seconds;
    const qsizetype from = qsizetype(fromSec * bytesPerSec);
    const qsizetype to = std::min(mp3->size(), qsizetype(toSec * bytesPerSec));
    auto clock = std::make_shared<QElapsedTimer>();
    auto sent = std::make_shared<qsizetype>(from);
    return [=] {
        if (!clock->isValid())
            clock->start();
        const double aheadSec = double(clock->elapsed() + kPieceMs) / 1000.0 * speed;
        const qsizetype due = std::min(to, from + qsizetype(aheadSec * bytesPerSec));
        const QByteArray piece = mp3->mid(*sent, std::max<qsizetype>(0, due - *sent));
        *sent = std::max(*sent, due);
        return piece;
    };
}

} // namespace LiveStream
