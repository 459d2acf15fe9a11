#pragma once

#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class StationListPane;

// The stations played or recorded last, most recent first, with the station actions.
//
// Lives on the GUI thread.
class RecentsView : public QWidget {
    Q_OBJECT

public:
    explicit RecentsView(Application &app, QWidget *parent = nullptr);

    StationListPane *pane() const { return m_pane; }

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

private:
    void refresh();

    Application &m_app;
    StationListPane *m_pane = nullptr;
};
