#include "library/librarystore.h"

#include "testenv.h"

#include <QFile>
#include <QSignalSpy>
#include <QThread>

#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <thread>

namespace {

Track makeTrack(const QString &title, const std::optional<QString> &filePath = std::nullopt)
{
    return Track(title, QStringLiteral("Artist"), QStringLiteral("Album"), 200.25,
                 QDateTime::fromMSecsSinceEpoch(1700000000123, Qt::UTC), QStringLiteral("Pop"), false, 0,
                 QStringLiteral("radio"), QStringLiteral("Radio X"), filePath);
}

class LibraryStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        LibraryOpenResult opened = LibraryStore::open(home.file(QStringLiteral("lib/library.sqlite")));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        store = std::move(opened.store);
    }

    void reopen()
    {
        const QString path = store->path();
        store.reset();
        LibraryOpenResult opened = LibraryStore::open(path);
        ASSERT_TRUE(opened) << opened.message.toStdString();
        store = std::move(opened.store);
    }

    qint64 insertTrack(const Track &t)
    {
        const std::optional<qint64> id = store->insert(t);
        EXPECT_TRUE(id) << store->lastError().toStdString();
        return id.value_or(0);
    }

    qint64 insertPlaylist(const QString &name)
    {
        const std::optional<qint64> id = store->insertPlaylist(Playlist(name));
        EXPECT_TRUE(id) << store->lastError().toStdString();
        return id.value_or(0);
    }

    qint64 addEntry(qint64 playlistId, const QString &title, qint64 sortOrder,
                    std::optional<qint64> linkedTrack = std::nullopt)
    {
        const std::optional<qint64> id = store->addEntry(
            playlistId, PlaylistEntry(title, QStringLiteral("A"), 61, std::nullopt, sortOrder, linkedTrack));
        EXPECT_TRUE(id) << store->lastError().toStdString();
        return id.value_or(0);
    }

    QStringList entryTitles(qint64 playlistId)
    {
        QStringList titles;
        const std::optional<Playlist> p = store->playlist(playlistId);
        EXPECT_TRUE(p);
        if (p) {
            for (const PlaylistEntry &e : p->entries)
                titles << e.title;
        }
        return titles;
    }

    QList<qint64> entryIds(qint64 playlistId)
    {
        QList<qint64> ids;
        for (const PlaylistEntry &entry : store->playlist(playlistId).value_or(Playlist()).entries)
            ids << entry.id;
        return ids;
    }

    TestHome home;
    std::unique_ptr<LibraryStore> store;
};

TEST_F(LibraryStoreTest, EveryFieldSurvivesAReopen)
{
    Track full(QStringLiteral("Ärger – im „Café“"), QStringLiteral("Björk"), QStringLiteral("Homogenic"), 251.875,
               QDateTime::fromMSecsSinceEpoch(1712345678901, Qt::UTC), QStringLiteral("Électro"), true,
               std::numeric_limits<qint64>::max(), QStringLiteral("podcast"), QStringLiteral("FM4"),
               QStringLiteral("/home/u/Musik/Björk – Jóga.mp3"));
    Track bare(QString(), QString(), QString(), 0, QDateTime(), QString(), false, -1, QStringLiteral("recorder"),
               std::nullopt, std::nullopt);
    full.id = insertTrack(full);
    bare.id = insertTrack(bare);
    ASSERT_NE(full.id, bare.id);

    reopen();
    const QList<Track> all = store->allTracks();
    ASSERT_EQ(all.size(), 2);
    // Tracks compare by id alone; every field is compared here.
    const auto fields = [](const Track &t) {
        return std::tuple(t.id, t.title, t.artist, t.album, t.duration, t.dateAdded, t.dateAdded.isValid(),
                          t.isFavorite, t.genre, t.playCount, t.source, t.station, t.filePath);
    };
    for (const Track &expected : {full, bare}) {
        const Track &got = expected.id == all[0].id ? all[0] : all[1];
        EXPECT_TRUE(fields(got) == fields(expected)) << expected.title.toStdString();
    }
    // An empty station is not the same as none.
    Track emptyStation = bare;
    emptyStation.station = QString();
    const qint64 id = insertTrack(emptyStation);
    ASSERT_TRUE(store->track(id));
    EXPECT_EQ(store->track(id)->station, QString());
}

