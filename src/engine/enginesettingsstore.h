#pragma once

#include "engine/radioenginesettings.h"
#include "platform/statefile.h"

#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

class FileWatch;

// The engine settings as the settings screen and the per-station sheet edit them: the
// global record and the per-station overrides, mirrored from the preferences and written
// back on every change.
//
// Lives on the GUI thread and is changed there only. Recording sessions do not read it:
// they call RadioEngineSettings::effective(), which goes to the preferences directly, so
// whatever this store persists applies from their next song on.
//
// The window and orvida-cli both write these keys. A change reads the overrides from the
// file under its lock and changes only the one record it is about, so an override another
// process set meanwhile stays; what others change is read in when the file changes and
// announced with changed().
class EngineSettingsStore : public QObject {
    Q_OBJECT

public:
    explicit EngineSettingsStore(QObject *parent = nullptr);
    ~EngineSettingsStore() override;

    [[nodiscard]] const RadioEngineSettings &global() const { return m_global; }
    [[nodiscard]] const QMap<QString, RadioEngineSettings> &overrides() const { return m_overrides; }

    // The station's override when it has one, else the global record.
    [[nodiscard]] RadioEngineSettings settings(const QString &stationId) const;
    [[nodiscard]] bool hasOverride(const QString &stationId) const;

    // Each clamps the record, stores it and persists; the store always writes, even when
    // nothing changed, so the preferences end up in the form this version writes. A failed
    // write changes nothing in memory; the result says why (also sent as storageProblem()).
    [[nodiscard]] StateResult setGlobal(const RadioEngineSettings &settings);
    [[nodiscard]] StateResult setStation(const QString &stationId, const RadioEngineSettings &settings);
    [[nodiscard]] StateResult resetStation(const QString &stationId);

    // Reads the preferences again now; changed() when another process changed them.
    void reload();

Q_SIGNALS:
    // The global record or an override changed in memory.
    void changed();
    // A write failed, or a damaged preferences file was kept aside: one line naming it.
    void storageProblem(const QString &message);

private:
    // Rewrites the overrides map as the file holds it now with `edit` applied.
    StateResult changeOverrides(const std::function<void(QMap<QString, RadioEngineSettings> &)> &edit);
    StateResult reported(StateResult result);

    RadioEngineSettings m_global;
    QMap<QString, RadioEngineSettings> m_overrides;
    FileWatch *m_watch;
};
