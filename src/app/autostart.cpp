#include "app/autostart.h"

#include "platform/atomicfile.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>

namespace Autostart {

QString entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/orvida.desktop");
}

bool isEnabled()
{
    return QFile::exists(entryPath());
}

QByteArray entryText(const QString &executable)
{
    // Inside a quoted Exec argument ", `, $ and \ take a backslash; the key file format
    // then doubles every backslash once more, and % is the field-code escape.
    QString quoted;
    for (const QChar c : executable) {
        if (c == u'"' || c == u'`' || c == u'$')
            quoted += QStringLiteral("\\\\");
        else if (c == u'\\')
            quoted += QStringLiteral("\\\\\\");
        else if (c == u'%')
            quoted += u'%';
        quoted += c;
    }
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Orvida\n"
                                        "Comment=Runs planned radio recordings\n"
                                        "Exec=\"%1\" %2\n"
                                        "Icon=app.orvida.Orvida\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(quoted, QString::fromLatin1(kHiddenFlag));
    return text.toUtf8();
}

bool setEnabled(bool enabled, QString *error)
{
    const QString path = entryPath();
    if (enabled) {
        if (AtomicFile::write(path, entryText(QCoreApplication::applicationFilePath())))
            return true;
        *error = path;
        return false;
    }
    QFile file(path);
    if (!file.exists() || file.remove())
        return true;
    *error = path;
    return false;
}

} // namespace Autostart