TEST_F(LibraryStoreTest, ADurationWrittenIntoTheFieldIsStillNotStored)
{
    Track t = makeTrack(QStringLiteral("x"));
    t.duration = std::numeric_limits<double>::infinity();
    const qint64 id = insertTrack(t);
    ASSERT_TRUE(store->track(id));
    EXPECT_EQ(store->track(id)->duration, 0.0);

    Track stored = *store->track(id);
    stored.duration = std::numeric_limits<double>::quiet_NaN();
    ASSERT_TRUE(store->save(stored)) << store->lastError().toStdString();
    EXPECT_EQ(store->track(id)->duration, 0.0);
}

TEST_F(LibraryStoreTest, SaveUpdatesTheStoredTrackAndRefusesUnknownIds)
{
    const qint64 id = insertTrack(makeTrack(QStringLiteral("before")));
    const qint64 otherId = insertTrack(makeTrack(QStringLiteral("other")));
    Track t = *store->track(id);
    t.title = QStringLiteral("after");
    t.playCount += 3;
    t.isFavorite = true;
    t.station.reset();
    ASSERT_TRUE(store->save(t));
    const Track back = *store->track(id);
    EXPECT_EQ(back.title, "after");
    EXPECT_EQ(back.playCount, 3);
    EXPECT_TRUE(back.isFavorite);
    EXPECT_FALSE(back.station);
    EXPECT_EQ(store->track(otherId)->title, "other");

    Track ghost = t;
    ghost.id = 9999;
    EXPECT_FALSE(store->save(ghost));
    EXPECT_FALSE(store->lastError().isEmpty());
    EXPECT_FALSE(store->track(9999));
    EXPECT_EQ(store->allTracks().size(), 2);
}

TEST_F(LibraryStoreTest, IdsAreNeverHandedOutTwice)
{
    const qint64 first = insertTrack(makeTrack(QStringLiteral("a")));
    const qint64 second = insertTrack(makeTrack(QStringLiteral("b")));
    ASSERT_TRUE(store->remove(second));
    EXPECT_FALSE(store->remove(second));
    reopen();
    const qint64 third = insertTrack(makeTrack(QStringLiteral("c")));
    EXPECT_GT(third, second);
    EXPECT_GT(second, first);
    EXPECT_FALSE(store->track(second));
}

TEST_F(LibraryStoreTest, LooksUpTracksByExactFilePath)
{
    const QString path = QStringLiteral("/m/Radio X/Song.mp3");
    const qint64 a = insertTrack(makeTrack(QStringLiteral("a"), path));
    insertTrack(makeTrack(QStringLiteral("b"), QStringLiteral("/m/Radio X/song.mp3")));
    insertTrack(makeTrack(QStringLiteral("c")));
    const qint64 d = insertTrack(makeTrack(QStringLiteral("d"), path));

    const QList<Track> hits = store->tracksByFilePath(path);
    ASSERT_EQ(hits.size(), 2);
    EXPECT_EQ(hits[0].id, a);
    EXPECT_EQ(hits[1].id, d);
    EXPECT_TRUE(store->tracksByFilePath(QStringLiteral("/m/Radio X")).isEmpty());
    EXPECT_TRUE(store->tracksByFilePath(QString()).isEmpty());
}

TEST_F(LibraryStoreTest, ChangesAreAnnouncedOnceAfterTheyAreVisible)
{
    QSignalSpy tracks(store.get(), &LibraryStore::tracksChanged);
    QSignalSpy playlists(store.get(), &LibraryStore::playlistsChanged);
    qsizetype seenInSlot = -1;
    QObject::connect(store.get(), &LibraryStore::tracksChanged, store.get(),
            [&] { seenInSlot = store->allTracks().size(); });

    const qint64 linked = insertTrack(makeTrack(QStringLiteral("a")));
    EXPECT_EQ(tracks.count(), 1);
    EXPECT_EQ(seenInSlot, 1);
    const qint64 lone = insertTrack(makeTrack(QStringLiteral("b")));
    EXPECT_EQ(playlists.count(), 0);

    const qint64 p = insertPlaylist(QStringLiteral("P"));
    addEntry(p, QStringLiteral("e"), 0, linked);
    EXPECT_EQ(playlists.count(), 2);

    // Removing a track that no entry plays leaves the playlists alone; removing one that
    // an entry plays changes that entry too.
    ASSERT_TRUE(store->remove(lone));
    EXPECT_EQ(playlists.count(), 2);
    ASSERT_TRUE(store->remove(linked));
    EXPECT_EQ(playlists.count(), 3);
    EXPECT_EQ(tracks.count(), 4);
    EXPECT_EQ(seenInSlot, 0);

    // A failed write announces nothing.
    EXPECT_FALSE(store->remove(linked));
    EXPECT_FALSE(store->renamePlaylist(p + 100, QStringLiteral("x")));
    EXPECT_EQ(tracks.count(), 4);
    EXPECT_EQ(playlists.count(), 3);
}

