#include "app/favoritesview.h"

#include "app/application.h"
#include "app/countrynames.h"
#include "app/stationlistpane.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "engine/sniperscheduler.h"
#include "stations/favoritestations.h"
#include "platform/statefile.h"

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
    const UiKit::Page page = UiKit::makePage(this, tx("fav.title"));
    m_count = page.count;

    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(tx("fav.searchPlaceholder"));
    m_filter->setClearButtonEnabled(true);
    page.layout->addWidget(m_filter);

    m_pane = new StationListPane(app, tx("fav.emptyTitle"), tx("fav.emptyHint"), this);
    m_pane->setMarksFavorites(false); // every row is one; the star would only repeat that
    page.layout->addWidget(m_pane, 1);
    model()->onDropIds = [this](const QStringList &ids, int row) {
        // Rows are list positions only while nothing is filtered out.
        if (m_filter->text().trimmed().isEmpty())
            applyMove(m_app.favorites().move(ids, row));
    };
    table()->setDragDropMode(QAbstractItemView::DragDrop);
    table()->setDefaultDropAction(Qt::MoveAction);
    table()->setDragDropOverwriteMode(false);
    table()->setDropIndicatorShown(true);
    m_hint = UiKit::makeHint(tx("fav.reorderHint") + QStringLiteral("  ") + tx("fav.shortcutHint"), this);
    m_pane->addAboveActions(m_hint);
    m_pane->extendMenu = [this](QMenu &menu, const Station &station) { addMoveActions(menu, station); };

    connect(&app.favorites(), &FavoriteStations::changed, this, &FavoritesView::refresh);
    connect(m_pane, &StationListPane::currentStationChanged, this, &FavoritesView::currentStationChanged);
    connect(m_filter, &QLineEdit::textChanged, this, &FavoritesView::refresh);
    connect(&app.scheduler(), &SniperScheduler::itemsChanged, this, &FavoritesView::refreshScheduledMarks);
    refresh();
    refreshScheduledMarks();
}

void FavoritesView::refreshScheduledMarks()
{
    QSet<QString> ids;
    for (const ScheduledRecording &plan : m_app.scheduler().items())
        ids.insert(plan.stationId);
    model()->setScheduledIds(ids);
}

std::optional<Station> FavoritesView::selectedStation() const
{
    return m_pane->selectedStation();
}

QTableView *FavoritesView::table() const
{
    return m_pane->table();
}

StationTableModel *FavoritesView::model() const
{
    return m_pane->model();
}

bool FavoritesView::showsEmptyState() const
{
    return m_pane->showsEmptyState();
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
                station.country.contains(filter, Qt::CaseInsensitive) ||
                CountryNames::display(station.country).contains(filter, Qt::CaseInsensitive))
                shown << station;
        }
    }
    model()->setStations(shown);
    table()->setDragEnabled(filter.isEmpty());
    m_hint->setVisible(!all.isEmpty());

    m_count->setText(all.size() == 1 ? tx("fav.countOne") : Texts::text("fav.countFormat").arg(all.size()));
    m_count->setVisible(!all.isEmpty());
    if (all.isEmpty())
        m_pane->showRowsOrEmpty(tx("fav.emptyTitle"), tx("fav.emptyHint"));
    else
        m_pane->showRowsOrEmpty(Texts::text("fav.noMatchesFormat").arg(filter), QString());
    if (selected) {
        const int row = model()->rowOf(selected->id);
        if (row >= 0)
            table()->selectRow(row);
    }
}

void FavoritesView::moveToTop(const QString &stationId)
{
    applyMove(m_app.favorites().move(QStringList{stationId}, 0));
}

void FavoritesView::moveUp(const QString &stationId)
{
    const std::optional<qsizetype> index = m_app.favorites().indexOf(stationId);
    if (index && *index > 0)
        applyMove(m_app.favorites().move(QList<int>{int(*index)}, int(*index) - 1));
}

void FavoritesView::moveDown(const QString &stationId)
{
    const std::optional<qsizetype> index = m_app.favorites().indexOf(stationId);
    // The destination counts positions before the move: two on lands one further down.
    if (index && *index + 1 < m_app.favorites().list().size())
        applyMove(m_app.favorites().move(QList<int>{int(*index)}, int(*index) + 2));
}

void FavoritesView::applyMove(const StateResult &written)
{
    if (written)
        return;
    // The list keeps its order: show it so again, in case the view had moved rows already.
    refresh();
    m_app.reportProblem(written.error);
}

void FavoritesView::addMoveActions(QMenu &menu, const Station &station)
{
    const qsizetype index = m_app.favorites().indexOf(station.id).value_or(-1);
    const qsizetype last = m_app.favorites().list().size() - 1;
    menu.addAction(tx("fav.moveToTop"), this, [this, id = station.id] { moveToTop(id); })->setEnabled(index > 0);
    menu.addAction(tx("fav.moveUp"), this, [this, id = station.id] { moveUp(id); })->setEnabled(index > 0);
    menu.addAction(tx("fav.moveDown"), this, [this, id = station.id] { moveDown(id); })
        ->setEnabled(index >= 0 && index < last);
}
