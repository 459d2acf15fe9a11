#include "library/librarystore.h"

#include "library/libraryschema.h"
#include "library/sqlitedb.h"
#include "platform/paths.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QMetaMethod>
#include <QSet>
#include <QThread>

#include <sqlite3.h>

#include <algorithm>
#include <cmath>

namespace {

// Column order shared by every track query and readTrack().
#define TRACK_COLUMNS "id, title, artist, album, duration, dateAdded, isFavorite, genre, playCount, source, station, filePath"
#define ENTRY_COLUMNS "id, title, artist, duration, youtubeVideoID, sortOrder, playlist, linkedTrack"

const char kInsertTrack[] = "INSERT INTO tracks (title, artist, album, duration, dateAdded, isFavorite, genre, "
                            "playCount, source, station, filePath) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
const char kUpdateTrack[] = "UPDATE tracks SET title = ?, artist = ?, album = ?, duration = ?, dateAdded = ?, "
                            "isFavorite = ?, genre = ?, playCount = ?, source = ?, station = ?, filePath = ? "
                            "WHERE id = ?";
const char kSelectAllTracks[] = "SELECT " TRACK_COLUMNS " FROM tracks ORDER BY id";
const char kSelectTrack[] = "SELECT " TRACK_COLUMNS " FROM tracks WHERE id = ?";
const char kSelectTracksByPath[] = "SELECT " TRACK_COLUMNS " FROM tracks WHERE filePath = ? ORDER BY id";
const char kSelectAlbumTracks[]
    = "SELECT " TRACK_COLUMNS " FROM tracks WHERE album = ? AND artist = ? ORDER BY id";
const char kDeleteTrack[] = "DELETE FROM tracks WHERE id = ?";
const char kTrackIsLinked[] = "SELECT EXISTS (SELECT 1 FROM playlist_entries WHERE linkedTrack = ?)";

const char kSelectAnalysis[] = "SELECT data FROM track_analyses WHERE filePath = ? AND kind = ? AND fileSize = ? "
                                "AND fileModified = ?";
const char kStoreAnalysis[] = "INSERT OR REPLACE INTO track_analyses (filePath, kind, fileSize, fileModified, data) "
                              "VALUES (?, ?, ?, ?, ?)";
const char kSelectUnanalysed[] = "SELECT filePath FROM tracks WHERE filePath IS NOT NULL AND filePath != '' AND NOT "
                                 "EXISTS (SELECT 1 FROM track_analyses a WHERE a.filePath = tracks.filePath AND "
                                 "a.kind = ?) GROUP BY filePath ORDER BY MIN(id)";

const char kInsertPlaylist[] = "INSERT INTO playlists (name, dateCreated) VALUES (?, ?)";
const char kRenamePlaylist[] = "UPDATE playlists SET name = ? WHERE id = ?";
const char kDeletePlaylist[] = "DELETE FROM playlists WHERE id = ?";
const char kSelectPlaylists[] = "SELECT id, name, dateCreated FROM playlists ORDER BY id";
const char kSelectPlaylist[] = "SELECT id, name, dateCreated FROM playlists WHERE id = ?";
// Stored order (id); the stable sort by sortOrder happens in Playlists::sortEntries.
const char kSelectAllEntries[] = "SELECT " ENTRY_COLUMNS " FROM playlist_entries ORDER BY id";
const char kSelectEntries[] = "SELECT " ENTRY_COLUMNS " FROM playlist_entries WHERE playlist = ? ORDER BY id";
const char kInsertEntry[] = "INSERT INTO playlist_entries (title, artist, duration, youtubeVideoID, sortOrder, "
                            "playlist, linkedTrack) VALUES (?, ?, ?, ?, ?, ?, ?)";
const char kUpdateEntry[] = "UPDATE playlist_entries SET title = ?, artist = ?, duration = ?, youtubeVideoID = ?, "
                            "sortOrder = ?, linkedTrack = ? WHERE id = ?";
const char kSetEntrySortOrder[] = "UPDATE playlist_entries SET sortOrder = ? WHERE id = ?";
const char kDeleteEntry[] = "DELETE FROM playlist_entries WHERE id = ?";

// Dates are stored as seconds since 1970 (UTC) with millisecond precision; NULL when unset.
void bindDate(SqliteStatement &statement, int index, const QDateTime &date)
{
    if (date.isValid())
        statement.bind(index, double(date.toMSecsSinceEpoch()) / 1000.0);
    else
        statement.bindNull(index);
}

QDateTime readDate(const SqliteStatement &statement, int column)
{
    if (statement.isNull(column))
        return {};
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(statement.real(column) * 1000.0)), Qt::UTC);
}

