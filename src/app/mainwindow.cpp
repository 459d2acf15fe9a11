#include "app/mainwindow.h"

#include "app/application.h"
#include "app/favoritesview.h"
#include "app/globeview.h"
#include "app/libraryview.h"
#include "app/messagebar.h"
#include "app/nowplayingbar.h"
#include "app/radioview.h"
#include "app/recentsview.h"
#include "app/recordertray.h"
#include "app/recordingsview.h"
#include "app/scheduleview.h"
#include "app/settingsview.h"
#include "app/stationlistpane.h"
#include "app/stationlogocache.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "app/toolsgateview.h"
#include "app/uilanguage.h"
#include "engine/radiorecorder.h"
#include "engine/sniperscheduler.h"
#include "engine/stationlistener.h"
#include "platform/preferences.h"
#include "playback/analysisqueue.h"
#include "playback/player.h"
#include "stations/favoritestations.h"
#include "tools/youtubeservice.h"

#include <QAction>
#include <QCloseEvent>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QStackedWidget>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// The pages' names in the View menu, in sidebar order.
constexpr const char *kPageTitleKeys[] = {"radio.sidebar",  "globe.sidebar",    "fav.sidebar", "recents.sidebar",
                                          "rec.sidebar",    "schedule.sidebar", "lib.sidebar", "settings.sidebar"};
static_assert(sizeof(kPageTitleKeys) / sizeof(kPageTitleKeys[0]) == MainWindow::PageCount);

// Keys that act inside a list or a field rather than through a menu, for the overview.
constexpr std::pair<const char *, const char *> kListKeys[] = {
    {"shortcuts.playRow", "Return"},
    {"shortcuts.deleteTrack", "Del"},
    {"playlist.moveUp", "Alt+Up"},
    {"playlist.moveDown", "Alt+Down"},
    {"shortcuts.nextWidget", "Tab, Shift+Tab"},
};

} // namespace

MainWindow::MainWindow(Application &app, MainWindowOptions options, QWidget *parent)
    : QMainWindow(parent)
    , m_app(app)
    , m_options(options)
{
    setWindowTitle(tx("app.title"));
    resize(1100, 700);
    if (!m_options.trayAvailable)
        m_options.trayAvailable = &QSystemTrayIcon::isSystemTrayAvailable;
    askOnClose = [this](ClosePolicy::Action question) { return askWithDialog(question); };

    buildContent();
    for (const QString &problem : app.startupProblems())
        m_messages->add(problem);
    finishWindow();
}

