#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <utility>

class QProcess;
class QTimer;

struct ChildProcessOptions {
    QString program; // full path; never looked up through a shell
    QStringList arguments;
    // Added to (or replacing entries of) the inherited environment.
    QList<std::pair<QString, QString>> environment;
    QString workingDirectory; // empty: inherited
    // Written to the child's standard input, which is then closed. Empty: the child reads
    // end-of-file at once instead of waiting on a pipe nobody writes.
    QByteArray stdinData;

    // What the result keeps of each pipe: the last N bytes (errors and final lines are at
    // the end). Line and chunk callbacks see everything regardless.
    qint64 stdoutKeepBytes = qint64(64) << 20;
    qint64 stderrKeepBytes = qint64(64) << 10;
    // A child that writes more than this in total (both pipes) is killed. 0 = no limit.
    qint64 maxOutputBytes = 0;
    // Longer lines are cut to this length for the line callbacks.
    qsizetype maxLineBytes = qsizetype(64) << 10;

    // The child is killed when it runs longer than timeoutSec, or writes nothing on either
    // pipe for idleTimeoutSec. 0 = never.
    double timeoutSec = 0;
    double idleTimeoutSec = 0;

    // The child gets SIGKILL when we die, however we die (a crash, SIGKILL, the OOM
    // killer), for children that would otherwise run on unattended (a relay's ffmpeg).
    // The kernel sends it when the *thread* that called start() ends, not the process: set
    // it only from a thread that outlives the child.
    bool dieWithParent = false;
};

enum class ChildExit {
    Exited,        // exited by itself; see exitCode
    Crashed,       // ended by a signal we did not send
    FailedToStart, // see errorText
    TimedOut,      // killed by timeoutSec or idleTimeoutSec
    OutputLimit,   // killed for exceeding maxOutputBytes
    Cancelled,     // killed by cancel()
};

struct ChildProcessResult {
    ChildExit status = ChildExit::FailedToStart;
    int exitCode = -1;
    QByteArray stdoutBytes; // the kept tail, see ChildProcessOptions
    QByteArray stderrBytes;
    qint64 stdoutTotalBytes = 0;
    qint64 stderrTotalBytes = 0;
    QString errorText; // the launcher's description when the program could not start

    [[nodiscard]] bool succeeded() const { return status == ChildExit::Exited && exitCode == 0; }
    [[nodiscard]] bool stdoutTruncated() const { return stdoutTotalBytes > stdoutBytes.size(); }
    [[nodiscard]] bool stderrTruncated() const { return stderrTotalBytes > stderrBytes.size(); }
};

// Callbacks run on the ChildProcess's thread, never inside start(). Chunk callbacks get
// the raw bytes as they arrive (an audio pipe, say); line callbacks get the text split
// at "\n" and "\r" (ffmpeg rewrites its status line with carriage returns), without
// the break and without empty lines; a last line without a break comes at the end.
struct ChildProcessCallbacks {
    // Once, when the program is running (its launch can no longer fail), before any chunk.
    std::function<void()> onStarted;
    std::function<void(const QByteArray &chunk)> onStdoutChunk;
    std::function<void(const QByteArray &chunk)> onStderrChunk;
    std::function<void(const QByteArray &line)> onStdoutLine;
    std::function<void(const QByteArray &line)> onStderrLine;
    // Exactly once per start(), after every chunk and line callback. The owner may delete
    // the ChildProcess from inside it.
    std::function<void(const ChildProcessResult &)> onFinished;
};

// One run of an external program with both pipes read incrementally.
//
// Lives on the thread that creates it, which needs a running event loop; it never blocks
// that thread while the child runs. The child gets its own process group, and a kill (time-out,
// output limit, cancel, destruction) ends the whole group, so helpers the program spawned
// (yt-dlp's ffmpeg) do not outlive it. Completion is decided once, whichever of exit,
// last read and launch error Qt reports first; the pipes are drained before it is delivered.
class ChildProcess : public QObject {
    Q_OBJECT
public:
    explicit ChildProcess(QObject *parent = nullptr);
    // Kills a child that still runs and waits for it to be reaped; no callback follows.
    ~ChildProcess() override;

    // Once per object.
    void start(ChildProcessOptions options, ChildProcessCallbacks callbacks);
    // Kills the child; onFinished follows with ChildExit::Cancelled. Idempotent; no effect
    // once the run has ended.
    void cancel();

    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] qint64 processId() const;

    // Runs the program to its end on the calling thread (a thread-pool task, or a
    // command-line tool's main thread) and returns the result. Callbacks other than
    // onFinished run during the call.
    [[nodiscard]] static ChildProcessResult run(ChildProcessOptions options, ChildProcessCallbacks callbacks = {});

private:
    struct Pipe;
    void onReadable(Pipe &pipe);
    void consume(Pipe &pipe, const QByteArray &data);
    void onExited(int exitCode, int exitStatus);
    void onLaunchError();
    void kill(ChildExit reason);
    void finish(ChildProcessResult result);
    void armIdleTimer();

    ChildProcessOptions m_options;
    ChildProcessCallbacks m_callbacks;
    QProcess *m_process = nullptr;
    QTimer *m_timeout = nullptr;
    QTimer *m_idle = nullptr;
    std::unique_ptr<Pipe> m_stdout;
    std::unique_ptr<Pipe> m_stderr;
    qint64 m_pid = 0;
    ChildExit m_killReason = ChildExit::Exited; // Exited: not killed by us
    bool m_started = false;
    bool m_finished = false;
};

// Short text for logs and error messages ("timed out", ...).
QString describe(ChildExit status);
