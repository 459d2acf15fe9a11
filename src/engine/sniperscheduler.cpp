#include "engine/sniperscheduler.h"

#include "engine/closedlidkeeper.h"
#include "engine/powerassertion.h"
#include "engine/radiorecorder.h"
#include "library/librarystore.h"
#include "platform/filelock.h"
#include "platform/filewatch.h"
#include "platform/paths.h"

#include <QFileInfo>
#include <QHash>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>


namespace {

// Three-way merge by id of our plans with the file's, against what the file held when we
// last saw it. A plan on one side only was added there, or removed on the other side
// when the last-seen file had it; removing wins over changing. A plan on both sides takes
// our version when we changed it, else theirs.
QList<ScheduledRecording> merged(const QList<ScheduledRecording> &base, const QList<ScheduledRecording> &ours,
    const QList<ScheduledRecording> &theirs)
{
    QHash<QUuid, const ScheduledRecording *> baseById;
    QHash<QUuid, const ScheduledRecording *> theirsById;
    QHash<QUuid, bool> oursIds;
    for (const ScheduledRecording &p : base)
        baseById.insert(p.id, &p);
    for (const ScheduledRecording &p : theirs)
        theirsById.insert(p.id, &p);
    QList<ScheduledRecording> result;
    for (const ScheduledRecording &p : ours) {
        oursIds.insert(p.id, true);
        const ScheduledRecording *last = baseById.value(p.id);
        const ScheduledRecording *their = theirsById.value(p.id);
        if (their)
            result.append(last && *last == p ? *their : p);
        else if (!last)
            result.append(p);
    }
    for (const ScheduledRecording &p : theirs) {
        if (!oursIds.contains(p.id) && !baseById.contains(p.id))
            result.append(p);
    }
    Schedule::sortByStart(result);
    return result;
}

} // namespace

SniperScheduler::SniperScheduler(PowerAssertion &power, QObject *parent)
    : SniperScheduler(power, Options(), parent)
{
}

SniperScheduler::SniperScheduler(PowerAssertion &power, Options options, QObject *parent)
    : QObject(parent)
    , m_power(power)
    , m_filePath(std::move(options.filePath))
    , m_clock(std::move(options.clock))
    , m_tickInterval(options.tickInterval)
    , m_lidKeeper(options.closedLidKeeper)
{
    if (m_filePath) {
        m_file.emplace(*m_filePath);
        m_watch = new FileWatch(*m_filePath, this);
        connect(m_watch, &FileWatch::changed, this, &SniperScheduler::syncFromDisk);
    }
    load();
}

SniperScheduler::~SniperScheduler()
{
    if (m_activityHeld)
        m_power.release();
}

std::optional<QString> SniperScheduler::defaultFilePath()
{
    if (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).isEmpty())
        return std::nullopt;
    return Paths::supportFile(QStringLiteral("sniper_schedule.json"));
}

void SniperScheduler::configure(RadioRecorder &recorder, LibraryStore *library)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_recorder)
        m_recorder->disconnect(this);
    m_recorder = &recorder;
    m_library = library;
    connect(&recorder, &RadioRecorder::sessionsChanged, this, &SniperScheduler::updatePowerAssertion);
    if (m_timer)
        return;
    if (m_filePath) {
        const QFileInfo info(*m_filePath);
        m_runnerLock = std::make_unique<FileLock>(
            info.absolutePath() + QStringLiteral("/.") + info.completeBaseName() + QStringLiteral(".runner.lock"));
    }
    m_timer = new QTimer(this);
    m_timer->setInterval(m_tickInterval);
    connect(m_timer, &QTimer::timeout, this, &SniperScheduler::tick);
    m_timer->start();
    if (m_lidKeeper) {
        feedLidKeeper(!recorder.sessions().isEmpty());
        m_lidKeeper->reconcileAtLaunch();
    }
    tick();
}

