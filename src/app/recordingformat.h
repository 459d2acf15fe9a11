#pragma once

#include "engine/sessionstatus.h"

#include <QString>

// How a recording's state reads in the window, in the interface language. Pure: the
// view passes the values it holds.
namespace RecordingFormat {

// "● Recording", "Connecting…", "Reconnecting in 3 s (attempt 2 of 8): <reason>",
// "Gave up: Stream interrupted (<reason>)", "Stopped". `error` is the session's error
// text (the engine's German literal when it gave up); shown translated.
[[nodiscard]] QString statusText(const SessionStatus &status, const QString &error);

// "0:07", "12:34", "1:02:03".
[[nodiscard]] QString elapsedText(qint64 ms);
// "0 bytes", "512 KB", "1.2 MB" in the display locale.
[[nodiscard]] QString bytesText(qint64 bytes);

} // namespace RecordingFormat
