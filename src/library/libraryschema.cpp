#include "library/libraryschema.h"

#include "library/sqlitedb.h"

#include <array>

namespace LibrarySchema {

namespace {

// Step n takes a file from version n - 1 to n. Released steps stay as they are.
constexpr std::array<const char *, kCurrentVersion> kSteps = {
    // 1: the first library. AUTOINCREMENT so that an id is never handed out twice: a view
    // or a queued edit holding the id of a deleted track must not reach a new one.
    R"sql(
    CREATE TABLE tracks (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        title TEXT NOT NULL,
        artist TEXT NOT NULL,
        album TEXT NOT NULL,
        duration REAL NOT NULL,
        dateAdded REAL,
        isFavorite INTEGER NOT NULL,
        genre TEXT NOT NULL,
        playCount INTEGER NOT NULL,
        source TEXT NOT NULL,
        station TEXT,
        filePath TEXT
    );
    CREATE TABLE playlists (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        name TEXT NOT NULL,
        dateCreated REAL
    );
    CREATE TABLE playlist_entries (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        title TEXT NOT NULL,
        artist TEXT NOT NULL,
        duration REAL NOT NULL,
        youtubeVideoID TEXT,
        sortOrder INTEGER NOT NULL,
        playlist INTEGER REFERENCES playlists(id) ON DELETE CASCADE,
        linkedTrack INTEGER REFERENCES tracks(id) ON DELETE SET NULL
    );
    CREATE INDEX playlist_entries_playlist ON playlist_entries(playlist);
    )sql",
    // 2: the recorder matches saved files to tracks by path, and deleting a track looks
    // for the entries that point to it; both scanned whole tables before.
    R"sql(
    CREATE INDEX tracks_filePath ON tracks(filePath);
    CREATE INDEX playlist_entries_linkedTrack ON playlist_entries(linkedTrack);
    )sql",
    // 3: what the player learns from a file (levels at its ends, loudness, beats) is
    // kept so that a file is analysed once in its life. Keyed by path rather than track
    // so that a file played from outside the library is remembered too; the size and
    // modification time tell a file that changed since.
    R"sql(
    CREATE TABLE track_analyses (
        filePath TEXT NOT NULL,
        kind TEXT NOT NULL,
        fileSize INTEGER NOT NULL,
        fileModified INTEGER NOT NULL,
        data TEXT NOT NULL,
        PRIMARY KEY (filePath, kind)
    ) WITHOUT ROWID;
    )sql",
};

} // namespace

bool migrate(SqliteDb &db, int fromVersion, int toVersion, QString *error)
{
    if (fromVersion == toVersion && fromVersion >= 0 && toVersion <= kCurrentVersion)
        return true;
    ScopedTransaction transaction(db);
    if (!transaction.isActive()) {
        *error = db.errorMessage();
        return false;
    }
    if (!applySteps(db, fromVersion, toVersion, error))
        return false;
    if (!transaction.commit()) {
        *error = db.errorMessage();
        return false;
    }
    return true;
}

bool applySteps(SqliteDb &db, int fromVersion, int toVersion, QString *error)
{
    if (fromVersion < 0 || toVersion > kCurrentVersion || fromVersion > toVersion) {
        *error = QStringLiteral("no migration from version %1 to %2").arg(fromVersion).arg(toVersion);
        return false;
    }
    if (fromVersion == toVersion)
        return true;
    if (fromVersion == 0 && !db.exec(QByteArray("PRAGMA application_id = " + QByteArray::number(kApplicationId)).constData())) {
        *error = db.errorMessage();
        return false;
    }
    for (int version = fromVersion + 1; version <= toVersion; ++version) {
        if (!db.exec(kSteps[size_t(version - 1)])) {
            *error = QStringLiteral("step to version %1 failed: %2").arg(version).arg(db.errorMessage());
            return false;
        }
    }
    if (!db.exec(QByteArray("PRAGMA user_version = " + QByteArray::number(toVersion)).constData())) {
        *error = db.errorMessage();
        return false;
    }
    return true;
}

} // namespace LibrarySchema
