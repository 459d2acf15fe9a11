#include "app/librarymodel.h"
#include "app/libraryview.h"
#include "library/librarystore.h"

#include "appfixture.h"

#include <QFile>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTableView>

namespace {

class LibraryViewTest : public AppFixture {
protected:
    // Tracks with real files in the music folder; returns their ids in order.
    QList<qint64> addTracks()
    {
        const QDateTime base = QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
        QList<Track> tracks;
        const struct {
            const char *title, *artist, *station;
            double duration;
            int day;
        } rows[] = {{"Blue Train", "John Coltrane", "Jazz One", 643, 1},
                    {"Beat It", "Michael Jackson", "Pop Two", 258, 3},
                    {"Alright", "Kendrick Lamar", "Pop Two", 219, 2}};
        for (const auto &row : rows) {
            const QString path = home.file(QStringLiteral("Music/Orvida/Radio/%1.mp3").arg(QString::fromUtf8(row.title)));
            writeFile(path, "ID3");
            tracks << Track(QString::fromUtf8(row.title), QString::fromUtf8(row.artist), QString(), row.duration,
                            base.addDays(row.day), QString(), false, 0, QStringLiteral("radio"),
                            QString::fromUtf8(row.station), path);
        }
        return app->library()->insertTracks(tracks);
    }

    static QStringList column(const QTableView *table, int column)
    {
        QStringList out;
        for (int row = 0; row < table->model()->rowCount(); ++row)
            out << table->model()->index(row, column).data().toString();
        return out;
    }
};

TEST_F(LibraryViewTest, SortsByValueAndFiltersByTextColumns)
{
    ASSERT_EQ(addTracks().size(), 3);
    LibraryView view(*app);
    view.show(); // the tracks are read on first show
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("3 tracks"));
    // Newest first at the start.
    EXPECT_EQ(column(view.table(), LibraryModel::TitleColumn), QStringList({"Beat It", "Alright", "Blue Train"}));

    // Durations sort as numbers ("10:43" would come before "3:39" as text).
    view.table()->sortByColumn(LibraryModel::DurationColumn, Qt::DescendingOrder);
    EXPECT_EQ(column(view.table(), LibraryModel::DurationColumn), QStringList({"10:43", "4:18", "3:39"}));

    view.filterField()->setText(QStringLiteral("pop two"));
    EXPECT_EQ(column(view.table(), LibraryModel::TitleColumn), QStringList({"Beat It", "Alright"}));
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("2 of 3 tracks"));
    // The duration text is not searched: "10" matches no title, artist, album or station.
    view.filterField()->setText(QStringLiteral("10"));
    EXPECT_EQ(view.table()->model()->rowCount(), 0);
}

TEST_F(LibraryViewTest, DeleteAsksFirstThenRemovesFileAndEntry)
{
    const QList<qint64> ids = addTracks();
    LibraryView view(*app);
    view.show();
    QStringList questions;
    bool answer = false;
    view.confirm = [&](const QString &question) {
        questions << question;
        return answer;
    };
    view.filterField()->setText(QStringLiteral("Coltrane"));
    view.table()->selectRow(0);
    const QString path = *view.selectedTracks().first().filePath;

    view.deleteSelected();
    ASSERT_EQ(questions.size(), 1);
    EXPECT_TRUE(questions.first().contains(QStringLiteral("Blue Train")));
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(app->library()->allTracks().size(), 3);

    answer = true;
    view.deleteSelected();
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_FALSE(app->library()->track(ids[0]));
    view.filterField()->clear();
    EXPECT_EQ(view.table()->model()->rowCount(), 2);
}

TEST_F(LibraryViewTest, EntryWhoseFileIsAlreadyGoneCanStillBeDeleted)
{
    const QList<qint64> ids = addTracks();
    LibraryView view(*app);
    view.show();
    view.confirm = [](const QString &) { return true; };
    view.filterField()->setText(QStringLiteral("Alright"));
    view.table()->selectRow(0);
    ASSERT_TRUE(QFile::remove(*view.selectedTracks().first().filePath));
    view.deleteSelected();
    EXPECT_FALSE(app->library()->track(ids[2]));
}

