#pragma once

#include "stations/station.h"

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// The user's favourite stations in the user's order, kept as full Station records in
// "favorites.json" (a pretty-printed JSON array of stored station objects) so that a
// favourite plays or records without asking the directory again. No two share an id.
//
// Lives on the GUI thread. The file is small and written synchronously, atomically,
// after every change; write failures leave the list in memory as it is. A file that
// cannot be read or parsed never blocks the start: it is moved aside to
// "favorites.corrupt.json" and the list starts empty.
class FavoriteStations : public QObject {
    Q_OBJECT

public:
    // Loads the file at `fileUrl`; without a location the list lives in memory only.
    explicit FavoriteStations(std::optional<QString> fileUrl, QObject *parent = nullptr);

    // "favorites.json" in the support folder; absent when there is no data location.
    // Creates nothing.
    [[nodiscard]] static std::optional<QString> defaultFileUrl();

    [[nodiscard]] const std::optional<QString> &fileUrl() const { return m_fileUrl; }
    [[nodiscard]] const QList<Station> &list() const { return m_list; }
    [[nodiscard]] const QSet<QString> &ids() const { return m_ids; }
    [[nodiscard]] bool isFavorite(const QString &stationId) const { return m_ids.contains(stationId); }
    [[nodiscard]] std::optional<qsizetype> indexOf(const QString &stationId) const;

    // Appends a new favourite, or refreshes an existing one in place. Re-adding an
    // identical record changes and writes nothing.
    void add(const Station &station);
    void remove(const QString &stationId);

    // Drag and drop within the list: the stations at `fromOffsets` (positions outside the
    // list are ignored) keep their relative order and land before the station that was at
    // `toOffset` before the move, or at the end when `toOffset` is the list's length.
    // `toOffset` beyond either end is taken as that end. Always saves.
    void move(const QList<int> &fromOffsets, int toOffset);
    // The same for dragged station ids; unknown ids are ignored.
    void move(const QStringList &stationIds, int toOffset);

    // The given stations with the favourites among them first, both parts in input order.
    [[nodiscard]] QList<Station> favoritesFirst(const QList<Station> &stations) const;

    // The stored object of one station, as written to the file.
    [[nodiscard]] static QJsonObject record(const Station &station);

    // Where a damaged file at `fileUrl` is moved: same folder, ".corrupt.json" in place of
    // its last extension.
    [[nodiscard]] static QString quarantineUrl(const QString &fileUrl);

Q_SIGNALS:
    void changed();

private:
    void load();
    void save();
    void quarantine(const QString &fileUrl) const;
    void setList(QList<Station> list);

    std::optional<QString> m_fileUrl;
    QList<Station> m_list;
    QSet<QString> m_ids;
    // Each favourite's element of the file as last encoded, with the record it encodes.
    // Encoding 1,000 stations costs milliseconds, paid once while loading; a save after a
    // move or a single add only joins these, and the stored record tells when an entry
    // is out of date.
    QHash<QString, std::pair<Station, QByteArray>> m_encoded;
};
