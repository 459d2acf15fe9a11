#pragma once

#include "library/playlist.h"
#include "library/track.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class SqliteDb;
class SqliteStatement;
class LibraryStore;

// Why a library file could not be opened. In every case the file is left as it was.
enum class LibraryOpenError {
    CannotOpen,      // missing folder, a directory at the path, an I/O error
    ReadOnly,        // the file or its folder cannot be written
    NotADatabase,    // not an SQLite file at all
    Damaged,         // an SQLite file whose pages are corrupt
    NotALibrary,     // some other program's SQLite file
    Locked,          // another process holds a lock and did not let go in time
    NewerVersion,    // written by a newer Orvida; its layout is unknown here
    MigrationFailed, // an older library that could not be brought up to date
};

struct LibraryOpenResult {
    std::unique_ptr<LibraryStore> store; // set on success
    LibraryOpenError error = LibraryOpenError::CannotOpen;
    QString message; // one line for the user, naming the file; empty on success

    explicit operator bool() const { return store != nullptr; }
};

// The music library: tracks, playlists and their entries in one SQLite file (WAL).
//
// Lives on the GUI thread (in orvida-cli: the main thread) and owns the only connection to
// the file in this process; every method except post() must be called on that thread.
// Other threads (the recorder's save tasks, the converter) hand their work over with
// post(). Writes announce themselves on the owner thread after the change is committed:
// a view of 100,000 tracks follows the fine-grained track signals row by row, anything
// else may simply reload on tracksChanged()/playlistsChanged().
//
// Other processes (orvida-cli beside the window) may open the same file: WAL lets them
// read while we write.
class LibraryStore : public QObject {
    Q_OBJECT
public:
    struct Options {
        // How long a statement waits for another process's write before giving up.
        int busyTimeoutMs = 5000;
    };

    // $XDG_DATA_HOME/Orvida/library.sqlite
    [[nodiscard]] static QString defaultPath();

    // Opens the library at `path`, creating it (and its folder) when there is no file yet,
    // and brings an older file up to date. Never writes to a file it cannot read as one of
    // our libraries of a version it knows.
    [[nodiscard]] static LibraryOpenResult open(const QString &path, const Options &options);
    [[nodiscard]] static LibraryOpenResult open(const QString &path) { return open(path, Options()); }
    ~LibraryStore() override;

    [[nodiscard]] QString path() const { return m_path; }
    // SQLite's text for the most recent failed call.
    [[nodiscard]] QString lastError() const { return m_lastError; }

    // Tracks. insert() ignores the value's id and returns the new one; a duration that
    // is not storable is written as 0.
    [[nodiscard]] std::optional<qint64> insert(const Track &track);
    // Many tracks in one transaction (an import, a test fixture): all or none. The ids
    // in the order of `tracks`; empty on failure.
    [[nodiscard]] QList<qint64> insertTracks(const QList<Track> &tracks);
    // Writes every field of the stored track with the value's id; false when there is none.
    [[nodiscard]] bool save(const Track &track);
    // Playlist entries that played it stay, without a linked track.
    [[nodiscard]] bool remove(qint64 trackId);
    [[nodiscard]] std::optional<Track> track(qint64 trackId);
    [[nodiscard]] QList<Track> allTracks(); // in the order they were added
    [[nodiscard]] QList<Track> tracksByFilePath(const QString &filePath);
    // The tracks whose album and artist are exactly these, in the order they were added.
    [[nodiscard]] QList<Track> tracksOfAlbum(const QString &album, const QString &artist);

    // Playlists. insertPlaylist() stores the playlist and the entries it already holds.
    [[nodiscard]] std::optional<qint64> insertPlaylist(const Playlist &playlist);
    [[nodiscard]] bool renamePlaylist(qint64 playlistId, const QString &name);
    // Deletes its entries with it.
    [[nodiscard]] bool removePlaylist(qint64 playlistId);
    [[nodiscard]] std::optional<Playlist> playlist(qint64 playlistId);
    [[nodiscard]] QList<Playlist> allPlaylists(); // with their entries, in creation order

    // Appends `entry` to the playlist (its sortOrder is kept as given); returns its id.
    [[nodiscard]] std::optional<qint64> addEntry(qint64 playlistId, const PlaylistEntry &entry);
    // Appends several entries in one transaction: all or none. Their ids in order.
    [[nodiscard]] QList<qint64> addEntries(qint64 playlistId, const QList<PlaylistEntry> &entries);
    // Writes the entry's own fields (not its playlist) under its id.
    [[nodiscard]] bool saveEntry(const PlaylistEntry &entry);
    // Moves the entry shown at `fromIndex` to `toIndex` and renumbers the playlist's
    // sortOrder 0, 1, 2, ... in the new order.
    [[nodiscard]] bool moveEntry(qint64 playlistId, qsizetype fromIndex, qsizetype toIndex);
    // Renumbers the playlist's sortOrder 0, 1, 2, ... in the order of `entryIds`, which must
    // name every entry of the playlist exactly once (a drag of several rows at once).
    [[nodiscard]] bool setEntryOrder(qint64 playlistId, const QList<qint64> &entryIds);
    [[nodiscard]] bool removeEntry(qint64 entryId);

    // Analyses of audio files, one JSON object per kind ("crossfade", "loudness",
    // "beats", ...), each stored with the file's stamp. A stored analysis whose stamp is
    // not the file's present one is stale and not returned: the file changed since.
    struct FileStamp {
        qint64 size = 0;
        qint64 modifiedMs = 0;
        // Nothing when the file cannot be read.
        [[nodiscard]] static std::optional<FileStamp> of(const QString &filePath);
        friend bool operator==(const FileStamp &, const FileStamp &) = default;
    };
    [[nodiscard]] std::optional<QByteArray> analysis(const QString &filePath, const QString &kind,
                                                     const FileStamp &stamp);
    // Replaces the kind's analysis of the file.
    [[nodiscard]] bool setAnalysis(const QString &filePath, const QString &kind, const FileStamp &stamp,
                                   const QByteArray &json);
    // The library's files with no stored analysis of `kind` at all (whether a stored one
    // is still current needs the file's stamp), in the order their tracks were added.
    [[nodiscard]] QStringList pathsWithoutAnalysis(const QString &kind);

    // Thread-safe. Runs `work` on the owner thread from its event loop. Dropped when the
    // store is destroyed first.
    void post(std::function<void(LibraryStore &)> work);

Q_SIGNALS:
    // The rows as stored (ids set), in id order; from insert() and insertTracks().
    void tracksInserted(const QList<Track> &tracks);
    // From save(): the track as stored.
    void trackUpdated(const Track &track);
    void trackRemoved(qint64 trackId);
    // After every track write, following the fine-grained signal above.
    void tracksChanged();
    void playlistsChanged();
    // From setAnalysis().
    void analysisStored(const QString &filePath, const QString &kind);

private:
    LibraryStore(std::unique_ptr<SqliteDb> db, QString path);

    void assertOwnerThread() const;
    bool failed(); // records the connection's error text; returns false
    // Runs an UPDATE or DELETE of the row `id`; false (with a text) when there is none.
    bool changeRow(SqliteStatement &statement, const char *what, qint64 id);
    static void bindTrack(SqliteStatement &statement, const Track &track);
    bool insertEntryRow(qint64 playlistId, const PlaylistEntry &entry, qint64 *id);
    QList<PlaylistEntry> entriesOf(qint64 playlistId);

    std::unique_ptr<SqliteDb> m_db;
    QString m_path;
    QString m_lastError;
};
