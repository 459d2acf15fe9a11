#include "library/librarystore.h"
#include "library/libraryschema.h"
#include "library/sqlitedb.h"

#include "testenv.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <sqlite3.h>

#include <gtest/gtest.h>

namespace {

// What "left untouched" means for the user's file: the same bytes and the same mtime.
struct FileState {
    QByteArray bytes;
    QDateTime modified;
    friend bool operator==(const FileState &, const FileState &) = default;
};

FileState stateOf(const QString &path)
{
    return {readFile(path), QFileInfo(path).lastModified()};
}

// A raw connection, as another program (or an older Orvida) would have one.
std::unique_ptr<SqliteDb> rawDb(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    auto db = std::make_unique<SqliteDb>();
    EXPECT_EQ(db->open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), SQLITE_OK);
    return db;
}

QString queryText(SqliteDb &db, const char *sql, int column = 0)
{
    SqliteStatement s = db.statement(sql);
    return s.next() ? s.text(column) : QStringLiteral("<error: %1>").arg(db.errorMessage());
}

class LibraryOpenTest : public ::testing::Test {
protected:
    QString libraryPath() const { return home.file(QStringLiteral("data/Orvida/library.sqlite")); }

    // Opens expecting `error`, and checks that the file is exactly as it was before.
    LibraryOpenResult expectRefused(LibraryOpenError error, LibraryStore::Options options = {})
    {
        const FileState before = stateOf(libraryPath());
        LibraryOpenResult result = LibraryStore::open(libraryPath(), options);
        EXPECT_FALSE(result);
        EXPECT_EQ(result.error, error) << result.message.toStdString();
        EXPECT_TRUE(result.message.contains(libraryPath())) << result.message.toStdString();
        EXPECT_FALSE(result.message.contains(u'\n'));
        result.store.reset();
        EXPECT_TRUE(stateOf(libraryPath()) == before) << "the file was changed";
        return result;
    }

    TestHome home;
};

TEST_F(LibraryOpenTest, FreshLibraryIsCreatedWithFolderAtTheCurrentVersionInWalMode)
{
    ASSERT_FALSE(QFileInfo::exists(QFileInfo(libraryPath()).absolutePath()));
    EXPECT_EQ(LibraryStore::defaultPath(), libraryPath());
    {
        LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
        ASSERT_TRUE(opened) << opened.message.toStdString();
        EXPECT_TRUE(opened.message.isEmpty());
        EXPECT_TRUE(opened.store->allTracks().isEmpty());
        EXPECT_TRUE(opened.store->insert(Track()));
    }
    auto db = rawDb(libraryPath());
    EXPECT_EQ(db->queryInt("PRAGMA user_version"), LibrarySchema::kCurrentVersion);
    EXPECT_EQ(db->queryInt("PRAGMA application_id"), LibrarySchema::kApplicationId);
    EXPECT_EQ(queryText(*db, "PRAGMA journal_mode"), "wal");
    EXPECT_EQ(db->queryInt("SELECT count(*) FROM tracks"), 1);
}

TEST_F(LibraryOpenTest, AnEmptyFileBecomesALibrary)
{
    writeFile(libraryPath(), QByteArray());
    LibraryOpenResult opened = LibraryStore::open(libraryPath());
    ASSERT_TRUE(opened) << opened.message.toStdString();
    EXPECT_TRUE(opened.store->insert(Track()));
}

