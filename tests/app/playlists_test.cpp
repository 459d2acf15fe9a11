#include "app/librarymodel.h"
#include "app/libraryview.h"
#include "app/playlistentrymodel.h"
#include "app/playlistlistmodel.h"
#include "app/playlistpane.h"
#include "library/librarystore.h"

#include "appfixture.h"

#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QTableView>

#include <memory>

namespace {

// The playlist column and the playlist table of the library page against a real library
// file: every edit is checked in the store, not only on the screen.
class PlaylistsTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        QList<Track> tracks;
        // Added a day apart, so the library table (newest first) shows E, D, C, B, A.
        for (int i = 0; i < 5; ++i)
            tracks << Track(QString(QChar(u'A' + i)), QStringLiteral("Artist %1").arg(i), QString(), 60.0 * (i + 1),
                            QDateTime(QDate(2026, 3, 1 + i), QTime(12, 0), Qt::UTC), QString(), false, 0,
                            QStringLiteral("radio"), QStringLiteral("FM"), std::nullopt);
        ids = app->library()->insertTracks(tracks);
        ASSERT_EQ(ids.size(), 5);
        view = std::make_unique<LibraryView>(*app);
        view->show();
        names.clear();
        view->playlistPane()->askName = [this](const QString &, const QString &proposed) -> std::optional<QString> {
            proposals << proposed;
            if (names.isEmpty())
                return std::nullopt;
            return names.takeFirst();
        };
    }

    void TearDown() override
    {
        view.reset();
        AppFixture::TearDown();
    }

    qint64 makePlaylist(const QString &name, const QList<qint64> &trackIds = {})
    {
        names << name;
        const std::optional<qint64> id = view->playlistPane()->createPlaylist(false);
        EXPECT_TRUE(id);
        if (id && !trackIds.isEmpty()) {
            std::unique_ptr<QMimeData> data(LibraryModel::mimeDataFor(trackIds));
            PlaylistListModel *list = view->playlistPane()->model();
            EXPECT_TRUE(list->dropMimeData(data.get(), Qt::CopyAction, -1, 0, list->index(list->rowOf(*id))));
        }
        return id.value_or(0);
    }

    // Titles of the stored playlist in its played order.
    QStringList storedTitles(qint64 playlistId)
    {
        QStringList titles;
        for (const PlaylistEntry &entry : app->library()->playlist(playlistId).value_or(Playlist()).entries)
            titles << entry.title;
        return titles;
    }

    QStringList shownTitles() const
    {
        QStringList titles;
        const QAbstractItemModel *model = view->playlistTable()->model();
        for (int row = 0; row < model->rowCount(); ++row)
            titles << model->index(row, PlaylistEntryModel::TitleColumn).data().toString();
        return titles;
    }

    void selectEntries(const QList<int> &rows)
    {
        QItemSelectionModel *selection = view->playlistTable()->selectionModel();
        selection->clearSelection();
        for (int row : rows)
            selection->select(view->playlistModel()->index(row, 0),
                              QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    QList<qint64> ids;
    std::unique_ptr<LibraryView> view;
    QStringList names;     // what the name dialog answers, one per question
    QStringList proposals; // what it proposed
};

TEST_F(PlaylistsTest, PlaylistsAreCreatedRenamedAndDeleted)
{
    PlaylistPane *pane = view->playlistPane();
    PlaylistListModel *list = pane->model();
    ASSERT_EQ(list->rowCount(), 1);
    EXPECT_EQ(list->index(0).data().toString(), QStringLiteral("All Tracks"));

    // Cancelled or blank: nothing is created.
    EXPECT_FALSE(pane->createPlaylist());
    names << QStringLiteral("   ");
    EXPECT_FALSE(pane->createPlaylist());
    EXPECT_TRUE(app->library()->allPlaylists().isEmpty());
    EXPECT_EQ(proposals.first(), QStringLiteral("New Playlist"));

    names << QStringLiteral("  Road Trip ");
    const std::optional<qint64> id = pane->createPlaylist();
    ASSERT_TRUE(id);
    EXPECT_EQ(app->library()->playlist(*id)->name, QStringLiteral("Road Trip"));
    EXPECT_EQ(pane->currentPlaylist(), *id);
    EXPECT_TRUE(view->showsPlaylist());
    EXPECT_EQ(list->index(1).data().toString(), QStringLiteral("Road Trip"));

    // Renaming by dialog proposes the old name and keeps the playlist current.
    names << QStringLiteral("Summer");
    pane->renameCurrent();
    EXPECT_EQ(proposals.last(), QStringLiteral("Road Trip"));
    EXPECT_EQ(app->library()->playlist(*id)->name, QStringLiteral("Summer"));
    EXPECT_EQ(pane->currentPlaylist(), *id);
    EXPECT_EQ(pane->list()->currentIndex().data().toString(), QStringLiteral("Summer"));
    // ...and by editing the row in place; a blank name is refused.
    EXPECT_TRUE(list->setData(list->index(1), QStringLiteral("Winter"), Qt::EditRole));
    EXPECT_FALSE(list->setData(list->index(1), QStringLiteral(" "), Qt::EditRole));
    EXPECT_FALSE(list->flags(list->index(0)) & Qt::ItemIsEditable);
    EXPECT_EQ(app->library()->playlist(*id)->name, QStringLiteral("Winter"));

    // Deleting asks first; the library page falls back to all tracks.
    QStringList questions;
    bool answer = false;
    pane->confirm = [&](const QString &question) {
        questions << question;
        return answer;
    };
    pane->deleteCurrent();
    ASSERT_EQ(questions.size(), 1);
    EXPECT_TRUE(questions.first().contains(QStringLiteral("Winter")));
    EXPECT_TRUE(app->library()->playlist(*id));
    answer = true;
    pane->deleteCurrent();
    EXPECT_FALSE(app->library()->playlist(*id));
    EXPECT_EQ(list->rowCount(), 1);
    EXPECT_EQ(pane->currentPlaylist(), 0);
    EXPECT_FALSE(view->showsPlaylist());
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("5 tracks"));
}

