#include "app/albumgridmodel.h"

#include "app/covercache.h"
#include "app/coverloader.h"

#include <QFuture>
#include <QImageReader>
#include <QPixmap>
#include <QtConcurrent/QtConcurrentRun>

namespace {

QString albumKey(const Track &track)
{
    return track.artist.toCaseFolded() + QChar(0x1f) + track.album.toCaseFolded();
}

QString albumKey(const AlbumGrouping::Album &album)
{
    return albumKey(album.tracks.constFirst());
}

} // namespace

namespace AlbumGrouping {

QList<Album> group(const QList<Track> &tracks)
{
    QList<Album> albums;
    QHash<QString, qsizetype> indexByKey;
    for (const Track &track : tracks) {
        const QString key = albumKey(track);
        auto found = indexByKey.constFind(key);
        if (found == indexByKey.cend()) {
            found = indexByKey.insert(key, albums.size());
            albums.append({track.album.isEmpty() ? track.artist : track.album, track.artist, {}});
        }
        albums[*found].tracks.append(track);
    }
    return albums;
}

} // namespace AlbumGrouping

AlbumGridModel::AlbumGridModel(CoverCache &covers, QObject *parent)
    : QAbstractListModel(parent)
    , m_covers(covers)
{
    connect(&m_covers, &CoverCache::coverLookedUp, this, &AlbumGridModel::coverFound);
}

void AlbumGridModel::setTracks(const QList<Track> &tracks)
{
    beginResetModel();
    m_albums = AlbumGrouping::group(tracks);
    m_rowByKey.clear();
    for (qsizetype row = 0; row < m_albums.size(); ++row)
        m_rowByKey.insert(albumKey(m_albums[row]), int(row));
    endResetModel();
}

const AlbumGrouping::Album *AlbumGridModel::albumAt(int row) const
{
    return row >= 0 && row < m_albums.size() ? &m_albums[row] : nullptr;
}

bool AlbumGridModel::hasCover(int row) const
{
    const AlbumGrouping::Album *album = albumAt(row);
    return album && !m_pictures.value(albumKey(*album)).isNull();
}

int AlbumGridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_albums.size());
}

QVariant AlbumGridModel::data(const QModelIndex &index, int role) const
{
    const AlbumGrouping::Album *album = albumAt(index.row());
    if (!album)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return album->title == album->artist || album->artist.isEmpty()
                   ? album->title
                   : album->title + QLatin1Char('\n') + album->artist;
    case Qt::ToolTipRole:
        return QStringLiteral("%1 — %2 (%3)").arg(album->title, album->artist).arg(album->tracks.size());
    case Qt::DecorationRole: {
        const QString key = albumKey(*album);
        if (const auto known = m_pictures.constFind(key); known != m_pictures.cend())
            return known->isNull() ? QIcon(CoverLoader::placeholder(kCoverPixels)) : *known;
        m_pictures.insert(key, QIcon());
        for (const Track &track : album->tracks) {
            if (!track.filePath || track.filePath->isEmpty())
                continue;
            if (const std::optional<QString> path = m_covers.coverPath(track))
                loadCover(key, *path);
            else
                m_keyByWaitingTrack.insert(track.id, key);
            break;
        }
        return QIcon(CoverLoader::placeholder(kCoverPixels));
    }
    default:
        return {};
    }
}

void AlbumGridModel::coverFound(qint64 trackId, const QString &path)
{
    const QString key = m_keyByWaitingTrack.take(trackId);
    if (!key.isEmpty() && !path.isEmpty())
        loadCover(key, path);
}

void AlbumGridModel::loadCover(const QString &key, const QString &path) const
{
    auto *self = const_cast<AlbumGridModel *>(this);
    QtConcurrent::run([path] {
        QImageReader reader(path);
        const QSize size = reader.size();
        // Large embedded pictures are decoded at the tile's size, not their own.
        if (size.isValid() && (size.width() > kCoverPixels || size.height() > kCoverPixels))
            reader.setScaledSize(size.scaled(kCoverPixels, kCoverPixels, Qt::KeepAspectRatio));
        return reader.read();
    }).then(self, [self, key](const QImage &image) {
        if (image.isNull())
            return;
        self->m_pictures.insert(key, QIcon(QPixmap::fromImage(image)));
        const int row = self->m_rowByKey.value(key, -1);
        if (row >= 0)
            Q_EMIT self->dataChanged(self->index(row), self->index(row), {Qt::DecorationRole});
    });
}
