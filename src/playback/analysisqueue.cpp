#include "playback/analysisqueue.h"

#include <algorithm>

#include <QMetaObject>
#include <QThread>

#if defined(Q_OS_LINUX)
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace {

QString jobKey(const QString &kind, const QString &path)
{
    return kind + QLatin1Char('\n') + path;
}

// Only when nothing else wants the CPU: a library of thousands of files must not cost a
// recording a dropped packet or the window a frame.
void lowerPriority()
{
#if defined(Q_OS_LINUX)
    sched_param param {};
    if (pthread_setschedparam(pthread_self(), SCHED_IDLE, &param) != 0)
        (void)setpriority(PRIO_PROCESS, pid_t(syscall(SYS_gettid)), 19);
#endif
}

} // namespace

AnalysisQueue::AnalysisQueue(LibraryStore &library, QObject *parent)
    : QObject(parent)
    , m_library(library)
{
    connect(&m_library, &LibraryStore::tracksInserted, this, &AnalysisQueue::onTracksInserted);
}

AnalysisQueue::~AnalysisQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    if (m_worker.joinable())
        m_worker.join();
}

void AnalysisQueue::addAnalyser(const QString &kind, Analyser analyser)
{
    Q_ASSERT(QThread::currentThread() == thread());
    Q_ASSERT(!isRunning());
    m_analysers.emplace_back(kind, std::move(analyser));
}

void AnalysisQueue::start()
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (isRunning())
        return;
    for (const auto &[kind, analyser] : m_analysers) {
        for (const QString &path : m_library.pathsWithoutAnalysis(kind))
            enqueue(kind, path, false);
    }
    m_worker = std::thread([this] { run(); });
}

QSet<QString> AnalysisQueue::failedPaths(const QString &kind) const
{
    QSet<QString> paths;
    const QString prefix = kind + QLatin1Char('\n');
    for (const QString &key : m_failed) {
        if (key.startsWith(prefix))
            paths.insert(key.mid(prefix.size()));
    }
    return paths;
}

void AnalysisQueue::enqueue(const QString &kind, const QString &path, bool front)
{
    const QString key = jobKey(kind, path);
    if (path.isEmpty() || m_queued.contains(key) || m_failed.contains(key))
        return;
    if (m_done == m_total)
        m_done = m_total = 0; // a new round: "3 / 5", not "1203 / 1205"
    m_queued.insert(key);
    if (m_jobsOfPath[path]++ == 0)
        ++m_total;
    {
        std::lock_guard lock(m_mutex);
        if (front)
            m_jobs.push_front(Job { kind, path });
        else
            m_jobs.push_back(Job { kind, path });
    }
    m_wake.notify_one();
    Q_EMIT progressChanged(m_done, m_total);
}

void AnalysisQueue::prioritise(const QString &kind, const QString &path)
{
    if (!m_queued.contains(jobKey(kind, path))) {
        enqueue(kind, path, true);
        return;
    }
    std::lock_guard lock(m_mutex);
    const auto it = std::find_if(m_jobs.begin(), m_jobs.end(),
                                 [&](const Job &job) { return job.kind == kind && job.path == path; });
    if (it == m_jobs.end())
        return; // the worker has it already
    Job job = std::move(*it);
    m_jobs.erase(it);
    m_jobs.push_front(std::move(job));
}

void AnalysisQueue::onTracksInserted(const QList<Track> &tracks)
{
    // Pushed to the front in reverse, so that they are analysed in the order they came.
    for (auto it = tracks.crbegin(); it != tracks.crend(); ++it) {
        if (!it->filePath)
            continue;
        for (auto kind = m_analysers.crbegin(); kind != m_analysers.crend(); ++kind)
            enqueue(kind->first, *it->filePath, true);
    }
}

void AnalysisQueue::finished(
    const Job &job, std::optional<LibraryStore::FileStamp> stamp, std::optional<QByteArray> json)
{
    const QString key = jobKey(job.kind, job.path);
    m_queued.remove(key);
    if (!stamp || !json || !m_library.setAnalysis(job.path, job.kind, *stamp, *json))
        m_failed.insert(key);
    if (--m_jobsOfPath[job.path] > 0)
        return;
    m_jobsOfPath.remove(job.path);
    ++m_done;
    Q_EMIT progressChanged(m_done, m_total);
}

void AnalysisQueue::run()
{
    lowerPriority();
    for (;;) {
        Job job;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_stopping)
                return;
            job = m_jobs.front();
            m_jobs.pop_front();
        }
        const Analyser *analyser = nullptr;
        for (const auto &[kind, function] : m_analysers) {
            if (kind == job.kind)
                analyser = &function;
        }
        // Stamped before the analysis: a file rewritten meanwhile is stored under its old
        // stamp and so counts as not analysed.
        const auto stamp = LibraryStore::FileStamp::of(job.path);
        std::optional<QByteArray> json;
        if (stamp && analyser)
            json = (*analyser)(job.path);
        QMetaObject::invokeMethod(
            this, [this, job, stamp, json] { finished(job, stamp, json); }, Qt::QueuedConnection);
    }
}
