#include "app/favoritesview.h"
#include "app/stationtablemodel.h"
#include "stations/favoritestations.h"

#include "appfixture.h"

#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QTableView>

namespace {

class FavoritesViewTest : public AppFixture {
protected:
    void addFavorites(int count)
    {
        for (int i = 0; i < count; ++i)
            ASSERT_TRUE(app->favorites().add(makeStation(QStringLiteral("f%1").arg(i), QStringLiteral("Station %1").arg(i),
                                             i % 2 ? QStringLiteral("France") : QStringLiteral("Germany"))));
    }

    // The order as a fresh load of the file sees it.
    static QStringList persistedIds()
    {
        FavoriteStations reloaded(FavoriteStations::defaultFilePath());
        QStringList ids;
        for (const Station &station : reloaded.list())
            ids << station.id;
        return ids;
    }

    static QStringList shownIds(const StationTableModel *model)
    {
        QStringList ids;
        for (const Station &station : model->stations())
            ids << station.id;
        return ids;
    }
};

TEST_F(FavoritesViewTest, DragAndDropReordersAndThePersistedFileFollows)
{
    addFavorites(5);
    FavoritesView view(*app);
    StationTableModel *model = view.model();

    // Rows 0 and 2 dropped before row 4 land, in their order, in front of that station.
    std::unique_ptr<QMimeData> dragged(model->mimeData({model->index(2, 0), model->index(0, 0), model->index(0, 1)}));
    model->dropMimeData(dragged.get(), Qt::MoveAction, 4, 0, {});
    const QStringList expected{"f1", "f3", "f0", "f2", "f4"};
    EXPECT_EQ(shownIds(model), expected);
    EXPECT_EQ(persistedIds(), expected);

    // Dropped below the last row: to the end.
    std::unique_ptr<QMimeData> first(model->mimeData({model->index(0, 0)}));
    model->dropMimeData(first.get(), Qt::MoveAction, -1, -1, {});
    EXPECT_EQ(persistedIds(), QStringList({"f3", "f0", "f2", "f4", "f1"}));
}

TEST_F(FavoritesViewTest, ContextMenuMovesStopAtTheEnds)
{
    addFavorites(4);
    FavoritesView view(*app);
    view.moveDown(QStringLiteral("f0"));
    EXPECT_EQ(persistedIds(), QStringList({"f1", "f0", "f2", "f3"}));
    view.moveDown(QStringLiteral("f3")); // already last
    view.moveUp(QStringLiteral("f1"));   // already first
    EXPECT_EQ(persistedIds(), QStringList({"f1", "f0", "f2", "f3"}));
    view.moveUp(QStringLiteral("f2"));
    EXPECT_EQ(persistedIds(), QStringList({"f1", "f2", "f0", "f3"}));
    view.moveToTop(QStringLiteral("f3"));
    EXPECT_EQ(shownIds(view.model()), QStringList({"f3", "f1", "f2", "f0"}));
    EXPECT_EQ(persistedIds(), QStringList({"f3", "f1", "f2", "f0"}));
}

TEST_F(FavoritesViewTest, FilterCountsAndEmptyStates)
{
    FavoritesView view(*app);
    EXPECT_TRUE(view.showsEmptyState());
    EXPECT_FALSE(view.countLabel()->isVisibleTo(&view));

    addFavorites(1);
    EXPECT_FALSE(view.showsEmptyState());
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("1 station"));
    addFavorites(5);
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("5 stations"));

    view.filterField()->setText(QStringLiteral("france"));
    EXPECT_EQ(shownIds(view.model()), QStringList({"f1", "f3"}));
    // Positions in a filtered list are not list positions: no dragging, and a drop that
    // arrives anyway changes nothing.
    EXPECT_FALSE(view.table()->dragEnabled());
    std::unique_ptr<QMimeData> dragged(view.model()->mimeData({view.model()->index(1, 0)}));
    view.model()->dropMimeData(dragged.get(), Qt::MoveAction, 0, 0, {});
    EXPECT_EQ(persistedIds(), QStringList({"f0", "f1", "f2", "f3", "f4"}));

    view.filterField()->setText(QStringLiteral("nowhere"));
    EXPECT_TRUE(view.showsEmptyState());
    view.filterField()->clear();
    EXPECT_EQ(view.model()->rowCount(), 5);
    EXPECT_TRUE(view.table()->dragEnabled());
}

TEST_F(FavoritesViewTest, SelectionSurvivesAReorder)
{
    addFavorites(3);
    FavoritesView view(*app);
    view.table()->selectRow(2);
    ASSERT_EQ(view.selectedStation()->id, QStringLiteral("f2"));
    view.moveToTop(QStringLiteral("f2"));
    ASSERT_TRUE(view.selectedStation());
    EXPECT_EQ(view.selectedStation()->id, QStringLiteral("f2"));
}

} // namespace
