#pragma once

#include "stations/station.h"

#include <QLatin1String>
#include <QList>
#include <QObject>

// The stations played last, most recent first: at most 30, no two with the same id, kept
// as full Station records under the preference "ov.recentStations" (a list of stored
// station maps) so a recent station plays without asking the directory again.
//
// Lives on the GUI thread, owned by the player state. Loaded at construction and written
// synchronously after every change; write failures are silent.
class RecentStations : public QObject {
    Q_OBJECT

public:
    static constexpr qsizetype kMaxCount = 30;
    static constexpr QLatin1String kPreferenceKey { "ov.recentStations" };

    explicit RecentStations(QObject *parent = nullptr);

    [[nodiscard]] const QList<Station> &list() const { return m_list; }

    // Notes the station as just played: it moves (or enters) at the front and the oldest
    // entry beyond the limit falls off.
    void add(const Station &station);
    // Forgets every entry with the station's id.
    void remove(const Station &station);

Q_SIGNALS:
    void changed();

private:
    void load();
    void save() const;

    QList<Station> m_list;
};
