#include "app/scheduleview.h"

#include "app/application.h"
#include "app/scheduledialog.h"
#include "app/scheduleformat.h"
#include "app/schedulehistory.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"
#include "engine/sniperscheduler.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

// "1:02:03"; hours go past 24 rather than turning into days, which would need a language.
QString countdown(qint64 seconds)
{
    seconds = std::max<qint64>(seconds, 0);
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString savedLabel(qint64 count)
{
    if (count == 0)
        return tx("schedule.savedNone");
    return count == 1 ? tx("schedule.savedOne") : Texts::text("schedule.savedFormat").arg(count);
}

} // namespace

ScheduleView::ScheduleView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    m_history = new ScheduleHistory(app.scheduler(), app.recorder(), [&app] { return app.now(); }, this);
    const UiKit::Page page = UiKit::makePage(this, tx("schedule.title"));
    m_count = page.count;

    m_table = new QTableWidget(0, ColumnCount, this);
    m_table->setHorizontalHeaderLabels({tx("schedule.colStation"), tx("schedule.colWhen"), tx("schedule.colMode"),
        tx("schedule.colRepeat"), tx("schedule.colStatus"), {}, {}});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 18);
    QHeaderView *header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionResizeMode(StationColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(StatusColumn, QHeaderView::Stretch);
    for (int column : {WhenColumn, ModeColumn, RepeatColumn, EditColumn, RemoveColumn})
        header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    m_empty = UiKit::makeEmptyState(tx("schedule.emptyTitle"), tx("schedule.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    page.layout->addWidget(m_stack, 2);

    m_pastTitle = new QLabel(QStringLiteral("<b>%1</b>").arg(tx("schedule.pastTitle").toHtmlEscaped()), this);
    m_pastTitle->setToolTip(tx("schedule.pastHint"));
    page.layout->addWidget(m_pastTitle);
    m_past = new QTreeWidget(this);
    m_past->setObjectName(QStringLiteral("pastWindows"));
    m_past->setColumnCount(3);
    m_past->setHeaderLabels({tx("schedule.colStation"), tx("schedule.colWhen"), tx("rec.saved")});
    m_past->setRootIsDecorated(false);
    m_past->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_past->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_past->header()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    m_past->header()->setStretchLastSection(false);
    page.layout->addWidget(m_past, 1);

    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        const QTableWidgetItem *hit = m_table->item(m_table->rowAt(pos.y()), StationColumn);
        if (!hit)
            return;
        QMenu menu;
        const QUuid id = hit->data(kPlanIdRole).toUuid();
        menu.addAction(tx("schedule.edit"), this, [this, id] { edit(id); });
        menu.addAction(tx("schedule.remove"), this, [this, id] { remove(id); });
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    connect(m_table, &QTableWidget::cellActivated, this, [this](int row) {
        if (const QTableWidgetItem *item = m_table->item(row, StationColumn))
            edit(item->data(kPlanIdRole).toUuid());
    });
    m_otherRunner = UiKit::makeHint(tx("schedule.otherRunner"), this);
    m_otherRunner->setObjectName(QStringLiteral("otherRunner"));
    page.layout->insertWidget(1, m_otherRunner);
    m_otherRunner->setVisible(!app.scheduler().runsPlans());
    connect(&app.scheduler(), &SniperScheduler::runsPlansChanged, m_otherRunner,
            [this](bool runsPlans) { m_otherRunner->setVisible(!runsPlans); });
    connect(&app.scheduler(), &SniperScheduler::itemsChanged, this, &ScheduleView::rebuild);
    RadioRecorder &recorder = app.recorder();
    connect(&recorder, &RadioRecorder::sessionsChanged, this, &ScheduleView::refreshStatus);
    connect(&recorder, &RadioRecorder::streamTitleChanged, this, &ScheduleView::refreshStatus);
    connect(&recorder, &RadioRecorder::recordedCountChanged, this, &ScheduleView::refreshStatus);
    connect(m_history, &ScheduleHistory::changed, this, &ScheduleView::rebuildPast);
    m_countdown.setInterval(1000);
    connect(&m_countdown, &QTimer::timeout, this, &ScheduleView::refreshStatus);
    rebuild();
    rebuildPast();
}

void ScheduleView::remove(const QUuid &planId)
{
    // The plan stays listed when the file could not be written.
    const StateResult written = m_app.scheduler().remove(planId);
    if (!written)
        m_app.reportProblem(written.error);
}

void ScheduleView::edit(const QUuid &planId)
{
    const QList<ScheduledRecording> &plans = m_app.scheduler().items();
    const auto it = std::find_if(plans.begin(), plans.end(), [&](const ScheduledRecording &p) { return p.id == planId; });
    if (it == plans.end())
        return;
    // The dialog reports its own failures and stays open with them.
    ScheduleDialog dialog(m_app.scheduler(), *it, m_app.now(), this);
    dialog.exec();
}

bool ScheduleView::showsEmptyState() const
{
    return m_stack->currentWidget() == m_empty;
}

void ScheduleView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refreshStatus();
}

void ScheduleView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    updateCountdownTimer();
}

