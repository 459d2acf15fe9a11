#include "app/stationlistpane.h"

#include "app/application.h"
#include "app/stationactionbar.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "stations/favoritestations.h"

#include "engine/recordingsession.h"

#include <QAction>
#include <QItemSelectionModel>
#include <QMenu>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

namespace {

QSet<QString> recordedIds(const RadioRecorder &recorder)
{
    QSet<QString> ids;
    for (const RecordingSession *session : recorder.sessions())
        ids.insert(session->id());
    return ids;
}

} // namespace

StationListPane::StationListPane(Application &app, const QString &emptyTitle, const QString &emptyHint,
                                 QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(UiKit::kSpacing);
    m_model = new StationTableModel(this);
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_empty = UiKit::makeEmptyState(emptyTitle, emptyHint, this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);
    m_actions = new StationActionBar(app, this);
    layout->addWidget(m_actions);

    connect(&app.favorites(), &FavoriteStations::changed, this, &StationListPane::refreshFavoriteMarks);
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this,
            [this] { m_model->setRecordingIds(recordedIds(m_app.recorder())); });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &StationListPane::selectionChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, &StationListPane::selectionChanged);
    // A double click listens: recording is always asked for by its own button or menu
    // entry, so a second double click cannot stop a recording and lose its song.
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (const Station *station = m_model->stationAt(index.row()))
            m_app.listen(*station);
    });
    // Enter listens: the quick way to hear a station found with the keyboard. (Return as
    // well, the same key on most keyboards.)
    auto *listen = new QAction(tx("station.listen"), this);
    listen->setShortcuts({ QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter) });
    listen->setShortcutContext(Qt::WidgetShortcut);
    m_table->addAction(listen);
    connect(listen, &QAction::triggered, this, [this] {
        if (const Station *station = m_model->stationAt(m_table->currentIndex().row()))
            m_app.listen(*station);
    });
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        const Station *hit = m_model->stationAt(m_table->indexAt(pos).row());
        if (!hit)
            return;
        const Station station = *hit; // the menu's actions may change the list
        QMenu menu;
        StationActionBar::addActions(menu, m_app, station);
        if (extendMenu) {
            menu.addSeparator();
            extendMenu(menu, station);
        }
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    refreshFavoriteMarks();
    m_model->setRecordingIds(recordedIds(app.recorder()));
}

std::optional<Station> StationListPane::selectedStation() const
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    const Station *station = rows.isEmpty() ? nullptr : m_model->stationAt(rows.first().row());
    return station ? std::optional<Station>(*station) : std::nullopt;
}

void StationListPane::showRowsOrEmpty(const QString &emptyTitle, const QString &emptyHint)
{
    if (m_model->rowCount() > 0) {
        m_stack->setCurrentWidget(m_table);
        return;
    }
    UiKit::setEmptyStateTexts(m_empty, emptyTitle, emptyHint);
    m_stack->setCurrentWidget(m_empty);
}

bool StationListPane::showsEmptyState() const
{
    return m_stack->currentWidget() == m_empty;
}

void StationListPane::setMarksFavorites(bool marks)
{
    m_marksFavorites = marks;
    refreshFavoriteMarks();
}

void StationListPane::addAboveActions(QWidget *widget)
{
    static_cast<QVBoxLayout *>(layout())->insertWidget(1, widget);
}

void StationListPane::selectionChanged()
{
    const std::optional<Station> station = selectedStation();
    m_actions->setStation(station);
    Q_EMIT currentStationChanged(station);
}

void StationListPane::refreshFavoriteMarks()
{
    m_model->setFavoriteIds(m_marksFavorites ? m_app.favorites().ids() : QSet<QString>());
}
