#pragma once

#include "platform/statefile.h"
#include "stations/station.h"

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class FileWatch;

// The user's favourite stations in the user's order, kept as full Station records in
// "favorites.json" (a pretty-printed JSON array of stored station objects) so that a
// favourite plays or records without asking the directory again. No two share an id.
//
// Lives on the GUI thread. The window and orvida-cli share the file: every change is made
// to what the file holds at that moment, under its lock (StateFile), and written at once;
// a change another process makes is read in when the file changes and announced with
// changed(). A failed write changes nothing in memory either and is returned to the
// caller. A file that cannot be read or parsed never blocks the start: it is set aside
// as "favorites.corrupt.json" (numbered when that exists) and the list starts empty;
// entries the station builder rejects are dropped and the file as it was is kept the
// same way.
class FavoriteStations : public QObject {
    Q_OBJECT

public:
    // Loads the file at `filePath`; without a location the list lives in memory only.
    explicit FavoriteStations(std::optional<QString> filePath, QObject *parent = nullptr);
    ~FavoriteStations() override;

    // "favorites.json" in the support folder; absent when there is no data location.
    // Creates nothing.
    [[nodiscard]] static std::optional<QString> defaultFilePath();

    [[nodiscard]] const std::optional<QString> &filePath() const { return m_filePath; }
    // What loading had to report (damaged content set aside, an unreadable file); empty
    // when nothing. Also sent as storageProblem(), which nobody hears during construction.
    [[nodiscard]] const QString &loadProblem() const { return m_loadProblem; }
    [[nodiscard]] const QList<Station> &list() const { return m_list; }
    [[nodiscard]] const QSet<QString> &ids() const { return m_ids; }
    [[nodiscard]] bool isFavorite(const QString &stationId) const { return m_ids.contains(stationId); }
    [[nodiscard]] std::optional<qsizetype> indexOf(const QString &stationId) const;

    // Each change is applied to the file's current list and written. Failed: the list
    // stays as it was and the result says why (also sent as storageProblem()).

    // Appends a new favourite, or refreshes an existing one in place. Re-adding an
    // identical record changes and writes nothing.
    [[nodiscard]] StateResult add(const Station &station);
    [[nodiscard]] StateResult remove(const QString &stationId);

    // Drag and drop within the list: the stations at `fromOffsets` (positions outside the
    // list are ignored) keep their relative order and land before the station that was at
    // `toOffset` before the move, or at the end when `toOffset` is the list's length.
    // `toOffset` beyond either end is taken as that end. Always saves.
    [[nodiscard]] StateResult move(const QList<int> &fromOffsets, int toOffset);
    // The same for dragged station ids; unknown ids are ignored.
    [[nodiscard]] StateResult move(const QStringList &stationIds, int toOffset);

    // Reads the file again now; changed() when another process changed the list.
    void reload();

    // The given stations with the favourites among them first, both parts in input order.
    [[nodiscard]] QList<Station> favoritesFirst(const QList<Station> &stations) const;

    // The stored object of one station, as written to the file.
    [[nodiscard]] static QJsonObject record(const Station &station);

Q_SIGNALS:
    void changed();
    // A write failed, or damaged content was set aside: one line naming the file.
    void storageProblem(const QString &message);

private:
    // Applies `edit` to the file's list (ours without a file) and writes the result when
    // `edit` says it changed something.
    StateResult change(const std::function<bool(QList<Station> &)> &edit);
    [[nodiscard]] QByteArray encode(const QList<Station> &list);
    void setList(QList<Station> list);
    void report(const StateResult &result);

    std::optional<QString> m_filePath;
    std::optional<StateFile> m_file;
    FileWatch *m_watch = nullptr;
    QString m_loadProblem;
    // The file's content as we last read or wrote it: when it is still that, the list
    // in memory is what it holds and need not be parsed again.
    std::optional<QByteArray> m_lastBytes;
    QList<Station> m_list;
    QSet<QString> m_ids;
    // Each favourite's element of the file as last encoded, with the record it encodes.
    // Encoding 1,000 stations costs milliseconds, paid once while loading; a save after a
    // move or a single add only joins these, and the stored record tells when an entry
    // is out of date.
    QHash<QString, std::pair<Station, QByteArray>> m_encoded;
};
