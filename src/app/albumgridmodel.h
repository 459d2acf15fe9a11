#pragma once

#include "library/track.h"

#include <QAbstractListModel>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QSet>

class CoverCache;

namespace AlbumGrouping {

struct Album {
    QString title;  // the album's name; the artist's when the tracks name no album
    QString artist;
    QList<Track> tracks; // in the order they were given
};

// The tracks grouped into albums by artist and album name (case-insensitive), in the
// order each album first appears. Tracks without an album gather under their artist.
[[nodiscard]] QList<Album> group(const QList<Track> &tracks);

} // namespace AlbumGrouping

// The library as a grid of albums: one tile per album with its cover (the picture of its
// first track with a file, embedded or beside it), its name and artist. It is given the
// tracks the library table shows, filtered and sorted, so both views show the same songs.
//
// Lives on the GUI thread. Covers are found by the CoverCache and decoded on the global
// pool; a tile shows the placeholder until its picture is there.
class AlbumGridModel : public QAbstractListModel {
    Q_OBJECT

public:
    static constexpr int kCoverPixels = 128; // device pixels of a tile's picture

    // `covers` must outlive the model.
    explicit AlbumGridModel(CoverCache &covers, QObject *parent = nullptr);

    // The tracks shown, in order; called again whenever the source changes.
    void setTracks(const QList<Track> &tracks);
    [[nodiscard]] const AlbumGrouping::Album *albumAt(int row) const;
    [[nodiscard]] bool hasCover(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;

private:
    void coverFound(qint64 trackId, const QString &path);
    void loadCover(const QString &key, const QString &path) const;

    CoverCache &m_covers;
    QList<AlbumGrouping::Album> m_albums;
    QHash<QString, int> m_rowByKey;
    // Album key -> its picture, null while loading or when it has none; a key that is
    // absent has not been looked for.
    mutable QHash<QString, QIcon> m_pictures;
    mutable QHash<qint64, QString> m_keyByWaitingTrack; // cover look-ups under way
};
