#include "app/texts.h"
#include "app/transitionmenubutton.h"
#include "library/transitionsettings.h"
#include "platform/preferences.h"

#include "testenv.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QSlider>

#include <gtest/gtest.h>

namespace {

class TransitionMenuTest : public ::testing::Test {
protected:
    void TearDown() override { Texts::setLanguage(Texts::Language::English); }

    TestHome home;
};

TEST_F(TransitionMenuTest, ChoosingAModeOrALengthChangesTheSharedSettings)
{
    TransitionSettings settings;
    TransitionMenuButton button(settings);
    EXPECT_EQ(button.text(), QStringLiteral("Off"));
    EXPECT_TRUE(button.modeAction(TransitionMode::off)->isChecked());
    EXPECT_EQ(button.crossfadeValue()->text(), QStringLiteral("6 s"));

    button.modeAction(TransitionMode::crossfade)->trigger();
    EXPECT_EQ(settings.mode(), TransitionMode::crossfade);
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.transition.mode")), QStringLiteral("crossfade"));
    EXPECT_EQ(button.text(), QStringLiteral("Crossfade"));
    EXPECT_EQ(button.toolTip(),
        QStringLiteral("Transition: Crossfade. The end of a track fades into the start of the next."));
    EXPECT_FALSE(button.modeAction(TransitionMode::off)->isChecked());

    button.crossfadeSlider()->setValue(9);
    EXPECT_EQ(settings.crossfadeSeconds(), 9);
    EXPECT_EQ(Preferences::integer(QStringLiteral("ov.transition.crossfadeSeconds")), 9);
    EXPECT_EQ(button.crossfadeValue()->text(), QStringLiteral("9 s"));
    // Only 1 to 12 s can be chosen.
    button.crossfadeSlider()->setValue(30);
    EXPECT_EQ(settings.crossfadeSeconds(), 12);

    // A drag writes once, when it ends.
    button.crossfadeSlider()->setSliderDown(true);
    button.crossfadeSlider()->setValue(3);
    EXPECT_EQ(settings.crossfadeSeconds(), 12);
    EXPECT_EQ(button.crossfadeValue()->text(), QStringLiteral("3 s"));
    button.crossfadeSlider()->setSliderDown(false);
    EXPECT_EQ(settings.crossfadeSeconds(), 3);

    // A change made elsewhere (another view, MPRIS) shows here too.
    settings.setMode(TransitionMode::gapless);
    settings.setCrossfadeSeconds(11);
    EXPECT_TRUE(button.modeAction(TransitionMode::gapless)->isChecked());
    EXPECT_EQ(button.text(), QStringLiteral("Gapless"));
    EXPECT_EQ(button.crossfadeSlider()->value(), 11);
    EXPECT_EQ(button.hintLabel()->text(), QStringLiteral("Tracks join without a gap, as on the album."));
}

TEST_F(TransitionMenuTest, AutomixLengthFollowsTheSettings)
{
    Preferences::setValue(QStringLiteral("ov.transition.automixSeconds"), 24);
    TransitionSettings settings;
    TransitionMenuButton button(settings);
    EXPECT_EQ(button.automixSlider()->minimum(), 4);
    EXPECT_EQ(button.automixSlider()->maximum(), 32);
    EXPECT_EQ(button.automixSlider()->value(), 24);
    EXPECT_EQ(button.automixValue()->text(), QStringLiteral("24 s"));
    button.automixSlider()->setValue(16);
    EXPECT_EQ(settings.automixSeconds(), 16);
    EXPECT_EQ(Preferences::integer(QStringLiteral("ov.transition.automixSeconds")), 16);
    EXPECT_EQ(button.automixValue()->text(), QStringLiteral("16 s"));
    // A change made elsewhere moves the slider.
    settings.setAutomixSeconds(8);
    EXPECT_EQ(button.automixSlider()->value(), 8);
    EXPECT_EQ(button.automixValue()->text(), QStringLiteral("8 s"));
}

TEST_F(TransitionMenuTest, MenuIsWrittenInTheInterfaceLanguage)
{
    Texts::setLanguage(Texts::Language::German);
    TransitionSettings settings;
    settings.setMode(TransitionMode::automix);
    TransitionMenuButton button(settings);
    EXPECT_EQ(button.text(), QStringLiteral("Automix"));
    EXPECT_EQ(button.modeAction(TransitionMode::gapless)->text(), QStringLiteral("Lückenlos"));
    EXPECT_EQ(button.modeAction(TransitionMode::crossfade)->text(), QStringLiteral("Überblenden"));
    EXPECT_EQ(button.crossfadeValue()->text(), QStringLiteral("6 s"));
    EXPECT_TRUE(button.toolTip().startsWith(QStringLiteral("Übergang: Automix. ")));
    QStringList labels;
    for (const QLabel *label : button.modeMenu()->findChildren<QLabel *>())
        labels << label->text();
    EXPECT_TRUE(labels.contains(QStringLiteral("Übergang zwischen Titeln")));
    EXPECT_TRUE(labels.contains(QStringLiteral("Länge der Überblendung")));
    EXPECT_TRUE(labels.contains(QStringLiteral("Länge des Automix")));
}

// The chooser's thirteen keys, each in both languages, and the record made from them.
TEST_F(TransitionMenuTest, TransitionTextsAreCompleteInBothLanguages)
{
    const char *keys[] = { "trans.title", "trans.crossfadeLength", "trans.automixLength", "trans.name.off",
        "trans.name.gapless", "trans.name.crossfade", "trans.name.automix", "trans.hint.off", "trans.hint.gapless",
        "trans.hint.crossfade", "trans.hint.automix", "trans.secondsFormat", "trans.helpFormat" };
    for (Texts::Language language : { Texts::Language::English, Texts::Language::German }) {
        for (const char *key : keys)
            EXPECT_TRUE(Texts::has(key, language)) << key;
        Texts::setLanguage(language);
        const TransitionTexts texts = Texts::transitionTexts();
        for (const QString &text : { texts.title, texts.crossfadeLength, texts.automixLength })
            EXPECT_FALSE(text.isEmpty());
        EXPECT_TRUE(texts.secondsFormat.contains(QStringLiteral("%1")));
        EXPECT_TRUE(texts.helpFormat.contains(QStringLiteral("%1")) && texts.helpFormat.contains(QStringLiteral("%2")));
        QSet<QString> names;
        QSet<QString> hints;
        for (TransitionMode mode : TransitionModes::kAll) {
            // Looked up, not the key shown for a missing text.
            EXPECT_FALSE(texts.names.value(mode).isEmpty());
            EXPECT_FALSE(texts.names.value(mode).startsWith(QStringLiteral("trans.")));
            EXPECT_FALSE(texts.hints.value(mode).startsWith(QStringLiteral("trans.")));
            names.insert(texts.names.value(mode));
            hints.insert(texts.hints.value(mode));
        }
        EXPECT_EQ(names.size(), 4);
        EXPECT_EQ(hints.size(), 4);
    }
    Texts::setLanguage(Texts::Language::German);
    EXPECT_EQ(Texts::transitionTexts().names.value(TransitionMode::off), QStringLiteral("Aus"));
    Texts::setLanguage(Texts::Language::English);
    EXPECT_EQ(Texts::transitionTexts().names.value(TransitionMode::off), QStringLiteral("Off"));
}

} // namespace
