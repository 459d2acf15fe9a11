#include "app/settingsview.h"

#include "app/application.h"
#include "app/autostart.h"
#include "app/elidedlabel.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "app/uilanguage.h"
#include "app/uikit.h"
#include "engine/apppaths.h"
#include "engine/closedlidkeeper.h"
#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"
#include "engine/recorderservices.h"
#include "engine/recordingstats.h"
#include "platform/preferences.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

const QString kNamePatternKey = QStringLiteral("ov.radioNamePattern");
const QString kFolderPatternKey = QStringLiteral("ov.radioFolderPattern");
const QString kRadioDirKey = QStringLiteral("ov.radioSaveDir");

QSpinBox *secondsBox(int maximum, QWidget *parent)
{
    auto *box = new QSpinBox(parent);
    box->setRange(0, maximum);
    box->setSuffix(tx("engineSeconds"));
    box->setMinimumWidth(90);
    return box;
}

} // namespace

SettingsView::SettingsView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    chooseFolder = [this](const QString &current) {
        return QFileDialog::getExistingDirectory(this, tx("settings.radioFolder"), current);
    };

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    outer->addWidget(scroll);
    auto *page = new QWidget(scroll);
    scroll->setWidget(page);
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin);
    layout->setSpacing(UiKit::kSpacing + 6);
    layout->addWidget(UiKit::makeTitle(tx("settings.title"), page));
    layout->addWidget(buildEngineGroup());
    layout->addWidget(buildNamingGroup());
    layout->addWidget(buildClosedLidGroup());
    layout->addWidget(buildLanguageGroup());
    layout->addWidget(buildStartupGroup());
    layout->addWidget(buildStatsGroup());
    layout->addStretch();

    connect(&app.engineSettings(), &EngineSettingsStore::changed, this, &SettingsView::loadEngineForm);
    connect(&app.favorites(), &FavoriteStations::changed, this, &SettingsView::fillScopes);
    connect(&app.recents(), &RecentStations::changed, this, &SettingsView::fillScopes);
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this, &SettingsView::fillScopes);
    connect(&app.stats(), &RecordingStats::changed, this, &SettingsView::refreshStats);
    fillScopes();
    loadEngineForm();
    refreshStats();
}

QWidget *SettingsView::buildEngineGroup()
{
    auto *group = new QGroupBox(tx("settings.recording"));
    auto *form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->setVerticalSpacing(8);
    form->addRow(UiKit::makeHint(tx("engineSettingsHelp"), group));

    m_scope = new QComboBox(group);
    m_scope->setObjectName(QStringLiteral("engineScope"));
    // A long station name is cut rather than widening the page past half a screen.
    m_scope->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_scope->setMinimumContentsLength(24);
    form->addRow(tx("settings.scope"), m_scope);
    m_scopeNote = UiKit::makeHint(QString(), group);
    form->addRow(m_scopeNote);

    m_leadIn = secondsBox(int(RadioEngineSettings::kMaxLeadSec), group);
    form->addRow(tx("engineLeadIn"), m_leadIn);
    form->addRow(UiKit::makeHint(tx("engineLeadInHint"), group));
    m_leadOut = secondsBox(int(RadioEngineSettings::kMaxLeadSec), group);
    form->addRow(tx("engineLeadOut"), m_leadOut);
    form->addRow(UiKit::makeHint(tx("engineLeadOutHint"), group));
    m_minDuration = secondsBox(int(RadioEngineSettings::kMaxMinDurationSec), group);
    form->addRow(tx("engineMinDuration"), m_minDuration);
    m_skipJingles = new QCheckBox(tx("engineSkipJingles"), group);
    form->addRow(m_skipJingles);
    form->addRow(UiKit::makeHint(tx("engineSkipJinglesHint"), group));
    m_quality = new QComboBox(group);
    m_quality->addItem(tx("engineQualityNormal"));
    m_quality->addItem(tx("engineQualityLossless"));
    form->addRow(tx("engineQuality"), m_quality);
    form->addRow(UiKit::makeHint(tx("engineQualityHint"), group));
    m_reset = new QPushButton(group);
    form->addRow(QString(), m_reset);

    connect(m_scope, &QComboBox::currentIndexChanged, this, &SettingsView::loadEngineForm);
    for (QSpinBox *box : {m_leadIn, m_leadOut, m_minDuration})
        connect(box, &QSpinBox::valueChanged, this, &SettingsView::saveEngineForm);
    connect(m_skipJingles, &QCheckBox::toggled, this, &SettingsView::saveEngineForm);
    connect(m_quality, &QComboBox::currentIndexChanged, this, &SettingsView::saveEngineForm);
    connect(m_reset, &QPushButton::clicked, this, &SettingsView::resetEngineScope);
    return group;
}

