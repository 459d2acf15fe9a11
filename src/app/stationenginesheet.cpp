#include "app/stationenginesheet.h"

#include "app/texts.h"
#include "app/uikit.h"
#include "engine/enginesettingsstore.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

QSpinBox *secondsBox(qint64 maximum, QWidget *parent)
{
    auto *box = new QSpinBox(parent);
    box->setRange(0, int(maximum));
    box->setSuffix(tx("engineSeconds"));
    return box;
}

} // namespace

StationEngineSheet::StationEngineSheet(EngineSettingsStore &store, Station station, QWidget *parent)
    : QDialog(parent)
    , m_store(store)
    , m_station(std::move(station))
{
    const QString title = Texts::text("engineStationTitle").arg(m_station.name);
    setWindowTitle(title);
    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(UiKit::kSpacing);
    QLabel *heading = UiKit::makeTitle(title, this);
    heading->setWordWrap(true);
    layout->addWidget(heading);
    m_scopeNote = UiKit::makeHint(tx("engineUsesGlobal"), this);
    layout->addWidget(m_scopeNote);

    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    m_leadIn = secondsBox(RadioEngineSettings::kMaxLeadSec, this);
    form->addRow(tx("engineLeadIn"), m_leadIn);
    form->addRow(UiKit::makeHint(tx("engineLeadInHint"), this));
    m_leadOut = secondsBox(RadioEngineSettings::kMaxLeadSec, this);
    form->addRow(tx("engineLeadOut"), m_leadOut);
    form->addRow(UiKit::makeHint(tx("engineLeadOutHint"), this));
    m_minDuration = secondsBox(RadioEngineSettings::kMaxMinDurationSec, this);
    form->addRow(tx("engineMinDuration"), m_minDuration);
    m_skipJingles = new QCheckBox(tx("engineSkipJingles"), this);
    form->addRow(m_skipJingles);
    form->addRow(UiKit::makeHint(tx("engineSkipJinglesHint"), this));
    m_quality = new QComboBox(this);
    m_quality->addItem(tx("engineQualityNormal"));
    m_quality->addItem(tx("engineQualityLossless"));
    form->addRow(tx("engineQuality"), m_quality);
    form->addRow(UiKit::makeHint(tx("engineQualityHint"), this));
    layout->addLayout(form);
    layout->addWidget(UiKit::makeHint(tx("engineSettingsHelp"), this));

    m_problem = new QLabel(this);
    m_problem->setObjectName(QStringLiteral("engineSheetProblem"));
    m_problem->setWordWrap(true);
    m_problem->setStyleSheet(QStringLiteral("color: #c62828;"));
    m_problem->hide();
    layout->addWidget(m_problem);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    m_reset = buttons->addButton(tx("engineResetStation"), QDialogButtonBox::ResetRole);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_reset, &QPushButton::clicked, this, &StationEngineSheet::reset);

    for (QSpinBox *box : {m_leadIn, m_leadOut, m_minDuration})
        connect(box, &QSpinBox::valueChanged, this, &StationEngineSheet::save);
    connect(m_skipJingles, &QCheckBox::toggled, this, &StationEngineSheet::save);
    connect(m_quality, &QComboBox::currentIndexChanged, this, &StationEngineSheet::save);
    connect(&m_store, &EngineSettingsStore::changed, this, &StationEngineSheet::load);
    load();
}

void StationEngineSheet::load()
{
    m_loading = true;
    const RadioEngineSettings settings = m_store.settings(m_station.id);
    m_leadIn->setValue(int(settings.leadInSec));
    m_leadOut->setValue(int(settings.leadOutSec));
    m_minDuration->setValue(int(settings.minDurationSec));
    m_skipJingles->setChecked(settings.skipJingles);
    m_quality->setCurrentIndex(settings.lossless ? 1 : 0);
    const bool overridden = m_store.hasOverride(m_station.id);
    m_scopeNote->setVisible(!overridden);
    m_reset->setEnabled(overridden);
    m_loading = false;
}

void StationEngineSheet::save()
{
    if (m_loading)
        return;
    RadioEngineSettings settings;
    settings.leadInSec = m_leadIn->value();
    settings.leadOutSec = m_leadOut->value();
    settings.minDurationSec = m_minDuration->value();
    settings.skipJingles = m_skipJingles->isChecked();
    settings.lossless = m_quality->currentIndex() == 1;
    const StateResult written = m_store.setStation(m_station.id, settings);
    showWritten(written.ok, written.error);
}

void StationEngineSheet::reset()
{
    const StateResult written = m_store.resetStation(m_station.id);
    showWritten(written.ok, written.error);
}

void StationEngineSheet::showWritten(bool ok, const QString &error)
{
    m_problem->setVisible(!ok);
    m_problem->setText(ok ? QString() : error);
    // The form must not show values that were not stored.
    if (!ok)
        load();
}
