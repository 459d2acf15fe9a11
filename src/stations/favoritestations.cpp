#include "stations/favoritestations.h"

#include "platform/atomicfile.h"
#include "platform/paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <vector>

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

FavoriteStations::FavoriteStations(std::optional<QString> fileUrl, QObject *parent)
    : QObject(parent)
    , m_fileUrl(std::move(fileUrl))
{
    load();
}

std::optional<QString> FavoriteStations::defaultFileUrl()
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

void FavoriteStations::add(const Station &station)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (const auto index = indexOf(station.id)) {
        if (m_list.at(*index) == station)
            return;
        m_list[*index] = station;
    } else {
        m_list.append(station);
        m_ids.insert(station.id);
    }
    save();
    Q_EMIT changed();
}

void FavoriteStations::remove(const QString &stationId)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_ids.contains(stationId))
        return;
    m_list.removeIf([&](const Station &s) { return s.id == stationId; });
    m_ids.remove(stationId);
    m_encoded.remove(stationId);
    save();
    Q_EMIT changed();
}

void FavoriteStations::move(const QList<int> &fromOffsets, int toOffset)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const qsizetype count = m_list.size();
    std::vector<bool> moving(size_t(count), false);
    for (const int offset : fromOffsets) {
        if (offset >= 0 && offset < count)
            moving[size_t(offset)] = true;
    }
    // The destination counts positions in the list before the moved stations are taken out.
    const qsizetype destination = std::clamp<qsizetype>(toOffset, 0, count);
    QList<Station> kept;
    QList<Station> moved;
    qsizetype insertAt = 0;
    for (qsizetype i = 0; i < count; ++i) {
        if (moving[size_t(i)]) {
            moved.append(m_list.at(i));
        } else {
            kept.append(m_list.at(i));
            if (i < destination)
                ++insertAt;
        }
    }
    QList<Station> reordered;
    reordered.reserve(count);
    reordered.append(kept.mid(0, insertAt));
    reordered.append(moved);
    reordered.append(kept.mid(insertAt));

    const bool differs = reordered != m_list;
    m_list = std::move(reordered);
    save();
    if (differs)
        Q_EMIT changed();
}

void FavoriteStations::move(const QStringList &stationIds, int toOffset)
{
    const QSet<QString> wanted(stationIds.cbegin(), stationIds.cend());
    QList<int> offsets;
    for (qsizetype i = 0; i < m_list.size(); ++i) {
        if (wanted.contains(m_list.at(i).id))
            offsets.append(int(i));
    }
    move(offsets, toOffset);
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

QString FavoriteStations::quarantineUrl(const QString &fileUrl)
{
    const QFileInfo info(fileUrl);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral(".corrupt.json"));
}

void FavoriteStations::load()
{
    if (!m_fileUrl || !QFileInfo::exists(*m_fileUrl))
        return;
    const auto bytes = AtomicFile::read(*m_fileUrl);
    const auto objects = bytes ? storedObjects(*bytes) : std::nullopt;
    if (!objects) {
        quarantine(*m_fileUrl);
        return;
    }
    // Entries the station builder rejects are dropped one by one; of two entries with the
    // same id the first keeps its place.
    QList<Station> list;
    QSet<QString> seen;
    for (const QJsonValue &value : *objects) {
        auto station = Station::json(value.toObject());
        if (!station || seen.contains(station->id))
            continue;
        seen.insert(station->id);
        list.append(std::move(*station));
    }
    setList(std::move(list));
    // Encoded now rather than on the first change, which the user would wait for.
    for (const Station &s : m_list)
        m_encoded.insert(s.id, { s, encodedElement(s) });
}

void FavoriteStations::save()
{
    if (!m_fileUrl)
        return;
    QByteArrayList elements;
    elements.reserve(m_list.size());
    for (const Station &s : m_list) {
        auto it = m_encoded.find(s.id);
        if (it == m_encoded.end() || it->first != s)
            it = m_encoded.insert(s.id, { s, encodedElement(s) });
        elements.append(it->second);
    }
    const QByteArray file = m_list.isEmpty() ? QByteArray("[\n]\n") : "[\n" + elements.join(",\n") + "\n]\n";
    // A failed write leaves the list in memory; the next change tries again.
    (void)AtomicFile::write(*m_fileUrl, file);
}

void FavoriteStations::quarantine(const QString &fileUrl) const
{
    // Both steps are best effort: the list starts empty either way and the next save
    // writes a fresh file over whatever is left.
    const QString target = quarantineUrl(fileUrl);
    const QFileInfo existing(target);
    if (existing.isDir() && !existing.isSymLink())
        QDir(target).removeRecursively();
    else
        QFile::remove(target);
    QDir().rename(fileUrl, target);
}

void FavoriteStations::setList(QList<Station> list)
{
    m_list = std::move(list);
    m_ids.clear();
    for (const Station &s : m_list)
        m_ids.insert(s.id);
}
