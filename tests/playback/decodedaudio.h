#pragma once

#include "playback/audiodecoder.h"

#include "testenv.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <vector>

// Test audio for the playback tests: made by ffmpeg, read back by our decoder or, as a
// second opinion, by ffmpeg itself.
namespace DecodedAudio {

inline const QString kFfmpeg = QStringLiteral("/usr/bin/ffmpeg");

// A stereo sweep whose channels differ, so a dropped, doubled or swapped frame shows.
inline QString sweepSource(double seconds, int rate)
{
    return QStringLiteral("aevalsrc=0.5*sin(2*PI*(60*t+900*t*t))|0.4*sin(2*PI*(200*t+500*t*t)):s=%1:d=%2")
        .arg(rate)
        .arg(seconds, 0, 'f', 6);
}

// Runs ffmpeg with `arguments` (inputs and codec options) writing `path`; fails the test
// when ffmpeg does.
inline bool make(const QString &path, const QStringList &arguments)
{
    QString error;
    const auto out
        = runProgram(kFfmpeg, QStringList { "-v", "error", "-y" } + arguments + QStringList { path }, &error);
    EXPECT_TRUE(out.has_value()) << error.toStdString();
    return out.has_value();
}

// Encodes `seconds` of the sweep at `rate` Hz with `channels` into `path` with `codecArgs`.
inline bool makeSweep(const QString &path, double seconds, int rate, int channels, const QStringList &codecArgs)
{
    return make(path,
        QStringList { "-f", "lavfi", "-i", sweepSource(seconds, rate), "-ac", QString::number(channels) } + codecArgs);
}

// Everything a decoder delivers from its current position to the end (stereo frames);
// `failed` set when read() reported an error.
inline std::vector<float> readAll(AudioDecoder &decoder, bool *failed = nullptr)
{
    std::vector<float> all;
    std::vector<float> block(2 * 4000);
    while (true) {
        const qint64 got = decoder.read(block.data(), 4000);
        if (got < 0 && failed)
            *failed = true;
        if (got <= 0)
            break;
        all.insert(all.end(), block.begin(), block.begin() + 2 * got);
    }
    return all;
}

// ffmpeg's own decode of `path` as interleaved float in the file's layout.
inline std::vector<float> ffmpegDecode(const QString &path)
{
    QString error;
    const auto out = runProgram(kFfmpeg, { "-v", "error", "-i", path, "-f", "f32le", "-" }, &error);
    EXPECT_TRUE(out.has_value()) << error.toStdString();
    std::vector<float> samples(out ? size_t(out->size()) / sizeof(float) : 0);
    if (out)
        std::memcpy(samples.data(), out->constData(), samples.size() * sizeof(float));
    return samples;
}

} // namespace DecodedAudio
