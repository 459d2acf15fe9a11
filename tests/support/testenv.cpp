#include "testenv.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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
