#include "app/librarymodel.h"

#include "app/texts.h"
#include "library/librarystore.h"

#include <QLocale>

LibraryModel::LibraryModel(LibraryStore *store, QObject *parent)
    : QAbstractTableModel(parent)
    , m_store(store)
{
    if (m_store)
        connect(m_store, &LibraryStore::tracksChanged, this, &LibraryModel::reload);
    reload();
}

void LibraryModel::reload()
{
    beginResetModel();
    m_tracks = m_store ? m_store->allTracks() : QList<Track>();
    endResetModel();
}

const Track *LibraryModel::trackAt(int row) const
{
    return row >= 0 && row < m_tracks.size() ? &m_tracks[row] : nullptr;
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
        return sort ? QVariant(track->dateAdded)
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

LibraryFilterModel::LibraryFilterModel(QObject *parent)
    : QSortFilterProxyModel(parent)
{
    setSortRole(LibraryModel::kSortRole);
    setSortCaseSensitivity(Qt::CaseInsensitive);
}

void LibraryFilterModel::setFilterText(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed == m_text)
        return;
    m_text = trimmed;
    invalidateFilter();
}

bool LibraryFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex &) const
{
    if (m_text.isEmpty())
        return true;
    const auto *library = qobject_cast<const LibraryModel *>(sourceModel());
    const Track *track = library ? library->trackAt(sourceRow) : nullptr;
    if (!track)
        return false;
    return track->title.contains(m_text, Qt::CaseInsensitive) || track->artist.contains(m_text, Qt::CaseInsensitive) ||
           track->album.contains(m_text, Qt::CaseInsensitive) ||
           track->station.value_or(QString()).contains(m_text, Qt::CaseInsensitive);
}
