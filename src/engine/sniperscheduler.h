#pragma once

#include "engine/radiorecorder.h"
#include "engine/scheduledrecording.h"
#include "library/librarystore.h"
#include "platform/statefile.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class PowerAssertion;
class ClosedLidKeeper;
class FileLock;
class FileWatch;
class QTimer;

// The user's planned recordings: kept in "sniper_schedule.json", started and stopped by a
// periodic tick, rolled forward when they repeat, and filed into the library when they
// save a song. While anything records or is planned it holds a PowerAssertion.
//
// Lives on the GUI thread (in orvida-cli: the main thread); the tick's timer fires there.
//
// Another process (orvida-cli beside the window) may change the file at any time. Every
// write, and every look after the file changed on disk, reads it under its lock
// (StateFile) and merges it by plan id against what we last saw there: plans the other
// side added or changed come in, plans it removed go, and our own changes win where both
// changed the same plan. A plan that does not decode drops only itself; the file as it
// was is set aside (numbered "sniper_schedule.corrupt.json") and that is reported once.
//
// One scheduler per data folder runs the plans: the first configured one takes the lock
// ".sniper_schedule.runner.lock" beside the file and keeps it for its life. Another one
// (the window beside `orvida-cli run`) edits plans as usual but records nothing; it tries
// for the lock at every tick and takes over when the first one goes.
class SniperScheduler : public QObject {
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;

    struct Options {
        // Absent: the plans live in memory only.
        std::optional<QString> filePath = defaultFilePath();
        Clock clock = [] { return QDateTime::currentDateTimeUtc(); };
        std::chrono::milliseconds tickInterval { 20000 };
        // Told about recordings and the next plan, so it can keep the lid switch while
        // they need it. Optional; must outlive the scheduler.
        ClosedLidKeeper *closedLidKeeper = nullptr;
    };

    // Loads the file: passed windows are moved on or dropped, and the file is rewritten
    // when that changed anything. What had to be set aside is in loadProblem().
    explicit SniperScheduler(PowerAssertion &power, QObject *parent = nullptr);
    SniperScheduler(PowerAssertion &power, Options options, QObject *parent = nullptr);
    // Lets go of the power assertion.
    ~SniperScheduler() override;

    // "sniper_schedule.json" in the support folder; absent when there is no data location.
    [[nodiscard]] static std::optional<QString> defaultFilePath();

    // Once, at start: from here on the tick runs and the songs of plans are filed into
    // `library`. Without a library (it failed to open) plans still record and hold the
    // power assertion; their songs stay in the radio folder, unfiled, where an import
    // finds them. A second call only swaps the two.
    void configure(RadioRecorder &recorder, LibraryStore *library);
    void configure(RadioRecorder &recorder, LibraryStore &library) { configure(recorder, &library); }
    [[nodiscard]] bool isConfigured() const { return !m_recorder.isNull(); }

    // Whether this scheduler runs the plans of its data folder (configured, and no other
    // process does).
    [[nodiscard]] bool runsPlans() const;
    // What loading had to report (damaged plans set aside, an unreadable file); empty
    // when nothing.
    [[nodiscard]] const QString &loadProblem() const { return m_loadProblem; }

    // Sorted by start.
    [[nodiscard]] const QList<ScheduledRecording> &items() const { return m_items; }
    [[nodiscard]] QList<ScheduledRecording> items(const QString &stationId) const;

    // Each change is merged into the file and written at once. Failed: the plans stay as
    // they were and the result says why (also sent as storageProblem()).
    [[nodiscard]] StateResult add(const ScheduledRecording &plan);
    // Puts `plan` in the place of the plan with its id (the user edited it); nothing when
    // there is none any more, which the result does not count as a failure.
    [[nodiscard]] StateResult update(const ScheduledRecording &plan);
    // Removes every plan with the plan's id.
    [[nodiscard]] StateResult remove(const ScheduledRecording &plan);
    [[nodiscard]] StateResult remove(const QUuid &id);

    // The periodic check: starts plans whose window is open, stops and rolls forward
    // those whose window has passed, drops plans whose station data is unusable.
    void tick();

    // The plan's next window still to end after `after` (see Schedule::advanced).
    [[nodiscard]] static std::optional<ScheduledRecording> advanced(
        const ScheduledRecording &plan, const QDateTime &after)
    {
        return Schedule::advanced(plan, after);
    }

    // Holds the power assertion while a session runs or a plan exists, releases it when
    // neither; a hold is kept as it is when the reason for it changes. Then brings the
    // closed-lid keeper up to date.
    void updatePowerAssertion();
    [[nodiscard]] bool holdsPowerAssertion() const { return m_activityHeld; }

Q_SIGNALS:
    void itemsChanged();
    // A plan's window opened and its recording began. Once per window: a recording that
    // gave up and is started again inside the same window is not announced a second time.
    void scheduledRecordingStarted(const ScheduledRecording &plan);
    // The window of an announced start has passed (its recording is stopped by then).
    void scheduledRecordingEnded(const ScheduledRecording &plan);
    // runsPlans() changed: false while another Orvida on this data folder runs the plans.
    void runsPlansChanged(bool runsPlans);
    // A write failed, or damaged plans were set aside: one line naming the file.
    void storageProblem(const QString &message);

private:
    void replace(const ScheduledRecording &old, const ScheduledRecording &with);
    void startScheduled(const ScheduledRecording &plan, const Station &station);
    void load();
    // Merges `items` (our intended plans) into the file and writes; on success they,
    // merged with the other side's changes, become the items.
    StateResult commit(QList<ScheduledRecording> items);
    // Takes in what another process changed in the file.
    void syncFromDisk();
    // Reads the file under its lock; `next` gives the content to write for what was read
    // (absent: write nothing unless damaged plans must be dropped from the file).
    StateResult access(const std::function<std::optional<QList<ScheduledRecording>>(
                           const QList<ScheduledRecording> &theirs, bool known)> &next,
        QList<ScheduledRecording> *result);
    // Tries for the runner lock; true while held.
    bool holdRunnerLock();
    StateResult reported(StateResult result);
    void setItems(QList<ScheduledRecording> items);
    void feedLidKeeper(bool recording);
    // plan.station() of every item, in item order. The directory's builder costs
    // microseconds and every tick asks for every plan, so each plan's station is built
    // once and the list is redone only after the items changed.
    const QList<std::optional<Station>> &itemStations();

    PowerAssertion &m_power;
    const std::optional<QString> m_filePath;
    std::optional<StateFile> m_file;
    FileWatch *m_watch = nullptr;
    std::unique_ptr<FileLock> m_runnerLock;
    std::optional<bool> m_runsPlans; // unknown until the first tick of a configured scheduler
    QString m_loadProblem;
    const Clock m_clock;
    const std::chrono::milliseconds m_tickInterval;
    ClosedLidKeeper *const m_lidKeeper;

    QList<ScheduledRecording> m_items;
    // The plans as the file held them when we last read or wrote it, and its bytes then.
    QList<ScheduledRecording> m_onDisk;
    std::optional<QByteArray> m_onDiskBytes;

    struct KnownStation {
        ScheduledRecording plan; // the fields it was built from
        std::optional<Station> station;
    };
    QHash<QUuid, KnownStation> m_knownStations;
    QList<std::optional<Station>> m_itemStations;
    bool m_itemStationsStale = true;

    QPointer<RadioRecorder> m_recorder;
    QPointer<LibraryStore> m_library;
    QTimer *m_timer = nullptr;
    bool m_activityHeld = false;
    // Plans whose current window was announced as started.
    QSet<QUuid> m_announced;
};
