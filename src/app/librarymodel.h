#pragma once

#include "library/track.h"

#include <QAbstractTableModel>
#include <QList>

class QMimeData;
class LibraryStore;

// Every library track as a table row: favourite star, title, artist, album, duration,
// station, date added, play count; the track the player plays is bold. The sort role
// carries the raw value so stars, durations, dates and counts sort as numbers
// (LibraryFilterModel sorts and filters the tracks' own fields). Rows drag out as a list
// of track ids (kTrackIdsMimeType), which the playlists accept.
//
// Lives on the GUI thread. Nothing is read until load(): the window builds the library
// page at start but shows it later, and 100,000 tracks are the most expensive thing on
// it. After that the model follows the store row by row (a saved song is one inserted
// row, a deleted track one removed row) instead of reloading everything. Rows stay in
// ascending id order, which is the store's insertion order, so a row is found by a
// binary search over ids.
class LibraryModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column {
        FavoriteColumn,
        TitleColumn,
        ArtistColumn,
        AlbumColumn,
        DurationColumn,
        StationColumn,
        DateAddedColumn,
        PlayCountColumn,
        ColumnCount
    };
    static constexpr int kSortRole = Qt::UserRole + 1;
    static constexpr int kTrackIdRole = Qt::UserRole + 2;

    static constexpr const char *kTrackIdsMimeType = "application/x-orvida-track-ids";

    explicit LibraryModel(LibraryStore *store, QObject *parent = nullptr);

    // Reads every track (again) and from then on follows the store's row signals.
    void load();
    [[nodiscard]] bool isLoaded() const { return m_loaded; }
    [[nodiscard]] const QList<Track> &tracks() const { return m_tracks; }
    [[nodiscard]] const Track *trackAt(int row) const;
    // -1 when the track is not (or not yet) listed.
    [[nodiscard]] int rowOf(qint64 trackId) const;
    // The track shown bold (0: none).
    void setPlayingTrack(qint64 trackId);
    // A track's newer fields (a play count the player raised), when it is listed.
    void updateTrack(const Track &track) { updateRow(track); }

    // The track ids a drag carries, in their order; empty for any other payload.
    [[nodiscard]] static QList<qint64> trackIds(const QMimeData *data);
    [[nodiscard]] static QMimeData *mimeDataFor(const QList<qint64> &trackIds);
    // Milliseconds since 1970, which compare faster than dates; an unknown date sorts as the oldest.
    [[nodiscard]] static qint64 dateSortKey(const QDateTime &date);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;

private:
    void insertRows(const QList<Track> &tracks);
    void updateRow(const Track &track);
    void removeRow(qint64 trackId);
    // The row where `trackId` is or would go.
    [[nodiscard]] qsizetype lowerBound(qint64 trackId) const;

    LibraryStore *m_store;
    QList<Track> m_tracks;
    bool m_loaded = false;
    qint64 m_playingTrack = 0;
};
