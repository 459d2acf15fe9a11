#pragma once

#include "engine/scheduledrecording.h"
#include "stations/station.h"

#include <QDateTime>
#include <QDialog>

#include <optional>

class QComboBox;
class QDateTimeEdit;
class QLabel;
class QPushButton;
class QTimeEdit;
class SniperScheduler;

// Plans a recording of one station: start (date and time), end (a time of day), whether
// the songs are cut or the show is kept whole, and whether it repeats. It opens with the
// window starting an hour from `now`, on the minute, and lasting an hour. An end that is
// not later in the day than the start is on the following day, so 23:00 to 01:00 is a
// two-hour night show. Accepting adds the plan to the scheduler; when that cannot be
// written the dialog stays open and says why.
//
// `now` is taken once, when the dialog opens; a window that has ended by then cannot be
// planned. Lives on the GUI thread.
class ScheduleDialog : public QDialog {
    Q_OBJECT

public:
    ScheduleDialog(SniperScheduler &scheduler, Station station, const QDateTime &now, QWidget *parent = nullptr);
    // Edits `plan`: the fields start with its window, mode and rule, and accepting puts
    // the changed plan (same id, same station) in its place.
    ScheduleDialog(SniperScheduler &scheduler, const ScheduledRecording &plan, const QDateTime &now,
        QWidget *parent = nullptr);

    // An hour after `now`, seconds dropped.
    [[nodiscard]] static QDateTime defaultStart(const QDateTime &now);
    // The end at `endTime` on the day of `start` in local time, or on the next day when
    // that is not after the start.
    [[nodiscard]] static QDateTime endFor(const QDateTime &start, const QTime &endTime);

    // The window as the fields stand, as instants.
    [[nodiscard]] QDateTime start() const;
    [[nodiscard]] QDateTime end() const;
    [[nodiscard]] ScheduledRecording::Mode mode() const;
    [[nodiscard]] ScheduledRecording::RepeatRule repeatRule() const;
    // The plan added (or, when editing, saved) by accepting; absent before that.
    [[nodiscard]] const std::optional<ScheduledRecording> &addedPlan() const { return m_added; }

    QDateTimeEdit *startEdit() const { return m_start; }
    QTimeEdit *endEdit() const { return m_end; }
    QComboBox *modeBox() const { return m_mode; }
    QComboBox *repeatBox() const { return m_repeat; }
    QLabel *windowLabel() const { return m_window; }
    QPushButton *addButton() const { return m_add; }

    void accept() override;

private:
    void refresh();

    SniperScheduler &m_scheduler;
    const Station m_station;
    const QDateTime m_now;
    std::optional<ScheduledRecording> m_editing;
    std::optional<ScheduledRecording> m_added;
    QDateTimeEdit *m_start = nullptr;
    QTimeEdit *m_end = nullptr;
    QComboBox *m_mode = nullptr;
    QComboBox *m_repeat = nullptr;
    QLabel *m_window = nullptr;
    QLabel *m_problem = nullptr;
    QPushButton *m_add = nullptr;
};