Track readTrack(const SqliteStatement &s)
{
    Track track;
    track.id = s.int64(0);
    track.title = s.text(1);
    track.artist = s.text(2);
    track.album = s.text(3);
    track.duration = s.real(4);
    track.dateAdded = readDate(s, 5);
    track.isFavorite = s.int64(6) != 0;
    track.genre = s.text(7);
    track.playCount = s.int64(8);
    track.source = s.text(9);
    track.station = s.optionalText(10);
    track.filePath = s.optionalText(11);
    return track;
}

PlaylistEntry readEntry(const SqliteStatement &s)
{
    PlaylistEntry entry;
    entry.id = s.int64(0);
    entry.title = s.text(1);
    entry.artist = s.text(2);
    entry.duration = s.real(3);
    entry.youtubeVideoID = s.optionalText(4);
    entry.sortOrder = s.int64(5);
    entry.playlist = s.optionalInt64(6);
    entry.linkedTrack = s.optionalInt64(7);
    return entry;
}

Playlist readPlaylist(const SqliteStatement &s)
{
    Playlist playlist;
    playlist.id = s.int64(0);
    playlist.name = s.text(1);
    playlist.dateCreated = readDate(s, 2);
    return playlist;
}

LibraryOpenResult openFailure(LibraryOpenError error, const QString &message)
{
    LibraryOpenResult result;
    result.error = error;
    result.message = message;
    return result;
}

// Classifies the failure of the first read of a file.
LibraryOpenResult probeFailure(const SqliteDb &db, const QString &path)
{
    switch (db.errorCode()) {
    case SQLITE_NOTADB:
        return openFailure(LibraryOpenError::NotADatabase,
                           QStringLiteral("%1 is not a library database; the file was left as it is").arg(path));
    case SQLITE_CORRUPT:
        return openFailure(LibraryOpenError::Damaged,
                           QStringLiteral("%1 is damaged (%2); the file was left as it is").arg(path, db.errorMessage()));
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return openFailure(LibraryOpenError::Locked,
                           QStringLiteral("%1 is locked by another process; close it and try again").arg(path));
    default:
        return openFailure(LibraryOpenError::CannotOpen,
                           QStringLiteral("cannot read %1: %2").arg(path, db.errorMessage()));
    }
}

// Reads the file's version and checks that it is one of our libraries of a version we
// know; absent with `refused` set otherwise.
std::optional<qint64> probe(SqliteDb &db, const QString &path, std::optional<LibraryOpenResult> *refused)
{
    const std::optional<qint64> version = db.queryInt("PRAGMA user_version");
    const std::optional<qint64> applicationId = version ? db.queryInt("PRAGMA application_id") : std::nullopt;
    const std::optional<qint64> objectCount
        = applicationId ? db.queryInt("SELECT count(*) FROM sqlite_schema") : std::nullopt;
    if (!version || !applicationId || !objectCount) {
        *refused = probeFailure(db, path);
        return std::nullopt;
    }
    if ((*applicationId != 0 && *applicationId != LibrarySchema::kApplicationId)
        || (*version == 0 && *objectCount > 0)) {
        *refused = openFailure(LibraryOpenError::NotALibrary,
            QStringLiteral("%1 belongs to another program, not Orvida; the file was left as it is").arg(path));
        return std::nullopt;
    }
    if (*version > LibrarySchema::kCurrentVersion) {
        *refused = openFailure(LibraryOpenError::NewerVersion,
            QStringLiteral("%1 was written by a newer version of Orvida (library version %2, this "
                           "version knows up to %3); the file was left as it is")
                .arg(path)
                .arg(*version)
                .arg(LibrarySchema::kCurrentVersion));
        return std::nullopt;
    }
    return version;
}

} // namespace

