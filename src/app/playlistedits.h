#pragma once

#include <QList>

#include <functional>
#include <optional>

class LibraryStore;

// Edits of a playlist that the view's drag and drop, menus and buttons share. Each is one
// or two store writes, so a drop of a thousand tracks is not a thousand reloads.
//
// GUI thread (the store's).
namespace PlaylistEdits {

// Adds the library tracks as entries (title, artist and duration taken from the track) in
// front of the entry at `position`; -1 or a position past the end appends. Ids that are
// no longer in the library are skipped. The number added, or nothing when the store
// failed (then nothing was added) or the playlist is gone.
[[nodiscard]] std::optional<qsizetype> addTracks(LibraryStore &store, qint64 playlistId,
                                                 const QList<qint64> &trackIds, int position = -1);

// Puts the entries into the order `reorder` makes of their ids as shown; false when the
// store refused.
[[nodiscard]] bool reorder(LibraryStore &store, qint64 playlistId,
                           const std::function<QList<qint64>(const QList<qint64> &)> &reorder);

} // namespace PlaylistEdits