QWidget *SettingsView::buildNamingGroup()
{
    auto *group = new QGroupBox(tx("settings.naming"));
    auto *form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    m_namePattern = new QLineEdit(Preferences::string(kNamePatternKey).value_or(QString()), group);
    m_namePattern->setPlaceholderText(QStringLiteral("%streamtitle%"));
    m_folderPattern = new QLineEdit(Preferences::string(kFolderPatternKey).value_or(QString()), group);
    m_folderPattern->setPlaceholderText(tx("settings.noSubfolders"));
    form->addRow(tx("settings.namePattern"), m_namePattern);
    form->addRow(tx("settings.folderPattern"), m_folderPattern);
    form->addRow(UiKit::makeHint(tx("settings.patternHelp"), group));
    m_patternProblem = new QLabel(group);
    m_patternProblem->setObjectName(QStringLiteral("patternProblem"));
    m_patternProblem->setWordWrap(true);
    m_patternProblem->setStyleSheet(QStringLiteral("color: #c62828;"));
    m_patternProblem->hide();
    form->addRow(m_patternProblem);
    // A long path loses its middle instead of widening the page; the tooltip holds it all.
    m_preview = new ElidedLabel(group);
    // The form widens only expanding fields; an ignored width would be no width at all.
    m_preview->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_preview->setObjectName(QStringLiteral("namingPreview"));
    form->addRow(tx("settings.preview"), m_preview);

    auto *folderRow = new QHBoxLayout;
    m_radioFolder = new QLineEdit(Preferences::string(kRadioDirKey).value_or(QString()), group);
    m_radioFolder->setPlaceholderText(AppPaths::defaultRadioDir());
    auto *choose = new QPushButton(tx("settings.choose"), group);
    auto *useDefault = new QPushButton(tx("settings.useDefault"), group);
    folderRow->addWidget(m_radioFolder, 1);
    folderRow->addWidget(choose);
    folderRow->addWidget(useDefault);
    form->addRow(tx("settings.radioFolder"), folderRow);

    // Typing shows the example and marks unknown placeholders; the preferences change only
    // when the user leaves the field or presses Enter, so half-typed patterns never name a
    // song that a running recording saves meanwhile.
    for (QLineEdit *field : {m_namePattern, m_folderPattern, m_radioFolder}) {
        connect(field, &QLineEdit::textChanged, this, [this] {
            checkPatterns();
            updatePreview();
        });
        connect(field, &QLineEdit::editingFinished, this, &SettingsView::savePatterns);
    }
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString folder = chooseFolder(AppPaths::radioDir());
        if (folder.isEmpty())
            return;
        m_radioFolder->setText(folder);
        savePatterns();
    });
    connect(useDefault, &QPushButton::clicked, this, [this] {
        m_radioFolder->clear();
        savePatterns();
    });
    checkPatterns();
    updatePreview();
    return group;
}

