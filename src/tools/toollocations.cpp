#include "tools/toollocations.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

const ToolLocations &ToolLocations::system()
{
    static const ToolLocations locations = [] {
        ToolLocations l;
        if (QCoreApplication::instance())
            l.bundleBinDir = QCoreApplication::applicationDirPath();
        l.supportBinDir = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QStringLiteral("/Orvida Studio/bin");
        l.systemBinDirs = {QDir::homePath() + QStringLiteral("/.local/bin"), QStringLiteral("/usr/local/bin"),
            QStringLiteral("/usr/bin")};
        return l;
    }();
    return locations;
}

QString ToolLocations::findFfmpegDir() const
{
    for (const QString &dir : QStringList{bundleBinDir} + systemBinDirs) {
        if (ffmpegPresent(dir))
            return dir;
    }
    return bundleBinDir;
}

QString ToolLocations::findYtDlpPath() const
{
    if (isExecutableFile(privateYtDlpPath()))
        return privateYtDlpPath();
    for (const QString &dir : QStringList{bundleBinDir} + systemBinDirs) {
        const QString candidate = dir + QStringLiteral("/yt-dlp");
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return bundleYtDlpPath();
}

bool ToolLocations::ffmpegPresent(const QString &ffmpegDir)
{
    return QFileInfo::exists(ffmpegDir + QStringLiteral("/ffmpeg"));
}

bool ToolLocations::ytdlpPresent(const QString &ytdlpPath)
{
    return QFileInfo::exists(ytdlpPath);
}

bool isExecutableFile(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}
