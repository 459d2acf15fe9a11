#include "app/themeicons.h"

#include <QApplication>
#include <QFileInfo>
#include <QList>
#include <QPalette>
#include <QStyle>

namespace ThemeIcons {

namespace {

struct Entry {
    QList<const char *> names; // a list that owns its items: the entry is returned by value
    QStyle::StandardPixmap fallback;
};

// Full-colour names before "-symbolic" ones: Qt draws symbolic icons as they are, in a
// fixed grey that disappears on dark themes.
Entry entryOf(Icon which)
{
    switch (which) {
    case Icon::Search: return {{"system-search", "edit-find"}, QStyle::SP_FileDialogContentsView};
    case Icon::Globe: return {{"applications-internet", "internet-web-browser", "web-browser", "network-workgroup"},
                              QStyle::SP_DriveNetIcon};
    case Icon::Favorites: return {{"starred", "emblem-favorite", "bookmarks"}, QStyle::SP_DialogYesButton};
    case Icon::Recents: return {{"document-open-recent", "appointment-recurring"}, QStyle::SP_BrowserReload};
    case Icon::Recordings: return {{"media-record", "media-record-symbolic"}, QStyle::SP_DialogSaveButton};
    case Icon::Schedule: return {{"x-office-calendar", "appointment-new", "view-calendar", "alarm"},
                                 QStyle::SP_FileDialogDetailedView};
    case Icon::Library: return {{"folder-music", "audio-x-generic", "media-optical-audio"}, QStyle::SP_DirIcon};
    case Icon::Settings: return {{"preferences-system", "configure", "preferences-other"}, QStyle::SP_ComputerIcon};
    case Icon::Play: return {{"media-playback-start"}, QStyle::SP_MediaPlay};
    case Icon::Pause: return {{"media-playback-pause"}, QStyle::SP_MediaPause};
    case Icon::Previous: return {{"media-skip-backward"}, QStyle::SP_MediaSkipBackward};
    case Icon::Next: return {{"media-skip-forward"}, QStyle::SP_MediaSkipForward};
    case Icon::Record: return {{"media-record"}, QStyle::SP_DialogSaveButton};
    case Icon::Stop: return {{"media-playback-stop"}, QStyle::SP_MediaStop};
    case Icon::Listen: return {{"audio-speakers", "audio-volume-high", "audio-headphones"}, QStyle::SP_MediaVolume};
    case Icon::Favorite: return {{"starred", "emblem-favorite", "bookmark-new"}, QStyle::SP_DialogYesButton};
    case Icon::Unfavorite: return {{"non-starred", "bookmark-remove", "edit-delete"}, QStyle::SP_DialogNoButton};
    }
    return {{}, QStyle::SP_CustomBase};
}

} // namespace

QIcon icon(Icon which)
{
    const Entry entry = entryOf(which);
    for (const char *name : entry.names) {
        const QString themeName = QString::fromLatin1(name);
        if (QIcon::hasThemeIcon(themeName))
            return QIcon::fromTheme(themeName);
    }
    if (entry.fallback == QStyle::SP_CustomBase || !qApp)
        return {};
    return QApplication::style()->standardIcon(entry.fallback);
}

void useInstalledThemeIfNone()
{
    if (!QIcon::themeName().isEmpty() && QIcon::themeName() != u"hicolor")
        return;
    // Breeze before Adwaita: Adwaita's full-colour set shrank in recent releases.
    for (const char *candidate : {"breeze", "Adwaita", "gnome"}) {
        const QString name = QString::fromLatin1(candidate);
        for (const QString &root : QIcon::themeSearchPaths()) {
            if (QFileInfo::exists(root + QLatin1Char('/') + name + QStringLiteral("/index.theme"))) {
                QIcon::setThemeName(name);
                return;
            }
        }
    }
}

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

QColor errorInk(const QPalette &palette)
{
    return isDark(palette) ? QColor(0xff, 0x8a, 0x80) : QColor(0xc6, 0x28, 0x28);
}

QColor successInk(const QPalette &palette)
{
    return isDark(palette) ? QColor(0x81, 0xc7, 0x84) : QColor(0x2e, 0x7d, 0x32);
}

} // namespace ThemeIcons
