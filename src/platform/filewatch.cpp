#include "platform/filewatch.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>

#include <sys/stat.h>

FileWatch::FileWatch(QString path, QObject *parent)
    : QObject(parent)
    , m_path(std::move(path))
    , m_watcher(new QFileSystemWatcher(this))
{
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, &FileWatch::check);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &FileWatch::check);
    noteCurrent();
}

void FileWatch::noteCurrent()
{
    m_known = identity();
    rewatch();
}

bool FileWatch::hasChanged() const
{
    return identity() != m_known;
}

FileWatch::Identity FileWatch::identity() const
{
    struct stat info { };
    if (::stat(QFile::encodeName(m_path).constData(), &info) != 0)
        return {};
    // Atomic replacement gives every write a new inode, so a rewrite within the clock's
    // granularity and of the same size is still seen.
    return { true, qint64(info.st_ino), qint64(info.st_size),
        qint64(info.st_mtim.tv_sec) * 1000000000LL + qint64(info.st_mtim.tv_nsec) };
}

void FileWatch::rewatch()
{
    // The folder may appear later (the first write creates it): watch the nearest folder
    // that exists, and move closer as the path fills in.
    QString folder = QFileInfo(m_path).absolutePath();
    while (!QFileInfo(folder).isDir() && folder != QDir::rootPath())
        folder = QFileInfo(folder).absolutePath();
    const QStringList wanted = QFileInfo::exists(m_path) ? QStringList { folder, m_path } : QStringList { folder };
    const QStringList watched = m_watcher->files() + m_watcher->directories();
    for (const QString &path : watched) {
        if (!wanted.contains(path))
            m_watcher->removePath(path);
    }
    for (const QString &path : wanted) {
        if (!watched.contains(path))
            m_watcher->addPath(path);
    }
}

void FileWatch::check()
{
    rewatch();
    if (hasChanged())
        Q_EMIT changed();
}
