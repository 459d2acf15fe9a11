#pragma once

#include "stations/station.h"

#include <QWidget>

#include <optional>

struct StateResult;

class Application;
class QLabel;
class QMenu;
class QLineEdit;
class QTableView;
class StationListPane;
class StationTableModel;

// The favourites in the user's order: a filter field, the count, reordering by drag and
// drop or the context menu, the station actions, and a clock on every station that has
// planned recordings. While a filter is typed the list
// cannot be dragged, since positions in a filtered list are not positions in the list.
//
// Lives on the GUI thread.
class FavoritesView : public QWidget {
    Q_OBJECT

public:
    explicit FavoritesView(Application &app, QWidget *parent = nullptr);

    // Context menu commands, by station id.
    void moveToTop(const QString &stationId);
    void moveUp(const QString &stationId);
    void moveDown(const QString &stationId);

    [[nodiscard]] std::optional<Station> selectedStation() const;
    QLineEdit *filterField() const { return m_filter; }
    QTableView *table() const;
    StationTableModel *model() const;
    QLabel *countLabel() const { return m_count; }
    [[nodiscard]] bool showsEmptyState() const;

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

private:
    void refresh();
    void refreshScheduledMarks();
    void addMoveActions(QMenu &menu, const Station &station);
    // A move the file did not take: the old order back on screen, and why.
    void applyMove(const StateResult &written);

    Application &m_app;
    QLineEdit *m_filter = nullptr;
    QLabel *m_count = nullptr;
    QLabel *m_hint = nullptr;
    StationListPane *m_pane = nullptr;
};
