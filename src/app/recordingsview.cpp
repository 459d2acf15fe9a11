#include "app/recordingsview.h"

#include "app/application.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QVBoxLayout>

RecordingsView::RecordingsView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    const UiKit::Page page = UiKit::makePage(this, tx("rec.title"));
    QVBoxLayout *layout = page.layout;
    m_count = page.count;
    m_stopAll = new QPushButton(tx("rec.stopAll"), this);
    m_stopAll->setObjectName(QStringLiteral("stopAllButton"));
    page.titleRow->addWidget(m_stopAll);

    m_table = new QTableWidget(0, ColumnCount, this);
    m_table->setHorizontalHeaderLabels(
        {tx("rec.station"), tx("rec.streamTitle"), tx("rec.saved"), tx("rec.status"), QString()});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionMode(QAbstractItemView::NoSelection);
    m_table->setFocusPolicy(Qt::NoFocus);
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 18);
    QHeaderView *header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionResizeMode(StationColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(TitleColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(SavedColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(StatusColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(StopColumn, QHeaderView::ResizeToContents);
    m_empty = UiKit::makeEmptyState(tx("rec.emptyTitle"), tx("rec.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);

    connect(m_stopAll, &QPushButton::clicked, this, [this] { m_app.recorder().stop(); });
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this, &RecordingsView::rebuild);
    rebuild();
}

void RecordingsView::rebuild()
{
    const QList<RecordingSession *> &sessions = m_app.recorder().sessions();
    m_table->setRowCount(0);
    m_table->setRowCount(int(sessions.size()));
    for (int row = 0; row < sessions.size(); ++row) {
        RecordingSession *session = sessions[row];
        auto *stationItem = new QTableWidgetItem(session->station().name);
        stationItem->setToolTip(session->station().streamUrl);
        QFont bold = stationItem->font();
        bold.setBold(true);
        stationItem->setFont(bold);
        m_table->setItem(row, StationColumn, stationItem);
        for (int column : {TitleColumn, SavedColumn, StatusColumn})
            m_table->setItem(row, column, new QTableWidgetItem);
        m_table->item(row, SavedColumn)->setTextAlignment(Qt::AlignCenter);
        auto *stop = new QPushButton(tx("rec.stop"), m_table);
        stop->setObjectName(QStringLiteral("stop:") + session->id());
        const QString stationId = session->id();
        connect(stop, &QPushButton::clicked, this, [this, stationId] { m_app.recorder().stop(stationId); });
        m_table->setCellWidget(row, StopColumn, stop);
        updateRow(row, session);

        // Rows are rebuilt whenever the list changes, so the row number stays right for the
        // life of these connections; they go with the session or with the row's button.
        QPointer<RecordingSession> guarded(session);
        auto refreshRow = [this, row, guarded] {
            if (guarded && row < m_table->rowCount())
                updateRow(row, guarded);
        };
        connect(session, &RecordingSession::currentStreamTitleChanged, stop, refreshRow);
        connect(session, &RecordingSession::recordedCountChanged, stop, refreshRow);
        connect(session, &RecordingSession::errorMessageChanged, stop, refreshRow);
    }
    m_count->setText(sessions.size() == 1 ? tx("rec.countOne") : Texts::text("rec.countFormat").arg(sessions.size()));
    m_count->setVisible(!sessions.isEmpty());
    m_stopAll->setEnabled(!sessions.isEmpty());
    m_stack->setCurrentWidget(sessions.isEmpty() ? m_empty : static_cast<QWidget *>(m_table));
}

void RecordingsView::updateRow(int row, const RecordingSession *session)
{
    const QString title = session->currentStreamTitle();
    QTableWidgetItem *titleItem = m_table->item(row, TitleColumn);
    titleItem->setText(title.isEmpty() ? tx("rec.waitingTitle") : title);
    titleItem->setForeground(title.isEmpty() ? palette().brush(QPalette::Disabled, QPalette::Text)
                                             : palette().brush(QPalette::Text));
    m_table->item(row, SavedColumn)->setText(QString::number(session->recordedCount()));
    QTableWidgetItem *status = m_table->item(row, StatusColumn);
    if (session->errorMessage() && !session->errorMessage()->isEmpty()) {
        status->setText(*session->errorMessage());
        status->setForeground(QColor(0xc6, 0x28, 0x28));
    } else {
        status->setText(QStringLiteral("● ") + tx("rec.running"));
        status->setForeground(QColor(0x2e, 0x7d, 0x32));
    }
}
