#include "app/closepolicy.h"

namespace ClosePolicy {

Action decide(const Situation &situation)
{
    if (situation.runningRecordings <= 0 && situation.plannedRecordings <= 0)
        return Action::Quit;
    // Without a tray a remembered "yes" would leave no way back to the window, and a
    // remembered "no" was an answer about the tray: ask every time.
    if (!situation.trayAvailable)
        return Action::AskBackground;
    if (!situation.keepInTray)
        return Action::AskTray;
    return *situation.keepInTray ? Action::HideToTray : Action::Quit;
}

} // namespace ClosePolicy