QString LibraryStore::defaultPath()
{
    return Paths::supportFile(QStringLiteral("library.sqlite"));
}

LibraryOpenResult LibraryStore::open(const QString &path, const Options &options)
{
    const QFileInfo info(path);
    const bool exists = info.exists();
    if (exists && !info.isFile())
        return openFailure(LibraryOpenError::CannotOpen, QStringLiteral("%1 is not a file").arg(path));
    if (!exists && !QDir().mkpath(info.absolutePath()))
        return openFailure(LibraryOpenError::CannotOpen,
                           QStringLiteral("cannot create the folder %1").arg(info.absolutePath()));

    // Without CREATE for an existing file: should it vanish in between, we fail instead of
    // starting an empty library in its place.
    auto db = std::make_unique<SqliteDb>();
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (exists ? 0 : SQLITE_OPEN_CREATE);
    if (db->open(path, flags) != SQLITE_OK)
        return openFailure(LibraryOpenError::CannotOpen,
                           QStringLiteral("cannot open %1: %2").arg(path, db->errorMessage()));
    if (sqlite3_db_readonly(db->handle(), "main") == 1)
        return openFailure(LibraryOpenError::ReadOnly, QStringLiteral("%1 is read-only").arg(path));
    sqlite3_busy_timeout(db->handle(), options.busyTimeoutMs);

    // Read-only probes first: nothing may be written before we know the file is ours and
    // of a version we understand. They run in one read transaction so that they see one
    // state of the file, not a version from before another process's creation and a
    // table count from after it.
    if (!db->exec("BEGIN"))
        return probeFailure(*db, path);
    std::optional<LibraryOpenResult> refused;
    const std::optional<qint64> version = probe(*db, path, &refused);
    (void)db->exec("ROLLBACK");
    if (refused)
        return std::move(*refused);

    if (*version < LibrarySchema::kCurrentVersion) {
        // Two processes starting on a fresh folder both find version 0. The write lock
        // makes one of them wait here until the other has created or updated the file;
        // looking again under it, the second finds the work done.
        ScopedTransaction transaction(*db);
        if (!transaction.isActive())
            return probeFailure(*db, path);
        const std::optional<qint64> current = probe(*db, path, &refused);
        if (refused)
            return std::move(*refused);
        QString migrationError;
        if (!LibrarySchema::applySteps(*db, int(*current), LibrarySchema::kCurrentVersion, &migrationError)
            || !transaction.commit()) {
            if (db->errorCode() == SQLITE_BUSY)
                return probeFailure(*db, path);
            if (migrationError.isEmpty())
                migrationError = db->errorMessage();
            return openFailure(LibraryOpenError::MigrationFailed,
                QStringLiteral("cannot update %1 from library version %2 (%3); the file was left as it is")
                    .arg(path)
                    .arg(*current)
                    .arg(migrationError));
        }
    }

    // WAL lets orvida-cli read while the application writes. NORMAL synchronisation in WAL
    // mode survives a crash of the program and loses at most the last commits on a power
    // cut, which keeps a single insert far below a millisecond. Neither is fatal if the
    // file system refuses it.
    (void)db->exec("PRAGMA journal_mode = WAL");
    (void)db->exec("PRAGMA synchronous = NORMAL");
    (void)db->exec("PRAGMA foreign_keys = ON");

    LibraryOpenResult result;
    result.store.reset(new LibraryStore(std::move(db), path));
    return result;
}

