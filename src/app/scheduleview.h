#pragma once

#include <QTimer>
#include <QUuid>
#include <QWidget>

class Application;
class QLabel;
class QStackedWidget;
class QTableWidget;
class QTreeWidget;
class ScheduleHistory;
struct ScheduledRecording;

// The planned recordings, soonest first: station, window, mode, repeat rule, what the
// plan is doing now, and edit and remove buttons per row. A plan whose window is open and
// whose station records shows that recording's title and saved songs; the next window to
// open counts down to its start, once a second while the page is visible. Below, the
// windows that ran while Orvida was open, with the songs each saved (ScheduleHistory).
//
// New plans come from the "Schedule…" action of every station list; this page follows
// the scheduler, so plans orvida-cli adds beside the window show up at its next tick.
// While another Orvida (a second window, `orvida-cli run`) runs the plans of this data
// folder, a note above the list says that this one does not start them.
//
// Lives on the GUI thread.
class ScheduleView : public QWidget {
    Q_OBJECT

public:
    enum Column { StationColumn, WhenColumn, ModeColumn, RepeatColumn, StatusColumn, EditColumn, RemoveColumn, ColumnCount };
    static constexpr int kPlanIdRole = Qt::UserRole + 1;

    explicit ScheduleView(Application &app, QWidget *parent = nullptr);

    void remove(const QUuid &planId);
    // Opens the scheduling dialog on the plan; saving there replaces it.
    void edit(const QUuid &planId);

    QTableWidget *table() const { return m_table; }
    QLabel *countLabel() const { return m_count; }
    // The note that another process runs the plans; hidden while this one does.
    QLabel *otherRunnerNote() const { return m_otherRunner; }
    [[nodiscard]] bool showsEmptyState() const;
    // Past windows, newest first: station, window, what was saved.
    QTreeWidget *pastList() const { return m_past; }
    ScheduleHistory &history() const { return *m_history; }
    // Runs only while the page is visible and a window is still to open.
    [[nodiscard]] bool countdownRunning() const { return m_countdown.isActive(); }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void rebuild();
    // The status column only: cheap enough for every title change and second.
    void refreshStatus();
    void rebuildPast();
    [[nodiscard]] QString statusOf(const ScheduledRecording &plan, const ScheduledRecording *next) const;
    void updateCountdownTimer();

    Application &m_app;
    ScheduleHistory *m_history = nullptr;
    QLabel *m_count = nullptr;
    QLabel *m_otherRunner = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTableWidget *m_table = nullptr;
    QLabel *m_pastTitle = nullptr;
    QTreeWidget *m_past = nullptr;
    QTimer m_countdown;
};
