#pragma once

#include <QString>
#include <QStringList>

#include <atomic>
#include <optional>
#include <thread>

#include <sys/types.h>

// A child process whose cost is measured from outside: CPU time (user + system) of the
// process itself and of the child processes it ran and waited for, and its peak resident
// memory.
//
// A reaper thread of its own waits for the process to end. It reads the final CPU times
// from /proc/<pid>/stat while the process is still a zombie (so nothing is lost between
// the last sample and the exit), then reaps it with wait4. The peak resident memory is
// the process's own VmHWM, which a zombie no longer has, so the owner samples it with
// sample() while it runs. (wait4's ru_maxrss is no help: it counts in the memory of
// the program that spawned the process, whose pages the child had until its exec.)
//
// Owned by one thread; sample() and isFinished() are called from it, the reaper thread
// only publishes through the atomics below.
class MeasuredProcess {
public:
    struct Usage {
        double selfCpuSec = 0; // the process itself
        double childrenCpuSec = 0; // the children it ran and waited for
        qint64 peakRssKib = 0; // VmHWM, last sample before the exit
        double wallSec = 0;
        int exitCode = -1; // -1: killed by a signal
        [[nodiscard]] double cpuSec() const { return selfCpuSec + childrenCpuSec; }
    };

    MeasuredProcess() = default;
    MeasuredProcess(const MeasuredProcess &) = delete;
    MeasuredProcess &operator=(const MeasuredProcess &) = delete;
    ~MeasuredProcess(); // kills a process still running and reaps it

    // Starts `program` with `args` in `workDir`, with exactly `environment` ("KEY=value"
    // entries), standard output and error going to `logPath`. False with the reason.
    [[nodiscard]] bool start(const QString &program, const QStringList &args, const QStringList &environment,
        const QString &workDir, const QString &logPath, QString *error);

    // Reads the peak resident memory so far; call about once a second or more often.
    void sample();
    [[nodiscard]] bool isFinished() const { return m_finished.load(); }
    // Asks a process that outlived its time to end (SIGTERM).
    void terminate();
    // Valid once isFinished().
    [[nodiscard]] Usage usage() const;

private:
    void reap(); // on m_reaper

    pid_t m_pid = -1;
    std::thread m_reaper;
    std::atomic<bool> m_finished { false };
    qint64 m_startNs = 0;
    qint64 m_sampledHwmKib = 0;
    Usage m_final; // written by the reaper before m_finished is set
};

namespace ProcStat {

// CPU seconds from one /proc/<pid>/stat line: the process's own (utime + stime) and its
// waited-for children's (cutime + cstime). Absent when the line cannot be read; the
// command name in parentheses may itself hold spaces and parentheses.
struct CpuTimes {
    double selfSec = 0;
    double childrenSec = 0;
};
[[nodiscard]] std::optional<CpuTimes> parseStat(const QByteArray &line, long ticksPerSec);

// The KiB of one "Key:  1234 kB" line of /proc/<pid>/status, or -1.
[[nodiscard]] qint64 statusKib(const QByteArray &status, const QByteArray &key);

} // namespace ProcStat
