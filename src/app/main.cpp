#include "app/application.h"
#include "app/autostart.h"
#include "app/mainwindow.h"
#include "app/mprisservice.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "app/uilanguage.h"
#include "platform/signalwatcher.h"

#include <QApplication>
#include <QIcon>

#include <memory>

int main(int argc, char **argv)
{
    QApplication qapp(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Orvida"));
    QApplication::setOrganizationName(QStringLiteral("Orvida"));
    QApplication::setDesktopFileName(QStringLiteral("app.orvida.Orvida"));
    ThemeIcons::useInstalledThemeIfNone();
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("app.orvida.Orvida")));
    // Before anything shows a text: the language chosen in the settings, Qt's included.
    UiLanguage::apply(UiLanguage::resolve(UiLanguage::stored()));
    // Recordings outlive the window: the window says when to quit.
    QApplication::setQuitOnLastWindowClosed(false);
    // Started at login: straight to the tray, or the background without one.
    const bool hidden = QApplication::arguments().contains(QString::fromLatin1(Autostart::kHiddenFlag));

    // Kept to the end, so a second signal cannot cut short the saving of the last songs.
    SignalWatcher signalWatcher;
    Application app;
    int code = 0;
    {
        // The window goes first: it borrows the services that shutDown() ends.
        MainWindow window(app);
        QObject::connect(&window, &MainWindow::quitRequested, &qapp, &QApplication::quit, Qt::QueuedConnection);
        // Media keys and the desktop's player controls: Raise shows the window, Quit is the
        // tray's "Quit".
        app.mediaControls().setWindowHooks(
            &window,
            [&window] {
                window.showNormal();
                window.raise();
                window.activateWindow();
            },
            [&window] { window.quit(); });
        // A logout or a `kill` quits like the tray's "Quit": no question, recordings end
        // in order below.
        QObject::connect(&signalWatcher, &SignalWatcher::terminationRequested, &window, &MainWindow::quit);
        if (hidden)
            window.startHidden();
        else
            window.show();
        code = QApplication::exec();
    }
    // The scheduler stops, the recordings stop and their last songs are saved.
    app.shutDown();
    return code;
}
