#include "app/settingsview.h"
#include "engine/apppaths.h"
#include "engine/enginesettingsstore.h"
#include "engine/recordingstats.h"
#include "platform/preferences.h"
#include "stations/favoritestations.h"

#include "appfixture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTreeWidget>

namespace {

class SettingsViewTest : public AppFixture {};

TEST_F(SettingsViewTest, GlobalFormWritesWhatTheRecordingSideReads)
{
    SettingsView view(*app);
    ASSERT_EQ(view.scope(), QString());
    view.leadInBox()->setValue(7);
    view.leadOutBox()->setValue(3);
    view.minDurationBox()->setValue(90);
    view.skipJinglesBox()->setChecked(false);
    view.qualityBox()->setCurrentIndex(1);

    const RadioEngineSettings stored = RadioEngineSettings::effective(QStringLiteral("any-station"));
    EXPECT_EQ(stored.leadInSec, 7);
    EXPECT_EQ(stored.leadOutSec, 3);
    EXPECT_EQ(stored.minDurationSec, 90);
    EXPECT_FALSE(stored.skipJingles);
    EXPECT_TRUE(stored.lossless);
    EXPECT_EQ(Preferences::integer(QStringLiteral("ov.minRecordingDuration")), 90);

    // The form cannot go beyond what the engine would clamp to.
    view.leadInBox()->setValue(99);
    view.minDurationBox()->setValue(-5);
    EXPECT_EQ(RadioEngineSettings::loadGlobal().leadInSec, 30);
    EXPECT_EQ(RadioEngineSettings::loadGlobal().minDurationSec, 0);

    ASSERT_TRUE(view.resetButton()->isEnabled());
    view.resetButton()->click();
    EXPECT_EQ(RadioEngineSettings::loadGlobal(), RadioEngineSettings::standard());
    EXPECT_EQ(view.leadInBox()->value(), 0);
    EXPECT_EQ(view.minDurationBox()->value(), 45);
}

// A setting the file did not take must not stay on screen as if it had.
TEST_F(SettingsViewTest, AFailedWritePutsTheFormBackAndSaysWhy)
{
    SettingsView view(*app);
    QSignalSpy problems(app.get(), &Application::problem);
    // A file where the preferences' folder belongs: nothing can be written there.
    ASSERT_TRUE(QDir().mkpath(home.file(QStringLiteral("config/Orvida"))));
    ASSERT_TRUE(QDir().rename(home.file(QStringLiteral("config/Orvida")), home.file(QStringLiteral("config/moved"))));
    writeFile(home.file(QStringLiteral("config/Orvida")), "not a folder");
    view.leadInBox()->setValue(7);
    EXPECT_EQ(view.leadInBox()->value(), 0);
    EXPECT_EQ(app->engineSettings().global().leadInSec, 0);
    ASSERT_FALSE(problems.isEmpty());
    EXPECT_TRUE(problems.last().first().toString().contains(QStringLiteral("Orvida.conf")))
        << problems.last().first().toString().toStdString();
}

TEST_F(SettingsViewTest, StationScopeEditsOnlyThatStationsOverride)
{
    ASSERT_TRUE(app->favorites().add(makeStation(QStringLiteral("st-1"), QStringLiteral("Jazz One"))));
    RadioEngineSettings global;
    global.leadInSec = 4;
    ASSERT_TRUE(app->engineSettings().setGlobal(global));

    SettingsView view(*app);
    ASSERT_GE(view.scopeBox()->findData(QStringLiteral("st-1")), 0);
    view.setScope(QStringLiteral("st-1"));
    // Without an override the form shows the record in force, the global one.
    EXPECT_EQ(view.leadInBox()->value(), 4);
    EXPECT_FALSE(view.resetButton()->isEnabled());

    view.leadOutBox()->setValue(12);
    EXPECT_TRUE(app->engineSettings().hasOverride(QStringLiteral("st-1")));
    EXPECT_EQ(RadioEngineSettings::effective(QStringLiteral("st-1")).leadOutSec, 12);
    EXPECT_EQ(RadioEngineSettings::effective(QStringLiteral("st-1")).leadInSec, 4);
    EXPECT_EQ(RadioEngineSettings::effective(QStringLiteral("other")).leadOutSec, 0);

    ASSERT_TRUE(view.resetButton()->isEnabled());
    view.resetButton()->click();
    EXPECT_FALSE(app->engineSettings().hasOverride(QStringLiteral("st-1")));
    EXPECT_TRUE(RadioEngineSettings::loadStationOverrides().isEmpty());
    EXPECT_EQ(view.leadOutBox()->value(), 0);
    EXPECT_EQ(view.scope(), QStringLiteral("st-1"));

    // A station known only by its id can still be tuned.
    view.setScope(QStringLiteral("custom:http://127.0.0.1:9/x"));
    view.skipJinglesBox()->setChecked(false);
    EXPECT_FALSE(RadioEngineSettings::effective(QStringLiteral("custom:http://127.0.0.1:9/x")).skipJingles);
}

TEST_F(SettingsViewTest, NamingPatternsAreStoredAndPreviewedInsideTheRadioFolder)
{
    SettingsView view(*app);
    const QString radioDir = AppPaths::radioDir();
    EXPECT_EQ(view.previewLabel()->text(), radioDir + QStringLiteral("/Nina Simone - Feeling Good.mp3"));

    view.namePatternField()->setText(QStringLiteral("%artist% – %title%"));
    view.folderPatternField()->setText(QStringLiteral("%station%"));
    Q_EMIT view.folderPatternField()->editingFinished();
    EXPECT_EQ(Preferences::string(QStringLiteral("ov.radioNamePattern")), QStringLiteral("%artist% – %title%"));
    EXPECT_EQ(view.previewLabel()->text(), radioDir + QStringLiteral("/Jazz Radio/Nina Simone – Feeling Good.mp3"));

    // A pattern that climbs out of the folder is kept inside it.
    view.folderPatternField()->setText(QStringLiteral("../../etc"));
    EXPECT_TRUE(view.previewLabel()->text().startsWith(radioDir + QLatin1Char('/'))) << view.previewLabel()->text().toStdString();
    // The preview never creates folders.
    EXPECT_FALSE(QDir(radioDir).exists(QStringLiteral("Jazz Radio")));

    // Emptied fields mean the defaults again.
    view.namePatternField()->clear();
    view.folderPatternField()->clear();
    Q_EMIT view.folderPatternField()->editingFinished();
    EXPECT_FALSE(Preferences::contains(QStringLiteral("ov.radioNamePattern")));
    EXPECT_FALSE(Preferences::contains(QStringLiteral("ov.radioFolderPattern")));

    const QString chosen = home.file(QStringLiteral("Elsewhere"));
    view.chooseFolder = [&](const QString &) { return chosen; };
    view.radioFolderField()->setText(chosen);
    Q_EMIT view.radioFolderField()->editingFinished();
    EXPECT_EQ(AppPaths::radioDir(), chosen);
    EXPECT_TRUE(view.previewLabel()->text().startsWith(chosen + QLatin1Char('/')));
}

TEST_F(SettingsViewTest, StatisticsFollowSavedSongs)
{
    SettingsView view(*app);
    EXPECT_EQ(view.totalLabel()->text(), QStringLiteral("0"));
    app->stats().note(QStringLiteral("Jazz One"));
    app->stats().note(QStringLiteral("Rock Two"));
    app->stats().note(QStringLiteral("Rock Two"));
    EXPECT_EQ(view.totalLabel()->text(), QStringLiteral("3"));
    EXPECT_EQ(view.todayLabel()->text(), QStringLiteral("3"));
    ASSERT_EQ(view.byStationList()->topLevelItemCount(), 2);
    // Busiest station first.
    EXPECT_EQ(view.byStationList()->topLevelItem(0)->text(0), QStringLiteral("Rock Two"));
    EXPECT_EQ(view.byStationList()->topLevelItem(0)->text(1), QStringLiteral("2"));
}

} // namespace
