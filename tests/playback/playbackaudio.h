#pragma once

#include "testenv.h"

#include <QFile>
#include <QtEndian>

#include <cstring>
#include <vector>

// Audio files for the player's tests, made by ffmpeg, and the frames a render wrote.
namespace PlaybackAudio {

inline constexpr int kRate = 44100;
inline const QString kFfmpeg = QStringLiteral("/usr/bin/ffmpeg");

// Runs ffmpeg with `arguments` (inputs, filters, codec options) writing `path`; false with
// ffmpeg's complaint in `error` when it failed.
inline bool encode(const QString &path, const QStringList &arguments, QString *error = nullptr)
{
    QString why;
    const bool ok
        = runProgram(kFfmpeg, QStringList { "-v", "error", "-y" } + arguments + QStringList { path }, &why).has_value();
    if (error)
        *error = why;
    return ok;
}

// A stereo float WAV of `frames` frames whose left channel holds `left` and right `right`
// (constants: each deck's contribution to a mix can then be read off one channel).
inline bool makeLevels(const QString &path, double left, double right, qint64 frames)
{
    const QString source
        = QStringLiteral("aevalsrc=%1|%2:s=%3:d=%4").arg(left).arg(right).arg(kRate).arg(double(frames) / kRate + 1);
    return encode(path,
        { "-f", "lavfi", "-i", source, "-af", QStringLiteral("atrim=end_sample=%1").arg(frames), "-c:a", "pcm_f32le" });
}

// Interleaved stereo float samples of a 32-bit float WAV (what the render writes); empty
// when the file is not one.
inline std::vector<float> readFloatWav(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    if (bytes.size() < 12 || !bytes.startsWith("RIFF") || bytes.mid(8, 4) != "WAVE")
        return {};
    qsizetype at = 12;
    while (at + 8 <= bytes.size()) {
        const QByteArray id = bytes.mid(at, 4);
        const quint32 size = qFromLittleEndian<quint32>(bytes.constData() + at + 4);
        if (id == "data") {
            const qsizetype count = std::min<qsizetype>(size, bytes.size() - at - 8) / qsizetype(sizeof(float));
            std::vector<float> samples(static_cast<size_t>(count));
            std::memcpy(samples.data(), bytes.constData() + at + 8, size_t(count) * sizeof(float));
            return samples;
        }
        at += 8 + size + (size & 1);
    }
    return {};
}

// What ffmpeg's own decoder makes of a file: interleaved stereo float at kRate.
inline std::vector<float> ffmpegDecode(const QString &path)
{
    QString error;
    const QByteArray raw = runProgram(
        kFfmpeg, { "-v", "error", "-i", path, "-f", "f32le", "-ac", "2", "-ar", QString::number(kRate), "-" }, &error)
                               .value_or(QByteArray());
    std::vector<float> samples(size_t(raw.size()) / sizeof(float));
    std::memcpy(samples.data(), raw.constData(), samples.size() * sizeof(float));
    return samples;
}

// The first sample index where two sample lists differ, -1 when they are equal.
inline qint64 firstDifference(const std::vector<float> &a, const std::vector<float> &b)
{
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        if (std::memcmp(&a[i], &b[i], sizeof(float)) != 0)
            return qint64(i);
    }
    return a.size() == b.size() ? -1 : qint64(n);
}

} // namespace PlaybackAudio
