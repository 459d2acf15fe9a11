#include "app/favoritesview.h"
#include "app/libraryview.h"
#include "app/mainwindow.h"
#include "app/messagebar.h"
#include "app/radioview.h"
#include "app/settingsview.h"
#include "app/stationtablemodel.h"
#include "app/uilanguage.h"
#include "engine/sniperscheduler.h"
#include "library/librarystore.h"
#include "stations/favoritestations.h"

#include "appfixture.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTableView>
#include <QTableWidget>
#include <QTimer>

namespace {

// What a message box or dialog looked like when it was answered.
struct SeenDialog {
    bool seen = false;
    QString defaultButtonText;
    int rows = -1; // the shortcuts overview's table
};

// Waits for the next modal dialog (the caller is about to open it with exec()), notes
// what it shows and answers it with the key a hurried user presses: Return for a message
// box (its default button), Escape for any other dialog.
void answerNextDialog(SeenDialog &seen)
{
    auto *timer = new QTimer(qApp);
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, &seen] {
        // Until the dialog is the active window the focus is still in the page below, and
        // a key sent now would trigger that page's shortcuts instead of the dialog's.
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal || !modal->isVisible() || QApplication::activeWindow() != modal)
            return;
        timer->stop();
        timer->deleteLater();
        seen.seen = true;
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            if (QPushButton *button = box->defaultButton())
                seen.defaultButtonText = button->text();
            QTest::keyClick(box, Qt::Key_Return);
            return;
        }
        if (auto *table = modal->findChild<QTableWidget *>())
            seen.rows = table->rowCount();
        QTest::keyClick(modal, Qt::Key_Escape);
    });
    timer->start();
}

class KeyboardTest : public AppFixture {
protected:
    void TearDown() override
    {
        window.reset();
        UiLanguage::apply(Texts::Language::English);
        AppFixture::TearDown();
    }

    void openWindow(int width = 1000)
    {
        window = std::make_unique<MainWindow>(*app, MainWindowOptions{1800, false});
        window->resize(width, 700);
        window->show();
        // Shortcuts reach only the active window.
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }

    void addTracks(int count)
    {
        QList<Track> tracks;
        for (int i = 0; i < count; ++i)
            tracks << Track(QStringLiteral("Song %1").arg(i), QStringLiteral("Artist"), QString(), 200,
                            QDateTime::currentDateTimeUtc().addSecs(-i), QString(), false, 0,
                            QStringLiteral("radio"), QStringLiteral("FM"),
                            home.file(QStringLiteral("Music/%1.mp3").arg(i)));
        ASSERT_EQ(app->library()->insertTracks(tracks).size(), count);
    }

    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : window.get(), Qt::Key(key),
                        modifiers);
    }

    std::unique_ptr<MainWindow> window;
};

TEST_F(KeyboardTest, CtrlNumbersShowPagesAndCtrlFFocusesThatPagesSearch)
{
    addTracks(2);
    openWindow();
    press(Qt::Key_3, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::FavoritesPage);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(window->favoritesView()->filterField()->hasFocus());

    press(Qt::Key_7, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::LibraryPage);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(window->libraryView()->filterField()->hasFocus());

    // The recents have no search: Ctrl+F goes to finding a station.
    press(Qt::Key_4, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::RecentsPage);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::RadioPage);
    EXPECT_TRUE(window->radioView()->searchField()->hasFocus());

    press(Qt::Key_Comma, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::SettingsPage);
    // There are eight pages: Ctrl+9 is nothing.
    press(Qt::Key_9, Qt::ControlModifier);
    EXPECT_EQ(window->currentPage(), MainWindow::SettingsPage);

    // The sidebar takes the focus and its arrow keys walk the pages.
    QListWidget *sidebar = window->sidebar();
    sidebar->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(sidebar->hasFocus());
    QTest::keyClick(sidebar, Qt::Key_Up);
    EXPECT_EQ(window->currentPage(), MainWindow::LibraryPage);
}

TEST_F(KeyboardTest, TabLeavesATableAndDeleteAsksWithNoAsTheDefault)
{
    addTracks(3);
    openWindow();
    window->showPage(MainWindow::LibraryPage);
    QTableView *table = window->libraryView()->table();
    QTRY_COMPARE(table->model()->rowCount(), 3);
    table->setFocus();
    table->selectRow(1);
    ASSERT_TRUE(table->hasFocus());

    SeenDialog seen;
    answerNextDialog(seen);
    QTest::keyClick(table, Qt::Key_Delete);
    ASSERT_TRUE(seen.seen);
    EXPECT_EQ(seen.defaultButtonText, QStringLiteral("&No"));
    // Return took the default: nothing was deleted.
    EXPECT_EQ(app->library()->allTracks().size(), 3);

    QTest::keyClick(table, Qt::Key_Tab);
    EXPECT_FALSE(table->hasFocus());
    EXPECT_EQ(table->currentIndex().row(), 1); // not walked to the next cell
}

