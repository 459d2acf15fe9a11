#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <sys/mount.h>

// A small tmpfs mounted over a folder for one test: a full disk (fill it) or a read-only
// folder (makeReadOnly) that even root cannot write to. Mounting needs CAP_SYS_ADMIN;
// without it mounted() is false and the test skips with reason().
class SmallFileSystem {
public:
    SmallFileSystem(const QString &folder, qint64 sizeBytes)
        : m_folder(folder)
    {
        QDir().mkpath(folder);
        const QByteArray options = "size=" + QByteArray::number(sizeBytes) + ",mode=0755";
        m_mounted = ::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0, options.constData()) == 0;
    }
    ~SmallFileSystem()
    {
        if (m_mounted)
            ::umount2(QFile::encodeName(m_folder).constData(), MNT_DETACH);
    }
    SmallFileSystem(const SmallFileSystem &) = delete;
    SmallFileSystem &operator=(const SmallFileSystem &) = delete;

    [[nodiscard]] bool mounted() const { return m_mounted; }
    [[nodiscard]] static const char *reason() { return "mounting a small file system needs CAP_SYS_ADMIN"; }

    [[nodiscard]] bool makeReadOnly()
    {
        return ::mount("tmpfs", QFile::encodeName(m_folder).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

    [[nodiscard]] bool makeWritable()
    {
        return ::mount("tmpfs", QFile::encodeName(m_folder).constData(), "tmpfs", MS_REMOUNT, nullptr) == 0;
    }

    // Fills what space is left with one file, so the next write of any size fails.
    void fill()
    {
        QFile filler(m_folder + QStringLiteral("/.filler"));
        if (!filler.open(QIODevice::WriteOnly))
            return;
        const QByteArray block(4096, 'x');
        while (filler.write(block) == block.size() && filler.flush()) { }
    }

private:
    QString m_folder;
    bool m_mounted = false;
};
