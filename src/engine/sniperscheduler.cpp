#include "engine/sniperscheduler.h"

#include "engine/closedlidkeeper.h"
#include "engine/powerassertion.h"
#include "engine/radiorecorder.h"
#include "library/librarystore.h"
#include "platform/atomicfile.h"
#include "platform/paths.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLockFile>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <sys/stat.h>

namespace {

constexpr int kLockWaitMs = 2000;

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
    , m_fileUrl(std::move(options.fileUrl))
    , m_clock(std::move(options.clock))
    , m_tickInterval(options.tickInterval)
    , m_lidKeeper(options.closedLidKeeper)
{
    load();
}

SniperScheduler::~SniperScheduler()
{
    if (m_activityHeld)
        m_power.release();
}

std::optional<QString> SniperScheduler::defaultFileUrl()
{
    if (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).isEmpty())
        return std::nullopt;
    return Paths::supportFile(QStringLiteral("sniper_schedule.json"));
}

void SniperScheduler::configure(RadioRecorder &recorder, LibraryStore &library)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_recorder)
        m_recorder->disconnect(this);
    m_recorder = &recorder;
    m_library = &library;
    connect(&recorder, &RadioRecorder::sessionsChanged, this, &SniperScheduler::updatePowerAssertion);
    if (m_timer)
        return;
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

QList<ScheduledRecording> SniperScheduler::items(const QString &stationId) const
{
    QList<ScheduledRecording> result;
    for (const ScheduledRecording &p : m_items) {
        if (p.stationId == stationId)
            result.append(p);
    }
    return result;
}

void SniperScheduler::add(const ScheduledRecording &plan)
{
    Q_ASSERT(QThread::currentThread() == thread());
    QList<ScheduledRecording> items = m_items;
    items.append(plan);
    Schedule::sortByStart(items);
    setItems(std::move(items));
    save();
    updatePowerAssertion();
    if (m_lidKeeper)
        m_lidKeeper->scheduleAdded();
}

void SniperScheduler::remove(const ScheduledRecording &plan)
{
    remove(plan.id);
}

void SniperScheduler::remove(const QUuid &id)
{
    Q_ASSERT(QThread::currentThread() == thread());
    QList<ScheduledRecording> items = m_items;
    items.removeIf([&](const ScheduledRecording &p) { return p.id == id; });
    // A recording the user keeps after dropping its plan is no longer the plan's.
    m_announced.remove(id);
    setItems(std::move(items));
    save();
    updatePowerAssertion();
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
    setItems(std::move(items));
    save();
}

void SniperScheduler::tick()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_recorder)
        return;
    syncFromDisk();
    const QDateTime now = m_clock().toUTC();
    // Removing and replacing reorder the list; walk what it was.
    const QList<ScheduledRecording> snapshot = m_items;
    const QList<std::optional<Station>> stations = itemStations();
    for (qsizetype i = 0; i < snapshot.size(); ++i) {
        const ScheduledRecording &plan = snapshot[i];
        if (!stations[i]) {
            remove(plan);
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
                remove(plan);
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
    if (!m_recorder || !m_library)
        return;
    const std::optional<QString> fullShowTitle
        = plan.mode == ScheduledRecording::Mode::FullShow ? std::optional<QString>(plan.showTitle()) : std::nullopt;
    // Saved songs arrive on this thread (the session hands them over here).
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
    if (!m_fileUrl)
        return;
    m_diskState = diskState();
    const std::optional<QByteArray> bytes = AtomicFile::read(*m_fileUrl);
    m_onDisk = bytes ? Schedule::decode(*bytes).value_or(QList<ScheduledRecording>()) : QList<ScheduledRecording>();
    m_items = Schedule::rolledForward(m_onDisk, m_clock().toUTC());
    m_itemStationsStale = true;
    if (m_items != m_onDisk)
        save();
}

void SniperScheduler::save()
{
    if (!m_fileUrl)
        return;
    const QString folder = QFileInfo(*m_fileUrl).absolutePath();
    if (!QDir().mkpath(folder))
        return;
    QLockFile lock(folder + QStringLiteral("/.") + QFileInfo(*m_fileUrl).fileName() + QStringLiteral(".lock"));
    // A writer that holds the lock longer than this is stuck; writing anyway beats never.
    (void)lock.tryLock(kLockWaitMs);
    syncFromDisk();
    if (AtomicFile::write(*m_fileUrl, Schedule::encode(m_items))) {
        m_onDisk = m_items;
        m_diskState = diskState();
    }
}

bool SniperScheduler::syncFromDisk()
{
    if (!m_fileUrl)
        return false;
    const DiskState state = diskState();
    if (state == m_diskState)
        return false;
    m_diskState = state;
    const std::optional<QByteArray> bytes = state.exists ? AtomicFile::read(*m_fileUrl) : std::nullopt;
    std::optional<QList<ScheduledRecording>> theirs = bytes ? Schedule::decode(*bytes) : std::nullopt;
    if (!theirs) {
        // Gone or damaged: it holds nothing of ours any more, and whatever is written there
        // next is all new to us. Our own plans stay and go back in with the next save.
        m_onDisk.clear();
        return false;
    }
    QList<ScheduledRecording> items = merged(m_onDisk, m_items, *theirs);
    m_onDisk = std::move(*theirs);
    if (items == m_items)
        return false;
    setItems(std::move(items));
    return true;
}

SniperScheduler::DiskState SniperScheduler::diskState() const
{
    struct stat info { };
    if (!m_fileUrl || ::stat(QFile::encodeName(*m_fileUrl).constData(), &info) != 0)
        return {};
    // Atomic replacement gives every write a new inode, so a rewrite within the clock's
    // granularity and of the same size is still seen.
    return { true, qint64(info.st_size), qint64(info.st_ino),
        qint64(info.st_mtim.tv_sec) * 1000000000LL + qint64(info.st_mtim.tv_nsec) };
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
