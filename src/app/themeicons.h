#pragma once

#include <QColor>
#include <QIcon>

class QPalette;

// The desktop's icons for the window's places and commands, and the colours that must
// read on light and dark themes alike.
//
// Each icon is looked for under the names icon themes commonly give it (freedesktop's
// naming first, then the names Breeze and Adwaita use), then falls back to the style's
// own picture, so a desktop without an icon theme still shows something for the player.
// GUI thread only.
namespace ThemeIcons {

enum class Icon {
    // Sidebar places
    Search,
    Globe,
    Favorites,
    Recents,
    Recordings,
    Schedule,
    Library,
    Settings,
    // Commands
    Play,
    Pause,
    Previous,
    Next,
    Record,
    Stop,
    Listen,
    Favorite,
    Unfavorite,
};

[[nodiscard]] QIcon icon(Icon which);

// Uses an installed icon theme when the platform named none (a bare window manager, the
// offscreen platform): a desktop with icons should show them. Call once, before the
// first icon() is asked for.
void useInstalledThemeIfNone();

// Whether the palette is a dark one: light text on a dark window.
[[nodiscard]] bool isDark(const QPalette &palette);
// Text colours for failures and successes that keep their contrast on `palette`.
[[nodiscard]] QColor errorInk(const QPalette &palette);
[[nodiscard]] QColor successInk(const QPalette &palette);

} // namespace ThemeIcons
