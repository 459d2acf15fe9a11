#include "measuredprocess.h"

#include "testenv.h"

#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

TEST(ProcStatTest, ReadsTheTimesAfterACommandNameWithParentheses)
{
    // pid (comm) state ppid pgrp session tty tpgid flags minflt cminflt majflt cmajflt
    // utime stime cutime cstime ...
    const QByteArray line = "4242 (a) (b c) R 1 4242 4242 0 -1 4194304 10 0 0 0 250 50 120 30 20 0 1 0 99 0 0\n";
    const auto times = ProcStat::parseStat(line, 100);
    ASSERT_TRUE(times);
    EXPECT_DOUBLE_EQ(times->selfSec, 3.0);
    EXPECT_DOUBLE_EQ(times->childrenSec, 1.5);
    EXPECT_FALSE(ProcStat::parseStat("4242 (a) R 1 2 3", 100)) << "too few fields";
    EXPECT_FALSE(ProcStat::parseStat("no name here", 100));
}

TEST(ProcStatTest, FindsOneKeyOfTheStatusFile)
{
    const QByteArray status = "Name:\tx\nVmPeak:\t  9000 kB\nVmHWM:\t    5120 kB\nVmRSS:\t    4096 kB\n";
    EXPECT_EQ(ProcStat::statusKib(status, "VmHWM"), 5120);
    EXPECT_EQ(ProcStat::statusKib(status, "VmRSS"), 4096);
    EXPECT_EQ(ProcStat::statusKib(status, "VmSwap"), -1);
    EXPECT_EQ(ProcStat::statusKib("VmHWMx:\t1 kB\n", "VmHWM"), -1) << "a longer key is another key";
}

TEST(MeasuredProcessTest, CountsTheProcessAndTheChildrenItWaitedForApart)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // The shell spins, then runs a second shell that spins about half as long.
    const QString script = QStringLiteral("pwd; i=0; while [ $i -lt 400000 ]; do i=$((i+1)); done; "
                                          "sh -c 'j=0; while [ $j -lt 200000 ]; do j=$((j+1)); done'; "
                                          "echo oops >&2; exit 3");
    MeasuredProcess process;
    QString error;
    ASSERT_TRUE(process.start(QStringLiteral("/bin/sh"), { QStringLiteral("-c"), script },
        QProcessEnvironment::systemEnvironment().toStringList(), dir.path(), dir.filePath(QStringLiteral("log")), &error))
        << error.toStdString();
    while (!process.isFinished()) {
        process.sample();
        QThread::msleep(20);
    }
    const MeasuredProcess::Usage usage = process.usage();
    EXPECT_EQ(usage.exitCode, 3);
    EXPECT_GT(usage.selfCpuSec, 0.05);
    EXPECT_GT(usage.childrenCpuSec, 0.02);
    EXPECT_GT(usage.selfCpuSec, usage.childrenCpuSec) << "the parent spun twice as long";
    EXPECT_GE(usage.wallSec, usage.cpuSec() * 0.9) << "one thread cannot use more CPU than time passed";
    EXPECT_GT(usage.peakRssKib, 0);
    EXPECT_EQ(readFile(dir.filePath(QStringLiteral("log"))), dir.path().toUtf8() + "\noops\n")
        << "output and errors go to the log, the work folder is the one given";
}

TEST(MeasuredProcessTest, AProgramThatCannotStartSaysSo)
{
    MeasuredProcess process;
    QString error;
    EXPECT_FALSE(process.start(QStringLiteral("/nonexistent/recorder"), {}, {}, QStringLiteral("/"),
        QStringLiteral("/dev/null"), &error));
    EXPECT_TRUE(error.contains(QLatin1String("/nonexistent/recorder"))) << error.toStdString();
}

TEST(MeasuredProcessTest, TerminateEndsALongRun)
{
    MeasuredProcess process;
    QString error;
    ASSERT_TRUE(process.start(QStringLiteral("/bin/sleep"), { QStringLiteral("60") }, {}, QStringLiteral("/"),
        QStringLiteral("/dev/null"), &error))
        << error.toStdString();
    process.terminate();
    EXPECT_TRUE(waitUntil([&] { return process.isFinished(); }, 10000));
    EXPECT_EQ(process.usage().exitCode, -1) << "ended by a signal";
}

} // namespace
