#include "app/recordertray.h"

#include "app/application.h"
#include "app/texts.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"

#include <QApplication>
#include <QMenu>
#include <QStyle>
#include <QSystemTrayIcon>

RecorderTray::RecorderTray(Application &app, QObject *parent)
    : QObject(parent)
    , m_app(app)
    , m_menu(std::make_unique<QMenu>())
{
    m_recordingsEnd = m_menu->addSeparator();
    m_show = m_menu->addAction(tx("tray.show"));
    m_quit = m_menu->addAction(tx("tray.quit"));
    connect(m_show, &QAction::triggered, this, &RecorderTray::showRequested);
    connect(m_quit, &QAction::triggered, this, &RecorderTray::quitRequested);

    // The theme may lack our icon (run from the build folder): a tray entry needs one.
    QIcon icon = QApplication::windowIcon();
    if (icon.isNull())
        icon = QApplication::style()->standardIcon(QStyle::SP_MediaPlay);
    m_icon = new QSystemTrayIcon(icon, this);
    m_icon->setContextMenu(m_menu.get());
    connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
            Q_EMIT showRequested();
    });

    RadioRecorder &recorder = app.recorder();
    connect(&recorder, &RadioRecorder::sessionsChanged, this, &RecorderTray::updateRecordings);
    connect(&recorder, &RadioRecorder::streamTitleChanged, this, &RecorderTray::updateRecordings);
    updateRecordings();
}

RecorderTray::~RecorderTray()
{
    // The icon refers to the menu: it goes first.
    delete m_icon;
}

void RecorderTray::show()
{
    m_shown = true;
    m_icon->show();
}

void RecorderTray::updateRecordings()
{
    // Entries are few (one per running station) and titles change every few minutes:
    // rebuilding them is simpler than keeping each in step.
    for (QAction *action : m_menu->actions()) {
        if (action == m_recordingsEnd)
            break;
        m_menu->removeAction(action);
        delete action;
    }
    const QList<RecordingSession *> &sessions = m_app.recorder().sessions();
    QList<QAction *> entries;
    if (sessions.isEmpty())
        entries << new QAction(tx("rec.emptyTitle"), m_menu.get());
    for (const RecordingSession *session : sessions) {
        const std::optional<QString> title = m_app.recorder().streamTitle(session->station());
        const QString shown = title && !title->isEmpty() ? *title : tx("rec.waitingTitle");
        entries << new QAction(session->station().name + QStringLiteral(" — ") + shown, m_menu.get());
    }
    for (QAction *entry : entries)
        entry->setEnabled(false);
    m_menu->insertActions(m_recordingsEnd, entries);

    const qsizetype running = sessions.size();
    m_icon->setToolTip(running == 0 ? tx("app.title")
                                    : tx("app.title") + QStringLiteral(" · ")
                + (running == 1 ? tx("rec.countOne") : Texts::text("rec.countFormat").arg(running)));
}
