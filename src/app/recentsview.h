#pragma once

#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class QStackedWidget;
class QTableView;
class StationActionBar;
class StationTableModel;

// The stations played or recorded last, most recent first, with the station actions.
//
// Lives on the GUI thread.
class RecentsView : public QWidget {
    Q_OBJECT

public:
    explicit RecentsView(Application &app, QWidget *parent = nullptr);

    QTableView *table() const { return m_table; }
    StationTableModel *model() const { return m_model; }

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

private:
    void refresh();
    [[nodiscard]] std::optional<Station> selectedStation() const;

    Application &m_app;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTableView *m_table = nullptr;
    StationTableModel *m_model = nullptr;
    StationActionBar *m_actions = nullptr;
};
