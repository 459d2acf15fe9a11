#pragma once

#include "library/librarystore.h"

#include "clirunner.h"
#include "fixtureserver.h"

#include <QProcess>

#include <algorithm>

// orvida-cli running beside the test, for tests that race, signal or kill it: its stdout
// lines are collected as they come while the test's event loop runs. With `reader` its
// stdout goes to that process instead (`record ... | head`).
struct CliChild {
    QProcess process;
    QList<QByteArray> lines;

    explicit CliChild(const QStringList &args, const QProcessEnvironment &extraEnv = {},
                      const QString &program = QStringLiteral(ORVIDA_CLI_PATH), QProcess *reader = nullptr)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(extraEnv);
        process.setProcessEnvironment(env);
        if (reader)
            process.setStandardOutputProcess(reader);
        QObject::connect(&process, &QProcess::readyReadStandardOutput, [this] {
            while (process.canReadLine())
                lines << process.readLine().chopped(1);
        });
        process.start(program, args);
        EXPECT_TRUE(process.waitForStarted()) << program.toStdString();
    }
    ~CliChild()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }
    // The lines that start with `prefix`, whole.
    QList<QByteArray> starting(const QByteArray &prefix) const
    {
        QList<QByteArray> found;
        std::copy_if(lines.cbegin(), lines.cend(), std::back_inserter(found),
                     [&](const QByteArray &l) { return l.startsWith(prefix); });
        return found;
    }
    qsizetype count(const QByteArray &prefix) const { return starting(prefix).size(); }
    // Waits for the end; the exit code, or -1 for a crash or a time-out.
    int finish(int timeoutMs = 30000)
    {
        if (!process.waitForFinished(timeoutMs))
            return -1;
        for (const QByteArray &line : process.readAllStandardOutput().split('\n')) {
            if (!line.isEmpty())
                lines << line;
        }
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    QString joined() const { return QString::fromUtf8(lines.join('\n')); }
};

// The recording tests' settings: every song kept as the stream's own bytes whatever its
// length, and the music store asked on the fixture server (which answers 404).
inline QProcessEnvironment recordingSetUp(const FixtureServer &server)
{
    EXPECT_EQ(runCli({ "engine", "set", "--lossless", "on", "--min-duration", "0" }).exitCode, 0);
    QProcessEnvironment env;
    env.insert(QStringLiteral("ORVIDA_STORE_URL"), QString::fromLatin1(server.url("/search")));
    return env;
}

// One field of every track in the library, in the library's order.
template <typename Field>
QStringList libraryTracks(Field field)
{
    LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
    EXPECT_TRUE(opened) << opened.message.toStdString();
    QStringList found;
    if (opened) {
        for (const Track &t : opened.store->allTracks())
            found << field(t);
    }
    return found;
}

inline QStringList libraryTitles()
{
    return libraryTracks([](const Track &t) { return t.artist + QStringLiteral(" - ") + t.title; });
}

inline QStringList libraryFiles()
{
    return libraryTracks([](const Track &t) { return t.filePath.value_or(QString()); });
}
