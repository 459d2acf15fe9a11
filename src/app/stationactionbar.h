#pragma once

#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class QMenu;
class QPushButton;

// The row of buttons under a station list: listen or stop listening, record or stop, plan
// a recording, add to or remove from favourites. Acts on the station selected in the list
// it belongs to and follows the station heard, the favourites and the running recordings.
//
// Lives on the GUI thread.
class StationActionBar : public QWidget {
    Q_OBJECT

public:
    explicit StationActionBar(Application &app, QWidget *parent = nullptr);

    void setStation(const std::optional<Station> &station);
    [[nodiscard]] const std::optional<Station> &station() const { return m_station; }

    // The same actions for a list's context menu.
    static void addActions(QMenu &menu, Application &app, const Station &station);
    // Listens to the station, or stops listening when it is the one heard.
    static void toggleListening(Application &app, const Station &station);
    static void toggleRecording(Application &app, const Station &station);
    static void toggleFavorite(Application &app, const Station &station);
    // Opens the scheduling dialog for the station, modal over `parent`.
    static void openScheduleDialog(Application &app, const Station &station, QWidget *parent);
    // Opens the station's recording settings (its engine override), modal over `parent`.
    static void openEngineSheet(Application &app, const Station &station, QWidget *parent);

    QPushButton *listenButton() const { return m_listen; }
    QPushButton *recordButton() const { return m_record; }
    QPushButton *favoriteButton() const { return m_favorite; }
    QPushButton *scheduleButton() const { return m_schedule; }

private:
    void refresh();

    Application &m_app;
    std::optional<Station> m_station;
    QPushButton *m_listen = nullptr;
    QPushButton *m_record = nullptr;
    QPushButton *m_schedule = nullptr;
    QPushButton *m_favorite = nullptr;
};
