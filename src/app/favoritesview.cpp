#include "app/favoritesview.h"

#include "app/application.h"
#include "app/sessionlist.h"
#include "app/stationactionbar.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "stations/favoritestations.h"

#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

FavoritesView::FavoritesView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin, UiKit::kPageMargin);
    layout->setSpacing(UiKit::kSpacing);
    auto *titleRow = new QHBoxLayout;
    titleRow->addWidget(UiKit::makeTitle(tx("fav.title"), this));
    titleRow->addStretch();
    m_count = UiKit::makeHint(QString(), this);
    m_count->setWordWrap(false);
    titleRow->addWidget(m_count, 0, Qt::AlignBottom);
    layout->addLayout(titleRow);

    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(tx("fav.searchPlaceholder"));
    m_filter->setClearButtonEnabled(true);
    layout->addWidget(m_filter);

    m_model = new StationTableModel(this);
    m_model->onDropIds = [this](const QStringList &ids, int row) {
        // Rows are list positions only while nothing is filtered out.
        if (m_filter->text().trimmed().isEmpty())
            m_app.favorites().move(ids, row);
    };
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    UiKit::configureTable(m_table);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setDragDropMode(QAbstractItemView::DragDrop);
    m_table->setDefaultDropAction(Qt::MoveAction);
    m_table->setDragDropOverwriteMode(false);
    m_table->setDropIndicatorShown(true);
    m_empty = UiKit::makeEmptyState(tx("fav.emptyTitle"), tx("fav.emptyHint"), this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_table);
    m_stack->addWidget(m_empty);
    layout->addWidget(m_stack, 1);

    m_hint = UiKit::makeHint(tx("fav.reorderHint") + QStringLiteral("  ") + tx("fav.shortcutHint"), this);
    layout->addWidget(m_hint);
    m_actions = new StationActionBar(app, this);
    layout->addWidget(m_actions);

    connect(&app.favorites(), &FavoriteStations::changed, this, &FavoritesView::refresh);
    connect(&app.recorder(), &SessionList::sessionsChanged, this,
            [this] { m_model->setRecordingIds(m_app.recorder().stationIds()); });
    connect(m_filter, &QLineEdit::textChanged, this, &FavoritesView::refresh);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        m_actions->setStation(selectedStation());
        Q_EMIT currentStationChanged(selectedStation());
    });
    connect(m_table, &QWidget::customContextMenuRequested, this, &FavoritesView::showContextMenu);
    connect(m_table, &QTableView::doubleClicked, this, [this](const QModelIndex &index) {
        if (const Station *station = m_model->stationAt(index.row()))
            StationActionBar::toggleRecording(m_app, *station);
    });
    refresh();
}

std::optional<Station> FavoritesView::selectedStation() const
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    const Station *station = rows.isEmpty() ? nullptr : m_model->stationAt(rows.first().row());
    return station ? std::optional<Station>(*station) : std::nullopt;
}

bool FavoritesView::showsEmptyState() const
{
    return m_stack->currentWidget() == m_empty;
}

void FavoritesView::refresh()
{
    const std::optional<Station> selected = selectedStation();
    const QList<Station> &all = m_app.favorites().list();
    const QString filter = m_filter->text().trimmed();
    QList<Station> shown;
    if (filter.isEmpty()) {
        shown = all;
    } else {
        for (const Station &station : all) {
            if (station.name.contains(filter, Qt::CaseInsensitive) ||
                station.country.contains(filter, Qt::CaseInsensitive))
                shown << station;
        }
    }
    m_model->setStations(shown);
    m_model->setFavoriteIds({}); // every row is one; the star would only repeat that
    m_table->setDragEnabled(filter.isEmpty());
    m_hint->setVisible(!all.isEmpty());

    m_count->setText(all.size() == 1 ? tx("fav.countOne") : Texts::text("fav.countFormat").arg(all.size()));
    m_count->setVisible(!all.isEmpty());
    if (all.isEmpty()) {
        UiKit::setEmptyStateTexts(m_empty, tx("fav.emptyTitle"), tx("fav.emptyHint"));
        m_stack->setCurrentWidget(m_empty);
    } else if (shown.isEmpty()) {
        UiKit::setEmptyStateTexts(m_empty, Texts::text("fav.noMatchesFormat").arg(filter), QString());
        m_stack->setCurrentWidget(m_empty);
    } else {
        m_stack->setCurrentWidget(m_table);
    }
    if (selected) {
        const int row = m_model->rowOf(selected->id);
        if (row >= 0)
            m_table->selectRow(row);
    }
}

void FavoritesView::moveToTop(const QString &stationId)
{
    m_app.favorites().move(QStringList{stationId}, 0);
}

void FavoritesView::moveUp(const QString &stationId)
{
    const std::optional<qsizetype> index = m_app.favorites().indexOf(stationId);
    if (index && *index > 0)
        m_app.favorites().move(QList<int>{int(*index)}, int(*index) - 1);
}

void FavoritesView::moveDown(const QString &stationId)
{
    const std::optional<qsizetype> index = m_app.favorites().indexOf(stationId);
    // The destination counts positions before the move: two on lands one further down.
    if (index && *index + 1 < m_app.favorites().list().size())
        m_app.favorites().move(QList<int>{int(*index)}, int(*index) + 2);
}

void FavoritesView::showContextMenu(const QPoint &pos)
{
    const Station *hit = m_model->stationAt(m_table->indexAt(pos).row());
    if (!hit)
        return;
    const Station station = *hit;
    const qsizetype index = m_app.favorites().indexOf(station.id).value_or(-1);
    const qsizetype last = m_app.favorites().list().size() - 1;
    QMenu menu;
    StationActionBar::addActions(menu, m_app, station);
    menu.addSeparator();
    menu.addAction(tx("fav.moveToTop"), this, [this, id = station.id] { moveToTop(id); })->setEnabled(index > 0);
    menu.addAction(tx("fav.moveUp"), this, [this, id = station.id] { moveUp(id); })->setEnabled(index > 0);
    menu.addAction(tx("fav.moveDown"), this, [this, id = station.id] { moveDown(id); })
        ->setEnabled(index >= 0 && index < last);
    menu.exec(m_table->viewport()->mapToGlobal(pos));
}