TEST_F(KeyboardTest, CtrlQQuitsAtOnceWhenIdleAndAsksWhileAPlanWaits)
{
    openWindow();
    QList<ClosePolicy::Action> asked;
    MainWindow::CloseAnswer answer = MainWindow::CloseAnswer::Cancel;
    window->askOnClose = [&](ClosePolicy::Action question) {
        asked << question;
        return answer;
    };
    QSignalSpy quits(window.get(), &MainWindow::quitRequested);
    const QDateTime evening(QDate::currentDate().addDays(2), QTime(20, 0));
    ASSERT_TRUE(app->scheduler().add(ScheduledRecording::make(makeStation("s1", "Jazz"), evening.toUTC(),
                                                              evening.addSecs(3600).toUTC(),
                                                              ScheduledRecording::Mode::FullShow, std::nullopt)));

    press(Qt::Key_Q, Qt::ControlModifier);
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked.first(), ClosePolicy::Action::AskBackground);
    EXPECT_EQ(quits.size(), 0);
    EXPECT_TRUE(window->isVisible());

    answer = MainWindow::CloseAnswer::Quit;
    press(Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(asked.size(), 2);
    EXPECT_EQ(quits.size(), 1);
}

TEST_F(KeyboardTest, TheOverviewListsEveryMenuShortcut)
{
    openWindow();
    const QList<std::pair<QString, QString>> rows = window->shortcutList();
    QStringList keys;
    for (const auto &[what, sequence] : rows) {
        EXPECT_FALSE(what.isEmpty());
        EXPECT_FALSE(what.contains(QLatin1Char('&')));
        keys << sequence;
    }
    for (const char *expected : {"Ctrl+F", "Ctrl+Q", "Ctrl+,", "Ctrl+1", "Ctrl+8", "Space", "Ctrl+S", "Ctrl+D",
                                 "Ctrl+Left", "Ctrl+Right", "Del", "Return"})
        EXPECT_TRUE(keys.contains(QString::fromLatin1(expected))) << expected;
    // Every command of the menus with keys is listed, none twice.
    int menuKeys = 0;
    for (QAction *menu : window->menuBar()->actions())
        for (QAction *action : menu->menu()->actions())
            menuKeys += action->shortcut().isEmpty() ? 0 : 1;
    EXPECT_GE(rows.size(), menuKeys);
    EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()).size(), keys.size());

    SeenDialog seen;
    answerNextDialog(seen);
    QTest::keyClick(window.get(), Qt::Key_F1);
    ASSERT_TRUE(seen.seen);
    EXPECT_EQ(seen.rows, rows.size());
}

TEST_F(KeyboardTest, ChoosingGermanRetranslatesAtOnceAndKeepsThePageAndMessages)
{
    ASSERT_TRUE(app->favorites().add(makeStation("s1", "Jazz Lounge", "Germany")));
    addTracks(1);
    openWindow();
    app->reportProblem(QStringLiteral("a problem to keep"));
    window->showPage(MainWindow::SettingsPage);
    QComboBox *language = window->settingsView()->languageBox();
    ASSERT_EQ(language->count(), 3);
    language->setCurrentIndex(2);
    QTRY_COMPARE(window->menuBar()->actions().first()->text(), QStringLiteral("&Datei"));
    EXPECT_EQ(UiLanguage::stored(), UiLanguage::Choice::German);
    EXPECT_EQ(window->currentPage(), MainWindow::SettingsPage);
    EXPECT_EQ(window->sidebar()->item(MainWindow::LibraryPage)->text(), QStringLiteral("Mediathek"));
    EXPECT_EQ(window->settingsView()->languageBox()->currentIndex(), 2);
    EXPECT_EQ(window->messageBar()->messages(), QStringList{QStringLiteral("a problem to keep")});
    EXPECT_EQ(window->menuAction("menu.quit")->text(), QStringLiteral("Beenden"));
    // Country names in the language: the ISO codes package's catalogue.
    const QModelIndex country = window->favoritesView()->table()->model()->index(0, StationTableModel::CountryColumn);
    EXPECT_EQ(country.data().toString(), QStringLiteral("Deutschland"));

    // Qt's own buttons, from the Qt translations: the delete question says "Nein".
    window->showPage(MainWindow::LibraryPage);
    QTableView *table = window->libraryView()->table();
    QTRY_COMPARE(table->model()->rowCount(), 1);
    table->setFocus();
    table->selectRow(0);
    SeenDialog seen;
    answerNextDialog(seen);
    QTest::keyClick(table, Qt::Key_Delete);
    ASSERT_TRUE(seen.seen);
    EXPECT_EQ(seen.defaultButtonText, QStringLiteral("&Nein"));

    window->showPage(MainWindow::SettingsPage);
    window->settingsView()->languageBox()->setCurrentIndex(1);
    QTRY_COMPARE(window->menuBar()->actions().first()->text(), QStringLiteral("&File"));
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "&No"), QStringLiteral("&No"));
}

} // namespace
