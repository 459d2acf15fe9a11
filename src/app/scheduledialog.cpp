#include "app/scheduledialog.h"

#include "app/scheduleformat.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "app/uikit.h"
#include "engine/sniperscheduler.h"

#include <QComboBox>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimeEdit>
#include <QVBoxLayout>

using Mode = ScheduledRecording::Mode;
using RepeatRule = ScheduledRecording::RepeatRule;

ScheduleDialog::ScheduleDialog(SniperScheduler &scheduler, Station station, const QDateTime &now, QWidget *parent)
    : QDialog(parent)
    , m_scheduler(scheduler)
    , m_station(std::move(station))
    , m_now(now)
{
    setWindowTitle(tx("schedule.dialogTitle"));
    setMinimumWidth(380);
    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(UiKit::kSpacing);
    layout->addWidget(UiKit::makeTitle(m_station.name, this));

    const QDateTime start = defaultStart(now).toLocalTime();
    m_start = new QDateTimeEdit(start, this);
    m_start->setObjectName(QStringLiteral("scheduleStart"));
    m_start->setCalendarPopup(true);
    m_start->setDisplayFormat(
        ScheduleFormat::displayLocale().dateFormat(QLocale::ShortFormat) + QStringLiteral("  HH:mm"));
    m_end = new QTimeEdit(start.addSecs(3600).time(), this);
    m_end->setObjectName(QStringLiteral("scheduleEnd"));
    m_end->setDisplayFormat(QStringLiteral("HH:mm"));
    m_mode = new QComboBox(this);
    m_mode->addItem(ScheduleFormat::modeLabel(Mode::SplitTracks), int(Mode::SplitTracks));
    m_mode->addItem(ScheduleFormat::modeLabel(Mode::FullShow), int(Mode::FullShow));
    m_repeat = new QComboBox(this);
    for (RepeatRule rule : { RepeatRule::None, RepeatRule::Daily, RepeatRule::Weekly })
        m_repeat->addItem(ScheduleFormat::repeatLabel(rule), int(rule));

    auto *form = new QFormLayout;
    form->addRow(tx("schedule.start"), m_start);
    form->addRow(tx("schedule.end"), m_end);
    form->addRow(tx("schedule.mode"), m_mode);
    form->addRow(tx("schedule.repeat"), m_repeat);
    layout->addLayout(form);
    m_window = new QLabel(this);
    m_window->setObjectName(QStringLiteral("scheduleWindow"));
    layout->addWidget(m_window);
    layout->addWidget(UiKit::makeHint(tx("schedule.endHint"), this));
    m_problem = new QLabel(tx("schedule.windowPassed"), this);
    m_problem->setObjectName(QStringLiteral("scheduleProblem"));
    m_problem->setWordWrap(true);
    m_problem->setStyleSheet(QStringLiteral("color: %1;").arg(ThemeIcons::errorInk(palette()).name()));
    layout->addWidget(m_problem);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_add = buttons->addButton(tx("schedule.add"), QDialogButtonBox::AcceptRole);
    m_add->setDefault(true);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &ScheduleDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ScheduleDialog::reject);
    connect(m_start, &QDateTimeEdit::dateTimeChanged, this, &ScheduleDialog::refresh);
    connect(m_end, &QTimeEdit::timeChanged, this, &ScheduleDialog::refresh);
    refresh();
}

namespace {

// The station a plan records; a plan whose fields no longer make a valid station is
// still shown by name so the user can move or remove it.
Station stationOf(const ScheduledRecording &plan)
{
    if (std::optional<Station> station = plan.station())
        return *station;
    Station station;
    station.id = plan.stationId;
    station.name = plan.stationName;
    station.streamUrl = plan.streamUrl;
    return station;
}

} // namespace

ScheduleDialog::ScheduleDialog(
    SniperScheduler &scheduler, const ScheduledRecording &plan, const QDateTime &now, QWidget *parent)
    : ScheduleDialog(scheduler, stationOf(plan), now, parent)
{
    m_editing = plan;
    setWindowTitle(tx("schedule.editTitle"));
    m_add->setText(tx("schedule.save"));
    m_start->setDateTime(plan.start.toLocalTime());
    m_end->setTime(plan.end.toLocalTime().time());
    m_mode->setCurrentIndex(m_mode->findData(int(plan.mode)));
    m_repeat->setCurrentIndex(m_repeat->findData(int(plan.repeatRule.value_or(RepeatRule::None))));
    refresh();
}

QDateTime ScheduleDialog::defaultStart(const QDateTime &now)
{
    const QDateTime later = now.addSecs(3600);
    return later.addMSecs(-(later.time().second() * 1000 + later.time().msec()));
}

QDateTime ScheduleDialog::endFor(const QDateTime &start, const QTime &endTime)
{
    const QDateTime local = start.toLocalTime();
    QDateTime end(local.date(), endTime, Qt::LocalTime);
    if (endTime <= local.time())
        end = QDateTime(local.date().addDays(1), endTime, Qt::LocalTime);
    return end.toUTC();
}

QDateTime ScheduleDialog::start() const
{
    return m_start->dateTime().toUTC();
}

QDateTime ScheduleDialog::end() const
{
    return endFor(start(), m_end->time());
}

ScheduledRecording::Mode ScheduleDialog::mode() const
{
    return Mode(m_mode->currentData().toInt());
}

ScheduledRecording::RepeatRule ScheduleDialog::repeatRule() const
{
    return RepeatRule(m_repeat->currentData().toInt());
}

void ScheduleDialog::refresh()
{
    ScheduledRecording window;
    window.start = start();
    window.end = end();
    m_window->setText(ScheduleFormat::rangeLabel(window));
    m_problem->setText(tx("schedule.windowPassed"));
    // A repeating plan's next window would follow, but a first window already over is
    // more likely a slip of the date than a wish.
    const bool passed = window.end <= m_now;
    m_problem->setVisible(passed);
    m_add->setEnabled(!passed);
}

void ScheduleDialog::accept()
{
    if (end() <= m_now)
        return;
    ScheduledRecording plan;
    if (m_editing) {
        plan = *m_editing;
        plan.start = start();
        plan.end = end();
        plan.mode = mode();
        // An absent rule means "none"; it stays absent unless the user chose a repeat.
        if (plan.repeatRule || repeatRule() != RepeatRule::None)
            plan.repeatRule = repeatRule();
    } else {
        plan = ScheduledRecording::make(m_station, start(), end(), mode(), repeatRule());
    }
    const StateResult written = m_editing ? m_scheduler.update(plan) : m_scheduler.add(plan);
    if (!written) {
        // Stays open with the reason: closing would read as "planned".
        m_problem->setText(written.error);
        m_problem->show();
        return;
    }
    m_added = plan;
    QDialog::accept();
}
