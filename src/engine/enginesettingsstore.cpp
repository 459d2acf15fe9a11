#include "engine/enginesettingsstore.h"

#include "platform/filewatch.h"
#include "platform/paths.h"
#include "platform/preferences.h"

#include <QSettings>
#include <QThread>

namespace {

using Overrides = QMap<QString, RadioEngineSettings>;

// Absent when the stored map is there but does not decode.
std::optional<Overrides> storedOverrides(QSettings &settings)
{
    const auto bytes = Preferences::bytesOf(settings.value(EnginePreferenceKeys::kStations));
    if (!bytes)
        return Overrides();
    return RadioEngineSettings::decodeOverrides(*bytes);
}

} // namespace

EngineSettingsStore::EngineSettingsStore(QObject *parent)
    : QObject(parent)
    , m_global(RadioEngineSettings::loadGlobal())
    , m_overrides(RadioEngineSettings::loadStationOverrides())
    , m_watch(new FileWatch(Paths::preferencesFile(), this))
{
    connect(m_watch, &FileWatch::changed, this, &EngineSettingsStore::reload);
}

EngineSettingsStore::~EngineSettingsStore() = default;

RadioEngineSettings EngineSettingsStore::settings(const QString &stationId) const
{
    return m_overrides.value(stationId, m_global);
}

bool EngineSettingsStore::hasOverride(const QString &stationId) const
{
    return m_overrides.contains(stationId);
}

StateResult EngineSettingsStore::setGlobal(const RadioEngineSettings &settings)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const RadioEngineSettings record = settings.clamped();
    const StateResult written = Preferences::edit([&](QSettings &s) {
        s.setValue(EnginePreferenceKeys::kGlobal, record.toJson());
        // Older versions read only this key; keep it in step with the record.
        s.setValue(EnginePreferenceKeys::kMinRecordingDuration, record.minDurationSec);
    });
    if (written)
        reload();
    return reported(written);
}

StateResult EngineSettingsStore::setStation(const QString &stationId, const RadioEngineSettings &settings)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const RadioEngineSettings record = settings.clamped();
    return changeOverrides([&](Overrides &overrides) { overrides.insert(stationId, record); });
}

StateResult EngineSettingsStore::resetStation(const QString &stationId)
{
    Q_ASSERT(QThread::currentThread() == thread());
    return changeOverrides([&](Overrides &overrides) { overrides.remove(stationId); });
}

StateResult EngineSettingsStore::changeOverrides(const std::function<void(Overrides &)> &edit)
{
    const StateResult written = Preferences::edit(
        [&](QSettings &s) {
            // A map that does not decode was kept aside with the file; it starts over.
            Overrides overrides = storedOverrides(s).value_or(Overrides());
            edit(overrides);
            s.setValue(EnginePreferenceKeys::kStations, RadioEngineSettings::encodeOverrides(overrides));
        },
        [](QSettings &s) { return !storedOverrides(s); });
    if (written)
        reload();
    return reported(written);
}

StateResult EngineSettingsStore::reported(StateResult result)
{
    if (!result.notice.isEmpty())
        Q_EMIT storageProblem(result.notice);
    if (!result.ok)
        Q_EMIT storageProblem(result.error);
    return result;
}

void EngineSettingsStore::reload()
{
    m_watch->noteCurrent();
    RadioEngineSettings global = RadioEngineSettings::loadGlobal();
    Overrides overrides = RadioEngineSettings::loadStationOverrides();
    if (global == m_global && overrides == m_overrides)
        return;
    m_global = global;
    m_overrides = std::move(overrides);
    Q_EMIT changed();
}
