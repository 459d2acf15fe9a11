#include "app/desktopappearance.h"
#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/nowplayingbar.h"
#include "app/stationactionbar.h"
#include "app/themeicons.h"

#include "appfixture.h"
#include "dbusfixture.h"

#include <QApplication>
#include <QListWidget>
#include <QToolButton>

namespace {

TEST(DesktopAppearanceTest, ReadsThePreferenceFromGtkThemeAndThePortalsNumber)
{
    using Scheme = DesktopAppearance::Scheme;
    EXPECT_EQ(DesktopAppearance::schemeOfGtkTheme(""), Scheme::NoPreference);
    EXPECT_EQ(DesktopAppearance::schemeOfGtkTheme("Adwaita:dark"), Scheme::Dark);
    EXPECT_EQ(DesktopAppearance::schemeOfGtkTheme("Yaru-Dark"), Scheme::Dark);
    EXPECT_EQ(DesktopAppearance::schemeOfGtkTheme("Adwaita"), Scheme::Light);
    EXPECT_EQ(DesktopAppearance::schemeOfPortalValue(0), Scheme::NoPreference);
    EXPECT_EQ(DesktopAppearance::schemeOfPortalValue(1), Scheme::Dark);
    EXPECT_EQ(DesktopAppearance::schemeOfPortalValue(2), Scheme::Light);
    EXPECT_EQ(DesktopAppearance::schemeOfPortalValue(7), Scheme::NoPreference);
}

// The offscreen platform's palette is light: a dark preference darkens the window, the
// message bar follows, and a light one gives the platform's palette back.
TEST(DesktopAppearanceTest, ADarkPreferenceDarkensTheWindowAndALightOneUndoesIt)
{
    const QPalette platform = QApplication::palette();
    ASSERT_FALSE(ThemeIcons::isDark(platform));
    DBusLink noBus(std::nullopt, QStringLiteral("session"));
    MessageBar bar;
    const QString lightSheet = bar.styleSheet();
    {
        DesktopAppearance appearance(noBus);
        appearance.apply(DesktopAppearance::Scheme::Dark);
        EXPECT_TRUE(appearance.appliesDark());
        EXPECT_TRUE(ThemeIcons::isDark(QApplication::palette()));
        QTRY_VERIFY(bar.styleSheet() != lightSheet);
        // Colours for failures stay readable on either palette.
        EXPECT_GT(ThemeIcons::errorInk(QApplication::palette()).lightness(),
                  QApplication::palette().color(QPalette::Window).lightness() + 80);

        appearance.apply(DesktopAppearance::Scheme::Light);
        EXPECT_FALSE(appearance.appliesDark());
        EXPECT_EQ(QApplication::palette().color(QPalette::Window), platform.color(QPalette::Window));
        QTRY_COMPARE(bar.styleSheet(), lightSheet);
        appearance.apply(DesktopAppearance::Scheme::Dark);
    }
    // Gone: the platform's palette is back for whatever comes next.
    EXPECT_EQ(QApplication::palette().color(QPalette::Window), platform.color(QPalette::Window));
}

TEST(DesktopAppearanceTest, FollowsTheDesktopPortalsColourSchemeAsItChanges)
{
    if (!PrivateBus::missingTools().isEmpty())
        GTEST_SKIP() << PrivateBus::missingTools().toStdString();
    const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
    const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
    const QString settings = QStringLiteral("org.freedesktop.portal.Settings");
    PrivateBus bus;
    ASSERT_TRUE(bus.ok());
    ASSERT_TRUE(bus.startMock(service, path, settings));
    ASSERT_TRUE(bus.addMethod(service, path, settings, QStringLiteral("Read"), QStringLiteral("ss"),
                              QStringLiteral("v"), QStringLiteral("ret = dbus.UInt32(1)")));
    DBusLink link(bus.address(), QStringLiteral("session"));
    DesktopAppearance appearance(link);
    QTRY_VERIFY_WITH_TIMEOUT(appearance.appliesDark(), 10000);

    const QVariantList changed{QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"),
                               QVariant::fromValue(QDBusVariant(uint(2)))};
    const QDBusMessage reply = bus.call(service, path, QStringLiteral("org.freedesktop.DBus.Mock"),
                                        QStringLiteral("EmitSignal"),
                                        {settings, QStringLiteral("SettingChanged"), QStringLiteral("ssv"),
                                         QVariant::fromValue(changed)});
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    QTRY_VERIFY_WITH_TIMEOUT(!appearance.appliesDark(), 10000);
    EXPECT_EQ(appearance.scheme(), DesktopAppearance::Scheme::Light);
}

// Every place in the sidebar and every player and station command has a picture: the
// theme's where it has one, else the style's.
class ThemeIconsTest : public AppFixture {};

TEST_F(ThemeIconsTest, TheSidebarAndTheMainButtonsWearIcons)
{
    MainWindow window(*app, MainWindowOptions{1800, false});
    const auto *sidebar = window.findChild<QListWidget *>(QStringLiteral("sidebar"));
    ASSERT_NE(sidebar, nullptr);
    ASSERT_EQ(sidebar->count(), MainWindow::PageCount);
    for (int row = 0; row < sidebar->count(); ++row)
        EXPECT_FALSE(sidebar->item(row)->icon().isNull()) << row;
    const NowPlayingBar *bar = window.nowPlayingBar();
    for (const QToolButton *button : {bar->previousButton(), bar->playPauseButton(), bar->nextButton()})
        EXPECT_FALSE(button->icon().isNull()) << button->toolTip().toStdString();

    StationActionBar actions(*app);
    const Station station = makeStation(QStringLiteral("jazz"), QStringLiteral("Jazz Lounge"));
    actions.setStation(station);
    for (const QPushButton *button : {actions.listenButton(), actions.recordButton(), actions.scheduleButton(),
                                      actions.favoriteButton()})
        EXPECT_FALSE(button->icon().isNull()) << button->text().toStdString();
    // The favourite button's picture says which way it acts.
    const auto looksLike = [](const QIcon &shown, ThemeIcons::Icon expected) {
        return shown.pixmap(16, 16).toImage() == ThemeIcons::icon(expected).pixmap(16, 16).toImage();
    };
    ASSERT_FALSE(looksLike(ThemeIcons::icon(ThemeIcons::Icon::Favorite), ThemeIcons::Icon::Unfavorite));
    EXPECT_TRUE(looksLike(actions.favoriteButton()->icon(), ThemeIcons::Icon::Favorite));
    ASSERT_TRUE(app->favorites().add(station));
    EXPECT_TRUE(looksLike(actions.favoriteButton()->icon(), ThemeIcons::Icon::Unfavorite));
}

} // namespace