bool SniperScheduler::runsPlans() const
{
    return m_recorder && m_runsPlans.value_or(false);
}

bool SniperScheduler::holdRunnerLock()
{
    // Plans in memory only belong to no folder; nobody else can run them.
    bool held = true;
    if (m_runnerLock) {
        // A folder where no lock file can be made is one nobody else can lock either.
        held = m_runnerLock->tryLock() != FileLock::Result::Busy;
    }
    if (held != m_runsPlans) {
        m_runsPlans = held;
        Q_EMIT runsPlansChanged(held);
    }
    return held;
}

QList<ScheduledRecording> SniperScheduler::items(const QString &stationId) const
{
    QList<ScheduledRecording> result;
    for (const ScheduledRecording &p : m_items) {
        if (p.stationId == stationId)
            result.append(p);
    }
    return result;
}

StateResult SniperScheduler::add(const ScheduledRecording &plan)
{
    Q_ASSERT(QThread::currentThread() == thread());
    QList<ScheduledRecording> items = m_items;
    items.append(plan);
    Schedule::sortByStart(items);
    StateResult written = commit(std::move(items));
    if (!written)
        return written;
    updatePowerAssertion();
    if (m_lidKeeper)
        m_lidKeeper->scheduleAdded();
    return written;
}

StateResult SniperScheduler::remove(const ScheduledRecording &plan)
{
    return remove(plan.id);
}

StateResult SniperScheduler::remove(const QUuid &id)
{
    Q_ASSERT(QThread::currentThread() == thread());
    QList<ScheduledRecording> items = m_items;
    items.removeIf([&](const ScheduledRecording &p) { return p.id == id; });
    StateResult written = commit(std::move(items));
    if (!written)
        return written;
    // A recording the user keeps after dropping its plan is no longer the plan's.
    m_announced.remove(id);
    updatePowerAssertion();
    return written;
}

StateResult SniperScheduler::update(const ScheduledRecording &plan)
{
    Q_ASSERT(QThread::currentThread() == thread());
    QList<ScheduledRecording> items = m_items;
    const auto it = std::find_if(items.begin(), items.end(), [&](const ScheduledRecording &p) { return p.id == plan.id; });
    if (it == items.end())
        return {};
    const ScheduledRecording before = *it;
    *it = plan;
    Schedule::sortByStart(items);
    StateResult written = commit(std::move(items));
    if (!written)
        return written;
    // A window moved away from now ends its recording here; the tick would only stop it
    // at the new end, or never record the new window's start.
    const QDateTime now = m_clock().toUTC();
    if (m_announced.contains(plan.id) && !(plan.start <= now && now < plan.end)) {
        m_announced.remove(plan.id);
        if (m_recorder && m_recorder->isRecordingStation(before.stationId))
            m_recorder->stop(before.stationId);
        Q_EMIT scheduledRecordingEnded(before);
    }
    updatePowerAssertion();
    // The new window may start within the hour.
    if (m_lidKeeper)
        m_lidKeeper->scheduleAdded();
    return written;
}

void SniperScheduler::replace(const ScheduledRecording &old, const ScheduledRecording &with)
{
    const auto it
        = std::find_if(m_items.cbegin(), m_items.cend(), [&](const ScheduledRecording &p) { return p.id == old.id; });
    if (it == m_items.cend())
        return;
    QList<ScheduledRecording> items = m_items;
    items[it - m_items.cbegin()] = with;
    Schedule::sortByStart(items);
    (void)commit(std::move(items)); // reported; the next tick tries again
}

