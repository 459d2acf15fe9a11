#include "stations/favoritestations.h"

#include "platform/filewatch.h"
#include "platform/paths.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>

namespace {

// The stations of a favourites document: a bare array of objects, or an object whose
// "stations" is one. Anything else is a damaged file.
std::optional<QJsonArray> storedObjects(const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    QJsonArray array;
    if (doc.isArray()) {
        array = doc.array();
    } else if (doc.isObject() && doc.object().value(QLatin1String("stations")).isArray()) {
        array = doc.object().value(QLatin1String("stations")).toArray();
    } else {
        return std::nullopt;
    }
    const bool allObjects = std::all_of(array.begin(), array.end(), [](const QJsonValue &v) { return v.isObject(); });
    if (!allObjects)
        return std::nullopt;
    return array;
}

// One station as an element of the file's pretty-printed array, indented as QJsonDocument
// indents depth one, so joining the elements gives what encoding the whole array would.
// QJsonObject keeps its keys sorted, so each station's keys are written in order.
QByteArray encodedElement(const Station &station)
{
    const QByteArray single = QJsonDocument(QJsonArray { FavoriteStations::record(station) }).toJson();
    return single.mid(2, single.size() - 5); // without "[\n" and "\n]\n"
}

} // namespace

FavoriteStations::FavoriteStations(std::optional<QString> filePath, QObject *parent)
    : QObject(parent)
    , m_filePath(std::move(filePath))
{
    if (!m_filePath)
        return;
    m_file.emplace(*m_filePath);
    m_watch = new FileWatch(*m_filePath, this);
    connect(m_watch, &FileWatch::changed, this, &FavoriteStations::reload);
    const StateResult loaded = change([](QList<Station> &) { return false; });
    m_loadProblem = loaded.ok ? loaded.notice : loaded.error;
    // Encoded now rather than on the first change, which the user would wait for.
    for (const Station &s : m_list)
        m_encoded.insert(s.id, { s, encodedElement(s) });
}

FavoriteStations::~FavoriteStations() = default;

std::optional<QString> FavoriteStations::defaultFilePath()
{
    if (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).isEmpty())
        return std::nullopt;
    return Paths::supportFile(QStringLiteral("favorites.json"));
}

std::optional<qsizetype> FavoriteStations::indexOf(const QString &stationId) const
{
    if (!m_ids.contains(stationId))
        return std::nullopt;
    const auto it = std::find_if(m_list.cbegin(), m_list.cend(), [&](const Station &s) { return s.id == stationId; });
    return it - m_list.cbegin();
}

StateResult FavoriteStations::add(const Station &station)
{
    Q_ASSERT(QThread::currentThread() == thread());
    return change([&](QList<Station> &list) {
        const auto it = std::find_if(list.begin(), list.end(), [&](const Station &s) { return s.id == station.id; });
        if (it == list.end()) {
            list.append(station);
            return true;
        }
        if (*it == station)
            return false;
        *it = station;
        return true;
    });
}

StateResult FavoriteStations::remove(const QString &stationId)
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_encoded.remove(stationId);
    return change([&](QList<Station> &list) {
        return list.removeIf([&](const Station &s) { return s.id == stationId; }) > 0;
    });
}

StateResult FavoriteStations::move(const QList<int> &fromOffsets, int toOffset)
{
    Q_ASSERT(QThread::currentThread() == thread());
    // Positions are ours; the file may have changed since the user saw them. The move is
    // carried over by identity: these stations go before the first station that stays
    // and was at or after the destination, or to the end.
    const qsizetype count = m_list.size();
    QSet<QString> moving;
    for (const int offset : fromOffsets) {
        if (offset >= 0 && offset < count)
            moving.insert(m_list.at(offset).id);
    }
    std::optional<QString> before;
    for (qsizetype i = std::clamp<qsizetype>(toOffset, 0, count); i < count; ++i) {
        if (!moving.contains(m_list.at(i).id)) {
            before = m_list.at(i).id;
            break;
        }
    }
    return change([&](QList<Station> &list) {
        QList<Station> kept;
        QList<Station> moved;
        for (const Station &s : std::as_const(list))
            (moving.contains(s.id) ? moved : kept).append(s);
        qsizetype insertAt = kept.size();
        if (before) {
            const auto it = std::find_if(kept.cbegin(), kept.cend(), [&](const Station &s) { return s.id == *before; });
            insertAt = it - kept.cbegin();
        }
        QList<Station> reordered;
        reordered.reserve(list.size());
        reordered.append(kept.mid(0, insertAt));
        reordered.append(moved);
        reordered.append(kept.mid(insertAt));
        list = std::move(reordered);
        return true; // a move always saves
    });
}

