#include "app/application.h"
#include "app/mainwindow.h"
#include "app/texts.h"

#include <QApplication>
#include <QIcon>

#include <memory>

int main(int argc, char **argv)
{
    QApplication qapp(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Orvida"));
    QApplication::setOrganizationName(QStringLiteral("Orvida"));
    QApplication::setDesktopFileName(QStringLiteral("app.orvida.Orvida"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("app.orvida.Orvida")));

    Application app;
    int code = 0;
    {
        // The window goes first: it borrows the services that shutDown() ends.
        MainWindow window(app);
        window.show();
        code = QApplication::exec();
    }
    app.shutDown();
    return code;
}