LibraryStore::LibraryStore(std::unique_ptr<SqliteDb> db, QString path) : m_db(std::move(db)), m_path(std::move(path))
{
}

LibraryStore::~LibraryStore() = default;

void LibraryStore::assertOwnerThread() const
{
    Q_ASSERT_X(QThread::currentThread() == thread(), "LibraryStore", "called off its thread; use post()");
}

bool LibraryStore::failed()
{
    m_lastError = m_db->errorMessage();
    return false;
}

bool LibraryStore::changeRow(SqliteStatement &statement, const char *what, qint64 id)
{
    if (!statement.run())
        return failed();
    if (m_db->changes() == 0) {
        m_lastError = QStringLiteral("no %1 with id %2").arg(QLatin1String(what)).arg(id);
        return false;
    }
    return true;
}

void LibraryStore::post(std::function<void(LibraryStore &)> work)
{
    QMetaObject::invokeMethod(
        this, [this, work = std::move(work)] { work(*this); }, Qt::QueuedConnection);
}

void LibraryStore::bindTrack(SqliteStatement &s, const Track &track)
{
    s.bind(0, track.title);
    s.bind(1, track.artist);
    s.bind(2, track.album);
    s.bind(3, Track::storableDuration(track.duration));
    bindDate(s, 4, track.dateAdded);
    s.bind(5, qint64(track.isFavorite));
    s.bind(6, track.genre);
    s.bind(7, track.playCount);
    s.bind(8, track.source);
    s.bind(9, track.station);
    s.bind(10, track.filePath);
}

std::optional<qint64> LibraryStore::insert(const Track &track)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kInsertTrack);
    bindTrack(s, track);
    if (!s.run()) {
        failed();
        return std::nullopt;
    }
    Track stored = track;
    stored.id = m_db->lastInsertId();
    stored.duration = Track::storableDuration(track.duration);
    Q_EMIT tracksInserted({stored});
    Q_EMIT tracksChanged();
    return stored.id;
}

QList<qint64> LibraryStore::insertTracks(const QList<Track> &tracks)
{
    assertOwnerThread();
    QList<qint64> ids;
    ids.reserve(tracks.size());
    ScopedTransaction transaction(*m_db);
    if (!transaction.isActive()) {
        failed();
        return {};
    }
    for (const Track &track : tracks) {
        SqliteStatement s = m_db->statement(kInsertTrack);
        bindTrack(s, track);
        if (!s.run()) {
            failed();
            return {};
        }
        ids << m_db->lastInsertId();
    }
    if (!transaction.commit()) {
        failed();
        return {};
    }
    if (ids.isEmpty())
        return ids;
    if (isSignalConnected(QMetaMethod::fromSignal(&LibraryStore::tracksInserted))) {
        QList<Track> stored = tracks;
        for (qsizetype i = 0; i < stored.size(); ++i) {
            stored[i].id = ids[i];
            stored[i].duration = Track::storableDuration(stored[i].duration);
        }
        Q_EMIT tracksInserted(stored);
    }
    Q_EMIT tracksChanged();
    return ids;
}

bool LibraryStore::save(const Track &track)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kUpdateTrack);
    bindTrack(s, track);
    s.bind(11, track.id);
    if (!changeRow(s, "track", track.id))
        return false;
    Track stored = track;
    stored.duration = Track::storableDuration(track.duration);
    Q_EMIT trackUpdated(stored);
    Q_EMIT tracksChanged();
    return true;
}

bool LibraryStore::remove(qint64 trackId)
{
    assertOwnerThread();
    bool linked = false;
    {
        SqliteStatement s = m_db->statement(kTrackIsLinked);
        s.bind(0, trackId);
        if (!s.next())
            return failed();
        linked = s.int64(0) != 0;
    }
    SqliteStatement s = m_db->statement(kDeleteTrack);
    s.bind(0, trackId);
    if (!changeRow(s, "track", trackId))
        return false;
    Q_EMIT trackRemoved(trackId);
    Q_EMIT tracksChanged();
    if (linked)
        Q_EMIT playlistsChanged();
    return true;
}

