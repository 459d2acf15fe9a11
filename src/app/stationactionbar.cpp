#include "app/stationactionbar.h"

#include "app/application.h"
#include "app/flowlayout.h"
#include "app/scheduledialog.h"
#include "app/stationenginesheet.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "engine/radiorecorder.h"
#include "engine/stationlistener.h"
#include "stations/favoritestations.h"

#include <QApplication>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

namespace {

bool isHeard(Application &app, const Station &station)
{
    const std::optional<Station> &heard = app.listener().station();
    return heard && heard->id == station.id;
}

} // namespace

StationActionBar::StationActionBar(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    // Wraps in a narrow window: four German labels side by side are wider than half a screen.
    auto *layout = new FlowLayout(this);
    m_listen = new QPushButton(this);
    m_listen->setObjectName(QStringLiteral("listenButton"));
    m_record = new QPushButton(this);
    m_record->setObjectName(QStringLiteral("recordButton"));
    m_schedule = new QPushButton(tx("schedule.action"), this);
    m_schedule->setObjectName(QStringLiteral("scheduleButton"));
    m_schedule->setIcon(ThemeIcons::icon(ThemeIcons::Icon::Schedule));
    m_favorite = new QPushButton(this);
    m_favorite->setObjectName(QStringLiteral("favoriteButton"));
    layout->addWidget(m_listen);
    layout->addWidget(m_record);
    layout->addWidget(m_schedule);
    layout->addWidget(m_favorite);

    connect(m_listen, &QPushButton::clicked, this, [this] {
        if (m_station)
            toggleListening(m_app, *m_station);
    });
    connect(m_record, &QPushButton::clicked, this, [this] {
        if (m_station)
            toggleRecording(m_app, *m_station);
    });
    connect(m_schedule, &QPushButton::clicked, this, [this] {
        if (m_station)
            openScheduleDialog(m_app, *m_station, this);
    });
    connect(m_favorite, &QPushButton::clicked, this, [this] {
        if (m_station)
            toggleFavorite(m_app, *m_station);
    });
    connect(&app.favorites(), &FavoriteStations::changed, this, &StationActionBar::refresh);
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this, &StationActionBar::refresh);
    connect(&app.listener(), &StationListener::stationChanged, this, &StationActionBar::refresh);
    refresh();
}

void StationActionBar::setStation(const std::optional<Station> &station)
{
    m_station = station;
    refresh();
}

void StationActionBar::refresh()
{
    const bool recording = m_station && m_app.recorder().isRecordingStation(m_station->id);
    const bool favorite = m_station && m_app.favorites().isFavorite(m_station->id);
    const bool heard = m_station && isHeard(m_app, *m_station);
    using ThemeIcons::Icon;
    m_listen->setText(heard ? tx("station.stopListening") : tx("station.listen"));
    m_listen->setIcon(ThemeIcons::icon(heard ? Icon::Stop : Icon::Listen));
    m_record->setText(recording ? tx("station.stopRecording") : tx("station.record"));
    m_record->setIcon(ThemeIcons::icon(recording ? Icon::Stop : Icon::Record));
    m_favorite->setText(favorite ? tx("fav.remove") : tx("fav.add"));
    m_favorite->setIcon(ThemeIcons::icon(favorite ? Icon::Unfavorite : Icon::Favorite));
    m_listen->setEnabled(m_station.has_value());
    m_record->setEnabled(m_station.has_value());
    m_schedule->setEnabled(m_station.has_value());
    m_favorite->setEnabled(m_station.has_value());
}

void StationActionBar::toggleRecording(Application &app, const Station &station)
{
    if (app.recorder().isRecordingStation(station.id)) {
        app.recorder().stop(station.id);
        return;
    }
    app.startRecording(station);
}

void StationActionBar::toggleListening(Application &app, const Station &station)
{
    if (isHeard(app, station))
        app.stopListening();
    else
        app.listen(station);
}

void StationActionBar::toggleFavorite(Application &app, const Station &station)
{
    const StateResult written =
        app.favorites().isFavorite(station.id) ? app.favorites().remove(station.id) : app.favorites().add(station);
    if (!written)
        app.reportProblem(written.error);
}

void StationActionBar::openScheduleDialog(Application &app, const Station &station, QWidget *parent)
{
    ScheduleDialog dialog(app.scheduler(), station, app.now(), parent);
    dialog.exec();
}

void StationActionBar::openEngineSheet(Application &app, const Station &station, QWidget *parent)
{
    StationEngineSheet sheet(app.engineSettings(), station, parent);
    sheet.exec();
}

void StationActionBar::addActions(QMenu &menu, Application &app, const Station &station)
{
    menu.addAction(isHeard(app, station) ? tx("station.stopListening") : tx("station.listen"), &menu,
        [&app, station] { toggleListening(app, station); });
    const bool recording = app.recorder().isRecordingStation(station.id);
    menu.addAction(recording ? tx("station.stopRecording") : tx("station.record"), &menu,
                   [&app, station] { toggleRecording(app, station); });
    // Opened once the menu has closed, over the window the menu belonged to.
    menu.addAction(tx("schedule.action"), &menu, [&app, station] {
        QTimer::singleShot(0, &app, [&app, station, window = QPointer<QWidget>(QApplication::activeWindow())] {
            openScheduleDialog(app, station, window);
        });
    });
    const bool favorite = app.favorites().isFavorite(station.id);
    menu.addAction(favorite ? tx("fav.remove") : tx("fav.add"), &menu,
                   [&app, station] { toggleFavorite(app, station); });
    menu.addSeparator();
    menu.addAction(tx("station.engineSettings"), &menu, [&app, station] {
        QTimer::singleShot(0, &app, [&app, station, window = QPointer<QWidget>(QApplication::activeWindow())] {
            openEngineSheet(app, station, window);
        });
    });
}
