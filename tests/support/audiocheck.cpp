#include "audiocheck.h"

#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <cstring>
#include <numbers>

namespace AudioCheck {

namespace {

    // The share of the window's energy at one frequency (Goertzel): 1 for a pure tone of that
    // frequency, near 0 for other tones or noise.
    double toneShare(const qint16 *samples, int count, double toneHz)
    {
        const double coeff = 2 * std::cos(2 * std::numbers::pi * toneHz / kRateHz);
        double s1 = 0;
        double s2 = 0;
        double energy = 0;
        for (int i = 0; i < count; ++i) {
            const double x = samples[i];
            const double s0 = x + coeff * s1 - s2;
            s2 = s1;
            s1 = s0;
            energy += x * x;
        }
        if (energy <= 0)
            return 0;
        const double power = s1 * s1 + s2 * s2 - coeff * s1 * s2;
        return 2 * power / (double(count) * energy);
    }

} // namespace

std::optional<std::vector<qint16>> decode(const QString &path, QString *error)
{
    QStringList args = QStringLiteral("-hide_banner -nostdin -loglevel error -i").split(u' ');
    args << path << QStringLiteral("-ac 1 -ar %1 -f s16le -").arg(kRateHz).split(u' ');
    const auto out = runProgram(QStringLiteral("ffmpeg"), args, error);
    if (!out)
        return std::nullopt;
    std::vector<qint16> pcm(size_t(out->size()) / 2);
    std::memcpy(pcm.data(), out->constData(), pcm.size() * 2);
    return pcm;
}

std::vector<int> toneLabels(
    const std::vector<qint16> &pcm, const QList<double> &tonesHz, double windowSec, double minShare)
{
    const int window = int(std::lround(windowSec * kRateHz));
    std::vector<int> labels;
    for (size_t at = 0; window > 0 && at + size_t(window) <= pcm.size(); at += size_t(window)) {
        int best = -1;
        double bestShare = minShare;
        for (int t = 0; t < tonesHz.size(); ++t) {
            const double share = toneShare(pcm.data() + at, window, tonesHz[t]);
            if (share >= bestShare) {
                best = t;
                bestShare = share;
            }
        }
        labels.push_back(best);
    }
    return labels;
}

QList<Run> runs(const std::vector<int> &labels)
{
    QList<Run> out;
    for (int i = 0; i < int(labels.size()); ++i) {
        if (out.isEmpty() || out.last().label != labels[size_t(i)])
            out.append({ labels[size_t(i)], i, 0 });
        ++out.last().windows;
    }
    return out;
}

QString describe(const std::vector<int> &labels, double windowSec)
{
    QStringList parts;
    for (const Run &run : runs(labels)) {
        parts << QStringLiteral("%1 s %2")
                     .arg(run.windows * windowSec, 0, 'f', 1)
                     .arg(run.label < 0 ? QStringLiteral("none") : QStringLiteral("#%1").arg(run.label));
    }
    return parts.join(QStringLiteral(", "));
}

std::optional<ProbeInfo> probe(const QString &path, QString *error)
{
    const auto out = runProgram(QStringLiteral("ffprobe"),
        QStringLiteral("-v error -print_format json -show_format -show_streams").split(u' ') << path, error);
    if (!out)
        return std::nullopt;
    const QJsonObject doc = QJsonDocument::fromJson(*out).object();
    const QJsonObject format = doc.value(QLatin1String("format")).toObject();
    ProbeInfo info;
    info.formatName = format.value(QLatin1String("format_name")).toString();
    info.durationSec = format.value(QLatin1String("duration")).toString().toDouble();
    const QJsonObject tags = format.value(QLatin1String("tags")).toObject();
    for (auto it = tags.begin(); it != tags.end(); ++it)
        info.tags.insert(it.key().toLower(), it.value().toString());
    for (const QJsonValue &value : doc.value(QLatin1String("streams")).toArray()) {
        const QJsonObject stream = value.toObject();
        const QString type = stream.value(QLatin1String("codec_type")).toString();
        if (type == QLatin1String("audio") && info.audioCodec.isEmpty())
            info.audioCodec = stream.value(QLatin1String("codec_name")).toString();
        if (type == QLatin1String("video")
            && stream.value(QLatin1String("disposition")).toObject().value(QLatin1String("attached_pic")).toInt() == 1)
            info.hasCover = true;
    }
    return info;
}

} // namespace AudioCheck