QWidget *SettingsView::buildStartupGroup()
{
    auto *group = new QGroupBox(tx("settings.startup"));
    auto *form = new QFormLayout(group);
    m_startAtLogin = new QCheckBox(tx("settings.startAtLogin"), group);
    m_startAtLogin->setChecked(Autostart::isEnabled());
    form->addRow(m_startAtLogin);
    form->addRow(UiKit::makeHint(tx("settings.startAtLoginHint"), group));
    m_startAtLoginError = new QLabel(group);
    m_startAtLoginError->setObjectName(QStringLiteral("startAtLoginError"));
    m_startAtLoginError->setWordWrap(true);
    m_startAtLoginError->setStyleSheet(QStringLiteral("color: %1;").arg(ThemeIcons::errorInk(palette()).name()));
    m_startAtLoginError->hide();
    form->addRow(m_startAtLoginError);
    connect(m_startAtLogin, &QCheckBox::toggled, this, &SettingsView::setStartAtLogin);
    return group;
}

void SettingsView::setStartAtLogin(bool enabled)
{
    QString failedPath;
    if (Autostart::setEnabled(enabled, &failedPath)) {
        m_startAtLoginError->clear();
        m_startAtLoginError->hide();
        return;
    }
    m_startAtLoginError->setText(Texts::text("settings.startAtLoginFailedFormat").arg(failedPath));
    m_startAtLoginError->show();
    // The box shows what is on disk, not what was asked for.
    const QSignalBlocker blocker(m_startAtLogin);
    m_startAtLogin->setChecked(Autostart::isEnabled());
}

QWidget *SettingsView::buildStatsGroup()
{
    auto *group = new QGroupBox(tx("settings.stats"));
    auto *form = new QFormLayout(group);
    m_today = new QLabel(group);
    m_total = new QLabel(group);
    form->addRow(tx("settings.statsToday"), m_today);
    form->addRow(tx("settings.statsTotal"), m_total);
    m_byStation = new QTreeWidget(group);
    m_byStation->setColumnCount(2);
    m_byStation->setHeaderLabels({tx("rec.station"), tx("rec.saved")});
    m_byStation->setRootIsDecorated(false);
    m_byStation->setMinimumHeight(120);
    m_byStation->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_byStation->header()->setStretchLastSection(false);
    form->addRow(tx("settings.statsByStation"), m_byStation);
    return group;
}

void SettingsView::fillScopes()
{
    // Stations the user is likely to tune: running recordings, favourites, recents, and
    // every station that already has an override (by id when it is known nowhere else).
    const QString current = scope();
    QList<std::pair<QString, QString>> entries; // id, name
    QSet<QString> seen;
    auto addStation = [&](const QString &id, const QString &name) {
        if (!seen.contains(id)) {
            seen.insert(id);
            entries.append({id, name});
        }
    };
    for (const RecordingSession *session : m_app.recorder().sessions())
        addStation(session->id(), session->station().name);
    for (const Station &station : m_app.favorites().list())
        addStation(station.id, station.name);
    for (const Station &station : m_app.recents().list())
        addStation(station.id, station.name);
    for (auto it = m_app.engineSettings().overrides().keyBegin(); it != m_app.engineSettings().overrides().keyEnd(); ++it)
        addStation(*it, *it);

    const bool wasLoading = m_loading;
    m_loading = true;
    m_scope->clear();
    m_scope->addItem(tx("settings.scopeGlobal"), QString());
    for (const auto &[id, name] : entries)
        m_scope->addItem(name, id);
    const int index = m_scope->findData(current);
    m_scope->setCurrentIndex(index >= 0 ? index : 0);
    m_loading = wasLoading;
    loadEngineForm();
}

void SettingsView::setScope(const QString &stationId)
{
    int index = m_scope->findData(stationId);
    if (index < 0) {
        m_scope->addItem(stationId, stationId);
        index = m_scope->count() - 1;
    }
    m_scope->setCurrentIndex(index);
}

QString SettingsView::scope() const
{
    return m_scope->currentData().toString();
}

