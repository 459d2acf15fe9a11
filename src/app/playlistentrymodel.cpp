#include "app/playlistentrymodel.h"

#include "app/librarymodel.h"
#include "app/playlistedits.h"
#include "app/playlistorder.h"
#include "app/texts.h"
#include "library/librarystore.h"

#include <QApplication>
#include <QDataStream>
#include <QIODevice>
#include <QMimeData>
#include <QPalette>
#include <QSet>

#include <algorithm>

PlaylistEntryModel::PlaylistEntryModel(LibraryStore *store, QObject *parent)
    : QAbstractTableModel(parent)
    , m_store(store)
{
    if (m_store)
        connect(m_store, &LibraryStore::playlistsChanged, this, &PlaylistEntryModel::reload);
}

void PlaylistEntryModel::setPlaylist(qint64 playlistId)
{
    if (playlistId == m_playlistId)
        return;
    beginResetModel();
    m_playlistId = playlistId;
    std::optional<Playlist> playlist = m_store && playlistId ? m_store->playlist(playlistId) : std::nullopt;
    m_entries = playlist ? playlist->entries : QList<PlaylistEntry>();
    endResetModel();
}

void PlaylistEntryModel::reload()
{
    if (m_playlistId == 0)
        return;
    const std::optional<Playlist> playlist = m_store ? m_store->playlist(m_playlistId) : std::nullopt;
    if (!playlist) {
        beginResetModel();
        m_playlistId = 0;
        m_entries.clear();
        endResetModel();
        Q_EMIT playlistGone();
        return;
    }
    const QList<PlaylistEntry> &fresh = playlist->entries;
    QList<qint64> oldIds = entryIds();
    QList<qint64> newIds;
    for (const PlaylistEntry &entry : fresh)
        newIds << entry.id;
    std::sort(oldIds.begin(), oldIds.end());
    QList<qint64> sortedNew = newIds;
    std::sort(sortedNew.begin(), sortedNew.end());
    if (oldIds != sortedNew) {
        beginResetModel();
        m_entries = fresh;
        endResetModel();
        return;
    }
    if (m_entries.isEmpty())
        return;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    QHash<qint64, int> newRowById;
    for (qsizetype row = 0; row < newIds.size(); ++row)
        newRowById.insert(newIds[row], int(row));
    const QModelIndexList before = persistentIndexList();
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex &index : before)
        after << index.sibling(newRowById.value(m_entries[index.row()].id), index.column());
    m_entries = fresh;
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
    // An entry's own fields may have changed with the order (its track was deleted).
    Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

const PlaylistEntry *PlaylistEntryModel::entryAt(int row) const
{
    return row >= 0 && row < m_entries.size() ? &m_entries[row] : nullptr;
}

QList<qint64> PlaylistEntryModel::entryIds() const
{
    QList<qint64> ids;
    ids.reserve(m_entries.size());
    for (const PlaylistEntry &entry : m_entries)
        ids << entry.id;
    return ids;
}

int PlaylistEntryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_entries.size());
}

int PlaylistEntryModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant PlaylistEntryModel::data(const QModelIndex &index, int role) const
{
    const PlaylistEntry *entry = entryAt(index.row());
    if (!entry)
        return {};
    switch (role) {
    case kEntryIdRole: return entry->id;
    case Qt::TextAlignmentRole:
        return index.column() == DurationColumn ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter)) : QVariant();
    case Qt::ForegroundRole:
        // An entry whose track left the library cannot be played; it stays, but quietly.
        return entry->linkedTrack || entry->youtubeVideoID
                   ? QVariant()
                   : QVariant(QApplication::palette().color(QPalette::Disabled, QPalette::Text));
    case Qt::ToolTipRole:
        return entry->linkedTrack || entry->youtubeVideoID ? QVariant() : QVariant(tx("playlist.notInLibrary"));
    case Qt::DisplayRole:
        switch (index.column()) {
        case TitleColumn: return entry->title;
        case ArtistColumn: return entry->artist;
        case DurationColumn: return entry->formattedDuration();
        default: return {};
        }
    default: return {};
    }
}

QVariant PlaylistEntryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static constexpr const char *kKeys[ColumnCount] = {"lib.colTitle", "lib.colArtist", "lib.colDuration"};
    return section >= 0 && section < ColumnCount ? QVariant(tx(kKeys[section])) : QVariant();
}

Qt::ItemFlags PlaylistEntryModel::flags(const QModelIndex &index) const
{
    // Only the space between rows takes drops: a row never "contains" another.
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    return index.isValid() ? flags | Qt::ItemIsDragEnabled : flags | Qt::ItemIsDropEnabled;
}

QStringList PlaylistEntryModel::mimeTypes() const
{
    return {QString::fromLatin1(kEntryRowsMimeType), QString::fromLatin1(LibraryModel::kTrackIdsMimeType)};
}

QMimeData *PlaylistEntryModel::mimeData(const QModelIndexList &indexes) const
{
    QList<int> rows;
    for (const QModelIndex &index : indexes) {
        if (entryAt(index.row()))
            rows << index.row();
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    if (rows.isEmpty())
        return nullptr;
    QList<qint64> trackIds;
    for (int row : rows) {
        if (m_entries[row].linkedTrack)
            trackIds << *m_entries[row].linkedTrack;
    }
    QMimeData *data = LibraryModel::mimeDataFor(trackIds);
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << m_playlistId << rows;
    data->setData(QString::fromLatin1(kEntryRowsMimeType), bytes);
    return data;
}

Qt::DropActions PlaylistEntryModel::supportedDragActions() const
{
    return Qt::MoveAction | Qt::CopyAction;
}

Qt::DropActions PlaylistEntryModel::supportedDropActions() const
{
    return Qt::MoveAction | Qt::CopyAction;
}

QList<int> PlaylistEntryModel::draggedRows(const QMimeData *data) const
{
    if (!data || !data->hasFormat(QString::fromLatin1(kEntryRowsMimeType)))
        return {};
    QDataStream stream(data->data(QString::fromLatin1(kEntryRowsMimeType)));
    qint64 playlistId = 0;
    QList<int> rows;
    stream >> playlistId >> rows;
    return stream.status() == QDataStream::Ok && playlistId == m_playlistId ? rows : QList<int>();
}

bool PlaylistEntryModel::canDropMimeData(const QMimeData *data, Qt::DropAction, int, int, const QModelIndex &) const
{
    return m_playlistId != 0 && data
           && (!draggedRows(data).isEmpty() || !LibraryModel::trackIds(data).isEmpty());
}

bool PlaylistEntryModel::dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                                      const QModelIndex &parent)
{
    if (!m_store || !canDropMimeData(data, action, row, column, parent))
        return false;
    const int destination = row >= 0 ? row : parent.isValid() ? parent.row() : int(m_entries.size());
    const QList<int> rows = draggedRows(data);
    if (!rows.isEmpty()) {
        return PlaylistEdits::reorder(*m_store, m_playlistId, [&](const QList<qint64> &order) {
            return PlaylistOrder::moveRows(order, rows, destination);
        });
    }
    return PlaylistEdits::addTracks(*m_store, m_playlistId, LibraryModel::trackIds(data), destination).value_or(0) > 0;
}