TEST_F(LibraryViewTest, ShowInFolderOpensTheContainingFolder)
{
    addTracks();
    LibraryView view(*app);
    view.show();
    QList<QUrl> opened;
    view.openFolder = [&](const QUrl &url) { opened << url; };
    view.showSelectedInFolder(); // nothing selected
    EXPECT_TRUE(opened.isEmpty());
    view.table()->selectRow(0);
    view.showSelectedInFolder();
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened.first(), QUrl::fromLocalFile(home.file(QStringLiteral("Music/Orvida/Radio"))));
}

TEST_F(LibraryViewTest, NewlySavedSongsAppearWithoutAReopen)
{
    LibraryView view(*app);
    view.show();
    EXPECT_EQ(view.table()->model()->rowCount(), 0);
    app->fileIntoLibrary(Track(QStringLiteral("Song"), QStringLiteral("Band"), QString(), 200,
                               QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"),
                               QStringLiteral("Station"), home.file(QStringLiteral("a.mp3"))));
    EXPECT_EQ(view.table()->model()->rowCount(), 1);
    // The same file saved again (a longer take) updates its entry, keeping its plays.
    Track played = app->library()->allTracks().first();
    played.playCount = 4;
    ASSERT_TRUE(app->library()->save(played));
    app->fileIntoLibrary(Track(QStringLiteral("Song (Long)"), QStringLiteral("Band"), QString(), 260,
                               QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"),
                               QStringLiteral("Station"), home.file(QStringLiteral("a.mp3"))));
    ASSERT_EQ(app->library()->allTracks().size(), 1);
    EXPECT_EQ(app->library()->allTracks().first().title, QStringLiteral("Song (Long)"));
    EXPECT_EQ(app->library()->allTracks().first().playCount, 4);
}

TEST_F(LibraryViewTest, TracksAreReadOnFirstShowNotWhenTheWindowIsBuilt)
{
    addTracks();
    LibraryView view(*app);
    EXPECT_FALSE(view.model()->isLoaded());
    EXPECT_EQ(view.model()->rowCount(), 0);
    // A song saved before the first show is read with the rest, not counted twice.
    app->fileIntoLibrary(Track(QStringLiteral("Early"), QStringLiteral("Band"), QString(), 100,
                               QDateTime::currentDateTimeUtc(), QString(), false, 0, QStringLiteral("radio"),
                               QStringLiteral("Pop Two"), home.file(QStringLiteral("early.mp3"))));
    view.show();
    EXPECT_TRUE(view.model()->isLoaded());
    EXPECT_EQ(view.model()->rowCount(), 4);
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("4 tracks"));
}