void SettingsView::loadEngineForm()
{
    if (m_loading)
        return;
    m_loading = true;
    const QString stationId = scope();
    const EngineSettingsStore &store = m_app.engineSettings();
    const RadioEngineSettings settings = stationId.isEmpty() ? store.global() : store.settings(stationId);
    m_leadIn->setValue(int(settings.leadInSec));
    m_leadOut->setValue(int(settings.leadOutSec));
    m_minDuration->setValue(int(settings.minDurationSec));
    m_skipJingles->setChecked(settings.skipJingles);
    m_quality->setCurrentIndex(settings.lossless ? 1 : 0);
    if (stationId.isEmpty()) {
        m_scopeNote->hide();
        m_reset->setText(tx("engineResetGlobal"));
        m_reset->setEnabled(!(store.global() == RadioEngineSettings::standard()));
    } else {
        const bool overridden = store.hasOverride(stationId);
        m_scopeNote->setText(overridden ? Texts::text("engineStationTitle").arg(m_scope->currentText())
                                        : tx("engineUsesGlobal"));
        m_scopeNote->show();
        m_reset->setText(tx("engineResetStation"));
        m_reset->setEnabled(overridden);
    }
    m_loading = false;
}

void SettingsView::saveEngineForm()
{
    if (m_loading)
        return;
    RadioEngineSettings settings;
    settings.leadInSec = m_leadIn->value();
    settings.leadOutSec = m_leadOut->value();
    settings.minDurationSec = m_minDuration->value();
    settings.skipJingles = m_skipJingles->isChecked();
    settings.lossless = m_quality->currentIndex() == 1;
    const QString stationId = scope();
    // The store announces the change, which reloads the form with the clamped record.
    showWritten(stationId.isEmpty() ? m_app.engineSettings().setGlobal(settings)
                                    : m_app.engineSettings().setStation(stationId, settings));
}

void SettingsView::showWritten(const StateResult &written)
{
    if (written)
        return;
    // The form must not show values that were not stored: back to what is in force.
    loadEngineForm();
    m_app.reportProblem(written.error);
}

void SettingsView::resetEngineScope()
{
    const QString stationId = scope();
    showWritten(stationId.isEmpty() ? m_app.engineSettings().setGlobal(RadioEngineSettings::standard())
                                    : m_app.engineSettings().resetStation(stationId));
}

bool SettingsView::checkPatterns()
{
    QStringList unknown;
    for (QLineEdit *field : {m_namePattern, m_folderPattern}) {
        const QStringList found = AppPaths::unknownPlaceholders(field->text());
        field->setProperty("unknownPlaceholders", found);
        field->setStyleSheet(found.isEmpty() ? QString() : QStringLiteral("QLineEdit { border: 2px solid #c62828; }"));
        field->setToolTip(found.isEmpty() ? QString() : found.join(QStringLiteral(", ")));
        for (const QString &token : found) {
            if (!unknown.contains(token))
                unknown.append(token);
        }
    }
    m_patternProblem->setText(unknown.isEmpty() ? QString()
                                                : Texts::text("settings.unknownPlaceholdersFormat")
                                                      .arg(unknown.join(QStringLiteral(", "))));
    m_patternProblem->setVisible(!unknown.isEmpty());
    return unknown.isEmpty();
}

void SettingsView::savePatterns()
{
    checkPatterns();
    // An empty field means "the default", which the engine reads as a missing key.
    const std::pair<const QString &, QLineEdit *> fields[] = {
        {kNamePatternKey, m_namePattern}, {kFolderPatternKey, m_folderPattern}, {kRadioDirKey, m_radioFolder}};
    for (const auto &[key, field] : fields) {
        // A pattern with an unknown placeholder would put "%foo%" into every file name: it
        // stays in its field, marked, and the stored one stays in force.
        if (!field->property("unknownPlaceholders").toStringList().isEmpty())
            continue;
        const QString value = field->text().trimmed();
        StateResult written;
        if (value.isEmpty()) {
            if (Preferences::contains(key))
                written = Preferences::erase(key);
        } else if (Preferences::string(key) != value) {
            written = Preferences::store(key, value);
        }
        if (!written) {
            m_app.reportProblem(written.error);
            break;
        }
    }
    updatePreview();
}