// The pages, the sidebar, the message bar and the now-playing bar: everything that shows
// interface texts, so a change of language builds it anew.
void MainWindow::buildContent()
{
    Application &app = m_app;
    m_content = new QWidget(this);
    auto *column = new QVBoxLayout(m_content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    auto *layout = new QHBoxLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    column->addLayout(layout, 1);

    m_sidebar = new QListWidget(m_content);
    m_sidebar->setObjectName(QStringLiteral("sidebar"));
    // As wide as the longest page name with a recording badge: 200 px left too little of
    // half a screen for the pages.
    int widest = 0;
    for (const char *key : kPageTitleKeys)
        widest = std::max(widest, m_sidebar->fontMetrics().horizontalAdvance(tx(key) + QStringLiteral("  ● 9")));
    m_sidebar->setFixedWidth(std::clamp(widest + 56, 140, 200));
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setSpacing(2);
    // Tab reaches it and the arrow keys then walk the pages.
    m_sidebar->setFocusPolicy(Qt::StrongFocus);
    m_sidebar->setStyleSheet(QStringLiteral(
        "QListWidget#sidebar { background: palette(window); padding: 16px 8px; border-right: 1px solid palette(mid); }"
        "QListWidget#sidebar::item { padding: 7px 10px; border-radius: 6px; }"
        "QListWidget#sidebar::item:selected { background: palette(highlight); color: palette(highlighted-text); }"));
    m_pages = new QStackedWidget(m_content);
    m_radio = new RadioView(app, m_pages);
    m_globe = new GlobeView(app, app.globe(), m_pages);
    m_favorites = new FavoritesView(app, m_pages);
    m_recents = new RecentsView(app, m_pages);
    m_recordings = new RecordingsView(app, m_pages);
    m_schedule = new ScheduleView(app, m_pages);
    m_library = new LibraryView(app, m_pages);
    m_settings = new SettingsView(app, m_pages);
    const struct {
        Page page;
        const char *sidebarKey;
        QWidget *view;
    } pages[] = {
        {RadioPage, "radio.sidebar", m_radio},
        {GlobePage, "globe.sidebar", m_globe},
        {FavoritesPage, "fav.sidebar", m_favorites},
        {RecentsPage, "recents.sidebar", m_recents},
        {RecordingsPage, "rec.sidebar", m_recordings},
        {SchedulePage, "schedule.sidebar", m_schedule},
        {LibraryPage, "lib.sidebar", m_library},
        {SettingsPage, "settings.sidebar", m_settings},
    };
    static_assert(sizeof(pages) / sizeof(pages[0]) == PageCount);
    for (const auto &entry : pages) {
        // The sidebar row, the stacked page and the enum value are one number.
        Q_ASSERT(m_pages->count() == entry.page);
        m_sidebar->addItem(tx(entry.sidebarKey));
        m_pages->addWidget(entry.view);
    }
    {
        using ThemeIcons::Icon;
        const Icon icons[] = {Icon::Search, Icon::Globe, Icon::Favorites, Icon::Recents,
                              Icon::Recordings, Icon::Schedule, Icon::Library, Icon::Settings};
        static_assert(sizeof(icons) / sizeof(icons[0]) == PageCount);
        for (int page = 0; page < PageCount; ++page)
            m_sidebar->item(page)->setIcon(ThemeIcons::icon(icons[page]));
    }
    m_messages = new MessageBar(m_content);
    auto *right = new QVBoxLayout;
    right->setContentsMargins(0, 0, 0, 0);
    right->setSpacing(0);
    right->addWidget(m_messages);
    right->addWidget(m_pages, 1);
    auto *side = new QVBoxLayout;
    side->setContentsMargins(0, 0, 0, 0);
    side->setSpacing(0);
    side->addWidget(m_sidebar, 1);
    m_analysisProgress = new QLabel(m_content);
    m_analysisProgress->setObjectName(QStringLiteral("analysisProgress"));
    // As wide as the sidebar above it, never wider: the sidebar is as wide as its names.
    m_analysisProgress->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_analysisProgress->setWordWrap(true);
    m_analysisProgress->setStyleSheet(QStringLiteral(
        "QLabel#analysisProgress { background: palette(window); color: palette(placeholder-text);"
        " padding: 6px 18px; border-right: 1px solid palette(mid); font-size: small; }"));
    m_analysisProgress->hide();
    side->addWidget(m_analysisProgress);
    if (AnalysisQueue *analysis = app.analysisQueue()) {
        const auto show = [this](int done, int total) {
            m_analysisProgress->setText(tx("lib.analysingFormat").arg(done).arg(total));
            m_analysisProgress->setVisible(done < total);
        };
        connect(analysis, &AnalysisQueue::progressChanged, m_content, show);
        show(analysis->done(), analysis->total());
    }
    layout->addLayout(side);
    layout->addLayout(right, 1);
    m_nowPlaying = new NowPlayingBar(app.player(), app.transitionSettings(), &app.listener(), m_content);
    m_nowPlaying->setStationLogos(&app.stationLogos());
    column->addWidget(m_nowPlaying);
    connect(&app, &Application::problem, m_messages, &MessageBar::add);
    connect(&app, &Application::listeningFailed, m_nowPlaying, &NowPlayingBar::showListeningFailed);
    // Said in the bar too; here it stays until dismissed, also when the window was away.
    connect(&app.listener(), &StationListener::saveFailed, m_content, [this](const QString &message) {
        m_messages->add(Texts::text("live.saveFailedFormat").arg(Texts::engineMessage(message)));
    });
    connect(&app.recorder(), &RadioRecorder::saveFailed, m_content,
            [this](const QString &stationId, const QString &message) { showSaveProblem(stationId, message); });
    // A notice about a song whose row is gone (its recording was stopped) has no other place.
    connect(&app.recorder(), &RadioRecorder::saveNotice, m_content, [this](const QString &stationId, const QString &message) {
        if (!m_recordings->showsStation(stationId))
            showSaveProblem(stationId, message);
    });

    connect(m_sidebar, &QListWidget::currentRowChanged, m_pages, &QStackedWidget::setCurrentIndex);
    m_sidebar->setCurrentRow(RadioPage);

    connect(m_recordings, &RecordingsView::rowsChanged, this, &MainWindow::updateRecordingsBadge);
    updateRecordingsBadge();
    // Queued: the rebuild deletes the settings page whose signal this is.
    connect(m_settings, &SettingsView::languageChosen, this, &MainWindow::setInterfaceLanguage,
            Qt::QueuedConnection);
}

void MainWindow::finishWindow()
{
    Application &app = m_app;
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this, &MainWindow::quitIfIdleInBackground);
    connect(&app.scheduler(), &SniperScheduler::itemsChanged, this, &MainWindow::quitIfIdleInBackground);

    m_root = new QStackedWidget(this);
    m_root->addWidget(m_content);
    setCentralWidget(m_root);

    // The tools are looked for once per start; the screen's own button looks again.
    if (m_options.toolGate && !(YouTubeService::ffmpegFound() && YouTubeService::ytdlpFound())) {
        m_gate = new ToolsGateView(m_root);
        m_root->addWidget(m_gate);
        m_root->setCurrentWidget(m_gate);
        connect(m_gate, &ToolsGateView::skipped, this, &MainWindow::showContent);
        connect(m_gate, &ToolsGateView::allFound, this, &MainWindow::showContent);
    }

    buildMenus();
    Player &player = app.player();
    connect(&player, &Player::trackSkipped, this, [this](const Track &track, const QString &reason) {
        const QString name = track.title.isEmpty() ? track.filePath.value_or(QString()) : track.title;
        // The commonest cause in the user's language; a decoder's own explanation as it is.
        const bool missing = !track.filePath || track.filePath->isEmpty() || !QFileInfo::exists(*track.filePath);
        m_messages->add(Texts::text("player.skippedFormat").arg(name, missing ? tx("player.fileMissing") : reason));
    });

    m_toast = new QLabel(this);
    m_toast->setObjectName(QStringLiteral("toast"));
    m_toast->setStyleSheet(QStringLiteral("QLabel#toast { background: rgba(30, 30, 30, 220); color: white; "
                                          "padding: 8px 16px; border-radius: 8px; }"));
    m_toast->hide();
    m_toastTimer = new QTimer(this);
    m_toastTimer->setSingleShot(true);
    connect(m_toastTimer, &QTimer::timeout, m_toast, &QLabel::hide);
}

