#pragma once

#include "platform/statefile.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>

class QSettings;

// The user preferences ("ov." keys) in $XDG_CONFIG_HOME/Orvida/Orvida.conf.
//
// Thread-safe: every call opens its own QSettings on the file (QSettings is reentrant and
// shares one parsed copy per file inside the process), so a recording session may read
// its settings from its own thread while the GUI thread writes. Writes reach the disk
// when the call returns, so a second process (orvida-cli beside the window) sees them.
//
// The window and orvida-cli write the same file. Every write runs under the file's lock
// (a FileLock, as StateFile uses) on what the file holds at that moment: QSettings merges
// the keys it changes into the file's current content, and edit() lets a caller read a
// value and write it back changed without another process writing in between. A file
// that is not an INI file any more (binary junk, lines that are neither keys, sections
// nor comments) is kept as "Orvida.corrupt.conf" (numbered, never replaced) before the
// write drops what could not be read.
namespace Preferences {

[[nodiscard]] QVariant value(const QString &key);
[[nodiscard]] bool contains(const QString &key);

// Writes one key; a failed write says why, naming the file.
[[nodiscard]] StateResult store(const QString &key, const QVariant &value);
[[nodiscard]] StateResult erase(const QString &key);

// Under the lock: `change` reads the current values from the settings it is given and
// sets new ones. `isDamaged`, run first on the same settings, says whether a value the
// change builds on is damaged: the file is then kept aside as it was before the change
// is written.
[[nodiscard]] StateResult edit(
    const std::function<void(QSettings &)> &change, const std::function<bool(QSettings &)> &isDamaged = {});

// For callers that have nowhere to show a failed write (a remembered window size):
// the failure is only logged.
void setValue(const QString &key, const QVariant &value);
void remove(const QString &key);

// Typed reads. A stored value of another type counts as absent.
[[nodiscard]] std::optional<QByteArray> bytes(const QString &key);
[[nodiscard]] std::optional<QString> string(const QString &key);
[[nodiscard]] std::optional<qint64> integer(const QString &key);

// A value as read through a QSettings handed to edit(), with the same typing rules.
[[nodiscard]] std::optional<QByteArray> bytesOf(const QVariant &value);

// Whether `content` still reads as an INI file: UTF-8 text whose lines are blank,
// comments, [sections] or key=value.
[[nodiscard]] bool looksLikeIni(const QByteArray &content);

} // namespace Preferences
