#include "measuredprocess.h"

#include <QFile>

#include <chrono>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double seconds(const timeval &tv)
{
    return double(tv.tv_sec) + double(tv.tv_usec) / 1e6;
}

QByteArray readProcFile(pid_t pid, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// NUL-terminated copies that outlive the spawn call, and the pointer array over them.
struct CStrings {
    explicit CStrings(const QStringList &list)
    {
        for (const QString &s : list)
            storage.push_back(s.toLocal8Bit());
        for (QByteArray &s : storage)
            pointers.push_back(s.data());
        pointers.push_back(nullptr);
    }
    std::vector<QByteArray> storage;
    std::vector<char *> pointers;
};

} // namespace

namespace ProcStat {

std::optional<CpuTimes> parseStat(const QByteArray &line, long ticksPerSec)
{
    // "pid (comm) state ppid ..." where comm may hold ") ": the fields start after the last ')'.
    const qsizetype close = line.lastIndexOf(')');
    if (close < 0 || ticksPerSec <= 0)
        return std::nullopt;
    const QList<QByteArray> fields = line.mid(close + 2).trimmed().split(' ');
    // After the name: state is field 3 of the line, utime 14, stime 15, cutime 16, cstime 17.
    constexpr int kFirst = 3;
    if (fields.size() < 17 - kFirst + 1)
        return std::nullopt;
    bool ok[4] = {};
    const double utime = double(fields[14 - kFirst].toLongLong(&ok[0]));
    const double stime = double(fields[15 - kFirst].toLongLong(&ok[1]));
    const double cutime = double(fields[16 - kFirst].toLongLong(&ok[2]));
    const double cstime = double(fields[17 - kFirst].toLongLong(&ok[3]));
    if (!ok[0] || !ok[1] || !ok[2] || !ok[3])
        return std::nullopt;
    const double tick = double(ticksPerSec);
    return CpuTimes { (utime + stime) / tick, (cutime + cstime) / tick };
}

qint64 statusKib(const QByteArray &status, const QByteArray &key)
{
    for (const QByteArray &line : status.split('\n')) {
        if (!line.startsWith(key + ':'))
            continue;
        bool ok = false;
        const qint64 kib = line.mid(key.size() + 1).trimmed().split(' ').first().toLongLong(&ok);
        return ok ? kib : -1;
    }
    return -1;
}

} // namespace ProcStat

MeasuredProcess::~MeasuredProcess()
{
    if (m_pid > 0 && !m_finished.load())
        ::kill(m_pid, SIGKILL);
    if (m_reaper.joinable())
        m_reaper.join();
}

bool MeasuredProcess::start(const QString &program, const QStringList &args, const QStringList &environment,
    const QString &workDir, const QString &logPath, QString *error)
{
    const CStrings argv(QStringList { program } + args);
    const CStrings envp(environment);
    const QByteArray dir = QFile::encodeName(workDir);
    const QByteArray log = QFile::encodeName(logPath);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&actions, dir.constData());
    m_startNs = steadyNowNs();
    const int rc = ::posix_spawn(&m_pid, argv.pointers[0], &actions, nullptr, argv.pointers.data(), envp.pointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        m_pid = -1;
        *error = QStringLiteral("cannot start %1: %2").arg(program, QString::fromLocal8Bit(::strerror(rc)));
        return false;
    }
    m_reaper = std::thread([this] { reap(); });
    return true;
}

void MeasuredProcess::sample()
{
    if (m_pid <= 0 || m_finished.load())
        return;
    const qint64 hwm = ProcStat::statusKib(readProcFile(m_pid, "status"), "VmHWM");
    m_sampledHwmKib = std::max(m_sampledHwmKib, hwm);
}

void MeasuredProcess::terminate()
{
    if (m_pid > 0 && !m_finished.load())
        ::kill(m_pid, SIGTERM);
}

MeasuredProcess::Usage MeasuredProcess::usage() const
{
    Usage out = m_final;
    out.peakRssKib = m_sampledHwmKib;
    return out;
}

void MeasuredProcess::reap()
{
    // Wait for the exit but leave the zombie in place: its stat line still holds the
    // final times of the process and of the children it reaped.
    siginfo_t info {};
    while (::waitid(P_PID, id_t(m_pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const auto times = ProcStat::parseStat(readProcFile(m_pid, "stat"), ::sysconf(_SC_CLK_TCK));
    int status = 0;
    rusage usage {};
    while (::wait4(m_pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    Usage result;
    result.wallSec = double(steadyNowNs() - m_startNs) / 1e9;
    const double totalSec = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    // wait4 counts the process and its reaped children together, in finer units than
    // clock ticks; the split between them comes from the stat line.
    result.childrenCpuSec = times ? std::min(times->childrenSec, totalSec) : 0;
    result.selfCpuSec = totalSec - result.childrenCpuSec;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m_final = result;
    m_finished = true;
}
