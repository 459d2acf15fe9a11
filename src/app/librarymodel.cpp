#include "app/librarymodel.h"

#include "app/texts.h"
#include "library/librarystore.h"

#include <QDataStream>
#include <QIODevice>
#include <QLocale>
#include <QMimeData>
#include <QSet>

#include <algorithm>
#include <limits>

namespace {

// Milliseconds compare faster than dates, and an unknown date sorts as the oldest.
qint64 dateSortKey(const QDateTime &date)
{
    return date.isValid() ? date.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

} // namespace

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
    if (role != Qt::DisplayRole && role != kSortRole)
        return {};
    const bool sort = role == kSortRole;
    switch (index.column()) {
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

QVariant LibraryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static constexpr const char *kKeys[ColumnCount] = {"lib.colTitle",   "lib.colArtist",    "lib.colAlbum",
                                                      "lib.colDuration", "lib.colStation",   "lib.colDateAdded",
                                                      "lib.colPlayCount"};
    return section >= 0 && section < ColumnCount ? QVariant(tx(kKeys[section])) : QVariant();
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

LibraryFilterModel::LibraryFilterModel(QObject *parent)
    : QSortFilterProxyModel(parent)
{
    setSortRole(LibraryModel::kSortRole);
    setSortCaseSensitivity(Qt::CaseInsensitive);
}

void LibraryFilterModel::setSourceModel(QAbstractItemModel *model)
{
    // Once here instead of a qobject_cast in each of the millions of filter and sort calls.
    m_library = qobject_cast<LibraryModel *>(model);
    QSortFilterProxyModel::setSourceModel(model);
}

void LibraryFilterModel::setFilterText(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed == m_text)
        return;
    const LibraryModel *library = m_library;
    // Walking the shown rows costs about as much per row as testing a source row, so it
    // pays only when the last text already hid most of the library.
    const bool narrowing = library && !m_text.isEmpty() && trimmed.contains(m_text, Qt::CaseInsensitive)
                           && rowCount() < library->rowCount() / 2;
    m_text = trimmed;
    if (narrowing) {
        // Rows hidden now stay hidden: only the shown ones need the substring test.
        m_narrowed = QList<bool>(library->rowCount(), false);
        for (int row = 0; row < rowCount(); ++row) {
            const int sourceRow = mapToSource(index(row, 0)).row();
            if (const Track *track = library->trackAt(sourceRow))
                m_narrowed[sourceRow] = matches(*track, m_text);
        }
    }
    invalidateFilter();
    m_narrowed.clear();
}

bool LibraryFilterModel::matches(const Track &track, const QString &text)
{
    return track.title.contains(text, Qt::CaseInsensitive) || track.artist.contains(text, Qt::CaseInsensitive)
           || track.album.contains(text, Qt::CaseInsensitive)
           || (track.station && track.station->contains(text, Qt::CaseInsensitive));
}

bool LibraryFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex &) const
{
    if (m_text.isEmpty())
        return true;
    if (!m_narrowed.isEmpty())
        return sourceRow < m_narrowed.size() && m_narrowed[sourceRow];
    const Track *track = m_library ? m_library->trackAt(sourceRow) : nullptr;
    return track && matches(*track, m_text);
}

bool LibraryFilterModel::lessThan(const QModelIndex &sourceLeft, const QModelIndex &sourceRight) const
{
    const Track *a = m_library ? m_library->trackAt(sourceLeft.row()) : nullptr;
    const Track *b = m_library ? m_library->trackAt(sourceRight.row()) : nullptr;
    if (!a || !b)
        return QSortFilterProxyModel::lessThan(sourceLeft, sourceRight);
    auto text = [](const QString &x, const QString &y) { return QString::compare(x, y, Qt::CaseInsensitive) < 0; };
    switch (sourceLeft.column()) {
    case LibraryModel::TitleColumn: return text(a->title, b->title);
    case LibraryModel::ArtistColumn: return text(a->artist, b->artist);
    case LibraryModel::AlbumColumn: return text(a->album, b->album);
    case LibraryModel::DurationColumn: return a->duration < b->duration;
    case LibraryModel::StationColumn: return text(a->station.value_or(QString()), b->station.value_or(QString()));
    case LibraryModel::DateAddedColumn:
        return dateSortKey(a->dateAdded) < dateSortKey(b->dateAdded);
    case LibraryModel::PlayCountColumn: return a->playCount < b->playCount;
    default: return QSortFilterProxyModel::lessThan(sourceLeft, sourceRight);
    }
}
