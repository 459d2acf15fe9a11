#include "library/librarystore.h"

#include "testenv.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <limits>

namespace {

Track makeTrack(const QString &title)
{
    return Track(title, QStringLiteral("Artist"), QString(), 180, QDateTime::currentDateTimeUtc(), QString(), false, 0,
                 QStringLiteral("radio"), std::nullopt, std::nullopt);
}

// The row-level announcements a 100,000-track view follows instead of reloading, and the
// one-transaction reorder that a drag of several playlist rows uses.
class LibraryStoreRowsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        LibraryOpenResult opened = LibraryStore::open(home.file(QStringLiteral("lib/library.sqlite")));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        store = std::move(opened.store);
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

TEST_F(LibraryStoreRowsTest, EachTrackWriteNamesItsRowsAsStored)
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

TEST_F(LibraryStoreRowsTest, EntryOrderIsWrittenInOneGoAndMustNameEveryEntryOnce)
{
    const std::optional<qint64> playlist = store->insertPlaylist(Playlist(QStringLiteral("Mix")));
    ASSERT_TRUE(playlist);
    QList<qint64> ids;
    for (int i = 0; i < 4; ++i)
        ids << store->addEntry(*playlist, PlaylistEntry(QString::number(i), QString(), 60, std::nullopt, i, std::nullopt))
                   .value_or(0);
    const std::optional<qint64> other = store->insertPlaylist(Playlist(QStringLiteral("Other")));
    const qint64 foreign =
        store->addEntry(*other, PlaylistEntry(QStringLiteral("x"), QString(), 60, std::nullopt, 0, std::nullopt)).value_or(0);
    QSignalSpy changed(store.get(), &LibraryStore::playlistsChanged);

    const QList<qint64> order{ids[2], ids[0], ids[3], ids[1]};
    ASSERT_TRUE(store->setEntryOrder(*playlist, order)) << store->lastError().toStdString();
    EXPECT_EQ(entryIds(*playlist), order);
    EXPECT_EQ(changed.count(), 1);
    const QList<PlaylistEntry> entries = store->playlist(*playlist)->entries;
    for (qsizetype i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i].sortOrder, i);

    // A missing, repeated or foreign entry leaves the order as it was.
    EXPECT_FALSE(store->setEntryOrder(*playlist, {ids[0], ids[1], ids[2]}));
    EXPECT_FALSE(store->setEntryOrder(*playlist, {ids[0], ids[0], ids[1], ids[2]}));
    EXPECT_FALSE(store->setEntryOrder(*playlist, {ids[0], ids[1], ids[2], foreign}));
    EXPECT_FALSE(store->lastError().isEmpty());
    EXPECT_EQ(entryIds(*playlist), order);
    EXPECT_EQ(changed.count(), 1);
}

} // namespace
