#include "testenv.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

TestHome::TestHome()
{
    const QByteArray root = m_dir.path().toUtf8();
    qputenv("HOME", root);
    qputenv("XDG_CONFIG_HOME", root + "/config");
    qputenv("XDG_DATA_HOME", root + "/data");
    qputenv("XDG_CACHE_HOME", root + "/cache");
    qputenv("XDG_MUSIC_DIR", root + "/Music");
    QDir(m_dir.path()).mkpath(QStringLiteral("Music"));
}

bool waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents();
        QThread::msleep(1);
    }
    return true;
}

void writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(data), data.size());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

std::optional<QByteArray> runProgram(const QString &program, const QStringList &args, QString *error, int timeoutMs)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, args);
    if (!process.waitForStarted(10000)) {
        *error = program + QStringLiteral(" did not start: ") + process.errorString();
        return std::nullopt;
    }
    const QDeadlineTimer deadline(timeoutMs);
    QByteArray out;
    // Read while it runs: a minute of PCM is more than a pipe holds.
    while (process.state() != QProcess::NotRunning) {
        if (deadline.hasExpired()) {
            process.kill();
            process.waitForFinished();
            *error = program + QStringLiteral(" did not finish in time");
            return std::nullopt;
        }
        process.waitForReadyRead(100);
        out += process.readAllStandardOutput();
    }
    out += process.readAllStandardOutput();
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        *error = program + QStringLiteral(" failed: ") + QString::fromUtf8(process.readAllStandardError().right(2000));
        return std::nullopt;
    }
    return out;
}
