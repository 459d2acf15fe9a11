#include "engine/enginesettingsstore.h"

#include "platform/preferences.h"

#include <QThread>

EngineSettingsStore::EngineSettingsStore(QObject *parent)
    : QObject(parent)
    , m_global(RadioEngineSettings::loadGlobal())
    , m_overrides(RadioEngineSettings::loadStationOverrides())
{
}

RadioEngineSettings EngineSettingsStore::settings(const QString &stationId) const
{
    return m_overrides.value(stationId, m_global);
}

bool EngineSettingsStore::hasOverride(const QString &stationId) const
{
    return m_overrides.contains(stationId);
}

void EngineSettingsStore::setGlobal(const RadioEngineSettings &settings)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const RadioEngineSettings record = settings.clamped();
    const bool differs = record != m_global;
    m_global = record;
    Preferences::setValue(EnginePreferenceKeys::kGlobal, record.toJson());
    // Older versions read only this key; keep it in step with the record.
    Preferences::setValue(EnginePreferenceKeys::kMinRecordingDuration, record.minDurationSec);
    if (differs)
        Q_EMIT changed();
}

void EngineSettingsStore::setStation(const QString &stationId, const RadioEngineSettings &settings)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const RadioEngineSettings record = settings.clamped();
    const auto it = m_overrides.constFind(stationId);
    const bool differs = it == m_overrides.constEnd() || it.value() != record;
    m_overrides.insert(stationId, record);
    persistOverrides();
    if (differs)
        Q_EMIT changed();
}

void EngineSettingsStore::resetStation(const QString &stationId)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const bool differs = m_overrides.remove(stationId) > 0;
    persistOverrides();
    if (differs)
        Q_EMIT changed();
}

void EngineSettingsStore::persistOverrides()
{
    Preferences::setValue(EnginePreferenceKeys::kStations, RadioEngineSettings::encodeOverrides(m_overrides));
}
