#pragma once

#include "stations/station.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPointer>
#include <QList>
#include <QSet>

#include <functional>

class StationLogoCache;

// Rows of stations for the radio, favourites and recents views: name (with the station's
// logo), country, codec, bitrate and the badge for stations whose stream sends in-band
// song titles.
//
// Lives on the GUI thread. A list that extends the one shown (the next page of a search)
// is announced as inserted rows, so the view keeps its scroll position and selection.
// Sorted by a column, the rows keep that order as the list grows or changes; the list's
// own order breaks ties and comes back when the sort is cleared (column -1).
// Dragging rows carries their station ids; where a drop lands is left to `onDropIds`.
class StationTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { NameColumn, CountryColumn, CodecColumn, BitrateColumn, TitlesColumn, ColumnCount };
    static constexpr int kStationIdRole = Qt::UserRole + 1;
    static constexpr auto kIdsMimeType = "application/x-orvida-station-ids";

    explicit StationTableModel(QObject *parent = nullptr);

    void setStations(const QList<Station> &stations);
    // The rows in the order shown.
    [[nodiscard]] const QList<Station> &stations() const { return m_stations; }
    [[nodiscard]] const Station *stationAt(int row) const;
    [[nodiscard]] int rowOf(const QString &stationId) const;

    // Decorations that change without the list changing.
    void setIcyStatus(const QHash<QString, bool> &icy);
    void setIcy(const QString &stationId, bool icy);
    void setFavoriteIds(const QSet<QString> &ids);
    void setRecordingIds(const QSet<QString> &ids);
    // Stations with planned recordings: a clock and "fav.scheduled" after the name.
    void setScheduledIds(const QSet<QString> &ids);
    // Logos beside the names, asked for as rows are drawn; without a cache, no pictures.
    // A cache that goes away takes its logos along.
    void setLogoCache(StationLogoCache *logos);

    // Set to allow reordering by drag and drop; the ids and the row they were dropped
    // before (rowCount() for the end).
    std::function<void(const QStringList &, int)> onDropIds;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    [[nodiscard]] int sortColumn() const { return m_sortColumn; }
    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;

private:
    void refreshColumn(int column);
    void rebuildRowIndex();
    // Orders m_stations by the sort column, or as given without one, as a layout change
    // that keeps the selection on its stations.
    void applySort();
    [[nodiscard]] QList<Station> sorted(QList<Station> stations) const;

    QList<Station> m_given; // as set, the directory's ranking
    QList<Station> m_stations;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    QHash<QString, int> m_rowById;
    QHash<QString, bool> m_icy;
    QSet<QString> m_favoriteIds;
    QSet<QString> m_recordingIds;
    QSet<QString> m_scheduledIds;
    QPointer<StationLogoCache> m_logos;
};
