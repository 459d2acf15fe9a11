#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <optional>

// Points HOME and the XDG folders at a fresh temporary folder for the life of the
// object, so preferences, state files and the music folder of a test never touch the
// user's own. Restores nothing: each test makes a new one.
class TestHome {
public:
    TestHome();
    QString path() const { return m_dir.path(); }
    QString file(const QString &relative) const { return m_dir.filePath(relative); }

private:
    QTemporaryDir m_dir;
};

// Runs the event loop until `done` holds or `timeoutMs` passes. Returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 5000);

// Writes `data` to `path`, creating folders. Fails the calling test on error.
void writeFile(const QString &path, const QByteArray &data);
QByteArray readFile(const QString &path);

// Runs a helper program (ffmpeg, ffprobe) to its end and returns what it wrote to stdout;
// absent, with the reason in `error`, when it did not start, failed or outlived `timeoutMs`.
std::optional<QByteArray> runProgram(const QString &program, const QStringList &args, QString *error,
                                  int timeoutMs = 120000);
