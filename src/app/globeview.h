#pragma once

#include "app/globecamera.h"
#include "stations/station.h"

#include <QWidget>

#include <optional>

class Application;
class GlobeCanvas;
class GlobeStationStore;
class QLabel;
class QPushButton;
class StationActionBar;

// The stations of the globe catalogue on a globe to turn and zoom; a picked dot shows
// its station with the listen, record and favourite buttons below. The catalogue is loaded on
// first sight. The camera is handed to the store on every change and taken back when a
// view is built again, so a rebuilt page opens where the user left it.
//
// Lives on the GUI thread.
class GlobeView : public QWidget {
    Q_OBJECT

public:
    GlobeView(Application &app, GlobeStationStore &store, QWidget *parent = nullptr);

    [[nodiscard]] std::optional<Station> selectedStation() const;
    GlobeCanvas *canvas() const { return m_canvas; }
    StationActionBar *actionBar() const { return m_actions; }
    QLabel *stationName() const { return m_name; }
    // The loading, error or empty notice over the globe; hidden while dots are shown.
    QWidget *notice() const { return m_notice; }
    QLabel *noticeTitle() const { return m_noticeTitle; }
    QLabel *noticeText() const { return m_noticeText; }

Q_SIGNALS:
    void currentStationChanged(const std::optional<Station> &station);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refreshStations();
    void refreshState();
    void refreshMarks();
    void showStation(const std::optional<Station> &station);

    Application &m_app;
    GlobeStationStore &m_store;
    // A fetch has ended since this view was built (or before): an empty catalogue now
    // means "nothing there" rather than "not yet".
    bool m_settled = false;

    GlobeCanvas *m_canvas = nullptr;
    QLabel *m_count = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_reload = nullptr;
    QWidget *m_notice = nullptr;
    QLabel *m_noticeTitle = nullptr;
    QLabel *m_noticeText = nullptr;
    QPushButton *m_retry = nullptr;
    QLabel *m_name = nullptr;
    QLabel *m_details = nullptr;
    StationActionBar *m_actions = nullptr;
};
