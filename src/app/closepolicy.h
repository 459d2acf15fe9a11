#pragma once

#include <optional>

// What closing the main window does. Recordings must not end because a window closed:
// while anything records or is planned, Orvida stays in the system tray (once the user
// agreed to that; the answer is remembered) or, where the desktop has no tray, asks
// whether to go on in the background without a window. With nothing to do it quits.
//
// Pure: the desktop and the preferences are the caller's.
namespace ClosePolicy {

inline constexpr const char *kCloseToTrayKey = "ov.closeToTray";

struct Situation {
    int runningRecordings = 0;
    int plannedRecordings = 0;
    bool trayAvailable = false;
    // The user's answer to "keep running in the tray?"; absent until asked.
    std::optional<bool> keepInTray;
};

enum class Action {
    Quit,          // close the window and end: nothing records or waits
    HideToTray,    // hide the window, keep the tray icon
    AskTray,       // ask once whether to keep running in the tray, then remember it
    AskBackground, // no tray: keep recording without a window, quit, or cancel
};

[[nodiscard]] Action decide(const Situation &situation);

} // namespace ClosePolicy
