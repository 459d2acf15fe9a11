#pragma once

#include "playbackaudio.h"

#include <QList>
#include <QStringList>

#include <vector>

// A continuous stereo sweep (any dropped or doubled frame shows as a jump in phase) and the
// same signal cut into four parts of odd lengths, each encoded on its own by ffmpeg.
struct SweepParts {
    QString full; // the continuous signal, 16-bit WAV
    QStringList parts; // the parts in the asked format
    QList<qint64> lengths; // frames of signal in each part

    // `codec` are ffmpeg's options for a part, `suffix` its file name's end.
    static SweepParts make(const QString &folder, const QString &suffix, const QStringList &codec, QString *error)
    {
        SweepParts s;
        s.lengths = { 57347, 48812, 83795, 61001 };
        qint64 total = 0;
        for (qint64 n : s.lengths)
            total += n;
        s.full = folder + QStringLiteral("/full.wav");
        const QString sweep
            = QStringLiteral("aevalsrc=0.5*sin(2*PI*(40*t+700*t*t))|0.4*sin(2*PI*(90*t+450*t*t)):s=%1:d=%2")
                  .arg(PlaybackAudio::kRate)
                  .arg(double(total) / PlaybackAudio::kRate + 1);
        if (!PlaybackAudio::encode(s.full,
                { "-f", "lavfi", "-i", sweep, "-af", QStringLiteral("atrim=end_sample=%1").arg(total), "-c:a",
                    "pcm_s16le" },
                error))
            return s;
        qint64 from = 0;
        for (int i = 0; i < s.lengths.size(); ++i) {
            const QString part = folder + QStringLiteral("/part%1.%2").arg(i).arg(suffix);
            const QString cut = QStringLiteral("atrim=start_sample=%1:end_sample=%2,asetpts=N/SR/TB")
                                    .arg(from)
                                    .arg(from + s.lengths[i]);
            if (!PlaybackAudio::encode(part, QStringList { "-i", s.full, "-af", cut } + codec, error))
                return s;
            s.parts << part;
            from += s.lengths[i];
        }
        return s;
    }

    // Each part as ffmpeg decodes it, cut to its own length (the encoder's padding off),
    // one after the other: what a gapless render must equal.
    std::vector<float> trimmedDecodes() const
    {
        std::vector<float> all;
        for (int i = 0; i < parts.size(); ++i) {
            std::vector<float> part = PlaybackAudio::ffmpegDecode(parts[i]);
            part.resize(std::min(part.size(), size_t(2 * lengths[i])));
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    qint64 totalFrames() const
    {
        qint64 total = 0;
        for (qint64 n : lengths)
            total += n;
        return total;
    }
};
