#include "playback/equalisersettings.h"

#include "platform/preferences.h"
#include "playback/audioengine.h"

#include <algorithm>
#include <cmath>

namespace {

float clampDb(double dB)
{
    return std::isfinite(dB) ? float(std::clamp(dB, double(-EqualiserSettings::kMaxDb), double(EqualiserSettings::kMaxDb)))
                             : 0.0f;
}

struct Preset {
    const char *id;
    float preampDb;
    std::array<float, EqualiserSettings::kBands> bandsDb;
};

// Bands: 31, 62, 125, 250, 500 Hz, 1, 2, 4, 8, 16 kHz. A preset that boosts takes the
// preamp down by about its largest boost, so that it changes the balance, not the level,
// and does not drive the output into clipping.
constexpr std::array<Preset, 5> kPresets { {
    { "flat", 0, { 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 } },
    { "bass", -6, { 6, 5.5f, 4.5f, 2.5f, 0.5f, 0, 0, 0, 0, 0 } },
    { "treble", -6, { 0, 0, 0, 0, 0, 0.5f, 2, 4, 5.5f, 6 } },
    // Presence around 1 to 4 kHz, where speech is understood; rumble and hiss down.
    { "vocal", -4, { -3, -2, -1, 0, 1.5f, 3.5f, 4, 3, 1, -1 } },
    // The ear's lower sensitivity to lows and highs at low listening levels, made up for.
    { "loudness", -6, { 6, 4.5f, 2, 0, -1, -1, 0, 1.5f, 3.5f, 5 } },
} };

} // namespace

bool EqualiserSettings::isFlat() const
{
    return preampDb == 0.0f && std::all_of(bandsDb.begin(), bandsDb.end(), [](float b) { return b == 0.0f; });
}

QStringList Equaliser::presetIds()
{
    QStringList ids;
    for (const Preset &p : kPresets)
        ids << QString::fromLatin1(p.id);
    return ids;
}

std::optional<EqualiserSettings> Equaliser::preset(const QString &id)
{
    for (const Preset &p : kPresets) {
        if (id == QLatin1String(p.id))
            return EqualiserSettings { true, p.preampDb, p.bandsDb };
    }
    return std::nullopt;
}

std::optional<QString> Equaliser::presetOf(const EqualiserSettings &settings)
{
    for (const Preset &p : kPresets) {
        if (settings.preampDb == p.preampDb && settings.bandsDb == p.bandsDb)
            return QString::fromLatin1(p.id);
    }
    return std::nullopt;
}

EqualiserSettings Equaliser::stored()
{
    EqualiserSettings s;
    s.enabled = Preferences::value(kEnabledKey).toBool();
    bool ok = false;
    const double preamp = Preferences::value(kPreampKey).toDouble(&ok);
    s.preampDb = ok ? clampDb(preamp) : 0.0f;
    const QStringList bands = Preferences::string(kBandsKey).value_or(QString()).split(QLatin1Char(','));
    if (bands.size() == EqualiserSettings::kBands) {
        for (int i = 0; i < EqualiserSettings::kBands; ++i) {
            const double dB = bands[i].trimmed().toDouble(&ok);
            s.bandsDb[size_t(i)] = ok ? clampDb(dB) : 0.0f;
        }
    }
    return s;
}

void Equaliser::store(const EqualiserSettings &settings)
{
    QStringList bands;
    for (float dB : settings.bandsDb)
        bands << QString::number(double(clampDb(dB)));
    Preferences::setValue(kEnabledKey, settings.enabled);
    Preferences::setValue(kPreampKey, double(clampDb(settings.preampDb)));
    Preferences::setValue(kBandsKey, bands.join(QLatin1Char(',')));
    Preferences::setValue(kPresetKey, presetOf(settings).value_or(QString()));
}

void Equaliser::apply(AudioEngine &engine, const EqualiserSettings &settings)
{
    for (int i = 0; i < EqualiserSettings::kBands; ++i)
        engine.setMasterBandGain(i, settings.enabled ? clampDb(settings.bandsDb[size_t(i)]) : 0.0f);
    engine.setPreamp(settings.enabled ? clampDb(settings.preampDb) : 0.0f);
}