MainWindow::~MainWindow() = default;

void MainWindow::showPage(Page page)
{
    m_sidebar->setCurrentRow(page);
}

MainWindow::Page MainWindow::currentPage() const
{
    return Page(m_pages->currentIndex());
}

bool MainWindow::showsToolsGate() const
{
    return m_gate && m_root->currentWidget() == m_gate;
}

void MainWindow::showContent()
{
    m_root->setCurrentWidget(m_content);
}

void MainWindow::toggleCurrentFavorite()
{
    const std::optional<Station> &station = m_app.listener().station();
    if (!station)
        return;
    FavoriteStations &favorites = m_app.favorites();
    const bool removing = favorites.isFavorite(station->id);
    const StateResult written = removing ? favorites.remove(station->id) : favorites.add(*station);
    if (!written) {
        // Not a word of success: the list stays as it was, and the bar says why.
        m_app.reportProblem(written.error);
        return;
    }
    showToast(tx(removing ? "fav.removed" : "fav.added"));
}

void MainWindow::showSaveProblem(const QString &stationId, const QString &message)
{
    QString station = m_recordings->stationName(stationId);
    if (station.isEmpty() && m_app.recorder().lastStation() && m_app.recorder().lastStation()->id == stationId)
        station = m_app.recorder().lastStation()->name;
    m_messages->add(station.isEmpty() ? message : station + QStringLiteral(": ") + message);
}

QString MainWindow::toastText() const
{
    return m_toast->isVisible() ? m_toast->text() : QString();
}

