#pragma once

#include "engine/radioenginesettings.h"

#include <QMap>
#include <QObject>
#include <QString>

// The engine settings as the settings screen and the per-station sheet edit them: the
// global record and the per-station overrides, mirrored from the preferences at
// construction and written back on every change.
//
// Lives on the GUI thread and is changed there only. Recording sessions do not read it:
// they call RadioEngineSettings::effective(), which goes to the preferences directly, so
// whatever this store persists applies from their next song on.
class EngineSettingsStore : public QObject {
    Q_OBJECT

public:
    explicit EngineSettingsStore(QObject *parent = nullptr);

    [[nodiscard]] const RadioEngineSettings &global() const { return m_global; }
    [[nodiscard]] const QMap<QString, RadioEngineSettings> &overrides() const { return m_overrides; }

    // The station's override when it has one, else the global record.
    [[nodiscard]] RadioEngineSettings settings(const QString &stationId) const;
    [[nodiscard]] bool hasOverride(const QString &stationId) const;

    // Each clamps the record, stores it and persists; the store always writes, even when
    // nothing changed, so the preferences end up in the form this version writes.
    void setGlobal(const RadioEngineSettings &settings);
    void setStation(const QString &stationId, const RadioEngineSettings &settings);
    void resetStation(const QString &stationId);

Q_SIGNALS:
    // The global record or an override changed in memory.
    void changed();

private:
    void persistOverrides();

    RadioEngineSettings m_global;
    QMap<QString, RadioEngineSettings> m_overrides;
};
