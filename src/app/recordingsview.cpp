#include "app/recordingsview.h"

#include "app/application.h"
#include "app/recordingformat.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"
#include "library/track.h"

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QColor kRed(0xc6, 0x28, 0x28);
const QColor kGreen(0x2e, 0x7d, 0x32);
const QColor kAmber(0xb2, 0x6a, 0x00);

} // namespace

RecordingsView::RecordingsView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    const UiKit::Page page = UiKit::makePage(this, tx("rec.title"));
    m_count = page.count;
    m_stopAll = new QPushButton(tx("rec.stopAll"), this);
    m_stopAll->setObjectName(QStringLiteral("stopAllButton"));
    page.titleRow->addWidget(m_stopAll);

    m_tree = new QTreeWidget(this);
    m_tree->setColumnCount(ColumnCount);
    m_tree->setHeaderLabels({ tx("rec.station"), tx("rec.streamTitle"), tx("rec.saved"), tx("rec.time"),
        tx("rec.received"), tx("rec.status"), QString() });
    m_tree->setSelectionMode(QAbstractItemView::NoSelection);
    m_tree->setFocusPolicy(Qt::NoFocus);
    m_tree->setAlternatingRowColors(true);
    m_tree->setExpandsOnDoubleClick(true);
    QHeaderView *header = m_tree->header();
    header->setStretchLastSection(false);
    header->setHighlightSections(false);
    for (int column = 0; column < ColumnCount; ++column)
        header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(TitleColumn, QHeaderView::Stretch);
    m_empty = UiKit::makeEmptyState(tx("rec.emptyTitle"), tx("rec.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_tree);
    m_stack->addWidget(m_empty);
    page.layout->addWidget(m_stack, 1);

    m_tick = new QTimer(this);
    m_tick->setInterval(1000);
    connect(m_tick, &QTimer::timeout, this, &RecordingsView::tick);

    RadioRecorder &recorder = app.recorder();
    connect(m_stopAll, &QPushButton::clicked, this, [this] { m_app.recorder().stop(); });
    connect(&recorder, &RadioRecorder::sessionStarted, this, [this](const Station &station) {
        if (RecordingSession *session = m_app.recorder().session(station.id))
            addRow(*session);
    });
    connect(&recorder, &RadioRecorder::sessionEnded, this, &RecordingsView::onEnded);
    // Each of these touches its own row only.
    const auto onRow = [this](const QString &stationId, auto change) {
        const auto it = m_rows.find(stationId);
        if (it == m_rows.end())
            return;
        change(*it);
        refreshRow(*it);
    };
    connect(&recorder, &RadioRecorder::sessionStatusChanged, this,
        [onRow](const QString &id, const SessionStatus &status) { onRow(id, [&](Row &row) { row.status = status; }); });
    connect(&recorder, &RadioRecorder::streamTitleChanged, this,
        [onRow](const QString &id, const QString &title) { onRow(id, [&](Row &row) { row.title = title; }); });
    connect(&recorder, &RadioRecorder::sessionErrorChanged, this,
        [onRow](const QString &id, const QString &error) { onRow(id, [&](Row &row) { row.error = error; }); });
    connect(&recorder, &RadioRecorder::trackSaved, this, &RecordingsView::onTrackSaved);
    connect(&recorder, &RadioRecorder::saveFailed, this, [this, onRow](const QString &id, const QString &message) {
        onRow(id, [](Row &row) { ++row.failed; });
        addSongLine(id, Texts::text("rec.songFailed").arg(message), kRed);
        if (QTreeWidgetItem *item = row(id))
            item->setExpanded(true);
    });
    connect(&recorder, &RadioRecorder::songSkipped, this,
        [this](const QString &id, const QString &title, const QString &reason) {
            addSongLine(id, Texts::text("rec.songSkipped").arg(title, reason),
                palette().color(QPalette::Disabled, QPalette::Text));
        });
    connect(&recorder, &RadioRecorder::saveNotice, this, [this](const QString &id, const QString &message) {
        addSongLine(id, Texts::text("rec.songNotice").arg(message), kAmber);
    });

    for (RecordingSession *session : recorder.sessions())
        addRow(*session);
    refreshSummary();
}

QTreeWidgetItem *RecordingsView::row(const QString &stationId) const
{
    const auto it = m_rows.constFind(stationId);
    return it == m_rows.cend() ? nullptr : it->item;
}

QString RecordingsView::stationName(const QString &stationId) const
{
    const auto it = m_rows.constFind(stationId);
    return it == m_rows.cend() ? QString() : it->station.name;
}

void RecordingsView::addRow(RecordingSession &session)
{
    // A station started again after giving up starts over in a fresh row.
    if (m_rows.contains(session.id()))
        delete m_rows.take(session.id()).item;
    Row row;
    row.station = session.station();
    row.session = &session;
    row.status = session.status();
    row.error = session.errorMessage().value_or(QString());
    row.title = session.currentStreamTitle();
    row.saved = session.recordedCount();
    row.elapsedMs = session.elapsedMs();
    row.item = new QTreeWidgetItem(m_tree);
    row.item->setText(StationColumn, row.station.name);
    row.item->setToolTip(StationColumn, row.station.streamUrl);
    QFont bold = row.item->font(StationColumn);
    bold.setBold(true);
    row.item->setFont(StationColumn, bold);
    for (int column : { SavedColumn, TimeColumn, ReceivedColumn })
        row.item->setTextAlignment(column, Qt::AlignCenter);
    Row &stored = *m_rows.insert(row.station.id, row);
    setActionButton(stored);
    refreshRow(stored);
    refreshSummary();
}

void RecordingsView::setActionButton(Row &row)
{
    const QString id = row.station.id;
    auto *button = new QPushButton(tx(row.ended ? "rec.dismiss" : "rec.stop"), m_tree);
    button->setObjectName((row.ended ? QStringLiteral("dismiss:") : QStringLiteral("stop:")) + id);
    if (row.ended)
        connect(button, &QPushButton::clicked, this, [this, id] { dismiss(id); });
    else
        connect(button, &QPushButton::clicked, this, [this, id] { m_app.recorder().stop(id); });
    // Replacing the stop button deletes it.
    m_tree->setItemWidget(row.item, ActionColumn, button);
}

void RecordingsView::refreshRow(Row &row)
{
    QTreeWidgetItem *item = row.item;
    item->setText(TitleColumn, row.title.isEmpty() ? tx("rec.waitingTitle") : row.title);
    item->setForeground(TitleColumn,
        row.title.isEmpty() ? palette().brush(QPalette::Disabled, QPalette::Text) : palette().brush(QPalette::Text));
    item->setText(SavedColumn,
        row.failed == 0 ? QString::number(row.saved) : Texts::text("rec.savedFailed").arg(row.saved).arg(row.failed));
    item->setForeground(SavedColumn, row.failed == 0 ? palette().brush(QPalette::Text) : QBrush(kRed));
    item->setText(ReceivedColumn, RecordingFormat::bytesText(row.status.bytesReceived));
    refreshClock(row);
}

void RecordingsView::refreshClock(Row &row)
{
    if (row.session)
        row.elapsedMs = row.session->elapsedMs();
    row.item->setText(TimeColumn, RecordingFormat::elapsedText(row.elapsedMs));
    const QString status = RecordingFormat::statusText(row.status, row.error);
    row.item->setText(StatusColumn, status);
    row.item->setToolTip(StatusColumn, status);
    using State = SessionStatus::State;
    const State state = row.status.state;
    row.item->setForeground(StatusColumn,
        state == State::Recording     ? QBrush(kGreen)
            : state == State::GaveUp  ? QBrush(kRed)
            : state == State::Stopped ? palette().brush(QPalette::Text)
                                      : QBrush(kAmber));
}

void RecordingsView::addSongLine(
    const QString &stationId, const QString &text, const QColor &color, const QString &toolTip)
{
    const auto it = m_rows.find(stationId);
    if (it == m_rows.end())
        return;
    QTreeWidgetItem *parent = it->item;
    while (parent->childCount() >= kMaxSongLines)
        delete parent->takeChild(0);
    auto *line = new QTreeWidgetItem(parent);
    line->setFirstColumnSpanned(true);
    line->setText(StationColumn, text);
    line->setToolTip(StationColumn, toolTip.isEmpty() ? text : toolTip);
    line->setForeground(StationColumn, color);
}

void RecordingsView::onTrackSaved(const QString &stationId, const Track &track)
{
    const auto it = m_rows.find(stationId);
    if (it == m_rows.end())
        return;
    ++it->saved;
    refreshRow(*it);
    const QString name = track.artist.isEmpty() ? track.title : track.artist + QStringLiteral(" - ") + track.title;
    addSongLine(stationId, Texts::text("rec.songSaved").arg(name), palette().color(QPalette::Text),
        track.filePath.value_or(QString()));
}

void RecordingsView::onEnded(const Station &station, SessionOutcome outcome)
{
    const auto it = m_rows.find(station.id);
    if (it == m_rows.end())
        return;
    if (outcome == SessionOutcome::Stopped) {
        delete m_rows.take(station.id).item;
    } else {
        // Stays, with its error, until dismissed; its last song may still report.
        it->ended = true;
        it->status.state = SessionStatus::State::GaveUp;
        setActionButton(*it);
        refreshRow(*it);
    }
    refreshSummary();
}

void RecordingsView::dismiss(const QString &stationId)
{
    const auto it = m_rows.find(stationId);
    if (it == m_rows.end() || !it->ended)
        return;
    delete m_rows.take(stationId).item;
    refreshSummary();
}

int RecordingsView::endedCount() const
{
    return int(std::count_if(m_rows.cbegin(), m_rows.cend(), [](const Row &row) { return row.ended; }));
}

void RecordingsView::tick()
{
    for (Row &row : m_rows) {
        if (!row.ended)
            refreshClock(row);
    }
}

void RecordingsView::refreshSummary()
{
    const qsizetype running = m_app.recorder().sessions().size();
    m_count->setText(running == 1 ? tx("rec.countOne") : Texts::text("rec.countFormat").arg(running));
    m_count->setVisible(running > 0);
    m_stopAll->setEnabled(running > 0);
    m_stack->setCurrentWidget(m_rows.isEmpty() ? m_empty : static_cast<QWidget *>(m_tree));
    if (running > 0)
        m_tick->start();
    else
        m_tick->stop();
    Q_EMIT rowsChanged();
}