TEST_F(LibraryViewTest, StoreChangesMoveSingleRowsAndKeepFilterSortAndSelection)
{
    const QList<qint64> ids = addTracks();
    LibraryView view(*app);
    view.show();
    QSignalSpy resets(view.model(), &QAbstractItemModel::modelReset);
    QSignalSpy inserted(view.model(), &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(view.model(), &QAbstractItemModel::rowsRemoved);

    view.filterField()->setText(QStringLiteral("pop two"));
    view.table()->selectRow(1); // "Alright": newest first
    ASSERT_EQ(view.selectedTracks().size(), 1);
    ASSERT_EQ(view.selectedTracks().first().id, ids[2]);

    // A saved song that matches the filter lands at its sorted place (newest: on top);
    // the selection stays on its track.
    app->fileIntoLibrary(Track(QStringLiteral("Fresh"), QStringLiteral("New Band"), QString(), 200,
                               QDateTime(QDate(2026, 4, 1), QTime(9, 0), Qt::UTC), QString(), false, 0, QStringLiteral("radio"),
                               QStringLiteral("Pop Two"), home.file(QStringLiteral("fresh.mp3"))));
    EXPECT_EQ(column(view.table(), LibraryModel::TitleColumn), QStringList({"Fresh", "Beat It", "Alright"}));
    ASSERT_EQ(view.selectedTracks().size(), 1);
    EXPECT_EQ(view.selectedTracks().first().id, ids[2]);
    // One that does not match is counted but not shown.
    app->fileIntoLibrary(Track(QStringLiteral("Other"), QStringLiteral("Band"), QString(), 200,
                               QDateTime(QDate(2026, 4, 2), QTime(9, 0), Qt::UTC), QString(), false, 0, QStringLiteral("radio"),
                               QStringLiteral("Jazz One"), home.file(QStringLiteral("other.mp3"))));
    EXPECT_EQ(view.table()->model()->rowCount(), 3);
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("3 of 5 tracks"));
    ASSERT_EQ(inserted.count(), 2);
    EXPECT_EQ(inserted[0][1].toInt(), 3); // appended: one row at the end, each time
    EXPECT_EQ(inserted[0][2].toInt(), 3);
    EXPECT_EQ(inserted[1][1].toInt(), 4);

    // A saved edit changes its row in place; leaving the filter's match hides it.
    Track edited = *app->library()->track(ids[1]);
    edited.station = QStringLiteral("Jazz One");
    ASSERT_TRUE(app->library()->save(edited));
    EXPECT_EQ(column(view.table(), LibraryModel::TitleColumn), QStringList({"Fresh", "Alright"}));
    EXPECT_EQ(view.model()->trackAt(view.model()->rowOf(ids[1]))->station, QStringLiteral("Jazz One"));

    // A delete removes exactly its row.
    ASSERT_TRUE(app->library()->remove(ids[0]));
    ASSERT_EQ(removed.count(), 1);
    EXPECT_EQ(removed[0][1].toInt(), 0);
    EXPECT_EQ(removed[0][2].toInt(), 0);
    EXPECT_EQ(view.model()->rowOf(ids[0]), -1);
    EXPECT_EQ(view.countLabel()->text(), QStringLiteral("2 of 4 tracks"));
    EXPECT_EQ(view.selectedTracks().first().id, ids[2]);
    EXPECT_EQ(resets.count(), 0);

    view.filterField()->clear();
    EXPECT_EQ(column(view.table(), LibraryModel::TitleColumn),
              QStringList({"Other", "Fresh", "Beat It", "Alright"}));
}

TEST_F(LibraryViewTest, SelectedTracksStaySelectedWhileTheFilterChanges)
{
    const QList<qint64> ids = addTracks();
    LibraryView view(*app);
    view.show();
    auto selectedIds = [&] {
        QList<qint64> out;
        for (const Track &track : view.selectedTracks())
            out << track.id;
        std::sort(out.begin(), out.end());
        return out;
    };
    // Newest first: "Beat It", "Alright", "Blue Train".
    view.table()->selectionModel()->select(view.table()->model()->index(0, 0),
                                           QItemSelectionModel::Select | QItemSelectionModel::Rows);
    view.table()->selectionModel()->setCurrentIndex(view.table()->model()->index(2, 0),
                                                    QItemSelectionModel::Select | QItemSelectionModel::Rows);
    ASSERT_EQ(selectedIds(), QList<qint64>({ids[0], ids[1]}));

    view.filterField()->setText(QStringLiteral("b"));
    EXPECT_EQ(selectedIds(), QList<qint64>({ids[0], ids[1]}));
    EXPECT_EQ(view.table()->currentIndex().row(), 1);
    EXPECT_TRUE(view.table()->selectionModel()->isRowSelected(1, {}));
    // Hidden tracks are no longer selected, the shown one is.
    view.filterField()->setText(QStringLiteral("beat"));
    EXPECT_EQ(selectedIds(), QList<qint64>({ids[1]}));
    view.filterField()->setText(QStringLiteral("alright"));
    EXPECT_TRUE(selectedIds().isEmpty());
    view.filterField()->clear();
    EXPECT_TRUE(selectedIds().isEmpty());

    // A selection made while filtered survives clearing the filter, at the track's new row.
    view.filterField()->setText(QStringLiteral("train"));
    view.table()->selectRow(0);
    view.filterField()->clear();
    EXPECT_EQ(selectedIds(), QList<qint64>({ids[0]}));
    EXPECT_TRUE(view.table()->selectionModel()->isRowSelected(2, {}));
    EXPECT_EQ(view.table()->currentIndex().row(), 2);
}

} // namespace
