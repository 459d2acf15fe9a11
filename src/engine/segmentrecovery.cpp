#include "engine/segmentrecovery.h"

#include "engine/apppaths.h"
#include "engine/segmentfile.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdio>

namespace SegmentRecovery {

namespace {

bool isWorkFile(const QString &name)
{
    return name.startsWith(QLatin1String(".out_")) || name.startsWith(QLatin1String(".merged_")) ||
           name.startsWith(QLatin1String(".cover_"));
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

} // namespace

QStringList recoverOrphans(double minAgeSec)
{
    return recoverOrphans(AppPaths::tmpDir(), AppPaths::radioDir() + QStringLiteral("/Recovered"), minAgeSec);
}

QStringList recoverOrphans(const QString &tmpDir, const QString &recoveredDir, double minAgeSec)
{
    static const QRegularExpression kSegmentName(
        QStringLiteral("^\\.[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.(mp3|aac)$"),
        QRegularExpression::CaseInsensitiveOption);

    QStringList recovered;
    const QDateTime now = QDateTime::currentDateTime();
    const QFileInfoList entries = QDir(tmpDir).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &entry : entries) {
        const QString name = entry.fileName();
        const QRegularExpressionMatch segment = kSegmentName.match(name);
        if (!segment.hasMatch() && !isWorkFile(name))
            continue;
        if (entry.lastModified().msecsTo(now) < qint64(minAgeSec * 1000))
            continue;
        auto lock = SegmentLock::tryAcquire(entry.filePath());
        if (!lock)
            continue;
        if (!segment.hasMatch() || entry.size() == 0) {
            lock->removeFile();
            continue;
        }
        QDir().mkpath(recoveredDir);
        const QString target = freeName(recoveredDir, entry.lastModified().toString(QStringLiteral("yyyy-MM-dd HH-mm-ss")),
                                        segment.captured(1).toLower());
        if (std::rename(QFile::encodeName(entry.filePath()).constData(), QFile::encodeName(target).constData()) != 0) {
            qWarning().noquote() << QStringLiteral("Could not recover %1 to %2").arg(entry.filePath(), target);
            continue;
        }
        recovered << target;
    }
    return recovered;
}

} // namespace SegmentRecovery
