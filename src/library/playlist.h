#pragma once

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

#include <optional>

// One row of a playlist: a library track, or a remote video that has not been downloaded
// yet (then only `youtubeVideoID` says what it is). A plain value with the store's
// persistent id (0 until stored); equality and hashing follow the id as for Track.
struct PlaylistEntry {
    qint64 id = 0;
    QString title;
    QString artist;
    double duration = 0; // seconds
    std::optional<QString> youtubeVideoID;
    qint64 sortOrder = 0; // shown and played ascending; ties keep their stored order
    std::optional<qint64> playlist; // id of the owning playlist; set by the store
    std::optional<qint64> linkedTrack; // id of the library track it plays; absent when none

    PlaylistEntry() = default;
    PlaylistEntry(QString title, QString artist, double duration, std::optional<QString> youtubeVideoID,
                  qint64 sortOrder, std::optional<qint64> linkedTrack);

    // "--:--" below one whole second (an entry whose length is not known yet), else "m:ss".
    [[nodiscard]] QString formattedDuration() const;

    friend bool operator==(const PlaylistEntry &a, const PlaylistEntry &b);
};

// A user's playlist with its entries, sorted by ascending `sortOrder` (stable: entries with
// equal sortOrder keep the order in which they were added).
struct Playlist {
    qint64 id = 0;
    QString name;
    QDateTime dateCreated; // UTC
    QList<PlaylistEntry> entries;

    Playlist() = default;
    // dateCreated is now; entries start empty.
    explicit Playlist(QString name);

    friend bool operator==(const Playlist &a, const Playlist &b);
};

size_t qHash(const PlaylistEntry &entry, size_t seed = 0);
size_t qHash(const Playlist &playlist, size_t seed = 0);

namespace Playlists {
// Stable sort by ascending sortOrder: what a playlist's entries look like after an edit
// made in memory, before the store has reloaded them.
void sortEntries(QList<PlaylistEntry> &entries);
} // namespace Playlists

Q_DECLARE_METATYPE(PlaylistEntry)
Q_DECLARE_METATYPE(Playlist)
