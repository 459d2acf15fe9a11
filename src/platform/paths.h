#pragma once

#include <QString>

// Where Orvida keeps its files. Everything comes from QStandardPaths so tests isolate
// themselves by pointing HOME and the XDG_* variables at a temporary folder.
namespace Paths {

// $XDG_DATA_HOME/Orvida: state files ("favorites.json", "recording_stats.json", ...).
// Not created here; writers create it when they first save.
QString supportDir();

// Full path of a file inside supportDir().
QString supportFile(const QString &name);

// $XDG_CONFIG_HOME/Orvida/Orvida.conf: the preferences (INI).
QString preferencesFile();

// The user's music folder (XDG user dirs), falling back to ~/Music.
QString musicDir();

// $XDG_CACHE_HOME/Orvida.
QString cacheDir();

} // namespace Paths
