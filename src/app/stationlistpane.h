#pragma once

#include "stations/station.h"

#include <QWidget>

#include <functional>
#include <optional>

class Application;
class QMenu;
class QStackedWidget;
class QTableView;
class StationActionBar;
class StationTableModel;

// A list of stations as the radio, favourites and recents pages show it: the table (or
// an empty state in its place), the action buttons for the selected row, Enter or a double
// click to listen to a row, and a context menu with the station actions. Rows
// are marked while their station is recorded or (unless turned off) a favourite.
//
// Lives on the GUI thread.
class StationListPane : public QWidget {
    Q_OBJECT

public:
    StationListPane(Application &app, const QString &emptyTitle, const QString &emptyHint, QWidget *parent = nullptr);

    [[nodiscard]] std::optional<Station> selectedStation() const;
    // Shows the rows, or the empty state with these texts when there are none.
    void showRowsOrEmpty(const QString &emptyTitle, const QString &emptyHint);
    [[nodiscard]] bool showsEmptyState() const;
    void setMarksFavorites(bool marks);
    // Places a widget between the list and the buttons.
    void addAboveActions(QWidget *widget);

    // Further entries for a row's context menu, after the station actions.
    std::function<void(QMenu &, const Station &)> extendMenu;

    StationTableModel *model() const { return m_model; }
    QTableView *table() const { return m_table; }
    StationActionBar *actionBar() const { return m_actions; }

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

private:
    void selectionChanged();
    void refreshFavoriteMarks();

    Application &m_app;
    bool m_marksFavorites = true;
    StationTableModel *m_model = nullptr;
    QTableView *m_table = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    StationActionBar *m_actions = nullptr;
};
