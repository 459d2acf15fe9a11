#pragma once

#include "engine/stationlistener.h"
#include "library/track.h"
#include "playback/player.h"
#include "stations/station.h"

#include <QFrame>
#include <QPointer>

#include <optional>

class CoverLoader;
class EqualiserDialog;
class QLabel;
class QPushButton;
class QSlider;
class QTimer;
class StationLogoCache;
class QToolButton;
class TransitionMenuButton;
class TransitionSettings;
class UpNextPopup;

// The player at the bottom of the main window: the playing track's cover, title and
// artist; previous, play/pause and next; the position with elapsed and remaining time
// (a drag seeks when released, a click on the groove or an arrow key seeks at once);
// shuffle, repeat (off, all, one), the transition chooser, "Up Next" and the volume.
//
// While a station is listened to, the bar shows it instead: the station's name, what it
// plays now, a live badge and no timeline (a live stream has neither length nor place),
// and "Save this song" with what became of the last save. A station that broke off stays
// named with "Stream unterbrochen" until something else plays, rather than going silent
// without a word.
//
// Lives on the GUI thread. It only shows what the player and the listener announce and
// asks them for everything else; the position is read a few times a second while playing.
class NowPlayingBar : public QFrame {
    Q_OBJECT

public:
    static constexpr int kCoverSize = 52; // logical pixels
    static constexpr int kPositionTickMs = 250;

    // `listener` may be null: no live mode.
    NowPlayingBar(Player &player, TransitionSettings &settings, StationListener *listener, QWidget *parent = nullptr);
    ~NowPlayingBar() override;

    QLabel *coverLabel() const { return m_cover; }
    QLabel *titleLabel() const { return m_title; }
    QLabel *artistLabel() const { return m_artist; }
    QToolButton *previousButton() const { return m_previous; }
    QToolButton *playPauseButton() const { return m_playPause; }
    QToolButton *nextButton() const { return m_next; }
    QSlider *positionSlider() const { return m_position; }
    QLabel *elapsedLabel() const { return m_elapsed; }
    QLabel *remainingLabel() const { return m_remaining; }
    QToolButton *shuffleButton() const { return m_shuffle; }
    QToolButton *repeatButton() const { return m_repeat; }
    QSlider *volumeSlider() const { return m_volume; }
    TransitionMenuButton *transitionButton() const { return m_transition; }
    QToolButton *equaliserButton() const { return m_equaliserButton; }
    // Made when the button is first pressed; null before.
    EqualiserDialog *equaliserDialog() const { return m_equaliserDialog; }
    QToolButton *upNextButton() const { return m_upNextButton; }
    UpNextPopup *upNext() const { return m_upNext; }
    QLabel *liveBadge() const { return m_badge; }
    QPushButton *saveSongButton() const { return m_save; }
    // The state of the save asked for last, or its outcome.
    QLabel *saveStatusLabel() const { return m_saveStatus; }
    // Whether the bar shows a station (heard, or broken off) rather than the queue.
    [[nodiscard]] bool showsStation() const { return m_failure.has_value() || m_station.has_value(); }
    // Whether the timeline (position and times) is shown.
    [[nodiscard]] bool showsTimeline() const;

    // Listening to `station` ended against the user's will: it stays named with `message`
    // (an engine text) until something else plays.
    void showListeningFailed(const Station &station, const QString &message);
    // "Save this song" (the button, Ctrl+S): arms the save of the song heard, or says why not.
    void saveSong();

    // Whether the cover shows the track's own picture or the station's logo (not a
    // placeholder).
    [[nodiscard]] bool showsCover() const { return m_hasCover; }

    // Where a station's logo comes from while it is shown; null: a placeholder.
    void setStationLogos(StationLogoCache *logos);

    // Re-reads the position now (the timer does so while playing).
    void refreshPosition();

private:
    void showStation(const std::optional<Station> &station);
    void showLive();
    void showSaveState(StationListener::SaveState state);
    void leaveFailure();
    void showTrack(const std::optional<Track> &track);
    void showStatus(Player::Status status);
    void showRepeat(Player::Repeat repeat);
    void showCover(const QString &audioPath, const QImage &image);
    void showStationLogo(const Station &station);
    void seekTo(int milliseconds);
    void showTimes(int elapsedMs, int durationMs);

    Player &m_player;
    StationListener *m_listener = nullptr;
    std::optional<Station> m_station; // the one heard (connecting or playing)
    QString m_liveTitle;
    // Station and engine text of a station that broke off, while it is still shown.
    std::optional<std::pair<Station, QString>> m_failure;
    CoverLoader *m_loader = nullptr;
    QPointer<StationLogoCache> m_logos;
    QString m_coverPath; // the file whose cover is wanted
    bool m_hasCover = false;
    QLabel *m_cover = nullptr;
    QLabel *m_title = nullptr;
    QLabel *m_artist = nullptr;
    QLabel *m_badge = nullptr;
    QWidget *m_timeline = nullptr;
    QWidget *m_liveRow = nullptr;
    QPushButton *m_save = nullptr;
    QLabel *m_saveStatus = nullptr;
    QToolButton *m_previous = nullptr;
    QToolButton *m_playPause = nullptr;
    QToolButton *m_next = nullptr;
    QSlider *m_position = nullptr;
    QLabel *m_elapsed = nullptr;
    QLabel *m_remaining = nullptr;
    QToolButton *m_shuffle = nullptr;
    QToolButton *m_repeat = nullptr;
    QSlider *m_volume = nullptr;
    QLabel *m_volumeIcon = nullptr;
    TransitionMenuButton *m_transition = nullptr;
    QToolButton *m_equaliserButton = nullptr;
    EqualiserDialog *m_equaliserDialog = nullptr;
    QToolButton *m_upNextButton = nullptr;
    UpNextPopup *m_upNext = nullptr;
    QTimer *m_tick = nullptr;
};