std::optional<Track> LibraryStore::track(qint64 trackId)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kSelectTrack);
    s.bind(0, trackId);
    if (s.next())
        return readTrack(s);
    if (s.failed())
        failed();
    return std::nullopt;
}

QList<Track> LibraryStore::allTracks()
{
    assertOwnerThread();
    QList<Track> tracks;
    if (const std::optional<qint64> count = m_db->queryInt("SELECT max(id) FROM tracks"))
        tracks.reserve(qsizetype(*count)); // ids are dense unless tracks were deleted
    SqliteStatement s = m_db->statement(kSelectAllTracks);
    while (s.next())
        tracks << readTrack(s);
    if (s.failed())
        failed();
    return tracks;
}

QList<Track> LibraryStore::tracksByFilePath(const QString &filePath)
{
    assertOwnerThread();
    QList<Track> tracks;
    SqliteStatement s = m_db->statement(kSelectTracksByPath);
    s.bind(0, filePath);
    while (s.next())
        tracks << readTrack(s);
    if (s.failed())
        failed();
    return tracks;
}

QList<Track> LibraryStore::tracksOfAlbum(const QString &album, const QString &artist)
{
    assertOwnerThread();
    QList<Track> tracks;
    SqliteStatement s = m_db->statement(kSelectAlbumTracks);
    s.bind(0, album);
    s.bind(1, artist);
    while (s.next())
        tracks << readTrack(s);
    if (s.failed())
        failed();
    return tracks;
}

std::optional<LibraryStore::FileStamp> LibraryStore::FileStamp::of(const QString &filePath)
{
    const QFileInfo info(filePath);
    if (!info.isFile() || !info.isReadable())
        return std::nullopt;
    return FileStamp { info.size(), info.lastModified().toMSecsSinceEpoch() };
}

std::optional<QByteArray> LibraryStore::analysis(const QString &filePath, const QString &kind, const FileStamp &stamp)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kSelectAnalysis);
    s.bind(0, filePath);
    s.bind(1, kind);
    s.bind(2, stamp.size);
    s.bind(3, stamp.modifiedMs);
    if (s.next())
        return s.text(0).toUtf8();
    if (s.failed())
        failed();
    return std::nullopt;
}

bool LibraryStore::setAnalysis(const QString &filePath, const QString &kind, const FileStamp &stamp,
                               const QByteArray &json)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kStoreAnalysis);
    s.bind(0, filePath);
    s.bind(1, kind);
    s.bind(2, stamp.size);
    s.bind(3, stamp.modifiedMs);
    s.bind(4, QString::fromUtf8(json));
    if (!s.run())
        return failed();
    Q_EMIT analysisStored(filePath, kind);
    return true;
}

QStringList LibraryStore::pathsWithoutAnalysis(const QString &kind)
{
    assertOwnerThread();
    QStringList paths;
    SqliteStatement s = m_db->statement(kSelectUnanalysed);
    s.bind(0, kind);
    while (s.next())
        paths << s.text(0);
    if (s.failed())
        failed();
    return paths;
}

std::optional<qint64> LibraryStore::insertPlaylist(const Playlist &playlist)
{
    assertOwnerThread();
    ScopedTransaction transaction(*m_db);
    if (!transaction.isActive()) {
        failed();
        return std::nullopt;
    }
    {
        SqliteStatement s = m_db->statement(kInsertPlaylist);
        s.bind(0, playlist.name);
        bindDate(s, 1, playlist.dateCreated);
        if (!s.run()) {
            failed();
            return std::nullopt;
        }
    }
    const qint64 id = m_db->lastInsertId();
    for (const PlaylistEntry &entry : playlist.entries) {
        qint64 entryId = 0;
        if (!insertEntryRow(id, entry, &entryId))
            return std::nullopt;
    }
    if (!transaction.commit()) {
        failed();
        return std::nullopt;
    }
    Q_EMIT playlistsChanged();
    return id;
}