TEST_F(LibraryStoreTest, WorkPostedFromAnotherThreadRunsOnTheOwnerThread)
{
    QSignalSpy tracks(store.get(), &LibraryStore::tracksChanged);
    QThread *ranOn = nullptr;
    std::optional<qint64> insertedId;
    std::thread saver([&] {
        store->post([&](LibraryStore &s) {
            ranOn = QThread::currentThread();
            insertedId = s.insert(makeTrack(QStringLiteral("from a save task")));
        });
    });
    saver.join();
    EXPECT_FALSE(insertedId); // queued, not run inside post()
    ASSERT_TRUE(waitUntil([&] { return insertedId.has_value(); }));
    EXPECT_EQ(ranOn, store->thread());
    EXPECT_EQ(tracks.count(), 1);
    EXPECT_EQ(store->track(*insertedId)->title, "from a save task");
}

TEST_F(LibraryStoreTest, PostedWorkIsDroppedWhenTheStoreIsGone)
{
    bool ran = false;
    store->post([&](LibraryStore &) { ran = true; });
    store.reset();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    EXPECT_FALSE(ran);
}

TEST_F(LibraryStoreTest, EntriesAreOrderedBySortOrderKeepingStoredOrderOnTies)
{
    const qint64 p = insertPlaylist(QStringLiteral("Mix"));
    addEntry(p, QStringLiteral("c1"), 5);
    addEntry(p, QStringLiteral("a"), 1);
    addEntry(p, QStringLiteral("c2"), 5);
    addEntry(p, QStringLiteral("b1"), 3);
    addEntry(p, QStringLiteral("b2"), 3);
    addEntry(p, QStringLiteral("neg"), -4);
    const QStringList expected{"neg", "a", "b1", "b2", "c1", "c2"};
    EXPECT_EQ(entryTitles(p), expected);
    reopen();
    EXPECT_EQ(entryTitles(p), expected);
    const QList<Playlist> all = store->allPlaylists();
    ASSERT_EQ(all.size(), 1);
    ASSERT_EQ(all[0].entries.size(), 6);
    EXPECT_EQ(all[0].entries[3].title, "b2");
    EXPECT_EQ(all[0].entries[3].playlist, p);
}

TEST_F(LibraryStoreTest, InsertingAPlaylistStoresTheEntriesItHolds)
{
    Playlist draft(QStringLiteral("Entwurf"));
    draft.entries << PlaylistEntry(QStringLiteral("video"), QStringLiteral("x"), 0, QStringLiteral("dQw4w9WgXcQ"), 2,
                                   std::nullopt)
                  << PlaylistEntry(QStringLiteral("first"), QStringLiteral("y"), 30, std::nullopt, 1, std::nullopt);
    const std::optional<qint64> id = store->insertPlaylist(draft);
    ASSERT_TRUE(id);
    const Playlist back = *store->playlist(*id);
    EXPECT_EQ(back.name, "Entwurf");
    EXPECT_EQ(back.dateCreated.toMSecsSinceEpoch(), draft.dateCreated.toMSecsSinceEpoch());
    ASSERT_EQ(back.entries.size(), 2);
    EXPECT_EQ(back.entries[0].title, "first");
    EXPECT_EQ(back.entries[1].youtubeVideoID, QStringLiteral("dQw4w9WgXcQ"));
    EXPECT_FALSE(back.entries[1].linkedTrack);

    // An entry that points to a track that does not exist is refused with the playlist.
    Playlist broken(QStringLiteral("kaputt"));
    broken.entries << PlaylistEntry(QStringLiteral("e"), QString(), 1, std::nullopt, 0, 12345);
    EXPECT_FALSE(store->insertPlaylist(broken));
    EXPECT_EQ(store->allPlaylists().size(), 1);
}

TEST_F(LibraryStoreTest, DeletingAPlaylistDeletesItsEntriesOnly)
{
    const qint64 track = insertTrack(makeTrack(QStringLiteral("kept")));
    const qint64 gone = insertPlaylist(QStringLiteral("gone"));
    const qint64 stays = insertPlaylist(QStringLiteral("stays"));
    const qint64 goneEntry = addEntry(gone, QStringLiteral("g"), 0, track);
    addEntry(stays, QStringLiteral("s"), 0, track);

    ASSERT_TRUE(store->removePlaylist(gone));
    EXPECT_FALSE(store->playlist(gone));
    EXPECT_EQ(entryTitles(stays), QStringList{"s"});
    EXPECT_TRUE(store->track(track));
    // The entry went with its playlist: there is nothing left to edit.
    PlaylistEntry orphan(QStringLiteral("g"), QString(), 1, std::nullopt, 0, std::nullopt);
    orphan.id = goneEntry;
    EXPECT_FALSE(store->saveEntry(orphan));
    EXPECT_FALSE(store->removeEntry(goneEntry));
}

