#pragma once

#include "testenv.h"

#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

// Audio files and pictures made by ffmpeg for the window's player tests.
namespace TestAudio {

inline constexpr int kRate = 44100;

// A stereo sine of `seconds` at 44100 Hz, in the format the suffix of `path` names;
// with a picture, embedded as the front cover. Fails the test when ffmpeg fails.
inline void makeTone(const QString &path, double seconds, int hz, const QString &picture = QString())
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QStringList args { "-v", "error", "-y", "-f", "lavfi", "-i",
        QStringLiteral("sine=frequency=%1:duration=%2:sample_rate=%3").arg(hz).arg(seconds).arg(kRate) };
    if (!picture.isEmpty())
        args << "-i" << picture << "-map"
             << "0:a"
             << "-map"
             << "1:v"
             << "-c:v"
             << "copy"
             << "-disposition:v"
             << "attached_pic";
    args << "-ac"
         << "2";
    if (path.endsWith(QStringLiteral(".mp3")))
        args << "-c:a"
             << "libmp3lame"
             << "-b:a"
             << "128k"
             << "-id3v2_version"
             << "3";
    args << path;
    QString error;
    ASSERT_TRUE(runProgram(QStringLiteral("/usr/bin/ffmpeg"), args, &error)) << error.toStdString();
}

// A one-colour picture (JPEG or PNG, by the suffix).
inline void makePicture(const QString &path, const QString &colour, int width, int height)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QString error;
    ASSERT_TRUE(runProgram(QStringLiteral("/usr/bin/ffmpeg"),
        { "-v", "error", "-y", "-f", "lavfi", "-i",
            QStringLiteral("color=c=%1:s=%2x%3:d=1").arg(colour).arg(width).arg(height), "-frames:v", "1", path },
        &error))
        << error.toStdString();
}

} // namespace TestAudio
