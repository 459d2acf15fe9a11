#include "app/transitionmenubutton.h"

#include "app/texts.h"
#include "library/transitionsettings.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QSlider>
#include <QVBoxLayout>
#include <QWidgetAction>

namespace {

constexpr int kMenuWidth = 300;

} // namespace

TransitionMenuButton::TransitionMenuButton(TransitionSettings &settings, QWidget *parent)
    : QToolButton(parent)
    , m_settings(settings)
{
    const TransitionTexts texts = Texts::transitionTexts();
    setObjectName(QStringLiteral("transitionButton"));
    setPopupMode(QToolButton::InstantPopup);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    setAutoRaise(true);

    m_menu = new QMenu(this);
    m_menu->setObjectName(QStringLiteral("transitionMenu"));
    m_menu->setToolTipsVisible(true);

    // A bold heading: QMenu's own sections show no text in several styles.
    auto *heading = new QLabel(texts.title, m_menu);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    heading->setContentsMargins(12, 6, 12, 4);
    auto *headingAction = new QWidgetAction(m_menu);
    headingAction->setDefaultWidget(heading);
    m_menu->addAction(headingAction);

    m_modes = new QActionGroup(this);
    m_modes->setExclusive(true);
    for (TransitionMode mode : TransitionModes::kAll) {
        QAction *action = m_menu->addAction(texts.names.value(mode));
        action->setCheckable(true);
        action->setData(QVariant::fromValue(mode));
        action->setToolTip(texts.hints.value(mode));
        m_modes->addAction(action);
        connect(action, &QAction::hovered, this, [this, mode] { showHint(mode); });
    }
    connect(m_modes, &QActionGroup::triggered, this,
        [this](QAction *action) { m_settings.setMode(action->data().value<TransitionMode>()); });

    m_hint = new QLabel(m_menu);
    m_hint->setWordWrap(true);
    m_hint->setFixedWidth(kMenuWidth);
    m_hint->setContentsMargins(12, 2, 12, 6);
    m_hint->setForegroundRole(QPalette::PlaceholderText);
    auto *hintAction = new QWidgetAction(m_menu);
    hintAction->setDefaultWidget(m_hint);
    m_menu->addAction(hintAction);
    m_menu->addSeparator();

    auto addRow = [this](QWidget *row) {
        auto *action = new QWidgetAction(m_menu);
        action->setDefaultWidget(row);
        m_menu->addAction(action);
    };
    addRow(lengthRow(texts.crossfadeLength, &m_crossfade, &m_crossfadeValue, TransitionSettings::kMinCrossfadeSeconds,
        TransitionSettings::kMaxCrossfadeSeconds));
    addRow(lengthRow(texts.automixLength, &m_automix, &m_automixValue, TransitionSettings::kMinAutomixSeconds,
        TransitionSettings::kMaxAutomixSeconds));
    // Written on release (and by the keyboard), not at every step of a drag: each write
    // goes through the preferences file's lock.
    connect(m_crossfade, &QSlider::valueChanged, this, [this](int seconds) {
        m_crossfadeValue->setText(Texts::transitionTexts().secondsFormat.arg(seconds));
        if (!m_crossfade->isSliderDown() && seconds != m_settings.crossfadeSeconds())
            m_settings.setCrossfadeSeconds(seconds);
    });
    connect(m_crossfade, &QSlider::sliderReleased, this, [this] {
        if (m_crossfade->value() != m_settings.crossfadeSeconds())
            m_settings.setCrossfadeSeconds(m_crossfade->value());
    });
    connect(m_automix, &QSlider::valueChanged, this, [this](int seconds) {
        m_automixValue->setText(Texts::transitionTexts().secondsFormat.arg(seconds));
        if (!m_automix->isSliderDown() && seconds != m_settings.automixSeconds())
            m_settings.setAutomixSeconds(seconds);
    });
    connect(m_automix, &QSlider::sliderReleased, this, [this] {
        if (m_automix->value() != m_settings.automixSeconds())
            m_settings.setAutomixSeconds(m_automix->value());
    });
    // Leaving the list shows the chosen mode's hint again.
    connect(m_menu, &QMenu::aboutToShow, this, [this] { showHint(m_settings.mode()); });
    connect(m_menu, &QMenu::hovered, this, [this](QAction *action) {
        if (!m_modes->actions().contains(action))
            showHint(m_settings.mode());
    });

    setMenu(m_menu);
    connect(&m_settings, &TransitionSettings::modeChanged, this, &TransitionMenuButton::refresh);
    connect(&m_settings, &TransitionSettings::crossfadeSecondsChanged, this, &TransitionMenuButton::refresh);
    connect(&m_settings, &TransitionSettings::automixSecondsChanged, this, &TransitionMenuButton::refresh);
    refresh();
}

QWidget *TransitionMenuButton::lengthRow(const QString &label, QSlider **slider, QLabel **value, qint64 min, qint64 max)
{
    auto *row = new QWidget(m_menu);
    auto *layout = new QVBoxLayout(row);
    layout->setContentsMargins(12, 4, 12, 4);
    layout->setSpacing(2);
    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(label, row), 1);
    *value = new QLabel(row);
    (*value)->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    top->addWidget(*value);
    layout->addLayout(top);
    *slider = new QSlider(Qt::Horizontal, row);
    (*slider)->setRange(int(min), int(max));
    (*slider)->setPageStep(1);
    (*slider)->setTickPosition(QSlider::TicksBelow);
    (*slider)->setTickInterval(1);
    (*slider)->setAccessibleName(label);
    layout->addWidget(*slider);
    row->setFixedWidth(kMenuWidth);
    return row;
}

QAction *TransitionMenuButton::modeAction(TransitionMode mode) const
{
    for (QAction *action : m_modes->actions()) {
        if (action->data().value<TransitionMode>() == mode)
            return action;
    }
    return nullptr;
}

void TransitionMenuButton::refresh()
{
    const TransitionTexts texts = Texts::transitionTexts();
    const TransitionMode mode = m_settings.mode();
    if (QAction *action = modeAction(mode))
        action->setChecked(true);
    setText(texts.names.value(mode));
    setToolTip(texts.helpFormat.arg(texts.names.value(mode), texts.hints.value(mode)));
    const QSignalBlocker blocker(m_crossfade);
    m_crossfade->setValue(int(m_settings.crossfadeSeconds()));
    m_crossfadeValue->setText(texts.secondsFormat.arg(m_crossfade->value()));
    const QSignalBlocker automixBlocker(m_automix);
    m_automix->setValue(int(m_settings.automixSeconds()));
    m_automixValue->setText(texts.secondsFormat.arg(m_automix->value()));
    showHint(mode);
}

void TransitionMenuButton::showHint(TransitionMode mode)
{
    m_hint->setText(Texts::transitionTexts().hints.value(mode));
}