TEST_F(LibraryOpenTest, FirstVersionLibraryIsMigratedWithItsData)
{
    {
        auto db = rawDb(libraryPath());
        QString error;
        ASSERT_TRUE(LibrarySchema::migrate(*db, 0, 1, &error)) << error.toStdString();
        // Rows as the first version wrote them, with a playlist entry that plays track 1.
        ASSERT_TRUE(db->exec("INSERT INTO tracks (title, artist, album, duration, dateAdded, isFavorite, genre, "
                             "playCount, source, station, filePath) VALUES "
                             "('Alt', 'A', 'B', 99.5, 1600000000.5, 1, 'Rock', 3, 'radio', 'S', '/m/alt.mp3'),"
                             "('Ohne', 'C', '', 10, NULL, 0, '', 0, 'recorder', NULL, NULL);"
                             "INSERT INTO playlists (name, dateCreated) VALUES ('Liste', 1600000001);"
                             "INSERT INTO playlist_entries (title, artist, duration, youtubeVideoID, sortOrder, "
                             "playlist, linkedTrack) VALUES ('Alt', 'A', 99.5, NULL, 0, 1, 1);"));
        ASSERT_EQ(db->queryInt("PRAGMA user_version"), 1);
    }
    LibraryOpenResult opened = LibraryStore::open(libraryPath());
    ASSERT_TRUE(opened) << opened.message.toStdString();
    LibraryStore &store = *opened.store;
    const QList<Track> tracks = store.tracksByFilePath(QStringLiteral("/m/alt.mp3"));
    ASSERT_EQ(tracks.size(), 1);
    EXPECT_EQ(tracks[0].title, "Alt");
    EXPECT_EQ(tracks[0].dateAdded, QDateTime::fromMSecsSinceEpoch(1600000000500, Qt::UTC));
    EXPECT_TRUE(tracks[0].isFavorite);
    EXPECT_EQ(store.allTracks().size(), 2);
    EXPECT_FALSE(store.allTracks()[1].dateAdded.isValid());
    // Foreign keys work on the migrated file: the entry loses its track, not its row.
    ASSERT_TRUE(store.remove(tracks[0].id));
    const QList<Playlist> playlists = store.allPlaylists();
    ASSERT_EQ(playlists.size(), 1);
    ASSERT_EQ(playlists[0].entries.size(), 1);
    EXPECT_FALSE(playlists[0].entries[0].linkedTrack);
    opened.store.reset();

    auto db = rawDb(libraryPath());
    EXPECT_EQ(db->queryInt("PRAGMA user_version"), LibrarySchema::kCurrentVersion);
    EXPECT_EQ(queryText(*db, "PRAGMA journal_mode"), "wal");
    // The look-up the recorder does after every save must not scan the table.
    const QString plan = queryText(*db, "EXPLAIN QUERY PLAN SELECT id FROM tracks WHERE filePath = 'x'", 3);
    EXPECT_TRUE(plan.contains(QStringLiteral("tracks_filePath"))) << plan.toStdString();
}

TEST_F(LibraryOpenTest, FailedUpgradeRollsBackAndLeavesTheFileAlone)
{
    {
        auto db = rawDb(libraryPath());
        QString error;
        ASSERT_TRUE(LibrarySchema::migrate(*db, 0, 1, &error)) << error.toStdString();
        // Something in the file already has the name the next step needs.
        ASSERT_TRUE(db->exec("CREATE TABLE tracks_filePath (x); INSERT INTO tracks_filePath VALUES (1);"));
    }
    const LibraryOpenResult result = expectRefused(LibraryOpenError::MigrationFailed);
    EXPECT_TRUE(result.message.contains(QStringLiteral("version 1"))) << result.message.toStdString();
    auto db = rawDb(libraryPath());
    EXPECT_EQ(db->queryInt("PRAGMA user_version"), 1);
    EXPECT_EQ(db->queryInt("SELECT count(*) FROM sqlite_schema WHERE name = 'playlist_entries_linkedTrack'"), 0);
}

TEST_F(LibraryOpenTest, LibraryOfANewerVersionIsRefused)
{
    {
        LibraryOpenResult opened = LibraryStore::open(libraryPath());
        ASSERT_TRUE(opened);
        ASSERT_TRUE(opened.store->insert(Track()));
    }
    {
        auto db = rawDb(libraryPath());
        const QByteArray newer = "PRAGMA user_version = " + QByteArray::number(LibrarySchema::kCurrentVersion + 1);
        ASSERT_TRUE(db->exec(newer.constData()));
    }
    const LibraryOpenResult result = expectRefused(LibraryOpenError::NewerVersion);
    EXPECT_TRUE(result.message.contains(QStringLiteral("newer"))) << result.message.toStdString();
}

