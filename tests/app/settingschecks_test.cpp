#include "app/settingsview.h"
#include "app/stationactionbar.h"
#include "app/stationenginesheet.h"
#include "engine/apppaths.h"
#include "engine/closedlidkeeper.h"
#include "engine/enginesettingsstore.h"
#include "platform/preferences.h"

#include "appfixture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>

namespace {

class SettingsChecksTest : public AppFixture {};

TEST(NamingPlaceholders, OnlyWordsBetweenPercentSignsThatTheNamingLacksAreUnknown)
{
    EXPECT_TRUE(AppPaths::unknownPlaceholders(QStringLiteral("%artist%%title% %streamtitle% %station% %date%")).isEmpty());
    // A lone percent sign is text.
    EXPECT_TRUE(AppPaths::unknownPlaceholders(QStringLiteral("100% %artist%")).isEmpty());
    EXPECT_EQ(AppPaths::unknownPlaceholders(QStringLiteral("%foo% - %artist% %Title% %foo%")),
        (QStringList{QStringLiteral("%foo%"), QStringLiteral("%Title%")}));
}

TEST_F(SettingsChecksTest, PatternsAreSavedWhenEditingEndsAndNotWhileAPlaceholderIsUnknown)
{
    SettingsView view(*app);
    QLineEdit *name = view.namePatternField();
    name->setText(QStringLiteral("%artist% – %title%"));
    // Typing alone changes nothing stored, only the example.
    EXPECT_FALSE(Preferences::contains(QStringLiteral("ov.radioNamePattern")));
    EXPECT_TRUE(view.previewLabel()->text().endsWith(QStringLiteral("/Nina Simone – Feeling Good.mp3")));
    Q_EMIT name->editingFinished();
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.radioNamePattern")), QStringLiteral("%artist% – %title%"));
    EXPECT_TRUE(view.patternProblemLabel()->isHidden());

    name->setText(QStringLiteral("%foo% %artist%"));
    view.folderPatternField()->setText(QStringLiteral("%station%/%bar%"));
    EXPECT_FALSE(view.patternProblemLabel()->isHidden());
    EXPECT_TRUE(view.patternProblemLabel()->text().contains(QStringLiteral("%foo%, %bar%")))
        << view.patternProblemLabel()->text().toStdString();
    EXPECT_EQ(name->property("unknownPlaceholders").toStringList(), QStringList{QStringLiteral("%foo%")});
    Q_EMIT name->editingFinished();
    Q_EMIT view.folderPatternField()->editingFinished();
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.radioNamePattern")), QStringLiteral("%artist% – %title%"));
    EXPECT_FALSE(Preferences::contains(QStringLiteral("ov.radioFolderPattern")));

    // Fixed: both are stored at the next end of editing, and the marks go.
    name->setText(QStringLiteral("%date% %artist%"));
    view.folderPatternField()->setText(QStringLiteral("%station%"));
    Q_EMIT view.folderPatternField()->editingFinished();
    EXPECT_TRUE(view.patternProblemLabel()->isHidden());
    EXPECT_TRUE(name->property("unknownPlaceholders").toStringList().isEmpty());
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.radioNamePattern")), QStringLiteral("%date% %artist%"));
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.radioFolderPattern")), QStringLiteral("%station%"));
}

TEST_F(SettingsChecksTest, TheClosedLidSwitchWritesThePreferenceTheKeeperReads)
{
    SettingsView view(*app);
    EXPECT_FALSE(view.closedLidBox()->isChecked());
    view.closedLidBox()->setChecked(true);
    EXPECT_TRUE(ClosedLidKeeper::isEnabled());
    EXPECT_EQ(Preferences::value(QStringLiteral("ov.closedLidRecording")).toBool(), true);
    view.closedLidBox()->setChecked(false);
    EXPECT_FALSE(ClosedLidKeeper::isEnabled());

    // A view opened later shows what is stored.
    ASSERT_TRUE(Preferences::store(QStringLiteral("ov.closedLidRecording"), true));
    SettingsView later(*app);
    EXPECT_TRUE(later.closedLidBox()->isChecked());
}

TEST_F(SettingsChecksTest, TheStationSheetWritesThatStationsOverrideAndShowsAFailedWrite)
{
    const Station jazz = makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz Lounge"));
    QMenu menu;
    StationActionBar::addActions(menu, *app, jazz);
    const QList<QAction *> actions = menu.actions();
    EXPECT_TRUE(std::any_of(actions.begin(), actions.end(),
        [](const QAction *a) { return a->text() == QStringLiteral("Recording Settings…"); }));

    StationEngineSheet sheet(app->engineSettings(), jazz);
    EXPECT_EQ(sheet.windowTitle(), QStringLiteral("Settings for Jazz Lounge"));
    EXPECT_FALSE(sheet.scopeNote()->isHidden());
    EXPECT_FALSE(sheet.resetButton()->isEnabled());
    EXPECT_EQ(sheet.minDurationBox()->value(), 45);

    sheet.minDurationBox()->setValue(120);
    sheet.qualityBox()->setCurrentIndex(1);
    EXPECT_TRUE(app->engineSettings().hasOverride(QStringLiteral("jazz")));
    EXPECT_EQ(RadioEngineSettings::effective(QStringLiteral("jazz")).minDurationSec, 120);
    EXPECT_TRUE(RadioEngineSettings::effective(QStringLiteral("jazz")).lossless);
    EXPECT_EQ(RadioEngineSettings::effective(QStringLiteral("other")).minDurationSec, 45);
    EXPECT_TRUE(sheet.scopeNote()->isHidden());

    // Nothing can be written now: the sheet says why and shows what is in force.
    ASSERT_TRUE(QDir().rename(home.file(QStringLiteral("config/Orvida")), home.file(QStringLiteral("config/moved"))));
    writeFile(home.file(QStringLiteral("config/Orvida")), "not a folder");
    sheet.leadInBox()->setValue(9);
    EXPECT_EQ(sheet.leadInBox()->value(), 0);
    EXPECT_FALSE(sheet.problemLabel()->isHidden());
    EXPECT_TRUE(sheet.problemLabel()->text().contains(QStringLiteral("Orvida.conf")))
        << sheet.problemLabel()->text().toStdString();

    ASSERT_TRUE(QFile::remove(home.file(QStringLiteral("config/Orvida"))));
    ASSERT_TRUE(QDir().rename(home.file(QStringLiteral("config/moved")), home.file(QStringLiteral("config/Orvida"))));
    sheet.resetButton()->click();
    EXPECT_TRUE(sheet.problemLabel()->isHidden());
    EXPECT_FALSE(app->engineSettings().hasOverride(QStringLiteral("jazz")));
    EXPECT_EQ(sheet.minDurationBox()->value(), 45);
}

} // namespace