TEST_F(LibraryStoreTest, DeletingATrackUnlinksItsEntries)
{
    const qint64 track = insertTrack(makeTrack(QStringLiteral("t")));
    const qint64 other = insertTrack(makeTrack(QStringLiteral("o")));
    const qint64 p = insertPlaylist(QStringLiteral("P"));
    addEntry(p, QStringLiteral("plays t"), 0, track);
    addEntry(p, QStringLiteral("plays o"), 1, other);
    ASSERT_TRUE(store->remove(track));
    const Playlist back = *store->playlist(p);
    ASSERT_EQ(back.entries.size(), 2);
    EXPECT_EQ(back.entries[0].title, "plays t");
    EXPECT_FALSE(back.entries[0].linkedTrack);
    EXPECT_EQ(back.entries[1].linkedTrack, other);
}

TEST_F(LibraryStoreTest, EntriesCanBeEditedMovedAndRemoved)
{
    const qint64 p = insertPlaylist(QStringLiteral("P"));
    for (int i = 0; i < 4; ++i)
        addEntry(p, QString(QChar(u'a' + i)), i * 10);
    EXPECT_FALSE(store->addEntry(p + 1, PlaylistEntry(QStringLiteral("x"), {}, 1, std::nullopt, 0, std::nullopt)));

    ASSERT_TRUE(store->moveEntry(p, 3, 0));
    EXPECT_EQ(entryTitles(p), (QStringList{"d", "a", "b", "c"}));
    ASSERT_TRUE(store->moveEntry(p, 1, 3));
    EXPECT_EQ(entryTitles(p), (QStringList{"d", "b", "c", "a"}));
    const Playlist moved = *store->playlist(p);
    for (qsizetype i = 0; i < moved.entries.size(); ++i)
        EXPECT_EQ(moved.entries[i].sortOrder, i);
    EXPECT_FALSE(store->moveEntry(p, 4, 0));
    EXPECT_FALSE(store->moveEntry(p, 0, -1));
    EXPECT_EQ(entryTitles(p), (QStringList{"d", "b", "c", "a"}));

    // A downloaded video becomes a library track: the entry is linked in place.
    const qint64 track = insertTrack(makeTrack(QStringLiteral("downloaded")));
    PlaylistEntry e = moved.entries[2];
    e.linkedTrack = track;
    e.title = QStringLiteral("c (downloaded)");
    ASSERT_TRUE(store->saveEntry(e));
    EXPECT_EQ(store->playlist(p)->entries[2].linkedTrack, track);
    EXPECT_EQ(entryTitles(p), (QStringList{"d", "b", "c (downloaded)", "a"}));

    ASSERT_TRUE(store->removeEntry(moved.entries[0].id));
    EXPECT_EQ(entryTitles(p), (QStringList{"b", "c (downloaded)", "a"}));
}

// The row-level announcements a 100,000-track view follows instead of reloading, and the
// one-transaction reorder that a drag of several playlist rows uses.
TEST_F(LibraryStoreTest, EachTrackWriteNamesItsRowsAsStored)
{
    QSignalSpy inserted(store.get(), &LibraryStore::tracksInserted);
    QSignalSpy updated(store.get(), &LibraryStore::trackUpdated);
    QSignalSpy removed(store.get(), &LibraryStore::trackRemoved);
    QSignalSpy changed(store.get(), &LibraryStore::tracksChanged);

    const std::optional<qint64> one = store->insert(makeTrack(QStringLiteral("one")));
    ASSERT_TRUE(one);
    ASSERT_EQ(inserted.count(), 1);
    QList<Track> rows = inserted.takeFirst().at(0).value<QList<Track>>();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].id, *one);
    EXPECT_EQ(rows[0].title, QStringLiteral("one"));

    const QList<qint64> ids = store->insertTracks({makeTrack(QStringLiteral("two")), makeTrack(QStringLiteral("three"))});
    ASSERT_EQ(ids.size(), 2);
    ASSERT_EQ(inserted.count(), 1);
    rows = inserted.takeFirst().at(0).value<QList<Track>>();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0].id, ids[0]);
    EXPECT_EQ(rows[1].id, ids[1]);
    EXPECT_EQ(rows[1].title, QStringLiteral("three"));

    // The announced value is what a reload would read, not what the caller passed.
    Track edited = *store->track(ids[0]);
    edited.title = QStringLiteral("two, edited");
    edited.duration = std::numeric_limits<double>::quiet_NaN();
    ASSERT_TRUE(store->save(edited));
    ASSERT_EQ(updated.count(), 1);
    const Track announced = updated.takeFirst().at(0).value<Track>();
    EXPECT_EQ(announced.id, ids[0]);
    EXPECT_EQ(announced.title, QStringLiteral("two, edited"));
    EXPECT_EQ(announced.duration, store->track(ids[0])->duration);

    ASSERT_TRUE(store->remove(*one));
    ASSERT_EQ(removed.count(), 1);
    EXPECT_EQ(removed.takeFirst().at(0).toLongLong(), *one);

    // The coarse signal still follows every write, and failed writes announce nothing.
    EXPECT_EQ(changed.count(), 4);
    EXPECT_FALSE(store->remove(*one));
    edited.id = 9999;
    EXPECT_FALSE(store->save(edited));
    EXPECT_EQ(updated.count() + removed.count() + changed.count(), 4);
}

