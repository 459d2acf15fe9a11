#include "app/mprisrootadaptor.h"

#include "platform/desktopnotifier.h"

MprisRootAdaptor::MprisRootAdaptor(QObject *exported)
    : QDBusAbstractAdaptor(exported)
{
}

QString MprisRootAdaptor::identity() const
{
    return QString(DesktopNotifier::kAppName);
}

QString MprisRootAdaptor::desktopEntry() const
{
    return QString(DesktopNotifier::kDesktopEntry);
}

QStringList MprisRootAdaptor::supportedUriSchemes() const
{
    // OpenUri is not offered: the player plays library tracks, not arbitrary addresses.
    return {};
}

QStringList MprisRootAdaptor::supportedMimeTypes() const
{
    return {};
}

void MprisRootAdaptor::Raise()
{
    if (raiseHook)
        raiseHook();
}

void MprisRootAdaptor::Quit()
{
    if (quitHook)
        quitHook();
}
