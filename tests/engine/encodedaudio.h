#pragma once

#include "testenv.h"

#include <QProcess>
#include <QStringList>

// ffmpeg and ffprobe for tests that need real encoded audio or a second opinion on it.
namespace EncodedAudio {

inline const QString kFfmpeg = QStringLiteral("/usr/bin/ffmpeg");
inline const QString kFfprobe = QStringLiteral("/usr/bin/ffprobe");

// Runs a tool to its end and returns its stdout.
inline QByteArray run(const QString &program, const QStringList &arguments)
{
    QProcess p;
    p.start(program, arguments);
    p.waitForFinished(60'000);
    return p.readAllStandardOutput();
}

// What ffmpeg writes to `path` for `arguments` (input and codec options): the file's bytes,
// empty when it failed. Tests check the size they need.
inline QByteArray encode(const QString &path, const QStringList &arguments)
{
    run(kFfmpeg, QStringList { "-v", "error", "-y" } + arguments + QStringList { path });
    return readFile(path);
}

} // namespace EncodedAudio
