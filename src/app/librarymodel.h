#pragma once

#include "library/track.h"

#include <QAbstractTableModel>
#include <QSortFilterProxyModel>
#include <QList>

class LibraryStore;

// Every library track as a table row: title, artist, album, duration, station, date
// added, play count. The display text of each cell is what the filter matches; the sort
// role carries the raw value so durations, dates and counts sort as numbers.
//
// Lives on the GUI thread and reloads the whole list when the store announces a change;
// 100,000 tracks are one query and one list, never a widget per row.
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

    explicit LibraryModel(LibraryStore *store, QObject *parent = nullptr);

    void reload();
    [[nodiscard]] const QList<Track> &tracks() const { return m_tracks; }
    [[nodiscard]] const Track *trackAt(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    LibraryStore *m_store;
    QList<Track> m_tracks;
};

// The library filter: a row stays when its title, artist, album or station contains the
// text (case-insensitive). A plain substring test per row keeps typing smooth at 100,000
// rows, where a regular expression over every column would not.
class LibraryFilterModel : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit LibraryFilterModel(QObject *parent = nullptr);
    void setFilterText(const QString &text);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;

private:
    QString m_text;
};