void SniperScheduler::tick()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_recorder)
        return;
    syncFromDisk();
    // Another Orvida on this data folder runs the plans; this one only shows them.
    if (!holdRunnerLock()) {
        updatePowerAssertion();
        return;
    }
    const QDateTime now = m_clock().toUTC();
    // Removing and replacing reorder the list; walk what it was.
    const QList<ScheduledRecording> snapshot = m_items;
    const QList<std::optional<Station>> stations = itemStations();
    for (qsizetype i = 0; i < snapshot.size(); ++i) {
        const ScheduledRecording &plan = snapshot[i];
        if (!stations[i]) {
            (void)remove(plan); // reported; the next tick tries again
        } else if (now >= plan.end) {
            const Station &station = *stations[i];
            // Also ends a recording of the station the user started by hand.
            if (m_recorder->isRecordingStation(station))
                m_recorder->stop(station);
            if (m_announced.remove(plan.id))
                Q_EMIT scheduledRecordingEnded(plan);
            if (const auto next = advanced(plan, now))
                replace(plan, *next);
            else
                (void)remove(plan);
        } else if (now >= plan.start) {
            const Station &station = *stations[i];
            // A recording that ended on its own inside its window starts again here.
            if (!m_recorder->isRecordingStation(station))
                startScheduled(plan, station);
        }
    }
    updatePowerAssertion();
}

void SniperScheduler::startScheduled(const ScheduledRecording &plan, const Station &station)
{
    if (!m_recorder)
        return;
    const std::optional<QString> fullShowTitle
        = plan.mode == ScheduledRecording::Mode::FullShow ? std::optional<QString>(plan.showTitle()) : std::nullopt;
    // Saved songs arrive on this thread (the session hands them over here). Without a
    // library they stay in the radio folder unfiled.
    QPointer<LibraryStore> library = m_library;
    const bool started = m_recorder->start(station, fullShowTitle, [library](const Track &track) {
        if (library)
            (void)RadioRecorder::upsertIntoLibrary(track, *library); // a failed save is not worth more
    });
    if (started && !m_announced.contains(plan.id)) {
        m_announced.insert(plan.id);
        Q_EMIT scheduledRecordingStarted(plan);
    }
}

void SniperScheduler::updatePowerAssertion()
{
    const bool recording = m_recorder && !m_recorder->sessions().isEmpty();
    const bool pending = !m_items.isEmpty();
    if ((recording || pending) && !m_activityHeld) {
        m_power.acquire(QString(recording ? PowerAssertion::kRecordingReason : PowerAssertion::kPendingReason));
        m_activityHeld = true;
    } else if (!recording && !pending && m_activityHeld) {
        m_power.release();
        m_activityHeld = false;
    }
    if (m_lidKeeper) {
        feedLidKeeper(recording);
        m_lidKeeper->refresh();
    }
}

void SniperScheduler::feedLidKeeper(bool recording)
{
    m_lidKeeper->setRecording(recording);
    m_lidKeeper->setNextPlannedStart(
        m_items.isEmpty() ? std::nullopt : std::optional<QDateTime>(m_items.first().start));
}

void SniperScheduler::load()
{
    if (!m_file)
        return;
    QList<ScheduledRecording> loaded;
    const StateResult result = access(
        [&](const QList<ScheduledRecording> &theirs, bool) -> std::optional<QList<ScheduledRecording>> {
            QList<ScheduledRecording> rolled = Schedule::rolledForward(theirs, m_clock().toUTC());
            if (rolled == theirs)
                return std::nullopt;
            return rolled;
        },
        &loaded);
    m_loadProblem = result.ok ? result.notice : result.error;
    // A file that could not be read keeps nothing of ours; what we show starts empty.
    m_items = Schedule::rolledForward(loaded, m_clock().toUTC());
    m_itemStationsStale = true;
}

StateResult SniperScheduler::commit(QList<ScheduledRecording> items)
{
    if (!m_file) {
        setItems(std::move(items));
        return {};
    }
    QList<ScheduledRecording> stored;
    StateResult result = access(
        [&](const QList<ScheduledRecording> &theirs, bool known) -> std::optional<QList<ScheduledRecording>> {
            // A file that is gone or was damaged holds nothing we saw: all of ours is new.
            return merged(known ? m_onDisk : QList<ScheduledRecording>(), items, theirs);
        },
        &stored);
    if (result)
        setItems(std::move(stored));
    return reported(std::move(result));
}