void MainWindow::showToast(const QString &text)
{
    m_toast->setText(text);
    m_toast->adjustSize();
    placeToast();
    m_toast->show();
    m_toast->raise();
    // A new notice restarts the period instead of being cut short by the old one.
    m_toastTimer->start(m_options.toastMs);
}

void MainWindow::placeToast()
{
    // At the top of the page, beside its title: the buttons of a page are at its bottom.
    const bool pagesShown = m_pages->isVisible();
    const QRect area = pagesShown ? QRect(m_pages->mapTo(this, QPoint(0, 0)), m_pages->size()) : rect();
    m_toast->move(area.x() + (area.width() - m_toast->width()) / 2, area.y() + 12);
}

void MainWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    placeToast();
}

void MainWindow::updateRecordingsBadge()
{
    const qsizetype running = m_app.recorder().sessions().size();
    QString label = tx("rec.sidebar");
    if (running > 0)
        label += QStringLiteral("  ● %1").arg(running);
    // A recording that gave up is to be seen from every page until it is dismissed.
    if (const int ended = m_recordings->endedCount(); ended > 0)
        label += QStringLiteral("  ⚠ %1").arg(ended);
    m_sidebar->item(RecordingsPage)->setText(label);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_quitting) {
        QMainWindow::closeEvent(event);
        return;
    }
    ClosePolicy::Situation situation;
    situation.runningRecordings = int(m_app.recorder().sessions().size());
    situation.plannedRecordings = int(m_app.scheduler().items().size());
    situation.trayAvailable = m_options.trayAvailable();
    const QVariant remembered = Preferences::value(QString::fromLatin1(ClosePolicy::kCloseToTrayKey));
    if (remembered.isValid())
        situation.keepInTray = remembered.toBool();

    const ClosePolicy::Action action = ClosePolicy::decide(situation);
    CloseAnswer answer = CloseAnswer::Quit;
    switch (action) {
    case ClosePolicy::Action::Quit:
        break;
    case ClosePolicy::Action::HideToTray:
        answer = CloseAnswer::KeepRunning;
        break;
    case ClosePolicy::Action::AskTray:
    case ClosePolicy::Action::AskBackground:
        answer = askOnClose(action);
        // Only the tray question is remembered, and only when answered.
        if (action == ClosePolicy::Action::AskTray && answer != CloseAnswer::Cancel)
            Preferences::setValue(QString::fromLatin1(ClosePolicy::kCloseToTrayKey),
                                  answer == CloseAnswer::KeepRunning);
        break;
    }

    switch (answer) {
    case CloseAnswer::Cancel:
        event->ignore();
        return;
    case CloseAnswer::KeepRunning:
        event->ignore();
        if (situation.trayAvailable)
            goToTray();
        else
            goToBackground();
        return;
    case CloseAnswer::Quit:
        event->accept();
        quit();
        return;
    }
}

