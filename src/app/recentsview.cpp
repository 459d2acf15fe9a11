#include "app/recentsview.h"

#include "app/application.h"
#include "app/sessionlist.h"
#include "app/stationactionbar.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"

#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

RecentsView::RecentsView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin);
    layout->setSpacing(UiKit::kSpacing);
    layout->addWidget(UiKit::makeTitle(tx("recents.title"), this));

    m_model = new StationTableModel(this);
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_empty = UiKit::makeEmptyState(tx("recents.emptyTitle"), tx("recents.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);
    m_actions = new StationActionBar(app, this);
    layout->addWidget(m_actions);

    connect(&app.recents(), &RecentStations::changed, this, &RecentsView::refresh);
    connect(&app.favorites(), &FavoriteStations::changed, this,
            [this] { m_model->setFavoriteIds(m_app.favorites().ids()); });
    connect(&app.recorder(), &SessionList::sessionsChanged, this,
            [this] { m_model->setRecordingIds(m_app.recorder().stationIds()); });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        m_actions->setStation(selectedStation());
        Q_EMIT currentStationChanged(selectedStation());
    });
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (const Station *station = m_model->stationAt(index.row()))
            StationActionBar::toggleRecording(m_app, *station);
    });
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &pos) {
        const Station *hit = m_model->stationAt(m_table->indexAt(pos).row());
        if (!hit)
            return;
        const Station station = *hit;
        QMenu menu;
        StationActionBar::addActions(menu, m_app, station);
        menu.addSeparator();
        menu.addAction(tx("recents.forget"), this, [this, station] { m_app.recents().remove(station); });
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    m_model->setFavoriteIds(app.favorites().ids());
    refresh();
}

std::optional<Station> RecentsView::selectedStation() const
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    const Station *station = rows.isEmpty() ? nullptr : m_model->stationAt(rows.first().row());
    return station ? std::optional<Station>(*station) : std::nullopt;
}

void RecentsView::refresh()
{
    m_model->setStations(m_app.recents().list());
    m_stack->setCurrentWidget(m_model->rowCount() > 0 ? static_cast<QWidget *>(m_table) : m_empty);
}