void SniperScheduler::syncFromDisk()
{
    if (!m_file || (m_watch && !m_watch->hasChanged()))
        return;
    const QList<ScheduledRecording> base = m_onDisk;
    bool known = false;
    QList<ScheduledRecording> theirs;
    const StateResult result = reported(access(
        [&](const QList<ScheduledRecording> &, bool readable) -> std::optional<QList<ScheduledRecording>> {
            known = readable;
            return std::nullopt;
        },
        &theirs));
    // Gone or damaged: ours stay, and go back in with the next write.
    if (result && known)
        setItems(merged(base, m_items, theirs));
}

StateResult SniperScheduler::access(
    const std::function<std::optional<QList<ScheduledRecording>>(const QList<ScheduledRecording> &, bool)> &next,
    QList<ScheduledRecording> *result)
{
    std::optional<QByteArray> written;
    QList<ScheduledRecording> onDisk;
    bool known = false;
    const StateResult outcome = m_file->access([&](const QByteArray *bytes) {
        StateFile::Access access;
        QList<ScheduledRecording> theirs;
        if (bytes && m_onDiskBytes && *bytes == *m_onDiskBytes) {
            theirs = m_onDisk;
            known = true;
        } else if (bytes) {
            if (auto salvaged = Schedule::salvage(*bytes)) {
                theirs = std::move(salvaged->plans);
                known = true;
                if (salvaged->dropped > 0)
                    access.damage = StateFile::Damage::Partly;
            } else {
                access.damage = StateFile::Damage::Whole;
            }
        }
        onDisk = theirs;
        written = bytes && access.damage == StateFile::Damage::None ? std::optional(*bytes) : std::nullopt;
        std::optional<QList<ScheduledRecording>> content = next(theirs, known);
        if (!content && access.damage == StateFile::Damage::Partly)
            content = theirs; // the good plans go back without the bad ones
        if (content) {
            access.write = Schedule::encode(*content);
            written = access.write;
            onDisk = *content;
        }
        return access;
    });
    if (outcome) {
        m_onDisk = onDisk;
        m_onDiskBytes = written;
        *result = onDisk;
    }
    if (m_watch)
        m_watch->noteCurrent();
    return outcome;
}

StateResult SniperScheduler::reported(StateResult result)
{
    if (!result.notice.isEmpty())
        Q_EMIT storageProblem(result.notice);
    if (!result.ok)
        Q_EMIT storageProblem(result.error);
    return result;
}

void SniperScheduler::setItems(QList<ScheduledRecording> items)
{
    if (items == m_items)
        return;
    m_items = std::move(items);
    m_itemStationsStale = true;
    Q_EMIT itemsChanged();
}

const QList<std::optional<Station>> &SniperScheduler::itemStations()
{
    if (!m_itemStationsStale)
        return m_itemStations;
    const auto sameStation = [](const ScheduledRecording &a, const ScheduledRecording &b) {
        return a.stationId == b.stationId && a.stationName == b.stationName && a.streamUrl == b.streamUrl
            && a.country == b.country && a.bitrate == b.bitrate && a.codec == b.codec && a.favicon == b.favicon;
    };
    // Plans come and go; forget the gone ones now and then rather than on every change.
    if (m_knownStations.size() > 2 * m_items.size() + 64)
        m_knownStations.clear();
    m_itemStations.clear();
    m_itemStations.reserve(m_items.size());
    for (const ScheduledRecording &plan : std::as_const(m_items)) {
        auto it = m_knownStations.find(plan.id);
        if (it == m_knownStations.end() || !sameStation(it->plan, plan))
            it = m_knownStations.insert(plan.id, { plan, plan.station() });
        m_itemStations.append(it->station);
    }
    m_itemStationsStale = false;
    return m_itemStations;
}
