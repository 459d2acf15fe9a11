#include "stations/recentstations.h"

#include "platform/preferences.h"

#include <QJsonObject>
#include <QSet>
#include <QThread>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <algorithm>

RecentStations::RecentStations(QObject *parent)
    : QObject(parent)
{
    load();
}

void RecentStations::add(const Station &station)
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_list.removeIf([&](const Station &s) { return s.id == station.id; });
    m_list.prepend(station);
    if (m_list.size() > kMaxCount)
        m_list.resize(kMaxCount);
    save();
    Q_EMIT changed();
}

void RecentStations::remove(const Station &station)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const qsizetype removed = m_list.removeIf([&](const Station &s) { return s.id == station.id; });
    save();
    if (removed > 0)
        Q_EMIT changed();
}

void RecentStations::load()
{
    const QVariant stored = Preferences::value(kPreferenceKey);
    if (stored.typeId() != QMetaType::QVariantList)
        return;
    const QVariantList entries = stored.toList();
    const bool allMaps = std::all_of(
        entries.cbegin(), entries.cend(), [](const QVariant &v) { return v.typeId() == QMetaType::QVariantMap; });
    if (!allMaps)
        return;
    // Entries the station builder rejects are skipped. A hand-edited list may repeat an id
    // or run long; the first occurrences win so the list keeps its shape.
    QSet<QString> seen;
    for (const QVariant &entry : entries) {
        auto station = Station::json(QJsonObject::fromVariantMap(entry.toMap()));
        if (!station || seen.contains(station->id))
            continue;
        seen.insert(station->id);
        m_list.append(std::move(*station));
        if (m_list.size() == kMaxCount)
            break;
    }
}

void RecentStations::save() const
{
    QVariantList entries;
    entries.reserve(m_list.size());
    for (const Station &s : m_list)
        entries.append(s.storedObject().toVariantMap());
    Preferences::setValue(kPreferenceKey, entries);
}
