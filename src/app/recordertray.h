#pragma once

#include <QObject>

#include <memory>

class Application;
class QAction;
class QMenu;
class QSystemTrayIcon;

// The system tray icon that keeps Orvida reachable while its window is closed and
// recordings go on. Its menu lists the running recordings (station and current title,
// kept up to date), then "Show Orvida" and "Quit"; what those two do is the window's.
//
// Lives on the GUI thread and borrows the recorder from the Application.
class RecorderTray : public QObject {
    Q_OBJECT

public:
    explicit RecorderTray(Application &app, QObject *parent = nullptr);
    ~RecorderTray() override;

    void show();
    [[nodiscard]] bool isShown() const { return m_shown; }

    QMenu *menu() const { return m_menu.get(); }
    QAction *showAction() const { return m_show; }
    QAction *quitAction() const { return m_quit; }

Q_SIGNALS:
    void showRequested();
    void quitRequested();

private:
    void updateRecordings();

    Application &m_app;
    // The menu has no parent widget, so it is owned here and outlives the icon using it.
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_icon = nullptr;
    QAction *m_recordingsEnd = nullptr; // the separator after the recording entries
    QAction *m_show = nullptr;
    QAction *m_quit = nullptr;
    bool m_shown = false;
};