TEST_F(PlaylistsTest, TracksAreAddedFromTheMenuAndByDroppingThemOnAPlaylist)
{
    const qint64 mix = makePlaylist(QStringLiteral("Mix"));
    // The menu adds the selected tracks in the order the table shows them.
    QTableView *table = view->table();
    table->selectionModel()->select(table->model()->index(3, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    table->selectionModel()->select(table->model()->index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    view->addSelectedToPlaylist(mix);
    EXPECT_EQ(storedTitles(mix), QStringList({"E", "B"}));
    const Playlist stored = *app->library()->playlist(mix);
    EXPECT_EQ(stored.entries[0].linkedTrack, ids[4]);
    EXPECT_EQ(stored.entries[1].artist, QStringLiteral("Artist 1"));
    EXPECT_EQ(stored.entries[1].duration, 120);

    // Library rows dragged onto the playlist go to its end; "All Tracks" and the gaps
    // between rows take no drop.
    PlaylistListModel *list = view->playlistPane()->model();
    const QModelIndexList dragged{table->model()->index(4, 0), table->model()->index(4, 1)};
    std::unique_ptr<QMimeData> data(table->model()->mimeData(dragged));
    ASSERT_TRUE(data);
    EXPECT_FALSE(list->canDropMimeData(data.get(), Qt::CopyAction, -1, 0, list->index(0)));
    EXPECT_FALSE(list->canDropMimeData(data.get(), Qt::CopyAction, 1, 0, QModelIndex()));
    EXPECT_TRUE(list->dropMimeData(data.get(), Qt::CopyAction, -1, 0, list->index(list->rowOf(mix))));
    EXPECT_EQ(storedTitles(mix), QStringList({"E", "B", "A"}));
    EXPECT_EQ(list->index(list->rowOf(mix)).data(PlaylistListModel::kEntryCountRole).toInt(), 3);

    // "New Playlist…" in the menu makes the playlist and fills it, staying on all tracks.
    names << QStringLiteral("Fresh");
    view->addSelectedToNewPlaylist();
    const QList<Playlist> playlists = app->library()->allPlaylists();
    ASSERT_EQ(playlists.size(), 2);
    EXPECT_EQ(playlists[1].name, QStringLiteral("Fresh"));
    EXPECT_EQ(storedTitles(playlists[1].id), QStringList({"E", "B"}));
    EXPECT_FALSE(view->showsPlaylist());
}

TEST_F(PlaylistsTest, ReorderingIsStoredAndTheSelectionFollowsTheEntries)
{
    const qint64 mix = makePlaylist(QStringLiteral("Mix"), {ids[0], ids[1], ids[2], ids[3]});
    view->playlistPane()->setCurrentPlaylist(mix);
    ASSERT_TRUE(view->showsPlaylist());
    EXPECT_EQ(shownTitles(), QStringList({"A", "B", "C", "D"}));
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("4 tracks"));

    selectEntries({2});
    view->moveSelectedEntries(-1);
    EXPECT_EQ(storedTitles(mix), QStringList({"A", "C", "B", "D"}));
    EXPECT_EQ(shownTitles(), storedTitles(mix));
    EXPECT_EQ(view->selectedEntryRows(), QList<int>({1}));
    view->moveSelectedEntries(-1);
    view->moveSelectedEntries(-1); // already on top
    EXPECT_EQ(storedTitles(mix), QStringList({"C", "A", "B", "D"}));
    EXPECT_EQ(view->selectedEntryRows(), QList<int>({0}));

    selectEntries({0, 1});
    view->moveSelectedEntries(1);
    EXPECT_EQ(storedTitles(mix), QStringList({"B", "C", "A", "D"}));
    EXPECT_EQ(view->selectedEntryRows(), QList<int>({1, 2}));

    // A drag within the table: B and A in front of D.
    PlaylistEntryModel *entries = view->playlistModel();
    std::unique_ptr<QMimeData> rows(entries->mimeData({entries->index(0, 0), entries->index(2, 1)}));
    ASSERT_TRUE(rows);
    EXPECT_TRUE(entries->dropMimeData(rows.get(), Qt::MoveAction, 3, 0, QModelIndex()));
    EXPECT_EQ(storedTitles(mix), QStringList({"C", "B", "A", "D"}));
    // Dropped on the empty space below the rows: at the end.
    rows.reset(entries->mimeData({entries->index(0, 0)}));
    EXPECT_TRUE(entries->dropMimeData(rows.get(), Qt::MoveAction, -1, -1, QModelIndex()));
    EXPECT_EQ(storedTitles(mix), QStringList({"B", "A", "D", "C"}));

    // Library tracks dropped between rows are inserted there.
    std::unique_ptr<QMimeData> tracks(LibraryModel::mimeDataFor({ids[4]}));
    EXPECT_TRUE(entries->dropMimeData(tracks.get(), Qt::CopyAction, 1, 0, QModelIndex()));
    EXPECT_EQ(storedTitles(mix), QStringList({"B", "E", "A", "D", "C"}));
    const QList<PlaylistEntry> stored = app->library()->playlist(mix)->entries;
    for (qsizetype i = 0; i < stored.size(); ++i)
        EXPECT_EQ(stored[i].sortOrder, i);

    // Another playlist's rows are not this playlist's to move.
    const qint64 other = makePlaylist(QStringLiteral("Other"), {ids[0]});
    PlaylistEntryModel otherModel(app->library());
    otherModel.setPlaylist(other);
    std::unique_ptr<QMimeData> foreign(otherModel.mimeData({otherModel.index(0, 0)}));
    foreign->removeFormat(QString::fromLatin1(LibraryModel::kTrackIdsMimeType));
    EXPECT_FALSE(entries->canDropMimeData(foreign.get(), Qt::MoveAction, 0, 0, QModelIndex()));
}

TEST_F(PlaylistsTest, RemovingEntriesKeepsTheTracksAndADeletedTrackLeavesItsEntry)
{
    const qint64 mix = makePlaylist(QStringLiteral("Mix"), {ids[0], ids[1], ids[2]});
    view->playlistPane()->setCurrentPlaylist(mix);
    selectEntries({0, 2});
    view->removeSelectedEntries();
    EXPECT_EQ(storedTitles(mix), QStringList({"B"}));
    EXPECT_EQ(shownTitles(), QStringList({"B"}));
    EXPECT_EQ(app->library()->allTracks().size(), 5);
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("1 track"));

    // The library loses the track; the entry stays, marked as not playable.
    ASSERT_TRUE(app->library()->remove(ids[1]));
    ASSERT_EQ(shownTitles(), QStringList({"B"}));
    EXPECT_FALSE(view->playlistModel()->entryAt(0)->linkedTrack);
    EXPECT_TRUE(view->playlistModel()->index(0, 0).data(Qt::ForegroundRole).isValid());

    selectEntries({0});
    view->removeSelectedEntries();
    EXPECT_TRUE(storedTitles(mix).isEmpty());
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("0 tracks"));
}

} // namespace
