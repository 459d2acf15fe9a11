#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

#include <gtest/gtest.h>

// Runs the real orvida-cli (ORVIDA_CLI_PATH, defined for the test binaries that use this)
// in the test's environment: a TestHome has pointed HOME and XDG_* at its folder and the
// child inherits that. `extraEnv` adds variables (ORVIDA_DIRECTORY_URL, ...).
struct CliRun {
    int exitCode = -1; // -1: crashed or did not finish
    QByteArray out;
    QByteArray err;
};

inline CliRun runCli(const QStringList &args, const QProcessEnvironment &extraEnv = {}, int timeoutMs = 30000)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(extraEnv);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(ORVIDA_CLI_PATH), args);
    CliRun run;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        ADD_FAILURE() << "orvida-cli " << args.join(' ').toStdString() << " did not finish";
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}
