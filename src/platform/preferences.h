#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

// The user preferences ("ov." keys) in $XDG_CONFIG_HOME/Orvida/Orvida.conf.
//
// Thread-safe: every call opens its own QSettings on the file (QSettings is reentrant and
// shares one parsed copy per file inside the process), so a recording session may read
// its settings from its own thread while the GUI thread writes. Writes reach the disk
// when the call returns, so a second process (orvida-cli beside the window) sees them.
namespace Preferences {

[[nodiscard]] QVariant value(const QString &key);
[[nodiscard]] bool contains(const QString &key);
void setValue(const QString &key, const QVariant &value);
void remove(const QString &key);

// Typed reads. A stored value of another type counts as absent.
[[nodiscard]] std::optional<QByteArray> bytes(const QString &key);
[[nodiscard]] std::optional<QString> string(const QString &key);
[[nodiscard]] std::optional<qint64> integer(const QString &key);

} // namespace Preferences
