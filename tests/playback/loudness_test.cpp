#include "playback/equalisersettings.h"
#include "playback/loudness.h"
#include "playback/normalisation.h"

#include "platform/preferences.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

TEST(LoudnessMath, AlbumIsTheDurationWeightedEnergyMeanAndTheLoudestPeak)
{
    const std::vector<LoudnessAnalysis> tracks {
        { -20.0, -3.0, 100 },
        { -10.0, -0.5, 300 },
        { std::nullopt, std::nullopt, 50 }, // silent: no energy, no weight
    };
    const auto album = Loudness::album(tracks);
    ASSERT_TRUE(album);
    const double expected = 10 * std::log10((100 * 0.01 + 300 * 0.1) / 400.0);
    EXPECT_NEAR(*album->integratedLufs, expected, 1e-9);
    EXPECT_DOUBLE_EQ(*album->truePeakDb, -0.5);
    EXPECT_DOUBLE_EQ(album->durationSec, 450);
    EXPECT_FALSE(Loudness::album(std::vector<LoudnessAnalysis> { { std::nullopt, std::nullopt, 10 } }));
}

TEST(LoudnessMath, GainMeetsTheTargetUnlessThePeakWouldPassTheCeiling)
{
    EXPECT_DOUBLE_EQ(Loudness::gainDb({ -30.0, -20.0, 1 }, -18), 12.0);
    EXPECT_DOUBLE_EQ(Loudness::gainDb({ -12.0, 0.5, 1 }, -18), -6.0);
    // +10 wanted, but the peak at -4 dBTP allows only +3.
    EXPECT_DOUBLE_EQ(Loudness::gainDb({ -28.0, -4.0, 1 }, -18), 3.0);
    EXPECT_DOUBLE_EQ(Loudness::gainDb({ std::nullopt, std::nullopt, 1 }, -18), 0.0);
}

TEST(LoudnessMath, JsonRoundTripsAndRejectsOtherVersions)
{
    for (const LoudnessAnalysis &a : { LoudnessAnalysis { -14.25, -0.75, 241.5 }, LoudnessAnalysis { {}, {}, 3 } }) {
        const auto back = Loudness::fromJson(Loudness::toJson(a));
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, a);
    }
    EXPECT_FALSE(Loudness::fromJson(R"({"version":2,"integratedLufs":-14,"truePeakDb":-1,"durationSec":3})"));
    EXPECT_FALSE(Loudness::fromJson(R"({"version":1,"integratedLufs":"loud","truePeakDb":-1,"durationSec":3})"));
    EXPECT_FALSE(Loudness::fromJson("not json"));
}

TEST(LoudnessPreferences, ModeAndTargetFallBackAndClamp)
{
    TestHome home;
    EXPECT_EQ(Normalisation::storedMode(), NormalisationMode::off);
    EXPECT_EQ(Normalisation::storedTarget(), Normalisation::kDefaultTargetLufs);
    Normalisation::storeMode(NormalisationMode::album);
    Normalisation::storeTarget(-23);
    EXPECT_EQ(Normalisation::storedMode(), NormalisationMode::album);
    EXPECT_EQ(Normalisation::storedTarget(), -23);
    Preferences::setValue(Normalisation::kModeKey, QStringLiteral("Album")); // wrong case
    Preferences::setValue(Normalisation::kTargetKey, 3.0);
    EXPECT_EQ(Normalisation::storedMode(), NormalisationMode::off);
    EXPECT_EQ(Normalisation::storedTarget(), Normalisation::kMaxTargetLufs);
}

TEST(EqualiserPreferences, PresetsAndHandMadeSettingsRoundTrip)
{
    TestHome home;
    EXPECT_EQ(Equaliser::stored(), EqualiserSettings {}); // nothing stored: off and flat
    const QStringList ids = Equaliser::presetIds();
    ASSERT_EQ(ids, QStringList({ "flat", "bass", "treble", "vocal", "loudness" }));
    for (const QString &id : ids) {
        const auto preset = Equaliser::preset(id);
        ASSERT_TRUE(preset);
        Equaliser::store(*preset);
        EXPECT_EQ(Equaliser::stored(), *preset) << id.toStdString();
        EXPECT_EQ(Equaliser::presetOf(Equaliser::stored()), id);
        EXPECT_EQ(Preferences::string(Equaliser::kPresetKey), id);
    }
    EXPECT_TRUE(Equaliser::preset("flat")->isFlat());
    EXPECT_FALSE(Equaliser::preset("nope"));

    EqualiserSettings own { true, -2.5f, { 1, 2, 3, 4, 5, 6, 7, 8, 9, 40 } };
    Equaliser::store(own);
    own.bandsDb[9] = EqualiserSettings::kMaxDb; // stored clamped
    EXPECT_EQ(Equaliser::stored(), own);
    EXPECT_FALSE(Equaliser::presetOf(own));
    EXPECT_EQ(Preferences::string(Equaliser::kPresetKey), QString());

    Preferences::setValue(Equaliser::kBandsKey, QStringLiteral("1,2,3")); // damaged: flat
    EXPECT_EQ(Equaliser::stored().bandsDb, (std::array<float, 10> {}));
}
