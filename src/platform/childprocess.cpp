#include "platform/childprocess.h"

#include <QEventLoop>
#include <QMetaObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <limits>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

int toMs(double sec)
{
    const double ms = sec * 1000.0;
    if (ms >= double(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    return std::max(1, int(ms));
}

} // namespace

QString describe(ChildExit status)
{
    switch (status) {
    case ChildExit::Exited: return QStringLiteral("exited");
    case ChildExit::Crashed: return QStringLiteral("crashed");
    case ChildExit::FailedToStart: return QStringLiteral("failed to start");
    case ChildExit::TimedOut: return QStringLiteral("timed out");
    case ChildExit::OutputLimit: return QStringLiteral("too much output");
    case ChildExit::Cancelled: return QStringLiteral("cancelled");
    }
    return {};
}

// One pipe's bookkeeping. GUI-less and lock-free: everything runs on the owner's thread.
struct ChildProcess::Pipe {
    qint64 keepBytes = 0;
    QByteArray kept;
    qint64 totalBytes = 0;
    QByteArray partialLine;
    bool skippingRestOfLine = false; // the line was cut at maxLineBytes
    const std::function<void(const QByteArray &)> *onChunk = nullptr;
    const std::function<void(const QByteArray &)> *onLine = nullptr;

    void keep(const QByteArray &data)
    {
        if (keepBytes <= 0)
            return;
        kept.append(data);
        // Trim in batches so a chatty child does not cost a memmove per chunk.
        if (kept.size() > 2 * keepBytes + (64 << 10))
            kept.remove(0, kept.size() - keepBytes);
    }

    QByteArray takeKept()
    {
        if (kept.size() > keepBytes)
            kept.remove(0, kept.size() - keepBytes);
        return std::exchange(kept, {});
    }
};

ChildProcess::ChildProcess(QObject *parent)
    : QObject(parent)
    , m_stdout(std::make_unique<Pipe>())
    , m_stderr(std::make_unique<Pipe>())
{
}

ChildProcess::~ChildProcess()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->disconnect(this);
        if (m_pid > 0)
            ::kill(pid_t(-m_pid), SIGKILL);
        m_process->kill();
        // SIGKILL cannot be ignored; this only reaps the child so no zombie is left.
        m_process->waitForFinished(5000);
    }
}

void ChildProcess::start(ChildProcessOptions options, ChildProcessCallbacks callbacks)
{
    Q_ASSERT(QThread::currentThread() == thread());
    Q_ASSERT(!m_started);
    if (m_started)
        return;
    m_started = true;
    m_options = std::move(options);
    m_callbacks = std::move(callbacks);

    m_stdout->keepBytes = m_options.stdoutKeepBytes;
    m_stdout->onChunk = &m_callbacks.onStdoutChunk;
    m_stdout->onLine = &m_callbacks.onStdoutLine;
    m_stderr->keepBytes = m_options.stderrKeepBytes;
    m_stderr->onChunk = &m_callbacks.onStderrChunk;
    m_stderr->onLine = &m_callbacks.onStderrLine;

    m_process = new QProcess(this);
    m_process->setProgram(m_options.program);
    m_process->setArguments(m_options.arguments);
    if (!m_options.workingDirectory.isEmpty())
        m_process->setWorkingDirectory(m_options.workingDirectory);
    if (!m_options.environment.isEmpty()) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const auto &[name, value] : m_options.environment)
            env.insert(name, value);
        m_process->setProcessEnvironment(env);
    }
    if (m_options.stdinData.isEmpty())
        m_process->setStandardInputFile(QProcess::nullDevice());
    // Own process group: a kill reaches the helpers the program starts, and a Ctrl+C in
    // the terminal of orvida-cli does not cut a save short behind the recorder's back.
    const bool dieWithParent = m_options.dieWithParent;
    const pid_t parent = ::getpid();
    m_process->setChildProcessModifier([dieWithParent, parent] {
        ::setpgid(0, 0);
        if (dieWithParent) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            // We may have died between the fork and the prctl: nobody would send the signal.
            if (::getppid() != parent)
                ::_exit(127);
        }
    });

    connect(m_process, &QProcess::readyReadStandardOutput, this, [this] { onReadable(*m_stdout); });
    connect(m_process, &QProcess::readyReadStandardError, this, [this] { onReadable(*m_stderr); });
    connect(m_process, &QProcess::finished, this,
            [this](int exitCode, QProcess::ExitStatus status) { onExited(exitCode, int(status)); });
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        // Crashes and read/write errors are followed by finished(); only a launch
        // failure ends the run without it.
        if (error == QProcess::FailedToStart)
            onLaunchError();
    });
    connect(m_process, &QProcess::started, this, [this] {
        m_pid = m_process->processId();
        if (m_callbacks.onStarted)
            m_callbacks.onStarted();
    });

    if (m_options.timeoutSec > 0) {
        m_timeout = new QTimer(this);
        m_timeout->setSingleShot(true);
        connect(m_timeout, &QTimer::timeout, this, [this] { kill(ChildExit::TimedOut); });
        m_timeout->start(toMs(m_options.timeoutSec));
    }
    if (m_options.idleTimeoutSec > 0) {
        m_idle = new QTimer(this);
        m_idle->setSingleShot(true);
        connect(m_idle, &QTimer::timeout, this, [this] { kill(ChildExit::TimedOut); });
        armIdleTimer();
    }

    m_process->start(QIODevice::ReadWrite);
    if (m_finished)
        return; // the launch failed synchronously
    m_pid = m_process->processId();
    if (!m_options.stdinData.isEmpty()) {
        m_process->write(m_options.stdinData);
        m_process->closeWriteChannel();
    }
}