MainWindow::CloseAnswer MainWindow::askWithDialog(ClosePolicy::Action question)
{
    const bool tray = question == ClosePolicy::Action::AskTray;
    QMessageBox box(QMessageBox::Question, tx("close.title"),
                    tx(tray ? "close.trayQuestion" : "close.backgroundQuestion"), QMessageBox::NoButton, this);
    QPushButton *keep = box.addButton(tx(tray ? "close.keepInTray" : "close.keepInBackground"),
                                      QMessageBox::AcceptRole);
    QPushButton *quitButton = box.addButton(tx("close.quit"), QMessageBox::DestructiveRole);
    QPushButton *cancel = box.addButton(tx("close.cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(keep);
    box.setEscapeButton(cancel);
    box.exec();
    if (box.clickedButton() == keep)
        return CloseAnswer::KeepRunning;
    if (box.clickedButton() == quitButton)
        return CloseAnswer::Quit;
    return CloseAnswer::Cancel;
}

void MainWindow::startHidden()
{
    if (m_options.trayAvailable()) {
        goToTray();
        return;
    }
    m_background = true;
    // After main() has entered the event loop: a quit before it would be lost.
    QTimer::singleShot(0, this, &MainWindow::quitIfIdleInBackground);
    m_trayRetry = new QTimer(this);
    m_trayRetry->setInterval(m_options.trayRetryMs);
    connect(m_trayRetry, &QTimer::timeout, this, [this, left = m_options.trayRetryCount]() mutable {
        if (m_quitting || --left < 0) {
            m_trayRetry->stop();
        } else if (m_options.trayAvailable() && !isVisible()) {
            m_trayRetry->stop();
            m_background = false;
            goToTray();
        }
    });
    m_trayRetry->start();
}

void MainWindow::quit()
{
    m_quitting = true;
    close();
    Q_EMIT quitRequested();
}

void MainWindow::goToTray()
{
    if (!m_tray) {
        m_tray = new RecorderTray(m_app, this);
        connect(m_tray, &RecorderTray::showRequested, this, &MainWindow::showFromTray);
        connect(m_tray, &RecorderTray::quitRequested, this, &MainWindow::quit);
    }
    m_tray->show();
    hide();
}

void MainWindow::goToBackground()
{
    m_background = true;
    hide();
    quitIfIdleInBackground();
}

void MainWindow::quitIfIdleInBackground()
{
    if (!m_background || m_quitting || isVisible())
        return;
    if (m_app.recorder().sessions().isEmpty() && m_app.scheduler().items().isEmpty())
        quit();
}

void MainWindow::showFromTray()
{
    showNormal();
    raise();
    activateWindow();
}

void MainWindow::buildMenus()
{
    auto command = [this](QMenu *menu, const char *textKey, const QKeySequence &keys, auto slot) {
        auto *action = menu->addAction(tx(textKey));
        action->setShortcut(keys);
        // The whole window, also while the tools screen is in front.
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, slot);
        m_commands.append({textKey, action});
        return action;
    };
    auto menu = [this](const char *titleKey) {
        QMenu *created = menuBar()->addMenu(tx(titleKey));
        m_menus.append({titleKey, created});
        return created;
    };

    QMenu *file = menu("menu.file");
    command(file, "menu.settings", QKeySequence(Qt::CTRL | Qt::Key_Comma), [this] { showPage(SettingsPage); })
        ->setMenuRole(QAction::PreferencesRole);
    file->addSeparator();
    command(file, "menu.quit", QKeySequence(Qt::CTRL | Qt::Key_Q), [this] { requestQuit(); })
        ->setMenuRole(QAction::QuitRole);

    QMenu *view = menu("menu.view");
    command(view, "menu.find", QKeySequence(Qt::CTRL | Qt::Key_F), [this] { (void)focusSearch(); });
    view->addSeparator();
    for (int page = 0; page < PageCount; ++page)
        command(view, kPageTitleKeys[page], QKeySequence(Qt::CTRL | (Qt::Key_1 + page)),
                [this, page] { showPage(Page(page)); });

    // A line edit claims Space and Ctrl+arrows for itself before shortcuts are matched
    // (typing, word moves), so these only act outside text fields.
    QMenu *playback = menu("menu.playback");
    Player &player = m_app.player();
    command(playback, "menu.playPause", QKeySequence(Qt::Key_Space), [&player] { player.playPause(); });
    command(playback, "menu.previous", QKeySequence(Qt::CTRL | Qt::Key_Left), [&player] { player.previous(); });
    command(playback, "menu.next", QKeySequence(Qt::CTRL | Qt::Key_Right), [&player] { player.next(); });
    playback->addSeparator();
    // The bar of the moment: a change of language builds a new one.
    command(playback, "menu.saveSong", QKeySequence(Qt::CTRL | Qt::Key_S), [this] { m_nowPlaying->saveSong(); });
    command(playback, "menu.favorite", QKeySequence(Qt::CTRL | Qt::Key_D), [this] { toggleCurrentFavorite(); });

    QMenu *help = menu("menu.help");
    command(help, "menu.shortcuts", QKeySequence(Qt::Key_F1), [this] { showShortcuts(); });
}

void MainWindow::retranslateMenus()
{
    for (const auto &[titleKey, menu] : std::as_const(m_menus))
        menu->setTitle(tx(titleKey));
    for (const MenuCommand &entry : std::as_const(m_commands))
        entry.action->setText(tx(entry.textKey));
}

QAction *MainWindow::menuAction(const char *textKey) const
{
    for (const MenuCommand &entry : m_commands) {
        if (qstrcmp(entry.textKey, textKey) == 0)
            return entry.action;
    }
    return nullptr;
}

QList<std::pair<QString, QString>> MainWindow::shortcutList() const
{
    QList<std::pair<QString, QString>> rows;
    for (const MenuCommand &entry : m_commands) {
        QString what = entry.action->text();
        what.remove(QLatin1Char('&'));
        rows.append({what, entry.action->shortcut().toString(QKeySequence::NativeText)});
    }
    for (const auto &[textKey, keys] : kListKeys) {
        // Each of a list of keys in the desktop's notation ("Entf" in German).
        QStringList shown;
        for (const QString &key : QString::fromLatin1(keys).split(QStringLiteral(", ")))
            shown << QKeySequence(key, QKeySequence::PortableText).toString(QKeySequence::NativeText);
        rows.append({tx(textKey), shown.join(QStringLiteral(", "))});
    }
    return rows;
}

void MainWindow::showShortcuts()
{
    QDialog dialog(this);
    dialog.setObjectName(QStringLiteral("shortcutsDialog"));
    dialog.setWindowTitle(tx("shortcuts.title"));
    auto *layout = new QVBoxLayout(&dialog);
    const QList<std::pair<QString, QString>> rows = shortcutList();
    auto *table = new QTableWidget(int(rows.size()), 2, &dialog);
    table->setHorizontalHeaderLabels({tx("shortcuts.action"), tx("shortcuts.keys")});
    table->verticalHeader()->hide();
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setTabKeyNavigation(false);
    table->setShowGrid(false);
    for (int row = 0; row < rows.size(); ++row) {
        table->setItem(row, 0, new QTableWidgetItem(rows[row].first));
        table->setItem(row, 1, new QTableWidgetItem(rows[row].second));
    }
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    layout->addWidget(table);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, &dialog);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    dialog.resize(480, 520);
    dialog.exec();
}

