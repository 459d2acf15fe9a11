#pragma once

#include <QUuid>
#include <QWidget>

class Application;
class QLabel;
class QStackedWidget;
class QTableWidget;

// The planned recordings, soonest first: station, window, mode, repeat rule and a remove
// button per row. New plans come from the "Schedule…" action of every station list; this
// page follows the scheduler, so plans orvida-cli adds beside the window show up at its
// next tick. While another Orvida (a second window, `orvida-cli run`) runs the plans of
// this data folder, a note above the list says that this one does not start them.
//
// Lives on the GUI thread.
class ScheduleView : public QWidget {
    Q_OBJECT

public:
    enum Column { StationColumn, WhenColumn, ModeColumn, RepeatColumn, RemoveColumn, ColumnCount };
    static constexpr int kPlanIdRole = Qt::UserRole + 1;

    explicit ScheduleView(Application &app, QWidget *parent = nullptr);

    void remove(const QUuid &planId);

    QTableWidget *table() const { return m_table; }
    QLabel *countLabel() const { return m_count; }
    // The note that another process runs the plans; hidden while this one does.
    QLabel *otherRunnerNote() const { return m_otherRunner; }
    [[nodiscard]] bool showsEmptyState() const;

private:
    void rebuild();

    Application &m_app;
    QLabel *m_count = nullptr;
    QLabel *m_otherRunner = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTableWidget *m_table = nullptr;
};
