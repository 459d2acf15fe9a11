#include "app/scheduleview.h"

#include "app/application.h"
#include "app/scheduleformat.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/sniperscheduler.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QVBoxLayout>

ScheduleView::ScheduleView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    const UiKit::Page page = UiKit::makePage(this, tx("schedule.title"));
    m_count = page.count;

    m_table = new QTableWidget(0, ColumnCount, this);
    m_table->setHorizontalHeaderLabels(
        { tx("schedule.colStation"), tx("schedule.colWhen"), tx("schedule.colMode"), tx("schedule.colRepeat"), {} });
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
    for (int column : { WhenColumn, ModeColumn, RepeatColumn, RemoveColumn })
        header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    m_empty = UiKit::makeEmptyState(tx("schedule.emptyTitle"), tx("schedule.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    page.layout->addWidget(m_stack, 1);

    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        const QTableWidgetItem *hit = m_table->item(m_table->rowAt(pos.y()), StationColumn);
        if (!hit)
            return;
        QMenu menu;
        const QUuid id = hit->data(kPlanIdRole).toUuid();
        menu.addAction(tx("schedule.remove"), this, [this, id] { remove(id); });
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    m_otherRunner = UiKit::makeHint(tx("schedule.otherRunner"), this);
    m_otherRunner->setObjectName(QStringLiteral("otherRunner"));
    page.layout->insertWidget(1, m_otherRunner);
    m_otherRunner->setVisible(!app.scheduler().runsPlans());
    connect(&app.scheduler(), &SniperScheduler::runsPlansChanged, m_otherRunner,
            [this](bool runsPlans) { m_otherRunner->setVisible(!runsPlans); });
    connect(&app.scheduler(), &SniperScheduler::itemsChanged, this, &ScheduleView::rebuild);
    rebuild();
}

void ScheduleView::remove(const QUuid &planId)
{
    // The plan stays listed when the file could not be written.
    const StateResult written = m_app.scheduler().remove(planId);
    if (!written)
        m_app.reportProblem(written.error);
}

bool ScheduleView::showsEmptyState() const
{
    return m_stack->currentWidget() == m_empty;
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
        auto *remove = new QPushButton(tx("schedule.remove"), m_table);
        remove->setObjectName(QStringLiteral("remove:") + plan.id.toString(QUuid::WithoutBraces));
        connect(remove, &QPushButton::clicked, this, [this, id = plan.id] { this->remove(id); });
        m_table->setCellWidget(row, RemoveColumn, remove);
    }
    m_count->setText(
        plans.size() == 1 ? tx("schedule.countOne") : Texts::text("schedule.countFormat").arg(plans.size()));
    m_count->setVisible(!plans.isEmpty());
    m_stack->setCurrentWidget(plans.isEmpty() ? m_empty : static_cast<QWidget *>(m_table));
}
