#include "playback/normalisation.h"

#include "platform/preferences.h"

#include <algorithm>
#include <cmath>

QString Normalisation::rawValue(NormalisationMode mode)
{
    switch (mode) {
    case NormalisationMode::track:
        return QStringLiteral("track");
    case NormalisationMode::album:
        return QStringLiteral("album");
    case NormalisationMode::off:
        break;
    }
    return QStringLiteral("off");
}

std::optional<NormalisationMode> Normalisation::fromRawValue(const QString &raw)
{
    for (NormalisationMode mode : { NormalisationMode::off, NormalisationMode::track, NormalisationMode::album }) {
        if (raw == rawValue(mode))
            return mode;
    }
    return std::nullopt;
}

NormalisationMode Normalisation::storedMode()
{
    return fromRawValue(Preferences::string(kModeKey).value_or(QString())).value_or(NormalisationMode::off);
}

void Normalisation::storeMode(NormalisationMode mode)
{
    Preferences::setValue(kModeKey, rawValue(mode));
}

double Normalisation::clampTarget(double lufs)
{
    return std::isfinite(lufs) ? std::clamp(lufs, kMinTargetLufs, kMaxTargetLufs) : kDefaultTargetLufs;
}

double Normalisation::storedTarget()
{
    bool ok = false;
    const double stored = Preferences::value(kTargetKey).toDouble(&ok);
    return ok ? clampTarget(stored) : kDefaultTargetLufs;
}

void Normalisation::storeTarget(double lufs)
{
    Preferences::setValue(kTargetKey, clampTarget(lufs));
}
