#include "engine/segmentrecovery.h"

#include "engine/apppaths.h"
#include "engine/audioframes.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QRegularExpression>
#include <QUuid>

#include <cstdio>

namespace SegmentRecovery {

namespace {

const QString kParkingPrefix = QStringLiteral(".parked-");

// Removed, never salvaged. A listening segment (".listen_") is a song nobody asked to
// keep: salvaging it would fill Recovered with every song ever heard.
bool isWorkFile(const QString &name)
{
    return name.startsWith(QLatin1String(".out_")) || name.startsWith(QLatin1String(".merged_")) ||
           name.startsWith(QLatin1String(".cover_")) || name.startsWith(QLatin1String(".listen_"));
}

const QRegularExpression &segmentName()
{
    static const QRegularExpression kSegmentName(
        QStringLiteral("^\\.[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.(mp3|aac)$"),
        QRegularExpression::CaseInsensitiveOption);
    return kSegmentName;
}

QString newUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

// A free name "Recovered <stamp>[ (n)].<ext>" in `folder`.
QString freeName(const QString &folder, const QString &stamp, const QString &ext)
{
    const QString base = folder + QStringLiteral("/Recovered ") + stamp;
    QString candidate = base + QLatin1Char('.') + ext;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n)
        candidate = base + QStringLiteral(" (%1).").arg(n) + ext;
    return candidate;
}

bool isFresh(const QFileInfo &entry, const QDateTime &now, double minAgeSec)
{
    return entry.lastModified().msecsTo(now) < qint64(minAgeSec * 1000);
}

// Copies the frames of one unlocked segment (held by `lock`) into Recovered and removes
// the segment.
void salvage(const QFileInfo &entry, SegmentLock &lock, const QString &tmpDir, const QString &recoveredDir,
             Result &result)
{
    const auto walked = AudioFrames::walkFile(entry.filePath());
    if (!walked) {
        if (entry.size() > 0)
            result.dropped.append({entry.filePath(), QStringLiteral("no audio frames")});
        lock.removeFile();
        return;
    }
    QFile in(entry.filePath());
    const uchar *mapped = in.open(QIODevice::ReadOnly) ? in.map(0, in.size()) : nullptr;
    if (!mapped)
        return;
    const QString ext = entry.suffix().toLower();
    // Written under a work name and moved, so a crash now leaves nothing half-written
    // under a final name.
    auto out = SegmentFile::create(tmpDir + QStringLiteral("/.out_") + newUuid() + QLatin1Char('.') + ext);
    if (!out)
        return;
    for (const AudioFrames::Run &run : walked->runs)
        out->write(QByteArrayView(reinterpret_cast<const char *>(mapped) + run.offset, run.bytes));
    in.unmap(const_cast<uchar *>(mapped));
    const bool written = out->flush();
    SegmentLock work = out->close();
    if (!written || out->hasError()) {
        work.removeFile();
        return;
    }
    QDir().mkpath(recoveredDir);
    const QString target =
        freeName(recoveredDir, entry.lastModified().toString(QStringLiteral("yyyy-MM-dd HH-mm-ss")), ext);
    if (std::rename(QFile::encodeName(work.path()).constData(), QFile::encodeName(target).constData()) != 0) {
        work.removeFile();
        return;
    }
    work.release();
    lock.removeFile();
    result.recovered.append({target, QFileInfo(target).completeBaseName(), walked->durationSec});
}

void recoverFolder(const QString &folder, const QString &tmpDir, const QString &recoveredDir, double minAgeSec,
                   Result &result)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &entry : entries) {
        const QString name = entry.fileName();
        const bool segment = segmentName().match(name).hasMatch();
        if (!segment && !isWorkFile(name))
            continue;
        if (isFresh(entry, now, minAgeSec))
            continue;
        auto lock = SegmentLock::tryAcquire(entry.filePath());
        if (!lock)
            continue;
        if (!segment || entry.size() == 0) {
            lock->removeFile();
            continue;
        }
        salvage(entry, *lock, tmpDir, recoveredDir, result);
    }
}

// This process's parking folder per tmp folder, with the lock that marks it as alive.
struct Parking {
    QMutex mutex;
    QHash<QString, std::pair<QString, std::shared_ptr<SegmentLock>>> folders;
};

Parking &parking()
{
    static Parking p;
    return p;
}

} // namespace

Track toTrack(const RecoveredSong &song)
{
    return Track(song.title, QString(), QString(), song.durationSec, QDateTime::currentDateTimeUtc(), QString(), false, 0,
                 QStringLiteral("radio"), std::nullopt, song.filePath);
}

Result recoverOrphans(double minAgeSec)
{
    return recoverOrphans(AppPaths::tmpDir(), AppPaths::radioDir() + QStringLiteral("/Recovered"), minAgeSec);
}

Result recoverOrphans(const QString &tmpDir, const QString &recoveredDir, double minAgeSec)
{
    Result result;
    recoverFolder(tmpDir, tmpDir, recoveredDir, minAgeSec, result);

    const QDateTime now = QDateTime::currentDateTime();
    const QFileInfoList folders = QDir(tmpDir).entryInfoList({kParkingPrefix + QLatin1Char('*')},
                                                             QDir::Dirs | QDir::Hidden | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &folder : folders) {
        if (isFresh(folder, now, minAgeSec))
            continue;
        auto alive = SegmentLock::tryAcquire(folder.filePath());
        if (!alive)
            continue; // its process still runs
        recoverFolder(folder.filePath(), tmpDir, recoveredDir, 0, result);
        // Empty now unless something could not be salvaged; then it waits for the next start.
        QDir().rmdir(folder.filePath());
    }
    return result;
}

QStringList park(std::vector<SegmentLock> segments)
{
    Parking &p = parking();
    QMutexLocker locker(&p.mutex);
    QStringList paths;
    for (SegmentLock &segment : segments) {
        if (!segment.isValid())
            continue;
        const QFileInfo info(segment.path());
        const QString tmpDir = info.absolutePath();
        auto &[folder, lock] = p.folders[tmpDir];
        if (folder.isEmpty() || !QFileInfo::exists(folder)) {
            folder = tmpDir + QLatin1Char('/') + kParkingPrefix + newUuid();
            QDir().mkpath(folder);
            auto acquired = SegmentLock::tryAcquire(folder);
            lock = acquired ? std::make_shared<SegmentLock>(std::move(*acquired)) : nullptr;
        }
        const QString target = folder + QLatin1Char('/') + info.fileName();
        if (lock && std::rename(QFile::encodeName(segment.path()).constData(), QFile::encodeName(target).constData()) == 0)
            paths << target;
        else
            paths << segment.path();
        segment.release();
    }
    return paths;
}

void leaveParking()
{
    Parking &p = parking();
    QMutexLocker locker(&p.mutex);
    for (const auto &[folder, lock] : std::as_const(p.folders)) {
        // Only an empty folder goes: what is still parked waits there for the next start.
        QDir().rmdir(folder);
    }
    p.folders.clear();
}

} // namespace SegmentRecovery
