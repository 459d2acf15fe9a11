#include "app/equaliserdialog.h"

#include "app/texts.h"
#include "playback/equaliserbank.h"
#include "playback/player.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kStepsPerDb = 2;

QString hzLabel(double hz)
{
    return hz >= 1000 ? QStringLiteral("%1k").arg(hz / 1000) : QString::number(hz);
}

QString dbText(int steps)
{
    const double dB = double(steps) / kStepsPerDb;
    return tx("eq.dbFormat").arg(dB > 0 ? QStringLiteral("+%1").arg(dB) : QString::number(dB));
}

} // namespace

EqualiserDialog::EqualiserDialog(Player &player, QWidget *parent)
    : QDialog(parent)
    , m_player(player)
{
    setObjectName(QStringLiteral("equaliserDialog"));
    setWindowTitle(tx("eq.title"));
    auto *layout = new QVBoxLayout(this);

    auto *top = new QHBoxLayout;
    m_enabled = new QCheckBox(tx("eq.enabled"), this);
    top->addWidget(m_enabled);
    top->addStretch();
    top->addWidget(new QLabel(tx("eq.preset"), this));
    m_preset = new QComboBox(this);
    m_preset->setAccessibleName(tx("eq.preset"));
    for (const QString &id : Equaliser::presetIds())
        m_preset->addItem(Texts::text(QByteArray("eq.preset." + id.toLatin1()).constData()), id);
    m_preset->addItem(tx("eq.preset.custom"), QString());
    top->addWidget(m_preset);
    auto *reset = new QPushButton(tx("eq.reset"), this);
    top->addWidget(reset);
    layout->addLayout(top);

    auto *sliders = new QHBoxLayout;
    sliders->addWidget(sliderColumn(tx("eq.preamp"), &m_preamp, &m_preampValue));
    sliders->addSpacing(12);
    for (int i = 0; i < EqualiserSettings::kBands; ++i)
        sliders->addWidget(
            sliderColumn(hzLabel(EqualiserBank::kPeakHz[size_t(i)]), &m_bands[size_t(i)], &m_bandValues[size_t(i)]));
    layout->addLayout(sliders);

    auto *levelling = new QFormLayout;
    m_normalisation = new QComboBox(this);
    m_normalisation->setAccessibleName(tx("norm.label"));
    m_normalisation->addItem(tx("norm.off"), Normalisation::rawValue(NormalisationMode::off));
    m_normalisation->addItem(tx("norm.track"), Normalisation::rawValue(NormalisationMode::track));
    m_normalisation->addItem(tx("norm.album"), Normalisation::rawValue(NormalisationMode::album));
    levelling->addRow(tx("norm.label"), m_normalisation);
    auto *hint = new QLabel(tx("norm.hint").arg(m_player.normalisationTarget()), this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    levelling->addRow(hint);
    layout->addLayout(levelling);

    connect(m_enabled, &QCheckBox::toggled, this, [this](bool on) {
        EqualiserSettings s = m_player.equaliser();
        s.enabled = on;
        apply(s);
    });
    connect(m_preset, &QComboBox::activated, this, [this](int index) {
        const auto chosen = Equaliser::preset(m_preset->itemData(index).toString());
        if (chosen)
            apply(*chosen); // choosing a preset also turns the equaliser on
    });
    connect(reset, &QPushButton::clicked, this, [this] { apply(*Equaliser::preset(QStringLiteral("flat"))); });
    // Heard at every step of a drag, stored on release: each write goes through the
    // preferences file's lock.
    std::array<QSlider *, EqualiserSettings::kBands + 1> all {};
    std::copy(m_bands.begin(), m_bands.end(), all.begin());
    all.back() = m_preamp;
    for (QSlider *slider : all) {
        connect(slider, &QSlider::valueChanged, this, &EqualiserDialog::applyFromSliders);
        connect(slider, &QSlider::sliderReleased, this, &EqualiserDialog::applyFromSliders);
    }
    connect(m_normalisation, &QComboBox::activated, this, [this](int index) {
        const auto mode = Normalisation::fromRawValue(m_normalisation->itemData(index).toString());
        if (!mode)
            return;
        m_player.setNormalisation(*mode);
        Normalisation::storeMode(*mode);
    });
    refresh();
}

QWidget *EqualiserDialog::sliderColumn(const QString &caption, QSlider **slider, QLabel **value)
{
    auto *column = new QWidget(this);
    auto *layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);
    *value = new QLabel(column);
    (*value)->setAlignment(Qt::AlignCenter);
    (*value)->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("+12.5 dB")));
    *slider = new QSlider(Qt::Vertical, column);
    const int range = int(EqualiserSettings::kMaxDb) * kStepsPerDb;
    (*slider)->setRange(-range, range);
    (*slider)->setPageStep(kStepsPerDb * 3);
    (*slider)->setTickPosition(QSlider::TicksBothSides);
    (*slider)->setTickInterval(kStepsPerDb * 6);
    (*slider)->setMinimumHeight(160);
    (*slider)->setAccessibleName(caption);
    auto *label = new QLabel(caption, column);
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(*value);
    layout->addWidget(*slider, 1, Qt::AlignHCenter);
    layout->addWidget(label);
    return column;
}

void EqualiserDialog::refresh()
{
    const EqualiserSettings s = m_player.equaliser();
    const QSignalBlocker enabledBlocker(m_enabled);
    m_enabled->setChecked(s.enabled);
    const auto toSteps = [](float dB) { return int(std::lround(dB * kStepsPerDb)); };
    {
        const QSignalBlocker blocker(m_preamp);
        m_preamp->setValue(toSteps(s.preampDb));
        m_preampValue->setText(dbText(m_preamp->value()));
    }
    for (int i = 0; i < EqualiserSettings::kBands; ++i) {
        const QSignalBlocker blocker(m_bands[size_t(i)]);
        m_bands[size_t(i)]->setValue(toSteps(s.bandsDb[size_t(i)]));
        m_bandValues[size_t(i)]->setText(dbText(m_bands[size_t(i)]->value()));
    }
    m_preset->setCurrentIndex(m_preset->findData(Equaliser::presetOf(s).value_or(QString())));
    m_normalisation->setCurrentIndex(m_normalisation->findData(Normalisation::rawValue(m_player.normalisation())));
}

void EqualiserDialog::applyFromSliders()
{
    EqualiserSettings s;
    // Moving a slider means the user wants to hear it.
    s.enabled = true;
    s.preampDb = float(m_preamp->value()) / kStepsPerDb;
    bool dragging = m_preamp->isSliderDown();
    for (int i = 0; i < EqualiserSettings::kBands; ++i) {
        s.bandsDb[size_t(i)] = float(m_bands[size_t(i)]->value()) / kStepsPerDb;
        dragging = dragging || m_bands[size_t(i)]->isSliderDown();
    }
    apply(s, !dragging);
}

void EqualiserDialog::apply(const EqualiserSettings &settings, bool store)
{
    m_player.setEqualiser(settings);
    if (store)
        Equaliser::store(settings);
    refresh();
}
