#pragma once

#include "library/playlist.h"

#include <QAbstractTableModel>
#include <QList>

class LibraryStore;

// One playlist's entries as table rows (title, artist, duration) in their played order.
// Rows drag within the table to reorder the playlist, and out of it as the library
// tracks they play (onto another playlist).
//
// Lives on the GUI thread and rereads its playlist on the store's playlistsChanged().
// When only the order changed (a move), the rows are rearranged as a layout change, so a
// view's selection travels with the moved entries; anything else is a reset.
class PlaylistEntryModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { TitleColumn, ArtistColumn, DurationColumn, ColumnCount };
    static constexpr int kEntryIdRole = Qt::UserRole + 1;
    static constexpr const char *kEntryRowsMimeType = "application/x-orvida-playlist-rows";

    explicit PlaylistEntryModel(LibraryStore *store, QObject *parent = nullptr);

    // 0 shows nothing. A playlist that is deleted while shown empties the model and
    // announces playlistGone().
    void setPlaylist(qint64 playlistId);
    [[nodiscard]] qint64 playlistId() const { return m_playlistId; }
    [[nodiscard]] const QList<PlaylistEntry> &entries() const { return m_entries; }
    [[nodiscard]] const PlaylistEntry *entryAt(int row) const;
    [[nodiscard]] QList<qint64> entryIds() const;
    void reload();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    // Rows of this playlist move in front of `row`; library tracks are inserted there.
    // Dropped on a row itself, they go in front of it; on the empty space, at the end.
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;

Q_SIGNALS:
    void playlistGone();

private:
    // The dragged rows of this playlist; empty for another playlist's payload.
    [[nodiscard]] QList<int> draggedRows(const QMimeData *data) const;

    LibraryStore *m_store;
    qint64 m_playlistId = 0;
    QList<PlaylistEntry> m_entries;
};