bool LibraryStore::renamePlaylist(qint64 playlistId, const QString &name)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kRenamePlaylist);
    s.bind(0, name);
    s.bind(1, playlistId);
    if (!changeRow(s, "playlist", playlistId))
        return false;
    Q_EMIT playlistsChanged();
    return true;
}

bool LibraryStore::removePlaylist(qint64 playlistId)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kDeletePlaylist);
    s.bind(0, playlistId);
    if (!changeRow(s, "playlist", playlistId))
        return false;
    Q_EMIT playlistsChanged();
    return true;
}

QList<PlaylistEntry> LibraryStore::entriesOf(qint64 playlistId)
{
    QList<PlaylistEntry> entries;
    SqliteStatement s = m_db->statement(kSelectEntries);
    s.bind(0, playlistId);
    while (s.next())
        entries << readEntry(s);
    if (s.failed())
        failed();
    Playlists::sortEntries(entries);
    return entries;
}

std::optional<Playlist> LibraryStore::playlist(qint64 playlistId)
{
    assertOwnerThread();
    std::optional<Playlist> result;
    {
        SqliteStatement s = m_db->statement(kSelectPlaylist);
        s.bind(0, playlistId);
        if (s.next())
            result = readPlaylist(s);
        else if (s.failed())
            failed();
    }
    if (result)
        result->entries = entriesOf(playlistId);
    return result;
}

QList<Playlist> LibraryStore::allPlaylists()
{
    assertOwnerThread();
    QList<Playlist> playlists;
    QHash<qint64, qsizetype> indexById;
    {
        SqliteStatement s = m_db->statement(kSelectPlaylists);
        while (s.next()) {
            indexById.insert(s.int64(0), playlists.size());
            playlists << readPlaylist(s);
        }
        if (s.failed())
            failed();
    }
    // One pass over all entries instead of one query per playlist.
    SqliteStatement s = m_db->statement(kSelectAllEntries);
    while (s.next()) {
        PlaylistEntry entry = readEntry(s);
        const auto it = entry.playlist ? indexById.constFind(*entry.playlist) : indexById.constEnd();
        if (it != indexById.constEnd())
            playlists[*it].entries << std::move(entry);
    }
    if (s.failed())
        failed();
    for (Playlist &playlist : playlists)
        Playlists::sortEntries(playlist.entries);
    return playlists;
}

bool LibraryStore::insertEntryRow(qint64 playlistId, const PlaylistEntry &entry, qint64 *id)
{
    SqliteStatement s = m_db->statement(kInsertEntry);
    s.bind(0, entry.title);
    s.bind(1, entry.artist);
    s.bind(2, Track::storableDuration(entry.duration));
    s.bind(3, entry.youtubeVideoID);
    s.bind(4, entry.sortOrder);
    s.bind(5, playlistId);
    s.bind(6, entry.linkedTrack);
    if (!s.run())
        return failed();
    *id = m_db->lastInsertId();
    return true;
}

std::optional<qint64> LibraryStore::addEntry(qint64 playlistId, const PlaylistEntry &entry)
{
    assertOwnerThread();
    // The foreign key alone would accept a NULL playlist; an entry must belong somewhere.
    if (!playlist(playlistId)) {
        m_lastError = QStringLiteral("no playlist with id %1").arg(playlistId);
        return std::nullopt;
    }
    qint64 id = 0;
    if (!insertEntryRow(playlistId, entry, &id))
        return std::nullopt;
    Q_EMIT playlistsChanged();
    return id;
}

