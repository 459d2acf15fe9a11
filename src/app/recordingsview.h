#pragma once

#include <QWidget>

class Application;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTableWidget;
class RecordingSession;

// Every running recording: station, the stream's current title, songs saved so far, the
// error text, and a stop button per row; "stop all" above. A handful of rows at most, so
// plain table items, refreshed from each session's signals.
//
// Lives on the GUI thread.
class RecordingsView : public QWidget {
    Q_OBJECT

public:
    enum Column { StationColumn, TitleColumn, SavedColumn, StatusColumn, StopColumn, ColumnCount };

    explicit RecordingsView(Application &app, QWidget *parent = nullptr);

    QTableWidget *table() const { return m_table; }
    QPushButton *stopAllButton() const { return m_stopAll; }

private:
    void rebuild();
    void updateRow(int row, const RecordingSession *session);

    Application &m_app;
    QLabel *m_count = nullptr;
    QPushButton *m_stopAll = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTableWidget *m_table = nullptr;
};