void SettingsView::updatePreview()
{
    AppPaths::NamingValues sample;
    sample.artist = QStringLiteral("Nina Simone");
    sample.title = QStringLiteral("Feeling Good");
    sample.streamTitle = QStringLiteral("Nina Simone - Feeling Good");
    sample.station = QStringLiteral("Jazz Radio");
    sample.date = QDate::currentDate();
    const std::optional<QString> path =
        AppPaths::recordingPath(AppPaths::radioDir(), m_namePattern->text().trimmed(),
                               m_folderPattern->text().trimmed(), sample, QStringLiteral("mp3"), false);
    m_preview->setText(path ? *path : tx("settings.previewInvalid"));
    m_preview->setToolTip(m_preview->text());
}

QWidget *SettingsView::buildClosedLidGroup()
{
    auto *group = new QGroupBox(tx("settings.closedLid"));
    auto *form = new QFormLayout(group);
    m_closedLid = new QCheckBox(tx("settings.closedLidRecording"), group);
    m_closedLid->setObjectName(QStringLiteral("closedLidRecording"));
    m_closedLid->setChecked(ClosedLidKeeper::isEnabled());
    form->addRow(m_closedLid);
    form->addRow(UiKit::makeHint(tx("settings.closedLidHint"), group));
    m_closedLidError = new QLabel(group);
    m_closedLidError->setWordWrap(true);
    m_closedLidError->setStyleSheet(QStringLiteral("color: #c62828;"));
    m_closedLidError->hide();
    form->addRow(m_closedLidError);
    connect(m_closedLid, &QCheckBox::toggled, this, &SettingsView::setClosedLidRecording);
    return group;
}

void SettingsView::setClosedLidRecording(bool enabled)
{
    // Stored here rather than through the keeper, so a failed write reaches the user.
    const StateResult written = Preferences::store(QString(ClosedLidKeeper::kPreferenceKey), enabled);
    if (!written) {
        m_closedLidError->setText(written.error);
        m_closedLidError->show();
        const QSignalBlocker blocker(m_closedLid);
        m_closedLid->setChecked(ClosedLidKeeper::isEnabled());
        return;
    }
    m_closedLidError->hide();
    if (ClosedLidKeeper *keeper = m_app.recorderServices().closedLidKeeper())
        keeper->refresh();
}

void SettingsView::refreshStats()
{
    const RecordingStats &stats = m_app.stats();
    m_today->setText(QString::number(stats.todayCount()));
    m_total->setText(QString::number(stats.total()));
    m_byStation->clear();
    QList<std::pair<QString, qint64>> rows(stats.byStation().keyValueBegin(), stats.byStation().keyValueEnd());
    std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
    for (const auto &[name, count] : rows) {
        auto *item = new QTreeWidgetItem(m_byStation, {name, QString::number(count)});
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    }
    if (rows.isEmpty())
        new QTreeWidgetItem(m_byStation, {tx("settings.statsNone"), QString()});
}

QWidget *SettingsView::buildLanguageGroup()
{
    auto *group = new QGroupBox(tx("settings.language"));
    auto *form = new QFormLayout(group);
    m_language = new QComboBox(group);
    m_language->setObjectName(QStringLiteral("interfaceLanguage"));
    const std::pair<const char *, UiLanguage::Choice> choices[] = {{"settings.languageSystem", UiLanguage::Choice::System},
                                                                   {"settings.languageEnglish", UiLanguage::Choice::English},
                                                                   {"settings.languageGerman", UiLanguage::Choice::German}};
    for (const auto &[key, choice] : choices)
        m_language->addItem(tx(key), int(choice));
    m_language->setCurrentIndex(m_language->findData(int(UiLanguage::stored())));
    form->addRow(tx("settings.languageLabel"), m_language);
    connect(m_language, &QComboBox::currentIndexChanged, this, [this] {
        const auto choice = UiLanguage::Choice(m_language->currentData().toInt());
        if (const StateResult written = UiLanguage::store(choice); !written) {
            // Shown for this run all the same; the next start goes back to what is stored.
            m_app.reportProblem(written.error);
        }
        Q_EMIT languageChosen(UiLanguage::resolve(choice));
    });
    return group;
}