QList<qint64> LibraryStore::addEntries(qint64 playlistId, const QList<PlaylistEntry> &entries)
{
    assertOwnerThread();
    if (!playlist(playlistId)) {
        m_lastError = QStringLiteral("no playlist with id %1").arg(playlistId);
        return {};
    }
    ScopedTransaction transaction(*m_db);
    if (!transaction.isActive()) {
        failed();
        return {};
    }
    QList<qint64> ids;
    ids.reserve(entries.size());
    for (const PlaylistEntry &entry : entries) {
        qint64 id = 0;
        if (!insertEntryRow(playlistId, entry, &id))
            return {};
        ids << id;
    }
    if (!transaction.commit()) {
        failed();
        return {};
    }
    if (!ids.isEmpty())
        Q_EMIT playlistsChanged();
    return ids;
}

bool LibraryStore::saveEntry(const PlaylistEntry &entry)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kUpdateEntry);
    s.bind(0, entry.title);
    s.bind(1, entry.artist);
    s.bind(2, Track::storableDuration(entry.duration));
    s.bind(3, entry.youtubeVideoID);
    s.bind(4, entry.sortOrder);
    s.bind(5, entry.linkedTrack);
    s.bind(6, entry.id);
    if (!changeRow(s, "playlist entry", entry.id))
        return false;
    Q_EMIT playlistsChanged();
    return true;
}

bool LibraryStore::moveEntry(qint64 playlistId, qsizetype fromIndex, qsizetype toIndex)
{
    assertOwnerThread();
    ScopedTransaction transaction(*m_db);
    if (!transaction.isActive())
        return failed();
    QList<PlaylistEntry> entries = entriesOf(playlistId);
    if (fromIndex < 0 || fromIndex >= entries.size() || toIndex < 0 || toIndex >= entries.size()) {
        m_lastError = QStringLiteral("no entry %1 or %2 in playlist %3 of %4 entries")
                          .arg(fromIndex)
                          .arg(toIndex)
                          .arg(playlistId)
                          .arg(entries.size());
        return false;
    }
    entries.move(fromIndex, toIndex);
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (entries[i].sortOrder == i)
            continue;
        SqliteStatement s = m_db->statement(kSetEntrySortOrder);
        s.bind(0, qint64(i));
        s.bind(1, entries[i].id);
        if (!s.run())
            return failed();
    }
    if (!transaction.commit())
        return failed();
    Q_EMIT playlistsChanged();
    return true;
}

bool LibraryStore::setEntryOrder(qint64 playlistId, const QList<qint64> &entryIds)
{
    assertOwnerThread();
    ScopedTransaction transaction(*m_db);
    if (!transaction.isActive())
        return failed();
    const QList<PlaylistEntry> entries = entriesOf(playlistId);
    QHash<qint64, qint64> sortOrderById;
    for (const PlaylistEntry &entry : entries)
        sortOrderById.insert(entry.id, entry.sortOrder);
    const QSet<qint64> named(entryIds.cbegin(), entryIds.cend());
    if (entryIds.size() != entries.size() || named.size() != entryIds.size()
        || !std::all_of(entryIds.cbegin(), entryIds.cend(), [&](qint64 id) { return sortOrderById.contains(id); })) {
        m_lastError = QStringLiteral("the new order does not name each of the %1 entries of playlist %2 once")
                          .arg(entries.size())
                          .arg(playlistId);
        return false;
    }
    for (qsizetype i = 0; i < entryIds.size(); ++i) {
        if (sortOrderById.value(entryIds[i]) == i)
            continue;
        SqliteStatement s = m_db->statement(kSetEntrySortOrder);
        s.bind(0, qint64(i));
        s.bind(1, entryIds[i]);
        if (!s.run())
            return failed();
    }
    if (!transaction.commit())
        return failed();
    Q_EMIT playlistsChanged();
    return true;
}

bool LibraryStore::removeEntry(qint64 entryId)
{
    assertOwnerThread();
    SqliteStatement s = m_db->statement(kDeleteEntry);
    s.bind(0, entryId);
    if (!changeRow(s, "playlist entry", entryId))
        return false;
    Q_EMIT playlistsChanged();
    return true;
}
