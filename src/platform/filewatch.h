#pragma once

#include <QObject>
#include <QString>

class QFileSystemWatcher;

// Tells when another process replaced or changed one file, so a service that mirrors a
// shared state file can read it again. Watches the file and its folder (atomic writes
// replace the file, which ends a watch on the file alone) and compares the file's identity
// (inode, size, modification time) with what the owner last read or wrote, so the
// owner's own writes are not reported back to it once it has called noteCurrent().
//
// Lives on the thread that creates it; needs that thread's event loop.
class FileWatch : public QObject {
    Q_OBJECT

public:
    explicit FileWatch(QString path, QObject *parent = nullptr);

    // The file as it is now is known to the owner (just read or written).
    void noteCurrent();
    // Whether the file differs from what noteCurrent() saw; also a way to poll.
    [[nodiscard]] bool hasChanged() const;

Q_SIGNALS:
    void changed();

private:
    struct Identity {
        bool exists = false;
        qint64 inode = 0;
        qint64 size = 0;
        qint64 mtimeNs = 0;
        friend bool operator==(const Identity &, const Identity &) = default;
    };
    [[nodiscard]] Identity identity() const;
    void rewatch();
    void check();

    QString m_path;
    QFileSystemWatcher *m_watcher;
    Identity m_known;
};
