#pragma once

#include <QByteArray>
#include <QString>

// "Start at login": an XDG autostart entry ($XDG_CONFIG_HOME/autostart/orvida.desktop)
// that starts Orvida with --hidden, straight to the tray (or, without one, in the
// background), so planned recordings fire after a reboot. The entry itself is the
// setting: it exists or it does not, whoever made it.
//
// GUI thread; small synchronous file work.
namespace Autostart {

inline constexpr const char *kHiddenFlag = "--hidden";

[[nodiscard]] QString entryPath();
[[nodiscard]] bool isEnabled();

// The entry's text for `executable`: Exec quoted as the desktop entry format asks, so a
// path with spaces, quotes or percent signs still starts the right program.
[[nodiscard]] QByteArray entryText(const QString &executable);

// Writes (for the running executable) or removes the entry. False with `error` set to
// the entry's path when that failed; the old state is then kept.
[[nodiscard]] bool setEnabled(bool enabled, QString *error);

} // namespace Autostart