void ScheduleView::rebuild()
{
    const QList<ScheduledRecording> &plans = m_app.scheduler().items();
    m_table->setRowCount(0);
    m_table->setRowCount(int(plans.size()));
    for (int row = 0; row < plans.size(); ++row) {
        const ScheduledRecording &plan = plans[row];
        auto *station = new QTableWidgetItem(plan.stationName);
        station->setData(kPlanIdRole, plan.id);
        station->setToolTip(plan.streamUrl);
        m_table->setItem(row, StationColumn, station);
        m_table->setItem(row, WhenColumn, new QTableWidgetItem(ScheduleFormat::rangeLabel(plan)));
        m_table->setItem(row, ModeColumn, new QTableWidgetItem(ScheduleFormat::modeLabel(plan.mode)));
        m_table->setItem(row, RepeatColumn, new QTableWidgetItem(ScheduleFormat::repeatLabel(plan.repeatRule)));
        m_table->setItem(row, StatusColumn, new QTableWidgetItem);
        const QString idText = plan.id.toString(QUuid::WithoutBraces);
        auto *edit = new QPushButton(tx("schedule.edit"), m_table);
        edit->setObjectName(QStringLiteral("edit:") + idText);
        connect(edit, &QPushButton::clicked, this, [this, id = plan.id] { this->edit(id); });
        m_table->setCellWidget(row, EditColumn, edit);
        auto *remove = new QPushButton(tx("schedule.remove"), m_table);
        remove->setObjectName(QStringLiteral("remove:") + idText);
        connect(remove, &QPushButton::clicked, this, [this, id = plan.id] { this->remove(id); });
        m_table->setCellWidget(row, RemoveColumn, remove);
    }
    m_count->setText(
        plans.size() == 1 ? tx("schedule.countOne") : Texts::text("schedule.countFormat").arg(plans.size()));
    m_count->setVisible(!plans.isEmpty());
    m_stack->setCurrentWidget(plans.isEmpty() ? m_empty : static_cast<QWidget *>(m_table));
    refreshStatus();
}

QString ScheduleView::statusOf(const ScheduledRecording &plan, const ScheduledRecording *next) const
{
    const QDateTime now = m_app.now();
    if (plan.start <= now && now < plan.end) {
        if (const RecordingSession *session = m_app.recorder().session(plan.stationId)) {
            const QString title = session->currentStreamTitle().isEmpty() ? tx("schedule.recordingNoTitle")
                                                                           : session->currentStreamTitle();
            return Texts::text("schedule.recordingFormat").arg(title).arg(session->recordedCount());
        }
    }
    if (&plan == next)
        return Texts::text("schedule.startsInFormat").arg(countdown(now.secsTo(plan.start)));
    return {};
}

void ScheduleView::refreshStatus()
{
    const QList<ScheduledRecording> &plans = m_app.scheduler().items();
    const QDateTime now = m_app.now();
    // Sorted by start: the first one still ahead opens next.
    const auto next = std::find_if(plans.begin(), plans.end(), [&](const ScheduledRecording &p) { return p.start > now; });
    for (int row = 0; row < plans.size() && row < m_table->rowCount(); ++row) {
        if (QTableWidgetItem *item = m_table->item(row, StatusColumn)) {
            const QString status = statusOf(plans[row], next == plans.end() ? nullptr : &*next);
            if (item->text() != status) {
                item->setText(status);
                item->setToolTip(status);
            }
        }
    }
    updateCountdownTimer();
}

void ScheduleView::updateCountdownTimer()
{
    // A hidden page has nothing to count down for; showing it again refreshes and restarts.
    const QList<ScheduledRecording> &plans = m_app.scheduler().items();
    const QDateTime now = m_app.now();
    const bool waiting = std::any_of(plans.begin(), plans.end(), [&](const ScheduledRecording &p) { return p.end > now; });
    if (isVisible() && waiting) {
        if (!m_countdown.isActive())
            m_countdown.start();
    } else {
        m_countdown.stop();
    }
}

void ScheduleView::rebuildPast()
{
    m_past->clear();
    for (const ScheduleHistory::Entry &entry : m_history->entries()) {
        if (entry.isOpen())
            continue;
        auto *item = new QTreeWidgetItem(
            m_past, {entry.plan.stationName, ScheduleFormat::rangeLabel(entry.plan), savedLabel(entry.saved)});
        item->setToolTip(2, entry.titles.join(QLatin1Char('\n')));
    }
    const bool any = m_past->topLevelItemCount() > 0;
    m_pastTitle->setVisible(any);
    m_past->setVisible(any);
}
