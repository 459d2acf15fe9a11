#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>

#include <functional>

// org.mpris.MediaPlayer2 on the exported object: who we are and what the desktop may ask of
// the window. Raise and Quit reach the window through hooks it sets; without them CanRaise
// and CanQuit say no and the calls do nothing.
//
// Lives on the GUI thread, a child of the object MprisService exports.
class MprisRootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ canQuit)
    Q_PROPERTY(bool CanRaise READ canRaise)
    Q_PROPERTY(bool HasTrackList READ hasTrackList)
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes)

public:
    static constexpr const char *kInterface = "org.mpris.MediaPlayer2";

    explicit MprisRootAdaptor(QObject *exported);

    std::function<void()> raiseHook;
    std::function<void()> quitHook;

    [[nodiscard]] bool canQuit() const { return bool(quitHook); }
    [[nodiscard]] bool canRaise() const { return bool(raiseHook); }
    [[nodiscard]] bool hasTrackList() const { return false; }
    [[nodiscard]] QString identity() const;
    [[nodiscard]] QString desktopEntry() const;
    [[nodiscard]] QStringList supportedUriSchemes() const;
    [[nodiscard]] QStringList supportedMimeTypes() const;

public Q_SLOTS:
    void Raise();
    void Quit();
};
