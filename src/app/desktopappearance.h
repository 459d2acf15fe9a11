#pragma once

#include <QByteArray>
#include <QObject>
#include <QPalette>

class DBusLink;
class QDBusMessage;
class QDBusVariant;

// Follows the desktop's light or dark preference where Qt's platform theme does not
// (Qt 6.4 reads no colour scheme from GNOME's settings): a dark preference gives the
// window a dark palette and the Fusion style, which draws every control from the palette.
// A platform palette that is dark already is left alone, and so is the user's choice
// of style and palette when the desktop prefers light or says nothing.
//
// The preference comes from GTK_THEME (a ":dark" variant) and from the desktop portal's
// "color-scheme" setting, read asynchronously on the session bus and followed while it
// changes.
//
// Lives on the GUI thread.
class DesktopAppearance : public QObject {
    Q_OBJECT

public:
    enum class Scheme { NoPreference, Dark, Light };

    // `sessionBus` must outlive this object.
    explicit DesktopAppearance(DBusLink &sessionBus, QObject *parent = nullptr);
    ~DesktopAppearance() override; // gives the platform's palette back

    [[nodiscard]] Scheme scheme() const { return m_scheme; }
    // Whether the dark palette is in force.
    [[nodiscard]] bool appliesDark() const { return m_appliedDark; }

    // The preference a GTK_THEME value states ("Adwaita:dark", "Yaru-dark").
    [[nodiscard]] static Scheme schemeOfGtkTheme(const QByteArray &gtkTheme);
    // The portal's number: 1 prefers dark, 2 prefers light, anything else none.
    [[nodiscard]] static Scheme schemeOfPortalValue(uint value);
    [[nodiscard]] static QPalette darkPalette();

    // Applies `scheme` to the application (its palette, style and the windows' colours).
    void apply(Scheme scheme);

Q_SIGNALS:
    void schemeChanged(DesktopAppearance::Scheme scheme);

private Q_SLOTS:
    void portalSettingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    void askPortal();
    void portalAnswered(const QDBusMessage &reply);

    DBusLink &m_bus;
    Scheme m_scheme = Scheme::NoPreference;
    bool m_appliedDark = false;
    QPalette m_platformPalette;
    QString m_platformStyle;
};
