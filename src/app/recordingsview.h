#pragma once

#include "engine/sessionstatus.h"
#include "stations/station.h"

#include <QHash>
#include <QPointer>
#include <QWidget>

class Application;
class QColor;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class RecordingSession;
struct Track;

// Every recording: station, the stream's current title, songs saved (and failed), time
// recorded, bytes received and the stream's state (connecting, recording, reconnecting in
// N s with the attempt and its reason, gave up), with a stop button; "stop all" above.
// Each row unfolds into what became of its songs: saved, skipped and why, not saved and
// why, saved with a notice. A failed save unfolds its row by itself.
//
// A recording that gives up stays in the list with its error until it is dismissed; one
// that is stopped leaves it. The rows follow the recorder's per-station signals, each of
// which touches only its own row; a one-second tick moves the clocks and countdowns of
// the running rows. A handful of rows at most, so plain tree items.
//
// Lives on the GUI thread.
class RecordingsView : public QWidget {
    Q_OBJECT

public:
    enum Column {
        StationColumn,
        TitleColumn,
        SavedColumn,
        TimeColumn,
        ReceivedColumn,
        StatusColumn,
        ActionColumn,
        ColumnCount
    };
    // Song lines kept per recording; older ones go.
    static constexpr int kMaxSongLines = 100;

    explicit RecordingsView(Application &app, QWidget *parent = nullptr);

    QTreeWidget *tree() const { return m_tree; }
    QPushButton *stopAllButton() const { return m_stopAll; }
    // The station's row: while it records, and after it gave up until dismissed.
    [[nodiscard]] QTreeWidgetItem *row(const QString &stationId) const;
    [[nodiscard]] bool showsStation(const QString &stationId) const { return m_rows.contains(stationId); }
    // Empty when the station has no row.
    [[nodiscard]] QString stationName(const QString &stationId) const;
    // Removes the row of a recording that has ended; a running one stays.
    void dismiss(const QString &stationId);
    // Rows of recordings that gave up and wait to be dismissed.
    [[nodiscard]] int endedCount() const;

Q_SIGNALS:
    // A row came or went, or a recording ended on its own.
    void rowsChanged();

private:
    struct Row {
        QTreeWidgetItem *item = nullptr;
        Station station;
        QPointer<RecordingSession> session; // gone once it has ended and saved its last song
        SessionStatus status;
        QString error;
        QString title;
        qint64 saved = 0;
        qint64 failed = 0;
        qint64 elapsedMs = 0;
        bool ended = false;
    };

    void addRow(RecordingSession &session);
    void setActionButton(Row &row);
    void refreshRow(Row &row);
    void refreshClock(Row &row);
    void addSongLine(const QString &stationId, const QString &text, const QColor &color, const QString &toolTip = {});
    void onEnded(const Station &station, SessionOutcome outcome);
    void onTrackSaved(const QString &stationId, const Track &track);
    void tick();
    void refreshSummary();

    Application &m_app;
    QLabel *m_count = nullptr;
    QPushButton *m_stopAll = nullptr;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QTreeWidget *m_tree = nullptr;
    QTimer *m_tick = nullptr;
    QHash<QString, Row> m_rows;
};
