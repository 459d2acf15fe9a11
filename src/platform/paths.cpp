#include "platform/paths.h"

#include <QDir>
#include <QStandardPaths>

namespace Paths {

QString supportDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + QStringLiteral("/Orvida");
}

QString supportFile(const QString &name)
{
    return supportDir() + QLatin1Char('/') + name;
}

QString preferencesFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/Orvida/Orvida.conf");
}

QString musicDir()
{
    QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    if (music.isEmpty())
        music = QDir::homePath() + QStringLiteral("/Music");
    return music;
}

QString cacheDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + QStringLiteral("/Orvida");
}

} // namespace Paths