StateResult FavoriteStations::move(const QStringList &stationIds, int toOffset)
{
    const QSet<QString> wanted(stationIds.cbegin(), stationIds.cend());
    QList<int> offsets;
    for (qsizetype i = 0; i < m_list.size(); ++i) {
        if (wanted.contains(m_list.at(i).id))
            offsets.append(int(i));
    }
    return move(offsets, toOffset);
}

void FavoriteStations::reload()
{
    if (!m_file)
        return;
    report(change([](QList<Station> &) { return false; }));
}

QList<Station> FavoriteStations::favoritesFirst(const QList<Station> &stations) const
{
    if (m_ids.isEmpty() || stations.isEmpty())
        return stations;
    QList<Station> ordered;
    ordered.reserve(stations.size());
    for (const Station &s : stations) {
        if (m_ids.contains(s.id))
            ordered.append(s);
    }
    for (const Station &s : stations) {
        if (!m_ids.contains(s.id))
            ordered.append(s);
    }
    return ordered;
}

QJsonObject FavoriteStations::record(const Station &station)
{
    return station.storedObject();
}

StateResult FavoriteStations::change(const std::function<bool(QList<Station> &)> &edit)
{
    QList<Station> list = m_list;
    if (!m_file) {
        if (edit(list))
            setList(std::move(list));
        return {};
    }
    std::optional<QByteArray> written;
    const StateResult result = m_file->access([&](const QByteArray *bytes) {
        StateFile::Access access;
        list.clear();
        if (bytes && m_lastBytes && *bytes == *m_lastBytes) {
            list = m_list; // unchanged since we last saw it
        } else if (bytes) {
            const auto objects = storedObjects(*bytes);
            if (!objects) {
                access.damage = StateFile::Damage::Whole;
            } else {
                // Entries the station builder rejects are dropped; of two entries with the
                // same id the first keeps its place.
                QSet<QString> seen;
                for (const QJsonValue &value : *objects) {
                    auto station = Station::json(value.toObject());
                    if (!station) {
                        access.damage = StateFile::Damage::Partly;
                        continue;
                    }
                    if (seen.contains(station->id))
                        continue;
                    seen.insert(station->id);
                    list.append(std::move(*station));
                }
            }
        }
        if (edit(list) || access.damage == StateFile::Damage::Partly)
            access.write = written = encode(list);
        else
            written = bytes && access.damage == StateFile::Damage::None ? std::optional(*bytes) : std::nullopt;
        return access;
    });
    if (result.ok) {
        m_lastBytes = written;
        if (m_watch)
            m_watch->noteCurrent();
        if (list != m_list) {
            setList(std::move(list));
            Q_EMIT changed();
        }
    }
    if (!result.ok || !result.notice.isEmpty())
        report(result);
    return result;
}

void FavoriteStations::report(const StateResult &result)
{
    if (!result.notice.isEmpty())
        Q_EMIT storageProblem(result.notice);
    if (!result.ok)
        Q_EMIT storageProblem(result.error);
}

QByteArray FavoriteStations::encode(const QList<Station> &list)
{
    QByteArrayList elements;
    elements.reserve(list.size());
    for (const Station &s : list) {
        auto it = m_encoded.find(s.id);
        if (it == m_encoded.end() || it->first != s)
            it = m_encoded.insert(s.id, { s, encodedElement(s) });
        elements.append(it->second);
    }
    return list.isEmpty() ? QByteArray("[\n]\n") : "[\n" + elements.join(",\n") + "\n]\n";
}

void FavoriteStations::setList(QList<Station> list)
{
    m_list = std::move(list);
    m_ids.clear();
    for (const Station &s : m_list)
        m_ids.insert(s.id);
}
