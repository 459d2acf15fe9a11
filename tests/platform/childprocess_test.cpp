#include "platform/childprocess.h"

#include "testenv.h"

#include <QFile>
#include <QThreadPool>

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <memory>

namespace {

// Running and not a zombie waiting for its parent.
bool isAlive(qint64 pid)
{
    if (::kill(pid_t(pid), 0) != 0)
        return false;
    const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    return !stat.contains(") Z ");
}

struct ChildRun {
    std::unique_ptr<ChildProcess> child = std::make_unique<ChildProcess>();
    QList<QByteArray> outLines, errLines;
    QByteArray outChunks;
    int finishedCount = 0;
    ChildProcessResult result;

    void start(ChildProcessOptions options)
    {
        ChildProcessCallbacks callbacks;
        callbacks.onStdoutChunk = [this](const QByteArray &chunk) { outChunks += chunk; };
        callbacks.onStdoutLine = [this](const QByteArray &line) { outLines << line; };
        callbacks.onStderrLine = [this](const QByteArray &line) { errLines << line; };
        callbacks.onFinished = [this](const ChildProcessResult &r) {
            result = r;
            ++finishedCount;
        };
        child->start(std::move(options), std::move(callbacks));
    }
    bool wait(int timeoutMs = 10000)
    {
        return waitUntil([this] { return finishedCount > 0; }, timeoutMs);
    }
};

ChildProcessOptions sh(const QString &script)
{
    ChildProcessOptions options;
    options.program = QStringLiteral("/bin/sh");
    options.arguments = {QStringLiteral("-c"), script};
    return options;
}

TEST(ChildProcessTest, KeepsPipesApartAndSplitsLinesAtEitherBreak)
{
    ChildRun run;
    run.start(sh("printf 'a\\nb\\r\\nc\\rd'; printf 'e1\\ne2' >&2; exit 3"));
    ASSERT_TRUE(run.wait());
    EXPECT_EQ(run.result.status, ChildExit::Exited);
    EXPECT_EQ(run.result.exitCode, 3);
    EXPECT_FALSE(run.result.succeeded());
    EXPECT_EQ(run.result.stdoutBytes, "a\nb\r\nc\rd");
    EXPECT_EQ(run.outChunks, run.result.stdoutBytes);
    EXPECT_EQ(run.outLines, (QList<QByteArray>{"a", "b", "c", "d"}));
    EXPECT_EQ(run.errLines, (QList<QByteArray>{"e1", "e2"}));
}

TEST(ChildProcessTest, BoundsLinesAndKeptOutputButCountsEveryByte)
{
    ChildRun run;
    ChildProcessOptions options =
        sh("printf '0123456789abcdef\\nshort\\n'; head -c 1000000 /dev/zero | tr '\\0' a >&2; echo END >&2");
    options.maxLineBytes = 8;
    options.stderrKeepBytes = 64 << 10;
    run.start(options);
    ASSERT_TRUE(run.wait());
    EXPECT_EQ(run.outLines, (QList<QByteArray>{"01234567", "short"}));
    EXPECT_EQ(run.result.stderrTotalBytes, 1000004);
    EXPECT_EQ(run.result.stderrBytes.size(), 64 << 10);
    EXPECT_TRUE(run.result.stderrBytes.endsWith("aaaEND\n"));
    EXPECT_TRUE(run.result.stderrTruncated());
    EXPECT_FALSE(run.result.stdoutTruncated());
}

TEST(ChildProcessTest, KillsAFloodAtTheOutputLimit)
{
    ChildRun run;
    // Long lines keep the collected line list short.
    ChildProcessOptions options = sh("echo $$ >&2; exec yes \"$(head -c 4000 /dev/zero | tr '\\0' x)\"");
    options.maxOutputBytes = 4 << 20;
    options.stdoutKeepBytes = 1024;
    run.start(options);
    ASSERT_TRUE(run.wait());
    EXPECT_EQ(run.result.status, ChildExit::OutputLimit);
    EXPECT_GT(run.result.stdoutTotalBytes, 4 << 20);
    EXPECT_LE(run.result.stdoutBytes.size(), 1024);
    ASSERT_FALSE(run.errLines.isEmpty());
    EXPECT_FALSE(isAlive(run.errLines.first().toLongLong()));
}

TEST(ChildProcessTest, TimeOutEndsTheChildAndEverythingItStarted)
{
    ChildRun run;
    ChildProcessOptions options = sh("sleep 600 & echo $!; wait");
    options.timeoutSec = 0.3;
    run.start(options);
    ASSERT_TRUE(run.wait());
    EXPECT_EQ(run.result.status, ChildExit::TimedOut);
    ASSERT_EQ(run.outLines.size(), 1);
    const qint64 grandchild = run.outLines.first().toLongLong();
    EXPECT_TRUE(waitUntil([&] { return !isAlive(grandchild); }, 5000));
}

TEST(ChildProcessTest, IdleTimeOutIsRestartedByOutputAndEndsASilentChild)
{
    ChildRun talking;
    ChildProcessOptions options = sh("for i in 1 2 3 4 5 6 7 8; do echo $i; sleep 0.2; done");
    options.idleTimeoutSec = 0.8;
    talking.start(options);
    ChildRun silent;
    options = sh("echo hello; sleep 600");
    options.idleTimeoutSec = 0.3;
    silent.start(options);
    ASSERT_TRUE(talking.wait());
    ASSERT_TRUE(silent.wait());
    EXPECT_TRUE(talking.result.succeeded());
    EXPECT_EQ(talking.outLines.size(), 8);
    EXPECT_EQ(silent.result.status, ChildExit::TimedOut);
    EXPECT_EQ(silent.outLines, QList<QByteArray>{"hello"});
}

TEST(ChildProcessTest, FinishesWhenTheChildExitsEvenIfAGrandchildHoldsThePipe)
{
    ChildRun run;
    run.start(sh("sleep 60 & echo started"));
    ASSERT_TRUE(run.wait(20000));
    EXPECT_TRUE(run.result.succeeded());
    EXPECT_EQ(run.outLines, QList<QByteArray>{"started"});
    ::kill(pid_t(-run.child->processId()), SIGKILL);
}

TEST(ChildProcessTest, PassesEnvironmentAndStdinAndNeverLeavesStdinOpen)
{
    ChildRun withoutInput;
    ChildProcessOptions options = sh("printf '%s|' \"$ORVIDA_CHILD_TEST\"; cat");
    options.environment = {{"ORVIDA_CHILD_TEST", "value"}};
    withoutInput.start(options);
    ChildRun withInput;
    options.stdinData = "piped";
    withInput.start(options);
    ASSERT_TRUE(withoutInput.wait());
    ASSERT_TRUE(withInput.wait());
    EXPECT_EQ(withoutInput.result.stdoutBytes, "value|");
    EXPECT_EQ(withInput.result.stdoutBytes, "value|piped");
}

TEST(ChildProcessTest, LaunchFailureAndCancelAreReportedOnceAndDestructionIsSilent)
{
    ChildRun missing;
    ChildProcessOptions options;
    options.program = QStringLiteral("/nonexistent/orvida-tool");
    missing.start(options);
    ChildRun cancelled;
    cancelled.start(sh("sleep 600"));
    cancelled.child->cancel();
    cancelled.child->cancel();
    auto destroyed = std::make_unique<ChildRun>();
    destroyed->start(sh("exec sleep 600"));
    ASSERT_TRUE(waitUntil([&] { return destroyed->child->processId() > 0; }));
    const qint64 pid = destroyed->child->processId();
    destroyed->child.reset();

    ASSERT_TRUE(missing.wait());
    ASSERT_TRUE(cancelled.wait());
    waitUntil([] { return false; }, 200); // a second delivery would arrive here
    EXPECT_EQ(missing.finishedCount, 1);
    EXPECT_EQ(missing.result.status, ChildExit::FailedToStart);
    EXPECT_FALSE(missing.result.errorText.isEmpty());
    EXPECT_EQ(cancelled.finishedCount, 1);
    EXPECT_EQ(cancelled.result.status, ChildExit::Cancelled);
    EXPECT_EQ(destroyed->finishedCount, 0);
    EXPECT_FALSE(isAlive(pid));
}

// Exit, the last read and launch errors race inside QProcess; each run must end once,
// with all of its output, even when its owner deletes it from the completion.
TEST(ChildProcessTest, ManyShortChildrenEachCompleteExactlyOnceWithAllTheirOutput)
{
    constexpr int kRuns = 240;
    constexpr int kParallel = 16;
    std::vector<int> completions(kRuns, 0);
    std::vector<ChildProcessResult> results(kRuns);
    int started = 0;
    int running = 0;
    const auto startNext = [&](auto &self) -> void {
        const int index = started++;
        ChildProcessOptions options;
        switch (index % 4) {
        case 0: options = sh("head -c 200000 /dev/zero"); break;
        case 1: options = sh("echo err >&2; exit 7"); break;
        case 2: options.program = QStringLiteral("/nonexistent/orvida-tool"); break;
        case 3: options.program = QStringLiteral("/bin/true"); break;
        }
        auto *child = new ChildProcess;
        ++running;
        child->start(options, {.onFinished = [&, index, child](const ChildProcessResult &result) {
                                   delete child;
                                   ++completions[index];
                                   results[index] = result;
                                   --running;
                                   if (started < kRuns)
                                       self(self);
                               }});
    };
    for (int i = 0; i < kParallel; ++i)
        startNext(startNext);
    ASSERT_TRUE(waitUntil([&] { return started == kRuns && running == 0; }, 120000));
    waitUntil([] { return false; }, 300);
    for (int i = 0; i < kRuns; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(completions[i], 1);
        const ChildProcessResult &r = results[i];
        const bool asExpected = (i % 4 == 0 && r.succeeded() && r.stdoutBytes.size() == 200000)
            || (i % 4 == 1 && r.exitCode == 7 && r.stderrBytes == "err\n")
            || (i % 4 == 2 && r.status == ChildExit::FailedToStart) || (i % 4 == 3 && r.succeeded());
        ASSERT_TRUE(asExpected) << describe(r.status).toStdString() << " " << r.exitCode;
    }
}

TEST(ChildProcessTest, RunBlocksOnAPoolThreadAndCallsBackThere)
{
    std::promise<std::pair<ChildProcessResult, bool>> promise;
    QThreadPool::globalInstance()->start([&promise] {
        bool linesOnThisThread = false;
        const QThread *self = QThread::currentThread();
        ChildProcessResult result = ChildProcess::run(
            sh("echo one; echo two"),
            {.onStdoutLine = [&](const QByteArray &) { linesOnThisThread = QThread::currentThread() == self; }});
        promise.set_value({result, linesOnThisThread});
    });
    auto future = promise.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    const auto [result, linesOnThisThread] = future.get();
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(result.stdoutBytes, "one\ntwo\n");
    EXPECT_TRUE(linesOnThisThread);
}

} // namespace
