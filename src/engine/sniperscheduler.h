#pragma once

#include "engine/radiorecorder.h"
#include "engine/scheduledrecording.h"
#include "library/librarystore.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

class PowerAssertion;
class ClosedLidKeeper;
class QTimer;

// The user's planned recordings: kept in "sniper_schedule.json", started and stopped by a
// periodic tick, rolled forward when they repeat, and filed into the library when they
// save a song. While anything records or is planned it holds a PowerAssertion.
//
// Lives on the GUI thread (in orvida-cli: the main thread); the tick's timer fires there.
//
// Another process (orvida-cli beside the window) may change the file at any time. Before
// every write, and at every tick, a file that changed on disk since we last read or wrote
// it is read again and merged by plan id against what we last saw there: plans the other
// side added or changed come in, plans it removed go, and our own changes win where both
// changed the same plan. Writers take a lock file so two of them cannot interleave.
class SniperScheduler : public QObject {
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;

    struct Options {
        // Absent: the plans live in memory only.
        std::optional<QString> fileUrl = defaultFileUrl();
        Clock clock = [] { return QDateTime::currentDateTimeUtc(); };
        std::chrono::milliseconds tickInterval { 20000 };
        // Told about recordings and the next plan, so it can keep the lid switch while
        // they need it. Optional; must outlive the scheduler.
        ClosedLidKeeper *closedLidKeeper = nullptr;
    };

    // Loads the file: unreadable means no plans, without a word; passed windows are moved
    // on or dropped, and the file is rewritten when that changed anything.
    explicit SniperScheduler(PowerAssertion &power, QObject *parent = nullptr);
    SniperScheduler(PowerAssertion &power, Options options, QObject *parent = nullptr);
    // Lets go of the power assertion.
    ~SniperScheduler() override;

    // "sniper_schedule.json" in the support folder; absent when there is no data location.
    [[nodiscard]] static std::optional<QString> defaultFileUrl();

    // Once, at start: from here on the tick runs and plans are recorded into `library`.
    // A second call only swaps the two.
    void configure(RadioRecorder &recorder, LibraryStore &library);
    [[nodiscard]] bool isConfigured() const { return m_recorder && m_library; }

    // Sorted by start.
    [[nodiscard]] const QList<ScheduledRecording> &items() const { return m_items; }
    [[nodiscard]] QList<ScheduledRecording> items(const QString &stationId) const;

    void add(const ScheduledRecording &plan);
    // Removes every plan with the plan's id.
    void remove(const ScheduledRecording &plan);
    void remove(const QUuid &id);

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

private:
    struct DiskState {
        bool exists = false;
        qint64 size = 0;
        qint64 inode = 0;
        qint64 mtimeNs = 0;
        friend bool operator==(const DiskState &, const DiskState &) = default;
    };

    void replace(const ScheduledRecording &old, const ScheduledRecording &with);
    void startScheduled(const ScheduledRecording &plan, const Station &station);
    void load();
    void save();
    // Takes in what another process changed in the file; true when that changed items.
    bool syncFromDisk();
    [[nodiscard]] DiskState diskState() const;
    void setItems(QList<ScheduledRecording> items);
    void feedLidKeeper(bool recording);
    // plan.station() of every item, in item order. The directory's builder costs
    // microseconds and every tick asks for every plan, so each plan's station is built
    // once and the list is redone only after the items changed.
    const QList<std::optional<Station>> &itemStations();

    PowerAssertion &m_power;
    const std::optional<QString> m_fileUrl;
    const Clock m_clock;
    const std::chrono::milliseconds m_tickInterval;
    ClosedLidKeeper *const m_lidKeeper;

    QList<ScheduledRecording> m_items;
    // The plans as the file held them when we last read or wrote it, and how it looked.
    QList<ScheduledRecording> m_onDisk;
    DiskState m_diskState;

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