TEST_F(LibraryStoreTest, EntryOrderIsWrittenInOneGoAndMustNameEveryEntryOnce)
{
    const qint64 playlist = insertPlaylist(QStringLiteral("Mix"));
    QList<qint64> ids;
    for (int i = 0; i < 4; ++i)
        ids << addEntry(playlist, QString::number(i), i);
    const qint64 foreign = addEntry(insertPlaylist(QStringLiteral("Other")), QStringLiteral("x"), 0);
    QSignalSpy changed(store.get(), &LibraryStore::playlistsChanged);

    const QList<qint64> order{ids[2], ids[0], ids[3], ids[1]};
    ASSERT_TRUE(store->setEntryOrder(playlist, order)) << store->lastError().toStdString();
    EXPECT_EQ(entryIds(playlist), order);
    EXPECT_EQ(changed.count(), 1);
    const QList<PlaylistEntry> entries = store->playlist(playlist)->entries;
    for (qsizetype i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i].sortOrder, i);

    // A missing, repeated or foreign entry leaves the order as it was.
    EXPECT_FALSE(store->setEntryOrder(playlist, {ids[0], ids[1], ids[2]}));
    EXPECT_FALSE(store->setEntryOrder(playlist, {ids[0], ids[0], ids[1], ids[2]}));
    EXPECT_FALSE(store->setEntryOrder(playlist, {ids[0], ids[1], ids[2], foreign}));
    EXPECT_FALSE(store->lastError().isEmpty());
    EXPECT_EQ(entryIds(playlist), order);
    EXPECT_EQ(changed.count(), 1);
}

} // namespace

TEST_F(LibraryStoreTest, AnAnalysisIsKeptPerFileAndKindAndGoesStaleWhenTheFileChanges)
{
    const QString song = home.file(QStringLiteral("song.mp3"));
    {
        QFile file(song);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("frames");
    }
    ASSERT_TRUE(store->insert(makeTrack(QStringLiteral("A"), song)));
    ASSERT_TRUE(store->insert(makeTrack(QStringLiteral("B"), home.file(QStringLiteral("other.mp3")))));
    ASSERT_TRUE(store->insert(makeTrack(QStringLiteral("C"))));
    const auto stamp = LibraryStore::FileStamp::of(song);
    ASSERT_TRUE(stamp);
    EXPECT_FALSE(LibraryStore::FileStamp::of(home.file(QStringLiteral("other.mp3"))));

    QSignalSpy stored(store.get(), &LibraryStore::analysisStored);
    ASSERT_TRUE(store->setAnalysis(song, QStringLiteral("loudness"), *stamp, R"({"lufs":-9})"));
    ASSERT_TRUE(store->setAnalysis(song, QStringLiteral("loudness"), *stamp, R"({"lufs":-11.5})"));
    EXPECT_EQ(stored.count(), 2);
    reopen();
    EXPECT_EQ(store->analysis(song, QStringLiteral("loudness"), *stamp), QByteArray(R"({"lufs":-11.5})"));
    EXPECT_FALSE(store->analysis(song, QStringLiteral("beats"), *stamp));
    EXPECT_EQ(store->pathsWithoutAnalysis(QStringLiteral("loudness")),
              QStringList { home.file(QStringLiteral("other.mp3")) });
    EXPECT_EQ(store->pathsWithoutAnalysis(QStringLiteral("beats")).size(), 2);

    LibraryStore::FileStamp changed = *stamp;
    changed.size += 1;
    EXPECT_FALSE(store->analysis(song, QStringLiteral("loudness"), changed));
}