bool MainWindow::focusSearch()
{
    QLineEdit *field = nullptr;
    switch (currentPage()) {
    case FavoritesPage:
        field = m_favorites->filterField();
        break;
    case LibraryPage:
        // Hidden while a playlist is shown: it filters the whole library only.
        field = m_library->filterField();
        break;
    default:
        // Pages without a search of their own: finding a station is what is meant there.
        showPage(RadioPage);
        field = m_radio->searchField();
        break;
    }
    if (!field || field->isHidden() || !field->isEnabled())
        return false;
    field->setFocus(Qt::ShortcutFocusReason);
    field->selectAll();
    return true;
}

void MainWindow::requestQuit()
{
    ClosePolicy::Situation situation;
    situation.runningRecordings = int(m_app.recorder().sessions().size());
    situation.plannedRecordings = int(m_app.scheduler().items().size());
    situation.trayAvailable = m_options.trayAvailable();
    // A remembered "keep in the tray" is the answer for closing the window, not for Quit.
    switch (ClosePolicy::decide(situation)) {
    case ClosePolicy::Action::Quit:
        quit();
        return;
    case ClosePolicy::Action::HideToTray:
    case ClosePolicy::Action::AskTray:
    case ClosePolicy::Action::AskBackground:
        break;
    }
    switch (askOnClose(situation.trayAvailable ? ClosePolicy::Action::AskTray : ClosePolicy::Action::AskBackground)) {
    case CloseAnswer::Quit:
        quit();
        return;
    case CloseAnswer::KeepRunning:
        if (situation.trayAvailable)
            goToTray();
        else
            goToBackground();
        return;
    case CloseAnswer::Cancel:
        return;
    }
}

void MainWindow::setInterfaceLanguage(Texts::Language language)
{
    UiLanguage::apply(language);
    const Page page = currentPage();
    const QStringList messages = m_messages->messages();
    QWidget *old = m_content;
    const bool contentShown = m_root->currentWidget() == old;
    buildContent();
    for (const QString &message : messages)
        m_messages->add(message);
    m_root->insertWidget(m_root->indexOf(old), m_content);
    if (contentShown)
        m_root->setCurrentWidget(m_content);
    m_root->removeWidget(old);
    // Later: the call may come from a signal of the old settings page.
    old->deleteLater();
    showPage(page);
    setWindowTitle(tx("app.title"));
    retranslateMenus();
}
