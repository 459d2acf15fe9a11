#include "app/librarymodel.h"

#include "app/texts.h"
#include "library/librarystore.h"

#include <QDataStream>
#include <QFont>
#include <QIODevice>
#include <QLocale>
#include <QMimeData>
#include <QSet>

#include <algorithm>
#include <limits>

LibraryModel::LibraryModel(LibraryStore *store, QObject *parent)
    : QAbstractTableModel(parent)
    , m_store(store)
{
}

void LibraryModel::load()
{
    if (m_store && !m_loaded) {
        connect(m_store, &LibraryStore::tracksInserted, this, &LibraryModel::insertRows);
        connect(m_store, &LibraryStore::trackUpdated, this, &LibraryModel::updateRow);
        connect(m_store, &LibraryStore::trackRemoved, this, &LibraryModel::removeRow);
    }
    m_loaded = true;
    beginResetModel();
    m_tracks = m_store ? m_store->allTracks() : QList<Track>();
    endResetModel();
}

qint64 LibraryModel::dateSortKey(const QDateTime &date)
{
    return date.isValid() ? date.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

const Track *LibraryModel::trackAt(int row) const
{
    return row >= 0 && row < m_tracks.size() ? &m_tracks[row] : nullptr;
}

qsizetype LibraryModel::lowerBound(qint64 trackId) const
{
    return std::lower_bound(m_tracks.cbegin(), m_tracks.cend(), trackId,
                            [](const Track &track, qint64 id) { return track.id < id; })
           - m_tracks.cbegin();
}

int LibraryModel::rowOf(qint64 trackId) const
{
    const qsizetype row = lowerBound(trackId);
    return row < m_tracks.size() && m_tracks[row].id == trackId ? int(row) : -1;
}

void LibraryModel::insertRows(const QList<Track> &tracks)
{
    if (tracks.isEmpty())
        return;
    // The usual case: new ids, all above the last one, announced in ascending order.
    const bool appends = (m_tracks.isEmpty() || tracks.first().id > m_tracks.last().id)
                         && std::is_sorted(tracks.cbegin(), tracks.cend(),
                                           [](const Track &a, const Track &b) { return a.id <= b.id; });
    if (appends) {
        beginInsertRows({}, int(m_tracks.size()), int(m_tracks.size() + tracks.size() - 1));
        m_tracks.append(tracks);
        endInsertRows();
        return;
    }
    for (const Track &track : tracks) {
        const qsizetype row = lowerBound(track.id);
        if (row < m_tracks.size() && m_tracks[row].id == track.id) {
            updateRow(track);
            continue;
        }
        beginInsertRows({}, int(row), int(row));
        m_tracks.insert(row, track);
        endInsertRows();
    }
}

void LibraryModel::updateRow(const Track &track)
{
    const int row = rowOf(track.id);
    if (row < 0)
        return;
    m_tracks[row] = track;
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void LibraryModel::removeRow(qint64 trackId)
{
    const int row = rowOf(trackId);
    if (row < 0)
        return;
    beginRemoveRows({}, row, row);
    m_tracks.removeAt(row);
    endRemoveRows();
}

int LibraryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_tracks.size());
}

int LibraryModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LibraryModel::data(const QModelIndex &index, int role) const
{
    const Track *track = trackAt(index.row());
    if (!track)
        return {};
    if (role == kTrackIdRole)
        return track->id;
    if (role == Qt::ToolTipRole && index.column() == TitleColumn)
        return track->filePath.value_or(QString());
    if (role == Qt::TextAlignmentRole && (index.column() == DurationColumn || index.column() == PlayCountColumn))
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::TextAlignmentRole && index.column() == FavoriteColumn)
        return int(Qt::AlignCenter);
    if (role == Qt::ToolTipRole && index.column() == FavoriteColumn)
        return tx("lib.favoriteTip");
    if (role == Qt::FontRole && m_playingTrack != 0 && track->id == m_playingTrack) {
        QFont bold;
        bold.setBold(true);
        return bold;
    }
    if (role != Qt::DisplayRole && role != kSortRole)
        return {};
    const bool sort = role == kSortRole;
    switch (index.column()) {
    case FavoriteColumn:
        if (sort)
            return int(track->isFavorite);
        return track->isFavorite ? QStringLiteral("★") : QStringLiteral("☆");
    case TitleColumn: return track->title;
    case ArtistColumn: return track->artist;
    case AlbumColumn: return track->album;
    case DurationColumn: return sort ? QVariant(track->duration) : QVariant(track->formattedDuration());
    case StationColumn: return track->station.value_or(QString());
    case DateAddedColumn:
        return sort ? QVariant(dateSortKey(track->dateAdded))
                    : QVariant(QLocale().toString(track->dateAdded.toLocalTime().date(), QLocale::ShortFormat) +
                               QLatin1Char(' ') + track->dateAdded.toLocalTime().toString(QStringLiteral("HH:mm")));
    case PlayCountColumn: return sort ? QVariant(track->playCount) : QVariant(QString::number(track->playCount));
    default: return {};
    }
}

void LibraryModel::setPlayingTrack(qint64 trackId)
{
    if (trackId == m_playingTrack)
        return;
    const int before = rowOf(m_playingTrack);
    m_playingTrack = trackId;
    for (const int row : {before, rowOf(trackId)}) {
        if (row >= 0)
            Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1), {Qt::FontRole});
    }
}

QVariant LibraryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (section == FavoriteColumn && role == Qt::ToolTipRole)
        return tx("lib.colFavorite");
    if (role != Qt::DisplayRole)
        return {};
    if (section == FavoriteColumn)
        return QStringLiteral("★");
    static constexpr const char *kKeys[ColumnCount] = {nullptr, "lib.colTitle",   "lib.colArtist",    "lib.colAlbum",
                                                      "lib.colDuration", "lib.colStation",   "lib.colDateAdded",
                                                      "lib.colPlayCount"};
    return section > FavoriteColumn && section < ColumnCount ? QVariant(tx(kKeys[section])) : QVariant();
}

Qt::ItemFlags LibraryModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.isValid())
        flags |= Qt::ItemIsDragEnabled;
    return flags;
}

QStringList LibraryModel::mimeTypes() const
{
    return {QString::fromLatin1(kTrackIdsMimeType)};
}

QMimeData *LibraryModel::mimeData(const QModelIndexList &indexes) const
{
    // One index per cell of each dragged row; the order of the rows is kept.
    QList<qint64> ids;
    QSet<int> seenRows;
    for (const QModelIndex &index : indexes) {
        const Track *track = trackAt(index.row());
        if (!track || seenRows.contains(index.row()))
            continue;
        seenRows.insert(index.row());
        ids << track->id;
    }
    return ids.isEmpty() ? nullptr : mimeDataFor(ids);
}

Qt::DropActions LibraryModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

QMimeData *LibraryModel::mimeDataFor(const QList<qint64> &trackIds)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << trackIds;
    auto *data = new QMimeData;
    data->setData(QString::fromLatin1(kTrackIdsMimeType), bytes);
    return data;
}

QList<qint64> LibraryModel::trackIds(const QMimeData *data)
{
    if (!data || !data->hasFormat(QString::fromLatin1(kTrackIdsMimeType)))
        return {};
    QDataStream stream(data->data(QString::fromLatin1(kTrackIdsMimeType)));
    QList<qint64> ids;
    stream >> ids;
    return stream.status() == QDataStream::Ok ? ids : QList<qint64>();
}
