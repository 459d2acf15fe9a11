#pragma once

#include "app/closepolicy.h"

#include <QMainWindow>

#include "app/texts.h"

#include <functional>

class Application;
class FavoritesView;
class GlobeView;
class LibraryView;
class MessageBar;
class NowPlayingBar;
class QAction;
class QLabel;
class QListWidget;
class QMenu;
class QStackedWidget;
class QTimer;
class RadioView;
class RecentsView;
class RecorderTray;
class RecordingsView;
class ScheduleView;
class SettingsView;
class ToolsGateView;

struct MainWindowOptions {
    // How long the favourite notice stays.
    int toastMs = 1800;
    // Whether the missing-tools screen may come before the content.
    bool toolGate = true;
    // Whether the desktop shows tray icons (asked at every close: a panel may come later).
    std::function<bool()> trayAvailable;
    // Started hidden at login, the panel with the tray may come up after us: how often and
    // how long to look for it before staying in the background.
    int trayRetryMs = 2000;
    int trayRetryCount = 30;
};

// The main window: a sidebar of pages (radio, favourites, recents, recordings, schedule,
// library, settings) and, while ffmpeg or yt-dlp is missing, the tools screen in front of them.
// The menu bar holds every command with its keys (Ctrl+1.. the pages, Ctrl+F the page's
// search, Ctrl+, the settings, Ctrl+Q quit, the player's keys) and Help lists them all.
// Ctrl+D adds or removes the station that is playing as a favourite and shows a short
// notice at the top of the page, where it covers no buttons. Above the pages, a message bar keeps what went wrong in the background (a state
// file not written, a song not saved) until the user dismisses it.
// At the bottom, the now-playing bar runs the player: Space plays and pauses (a text field
// with the focus keeps its Space), Ctrl+Left and Ctrl+Right go to the previous and the
// next track, Ctrl+S saves the song a station is playing. A track the player had to skip
// is said in the message bar.
//
// Closing the window does not end recordings: ClosePolicy decides whether it quits, goes
// to the tray or (without a tray) asks to record on in the background. Quitting is asked
// of the program with quitRequested(); main() then shuts the services down in order.
// Ctrl+Q quits at once when nothing records or is planned, and otherwise asks the close
// question first.
//
// A change of the interface language builds the content anew (the views take their texts
// when they are built); the page, the messages and the player go on as they were.
//
// Lives on the GUI thread and borrows every service from the Application.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // In sidebar order. A new page is an entry here and one in the constructor's list.
    enum Page {
        RadioPage,
        GlobePage,
        FavoritesPage,
        RecentsPage,
        RecordingsPage,
        SchedulePage,
        LibraryPage,
        SettingsPage,
        PageCount
    };

    explicit MainWindow(Application &app, MainWindowOptions options = {}, QWidget *parent = nullptr);
    ~MainWindow() override;

    void showPage(Page page);
    [[nodiscard]] Page currentPage() const;

    // The Ctrl+D command: the station heard (connecting or playing); nothing without one.
    void toggleCurrentFavorite();
    [[nodiscard]] QString toastText() const;

    RadioView *radioView() const { return m_radio; }
    GlobeView *globeView() const { return m_globe; }
    FavoritesView *favoritesView() const { return m_favorites; }
    RecentsView *recentsView() const { return m_recents; }
    RecordingsView *recordingsView() const { return m_recordings; }
    ScheduleView *scheduleView() const { return m_schedule; }
    LibraryView *libraryView() const { return m_library; }
    SettingsView *settingsView() const { return m_settings; }
    ToolsGateView *toolsGate() const { return m_gate; }
    // What went wrong in the background (storage problems, failed saves) until dismissed.
    MessageBar *messageBar() const { return m_messages; }
    NowPlayingBar *nowPlayingBar() const { return m_nowPlaying; }
    // The page list; takes the keyboard focus, the arrow keys change the page.
    QListWidget *sidebar() const { return m_sidebar; }
    [[nodiscard]] bool showsToolsGate() const;

    // Started at login (--hidden): no window; the tray, or the background while anything
    // is planned or records.
    void startHidden();
    // Ends the program: the window closes without asking and quitRequested() follows.
    void quit();
    // Ctrl+Q: quit(), after the close question while anything records or is planned.
    void requestQuit();
    // Ctrl+F: the search or filter field of the page shown gets the focus, all selected;
    // on a page without one, the radio page's search. False when there is none to focus.
    bool focusSearch();
    // Our texts and Qt's in `language`, and the content built anew in it.
    void setInterfaceLanguage(Texts::Language language);

    // The command behind a menu entry, by its text key ("menu.find", "menu.quit", ...);
    // null for an unknown key.
    [[nodiscard]] QAction *menuAction(const char *textKey) const;
    // Every keyboard shortcut as (what it does, its keys in the desktop's notation), the
    // menu's commands first; what the shortcuts overview lists.
    [[nodiscard]] QList<std::pair<QString, QString>> shortcutList() const;
    // Help > Keyboard Shortcuts.
    void showShortcuts();
    // Absent until the window first goes to the tray.
    RecorderTray *tray() const { return m_tray; }
    // Running without a window and without a tray; quits once nothing records or is planned.
    [[nodiscard]] bool runsInBackground() const { return m_background; }

    // The user's answer to a close question.
    enum class CloseAnswer { KeepRunning, Quit, Cancel };
    // Seam for tests: asks the question of ClosePolicy::Action::AskTray or AskBackground.
    std::function<CloseAnswer(ClosePolicy::Action question)> askOnClose;

Q_SIGNALS:
    void quitRequested();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void buildContent();
    void finishWindow();
    void buildMenus();
    void retranslateMenus();
    void showContent();
    void showToast(const QString &text);
    void placeToast();
    void updateRecordingsBadge();
    void showSaveProblem(const QString &stationId, const QString &message);
    CloseAnswer askWithDialog(ClosePolicy::Action question);
    void goToTray();
    void goToBackground();
    void quitIfIdleInBackground();
    void showFromTray();

    Application &m_app;
    MainWindowOptions m_options;

    QStackedWidget *m_root = nullptr; // the tools screen or the content
    QWidget *m_content = nullptr;
    QListWidget *m_sidebar = nullptr;
    QLabel *m_analysisProgress = nullptr; // the sidebar's foot, while the library is analysed
    QStackedWidget *m_pages = nullptr;
    ToolsGateView *m_gate = nullptr;
    RadioView *m_radio = nullptr;
    GlobeView *m_globe = nullptr;
    FavoritesView *m_favorites = nullptr;
    RecentsView *m_recents = nullptr;
    RecordingsView *m_recordings = nullptr;
    ScheduleView *m_schedule = nullptr;
    LibraryView *m_library = nullptr;
    SettingsView *m_settings = nullptr;
    MessageBar *m_messages = nullptr;
    NowPlayingBar *m_nowPlaying = nullptr;
    QLabel *m_toast = nullptr;
    QTimer *m_toastTimer = nullptr;
    RecorderTray *m_tray = nullptr;
    bool m_background = false;
    QTimer *m_trayRetry = nullptr;
    bool m_quitting = false;
    struct MenuCommand {
        const char *textKey;
        QAction *action;
    };
    QList<MenuCommand> m_commands;
    // The menus by their title keys, renamed with the language.
    QList<std::pair<const char *, QMenu *>> m_menus;
};
