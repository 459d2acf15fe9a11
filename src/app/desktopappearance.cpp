#include "app/desktopappearance.h"

#include "platform/dbuslink.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QStyle>
#include <QStyleFactory>

namespace {

const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString kAppearance = QStringLiteral("org.freedesktop.appearance");
const QString kColorScheme = QStringLiteral("color-scheme");

bool paletteIsDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

// Older portals wrap the value of Read in a second variant.
QVariant unwrap(QVariant value)
{
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}

} // namespace

DesktopAppearance::DesktopAppearance(DBusLink &sessionBus, QObject *parent)
    : QObject(parent)
    , m_bus(sessionBus)
{
    if (qApp) {
        m_platformPalette = QApplication::palette();
        m_platformStyle = QApplication::style()->name();
    }
    apply(schemeOfGtkTheme(qgetenv("GTK_THEME")));
    m_bus.whenSettled(this, [this] { askPortal(); });
}

DesktopAppearance::~DesktopAppearance()
{
    apply(Scheme::NoPreference);
}

DesktopAppearance::Scheme DesktopAppearance::schemeOfGtkTheme(const QByteArray &gtkTheme)
{
    const QByteArray theme = gtkTheme.toLower();
    if (theme.isEmpty())
        return Scheme::NoPreference;
    return theme.endsWith(":dark") || theme.endsWith("-dark") ? Scheme::Dark : Scheme::Light;
}

DesktopAppearance::Scheme DesktopAppearance::schemeOfPortalValue(uint value)
{
    return value == 1 ? Scheme::Dark : value == 2 ? Scheme::Light : Scheme::NoPreference;
}

QPalette DesktopAppearance::darkPalette()
{
    // Greys close to the dark variants of the common desktop themes, with their blue.
    const QColor window(0x2b, 0x2b, 0x2e);
    const QColor base(0x1f, 0x1f, 0x22);
    const QColor text(0xe8, 0xe8, 0xea);
    const QColor dimmed(0x8a, 0x8a, 0x90);
    const QColor highlight(0x35, 0x84, 0xe4);
    QPalette palette(window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, QColor(0x27, 0x27, 0x2a));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x35, 0x35, 0x39));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3e));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, dimmed);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x78, 0xae, 0xed));
    palette.setColor(QPalette::LinkVisited, QColor(0xb0, 0x8c, 0xe8));
    palette.setColor(QPalette::Light, QColor(0x48, 0x48, 0x4d));
    palette.setColor(QPalette::Midlight, QColor(0x3e, 0x3e, 0x43));
    palette.setColor(QPalette::Mid, QColor(0x45, 0x45, 0x4a));
    palette.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    palette.setColor(QPalette::Shadow, Qt::black);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, dimmed);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x4a, 0x4a, 0x50));
    return palette;
}

void DesktopAppearance::apply(Scheme scheme)
{
    const bool changed = scheme != m_scheme;
    m_scheme = scheme;
    const bool wantDark = scheme == Scheme::Dark && !paletteIsDark(m_platformPalette);
    if (qApp && wantDark != m_appliedDark) {
        m_appliedDark = wantDark;
        if (wantDark) {
            // Styles that draw from the desktop's own theme engine would ignore the palette.
            QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
            QApplication::setPalette(darkPalette());
        } else {
            if (QStyle *style = QStyleFactory::create(m_platformStyle))
                QApplication::setStyle(style);
            QApplication::setPalette(m_platformPalette);
        }
    }
    if (changed)
        Q_EMIT schemeChanged(scheme);
}

void DesktopAppearance::askPortal()
{
    if (m_bus.state() != DBusLink::State::Connected)
        return;
    QDBusConnection bus = m_bus.connection();
    bus.connect(kPortalService, kPortalPath, kSettings, QStringLiteral("SettingChanged"), this,
                SLOT(portalSettingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read = QDBusMessage::createMethodCall(kPortalService, kPortalPath, kSettings, QStringLiteral("Read"));
    read << kAppearance << kColorScheme;
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        call->deleteLater();
        portalAnswered(call->reply());
    });
}

void DesktopAppearance::portalAnswered(const QDBusMessage &reply)
{
    // No portal, or one without the setting: GTK_THEME's word stands.
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return;
    const QVariant value = unwrap(reply.arguments().constFirst());
    bool ok = false;
    const uint number = value.toUInt(&ok);
    if (ok)
        apply(schemeOfPortalValue(number));
}

void DesktopAppearance::portalSettingChanged(const QString &group, const QString &key, const QDBusVariant &value)
{
    if (group != kAppearance || key != kColorScheme)
        return;
    bool ok = false;
    const uint number = unwrap(value.variant()).toUInt(&ok);
    if (ok)
        apply(schemeOfPortalValue(number));
}
