#include "app/equaliserdialog.h"
#include "app/texts.h"
#include "library/transitionsettings.h"
#include "platform/preferences.h"
#include "playback/audioengine.h"
#include "playback/player.h"

#include "testenv.h"

#include <QCheckBox>
#include <QComboBox>
#include <QSlider>

#include <gtest/gtest.h>

namespace {

class EqualiserDialogTest : public ::testing::Test {
protected:
    void TearDown() override { Texts::setLanguage(Texts::Language::English); }

    TestHome home;
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::offline, 44100, 512 } };
    TransitionSettings settings;
};

TEST_F(EqualiserDialogTest, PresetsSlidersAndLevellingReachThePlayerAndThePreferences)
{
    Player player(engine, settings, nullptr);
    EqualiserDialog dialog(player);
    EXPECT_FALSE(dialog.enabledBox()->isChecked());
    EXPECT_EQ(dialog.presetBox()->currentData().toString(), QStringLiteral("flat"));
    EXPECT_EQ(dialog.normalisationBox()->currentData().toString(), QStringLiteral("off"));

    // A preset turns the equaliser on and sets the engine's bands.
    const int bass = dialog.presetBox()->findData(QStringLiteral("bass"));
    dialog.presetBox()->setCurrentIndex(bass);
    Q_EMIT dialog.presetBox()->activated(bass);
    EXPECT_EQ(player.equaliser(), *Equaliser::preset(QStringLiteral("bass")));
    EXPECT_EQ(Equaliser::stored(), player.equaliser());
    EXPECT_TRUE(dialog.enabledBox()->isChecked());
    EXPECT_EQ(engine.masterBandGain(0), 6.0f);
    EXPECT_EQ(engine.preamp(), -6.0f);
    EXPECT_EQ(dialog.bandSlider(0)->value(), 12); // half-dB steps

    // A band moved by hand: heard during the drag, stored when it ends, preset "Custom".
    dialog.bandSlider(5)->setSliderDown(true);
    dialog.bandSlider(5)->setValue(-7);
    EXPECT_EQ(engine.masterBandGain(5), -3.5f);
    EXPECT_EQ(Equaliser::stored().bandsDb[5], 0.0f);
    dialog.bandSlider(5)->setSliderDown(false);
    EXPECT_EQ(Equaliser::stored().bandsDb[5], -3.5f);
    EXPECT_EQ(dialog.presetBox()->currentData().toString(), QString());

    // Off: the engine is flat again, the bands are kept for the next time.
    dialog.enabledBox()->setChecked(false);
    EXPECT_EQ(engine.masterBandGain(0), 0.0f);
    EXPECT_EQ(engine.preamp(), 0.0f);
    EXPECT_FALSE(Equaliser::stored().enabled);
    EXPECT_EQ(Equaliser::stored().bandsDb[0], 6.0f);

    const int album = dialog.normalisationBox()->findData(QStringLiteral("album"));
    dialog.normalisationBox()->setCurrentIndex(album);
    Q_EMIT dialog.normalisationBox()->activated(album);
    EXPECT_EQ(player.normalisation(), NormalisationMode::album);
    EXPECT_EQ(Preferences::string(Normalisation::kModeKey), QStringLiteral("album"));

    // A new player (the next start) takes all of it from the preferences.
    AudioEngine engine2 { AudioEngine::Options { AudioEngine::Output::offline, 44100, 512 } };
    Player again(engine2, settings, nullptr);
    EXPECT_EQ(again.equaliser(), Equaliser::stored());
    EXPECT_EQ(again.normalisation(), NormalisationMode::album);
}

TEST_F(EqualiserDialogTest, SpeaksGerman)
{
    Texts::setLanguage(Texts::Language::German);
    Player player(engine, settings, nullptr);
    EqualiserDialog dialog(player);
    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Equalizer"));
    EXPECT_EQ(dialog.normalisationBox()->itemText(2), QStringLiteral("Pro Album"));
    EXPECT_EQ(dialog.presetBox()->itemText(0), QStringLiteral("Neutral"));
}

} // namespace