void ChildProcess::cancel()
{
    kill(ChildExit::Cancelled);
}

bool ChildProcess::isRunning() const
{
    return m_started && !m_finished;
}

qint64 ChildProcess::processId() const
{
    return m_pid;
}

void ChildProcess::armIdleTimer()
{
    if (m_idle)
        m_idle->start(toMs(m_options.idleTimeoutSec));
}

void ChildProcess::onReadable(Pipe &pipe)
{
    if (m_finished)
        return;
    const QByteArray data = &pipe == m_stdout.get() ? m_process->readAllStandardOutput()
                                                    : m_process->readAllStandardError();
    if (!data.isEmpty())
        consume(pipe, data);
}

void ChildProcess::consume(Pipe &pipe, const QByteArray &data)
{
    pipe.totalBytes += data.size();
    pipe.keep(data);
    armIdleTimer();
    if (*pipe.onChunk)
        (*pipe.onChunk)(data);

    if (*pipe.onLine) {
        const qsizetype maxLine = std::max<qsizetype>(1, m_options.maxLineBytes);
        qsizetype start = 0;
        for (qsizetype i = 0; i <= data.size(); ++i) {
            const bool atBreak = i < data.size() && (data[i] == '\n' || data[i] == '\r');
            if (!atBreak && i < data.size())
                continue;
            // [start, i) is a piece of the current line; it ends the line when atBreak.
            if (!pipe.skippingRestOfLine) {
                const qsizetype room = maxLine - pipe.partialLine.size();
                pipe.partialLine.append(data.constData() + start, std::min(room, i - start));
                if (pipe.partialLine.size() >= maxLine && !atBreak) {
                    (*pipe.onLine)(std::exchange(pipe.partialLine, {}));
                    pipe.skippingRestOfLine = true;
                }
            }
            if (atBreak) {
                if (!pipe.partialLine.isEmpty())
                    (*pipe.onLine)(std::exchange(pipe.partialLine, {}));
                pipe.skippingRestOfLine = false;
            }
            start = i + 1;
        }
    }

    if (m_options.maxOutputBytes > 0
        && m_stdout->totalBytes + m_stderr->totalBytes > m_options.maxOutputBytes)
        kill(ChildExit::OutputLimit);
}

void ChildProcess::onExited(int exitCode, int exitStatus)
{
    if (m_finished)
        return;
    // Exit and the last readyRead race; whatever is still in QProcess's buffers or the
    // pipes belongs to this run.
    for (Pipe *pipe : {m_stdout.get(), m_stderr.get()}) {
        const QByteArray rest = pipe == m_stdout.get() ? m_process->readAllStandardOutput()
                                                       : m_process->readAllStandardError();
        if (!rest.isEmpty())
            consume(*pipe, rest);
        if (!pipe->partialLine.isEmpty() && *pipe->onLine)
            (*pipe->onLine)(std::exchange(pipe->partialLine, {}));
    }

    ChildProcessResult result;
    if (m_killReason != ChildExit::Exited)
        result.status = m_killReason;
    else
        result.status = exitStatus == QProcess::CrashExit ? ChildExit::Crashed : ChildExit::Exited;
    result.exitCode = exitStatus == QProcess::NormalExit ? exitCode : -1;
    finish(std::move(result));
}

void ChildProcess::onLaunchError()
{
    if (m_finished)
        return;
    ChildProcessResult result;
    result.status = ChildExit::FailedToStart;
    result.errorText = m_process->errorString();
    finish(std::move(result));
}

void ChildProcess::kill(ChildExit reason)
{
    if (!m_started || m_finished || !m_process || m_process->state() == QProcess::NotRunning)
        return;
    if (m_killReason == ChildExit::Exited)
        m_killReason = reason;
    if (m_pid > 0)
        ::kill(pid_t(-m_pid), SIGKILL);
    m_process->kill();
}

void ChildProcess::finish(ChildProcessResult result)
{
    m_finished = true;
    if (m_timeout)
        m_timeout->stop();
    if (m_idle)
        m_idle->stop();
    result.stdoutBytes = m_stdout->takeKept();
    result.stderrBytes = m_stderr->takeKept();
    result.stdoutTotalBytes = m_stdout->totalBytes;
    result.stderrTotalBytes = m_stderr->totalBytes;
    // Queued, so no callback runs inside start() or inside QProcess's own signal
    // emission, and the owner may delete this object from onFinished.
    QMetaObject::invokeMethod(
        this,
        [this, result = std::move(result)] {
            auto onFinished = std::move(m_callbacks.onFinished);
            m_callbacks = {};
            if (onFinished)
                onFinished(result);
        },
        Qt::QueuedConnection);
}

ChildProcessResult ChildProcess::run(ChildProcessOptions options, ChildProcessCallbacks callbacks)
{
    QEventLoop loop;
    ChildProcessResult out;
    callbacks.onFinished = [&](const ChildProcessResult &result) {
        out = result;
        loop.quit();
    };
    ChildProcess child;
    child.start(std::move(options), std::move(callbacks));
    loop.exec();
    return out;
}
