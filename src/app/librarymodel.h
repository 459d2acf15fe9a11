#pragma once

#include "library/track.h"

#include <QAbstractTableModel>
#include <QList>
#include <QSortFilterProxyModel>

class QMimeData;
class LibraryStore;

// Every library track as a table row: title, artist, album, duration, station, date
// added, play count. The display text of each cell is what the filter matches; the sort
// role carries the raw value so durations, dates and counts sort as numbers. Rows drag
// out as a list of track ids (kTrackIdsMimeType), which the playlists accept.
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

    // The track ids a drag carries, in their order; empty for any other payload.
    [[nodiscard]] static QList<qint64> trackIds(const QMimeData *data);
    [[nodiscard]] static QMimeData *mimeDataFor(const QList<qint64> &trackIds);

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
};

// The library filter: a row stays when its title, artist, album or station contains the
// text (case-insensitive). A plain substring test per row keeps typing smooth at 100,000
// rows, where a regular expression over every column would not. Typing on (a longer text
// that contains the last one) tests only the rows still shown. Sorting compares the
// tracks' fields directly instead of going through data() and QVariant, which is most
// of the cost when many rows come back as the text is deleted.
class LibraryFilterModel : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit LibraryFilterModel(QObject *parent = nullptr);
    void setSourceModel(QAbstractItemModel *model) override;
    void setFilterText(const QString &text);
    [[nodiscard]] static bool matches(const Track &track, const QString &text);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;
    bool lessThan(const QModelIndex &sourceLeft, const QModelIndex &sourceRight) const override;

private:
    const LibraryModel *m_library = nullptr;
    QString m_text;
    // While a narrowing text is applied: the source rows that still match. Empty otherwise.
    QList<bool> m_narrowed;
};
