#include "app/playlistlistmodel.h"

#include "app/librarymodel.h"
#include "app/playlistedits.h"
#include "app/texts.h"
#include "library/librarystore.h"

#include <QMimeData>

PlaylistListModel::PlaylistListModel(LibraryStore *store, QObject *parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    if (m_store)
        connect(m_store, &LibraryStore::playlistsChanged, this, &PlaylistListModel::reload);
    reload();
}

void PlaylistListModel::reload()
{
    beginResetModel();
    m_rows.clear();
    if (m_store) {
        for (const Playlist &playlist : m_store->allPlaylists())
            m_rows << Row{playlist.id, playlist.name, playlist.entries.size()};
    }
    endResetModel();
}

qint64 PlaylistListModel::playlistId(int row) const
{
    return row > kAllTracksRow && row <= m_rows.size() ? m_rows[row - 1].id : 0;
}

int PlaylistListModel::rowOf(qint64 playlistId) const
{
    if (playlistId == 0)
        return kAllTracksRow;
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i].id == playlistId)
            return int(i) + 1;
    }
    return -1;
}

int PlaylistListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size()) + 1;
}

QVariant PlaylistListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() > m_rows.size())
        return {};
    if (index.row() == kAllTracksRow) {
        if (role == Qt::DisplayRole)
            return tx("library.allTracks");
        if (role == kPlaylistIdRole)
            return qint64(0);
        return {};
    }
    const Row &row = m_rows[index.row() - 1];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole: return row.name;
    case Qt::ToolTipRole:
        return row.entryCount == 1 ? tx("lib.countOne") : Texts::text("lib.countFormat").arg(row.entryCount);
    case kPlaylistIdRole: return row.id;
    case kEntryCountRole: return qint64(row.entryCount);
    default: return {};
    }
}

bool PlaylistListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const qint64 id = playlistId(index.row());
    const QString name = value.toString().trimmed();
    if (role != Qt::EditRole || id == 0 || name.isEmpty() || !m_store)
        return false;
    if (name == m_rows[index.row() - 1].name)
        return true;
    return m_store->renamePlaylist(id, name); // the store's signal reloads the list
}

Qt::ItemFlags PlaylistListModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractListModel::flags(index);
    if (playlistId(index.row()) != 0)
        flags |= Qt::ItemIsEditable | Qt::ItemIsDropEnabled;
    return flags;
}

QStringList PlaylistListModel::mimeTypes() const
{
    return {QString::fromLatin1(LibraryModel::kTrackIdsMimeType)};
}

Qt::DropActions PlaylistListModel::supportedDropActions() const
{
    // Entries dragged out of another playlist arrive as a move; they are copied all the
    // same, the source playlist keeps them.
    return Qt::CopyAction | Qt::MoveAction;
}

qint64 PlaylistListModel::dropTarget(int row, const QModelIndex &parent) const
{
    return row == -1 && parent.isValid() ? playlistId(parent.row()) : 0;
}

bool PlaylistListModel::canDropMimeData(const QMimeData *data, Qt::DropAction, int row, int,
                                        const QModelIndex &parent) const
{
    return dropTarget(row, parent) != 0 && data && data->hasFormat(QString::fromLatin1(LibraryModel::kTrackIdsMimeType));
}

bool PlaylistListModel::dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                                     const QModelIndex &parent)
{
    if (!m_store || !canDropMimeData(data, action, row, column, parent))
        return false;
    const QList<qint64> ids = LibraryModel::trackIds(data);
    if (ids.isEmpty())
        return false;
    const std::optional<qsizetype> added = PlaylistEdits::addTracks(*m_store, dropTarget(row, parent), ids);
    return added.value_or(0) > 0;
}
