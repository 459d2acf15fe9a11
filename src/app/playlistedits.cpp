#include "app/playlistedits.h"

#include "app/playlistorder.h"
#include "library/librarystore.h"

#include <algorithm>

namespace {

QList<qint64> entryIds(const Playlist &playlist)
{
    QList<qint64> ids;
    ids.reserve(playlist.entries.size());
    for (const PlaylistEntry &entry : playlist.entries)
        ids << entry.id;
    return ids;
}

} // namespace

namespace PlaylistEdits {

std::optional<qsizetype> addTracks(LibraryStore &store, qint64 playlistId, const QList<qint64> &trackIds, int position)
{
    const std::optional<Playlist> playlist = store.playlist(playlistId);
    if (!playlist)
        return std::nullopt;
    // After the last entry, whatever gaps removals left in the numbering.
    qint64 sortOrder = 0;
    for (const PlaylistEntry &entry : playlist->entries)
        sortOrder = std::max(sortOrder, entry.sortOrder + 1);
    QList<PlaylistEntry> entries;
    for (qint64 trackId : trackIds) {
        const std::optional<Track> track = store.track(trackId);
        if (!track)
            continue;
        entries << PlaylistEntry(track->title, track->artist, track->duration, std::nullopt, sortOrder++, track->id);
    }
    if (entries.isEmpty())
        return 0;
    const QList<qint64> added = store.addEntries(playlistId, entries);
    if (added.isEmpty())
        return std::nullopt;
    if (position >= 0 && position < playlist->entries.size()) {
        // The entries are in; a failed reorder leaves them at the end, which is still
        // better than losing them.
        (void)store.setEntryOrder(playlistId, PlaylistOrder::insertAt(entryIds(*playlist), added, position));
    }
    return added.size();
}

bool reorder(LibraryStore &store, qint64 playlistId, const std::function<QList<qint64>(const QList<qint64> &)> &reorder)
{
    const std::optional<Playlist> playlist = store.playlist(playlistId);
    if (!playlist)
        return false;
    const QList<qint64> before = entryIds(*playlist);
    const QList<qint64> after = reorder(before);
    return after == before || store.setEntryOrder(playlistId, after);
}

} // namespace PlaylistEdits