TEST_F(LibraryOpenTest, FilesThatAreNotOurLibraryAreRefusedAndKept)
{
    // Text and binary garbage, short and long.
    writeFile(libraryPath(), "just some notes, not a database\n");
    expectRefused(LibraryOpenError::NotADatabase);
    writeFile(libraryPath(), QByteArray(8192, '\x5a'));
    expectRefused(LibraryOpenError::NotADatabase);

    // Another program's SQLite file, with and without an application id of its own.
    QFile::remove(libraryPath());
    {
        auto db = rawDb(libraryPath());
        ASSERT_TRUE(db->exec("CREATE TABLE notes (body TEXT); INSERT INTO notes VALUES ('mine');"));
    }
    expectRefused(LibraryOpenError::NotALibrary);
    {
        auto db = rawDb(libraryPath());
        ASSERT_TRUE(db->exec("PRAGMA application_id = 1234"));
    }
    expectRefused(LibraryOpenError::NotALibrary);
}

TEST_F(LibraryOpenTest, DamagedLibraryIsRefused)
{
    {
        LibraryOpenResult opened = LibraryStore::open(libraryPath());
        ASSERT_TRUE(opened);
    }
    QByteArray bytes = readFile(libraryPath());
    ASSERT_GT(bytes.size(), 4096);
    // Overwrite the schema page's b-tree header past the file header.
    for (int i = 100; i < 120; ++i)
        bytes[i] = char(0xff);
    writeFile(libraryPath(), bytes);
    expectRefused(LibraryOpenError::Damaged);
}

TEST_F(LibraryOpenTest, LibraryLockedByAnotherProcessIsRefusedAfterTheBusyTimeout)
{
    {
        LibraryOpenResult opened = LibraryStore::open(libraryPath());
        ASSERT_TRUE(opened);
        ASSERT_TRUE(opened.store->insert(Track()));
    }
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    ASSERT_FALSE(python.isEmpty()) << "python3 is needed to hold a lock from another process";
    QProcess holder;
    holder.start(python, {QStringLiteral("-c"), QStringLiteral(R"py(
import sqlite3, sys
db = sqlite3.connect(sys.argv[1], isolation_level=None)
db.execute("PRAGMA locking_mode = EXCLUSIVE")
db.execute("BEGIN EXCLUSIVE")
print("locked", flush=True)
sys.stdin.read()
)py"),
                          libraryPath()});
    ASSERT_TRUE(holder.waitForReadyRead(10000)) << holder.readAllStandardError().toStdString();
    ASSERT_EQ(holder.readLine().trimmed(), "locked");

    const LibraryOpenResult result = expectRefused(LibraryOpenError::Locked, {.busyTimeoutMs = 50});
    EXPECT_TRUE(result.message.contains(QStringLiteral("locked"))) << result.message.toStdString();

    holder.closeWriteChannel();
    ASSERT_TRUE(holder.waitForFinished(10000));
    LibraryOpenResult reopened = LibraryStore::open(libraryPath());
    ASSERT_TRUE(reopened) << reopened.message.toStdString();
    EXPECT_EQ(reopened.store->allTracks().size(), 1);
}

TEST_F(LibraryOpenTest, ADirectoryAtThePathIsNotReplaced)
{
    ASSERT_TRUE(QDir().mkpath(libraryPath()));
    const LibraryOpenResult result = LibraryStore::open(libraryPath());
    EXPECT_FALSE(result);
    EXPECT_EQ(result.error, LibraryOpenError::CannotOpen);
    EXPECT_TRUE(QFileInfo(libraryPath()).isDir());
}

} // namespace
