#include "app/nowplayingbar.h"

#include "app/coverloader.h"
#include "app/stationlogocache.h"
#include "app/equaliserdialog.h"
#include "app/texts.h"
#include "app/themeicons.h"
#include "app/transitionmenubutton.h"
#include "app/upnextpopup.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {

QToolButton *makeButton(QWidget *parent, const QString &tip)
{
    auto *button = new QToolButton(parent);
    button->setAutoRaise(true);
    button->setToolTip(tip);
    button->setAccessibleName(tip);
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

int toMs(double seconds)
{
    return std::isfinite(seconds) && seconds > 0 ? int(std::lround(std::min(seconds, 2e6) * 1000)) : 0;
}

} // namespace

NowPlayingBar::NowPlayingBar(Player &player, TransitionSettings &settings, StationListener *listener, QWidget *parent)
    : QFrame(parent)
    , m_player(player)
    , m_listener(listener)
{
    setObjectName(QStringLiteral("nowPlaying"));
    setStyleSheet(QStringLiteral("QFrame#nowPlaying { border-top: 1px solid palette(mid); }"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->setSpacing(10);

    m_cover = new QLabel(this);
    m_cover->setFixedSize(kCoverSize, kCoverSize);
    m_cover->setScaledContents(false);
    m_cover->setAlignment(Qt::AlignCenter);
    layout->addWidget(m_cover);
    m_loader = new CoverLoader(kCoverSize * 2, this);
    connect(m_loader, &CoverLoader::loaded, this, &NowPlayingBar::showCover);

    auto *names = new QVBoxLayout;
    names->setSpacing(2);
    m_title = new QLabel(this);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setTextFormat(Qt::PlainText);
    m_artist = new QLabel(this);
    m_artist->setTextFormat(Qt::PlainText);
    m_artist->setForegroundRole(QPalette::PlaceholderText);
    for (QLabel *label : { m_title, m_artist }) {
        // Narrower in a half-screen window; a long title is cut, its tooltip has it all.
        label->setMinimumWidth(120);
        label->setMaximumWidth(220);
        label->setTextInteractionFlags(Qt::NoTextInteraction);
    }
    m_badge = new QLabel(tx("live.badge"), this);
    m_badge->setObjectName(QStringLiteral("liveBadge"));
    m_badge->setStyleSheet(QStringLiteral("QLabel#liveBadge { background: #d7263d; color: white; font-weight: bold; "
                                          "padding: 0px 5px; border-radius: 3px; }"));
    m_badge->hide();
    auto *titleRow = new QHBoxLayout;
    titleRow->setSpacing(6);
    titleRow->addWidget(m_badge);
    titleRow->addWidget(m_title);
    titleRow->addStretch();
    names->addStretch();
    names->addLayout(titleRow);
    names->addWidget(m_artist);
    names->addStretch();
    layout->addLayout(names);

    auto *center = new QVBoxLayout;
    center->setSpacing(2);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(6);
    m_shuffle = makeButton(this, tx("player.shuffle"));
    m_shuffle->setText(QStringLiteral("⇄"));
    m_shuffle->setCheckable(true);
    m_previous = makeButton(this, tx("player.previous"));
    m_previous->setIcon(ThemeIcons::icon(ThemeIcons::Icon::Previous));
    m_playPause = makeButton(this, tx("player.playPauseTip"));
    m_playPause->setIconSize(QSize(26, 26));
    m_next = makeButton(this, tx("player.next"));
    m_next->setIcon(ThemeIcons::icon(ThemeIcons::Icon::Next));
    m_repeat = makeButton(this, tx("player.repeatOff"));
    m_repeat->setCheckable(true);
    buttons->addStretch();
    for (QToolButton *button : { m_shuffle, m_previous, m_playPause, m_next, m_repeat })
        buttons->addWidget(button);
    buttons->addStretch();
    center->addLayout(buttons);

    m_timeline = new QWidget(this);
    auto *timeline = new QHBoxLayout(m_timeline);
    timeline->setContentsMargins(0, 0, 0, 0);
    m_elapsed = new QLabel(this);
    m_remaining = new QLabel(this);
    for (QLabel *label : { m_elapsed, m_remaining }) {
        label->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("-00:00")) + 4);
        label->setForegroundRole(QPalette::PlaceholderText);
    }
    m_elapsed->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_position = new QSlider(Qt::Horizontal, this);
    m_position->setAccessibleName(tx("player.position"));
    m_position->setSingleStep(5000);
    m_position->setPageStep(10000);
    timeline->addWidget(m_elapsed);
    timeline->addWidget(m_position, 1);
    timeline->addWidget(m_remaining);
    center->addWidget(m_timeline);

    // In the timeline's place while a station plays.
    m_liveRow = new QWidget(this);
    auto *liveRow = new QHBoxLayout(m_liveRow);
    liveRow->setContentsMargins(0, 0, 0, 0);
    m_save = new QPushButton(tx("live.save"), m_liveRow);
    m_save->setObjectName(QStringLiteral("saveSongButton"));
    m_save->setToolTip(tx("live.saveTip"));
    m_save->setFocusPolicy(Qt::TabFocus);
    m_saveStatus = new QLabel(m_liveRow);
    m_saveStatus->setTextFormat(Qt::PlainText);
    m_saveStatus->setForegroundRole(QPalette::PlaceholderText);
    liveRow->addStretch();
    liveRow->addWidget(m_save);
    liveRow->addWidget(m_saveStatus);
    liveRow->addStretch();
    m_liveRow->hide();
    center->addWidget(m_liveRow);
    layout->addLayout(center, 1);

    m_transition = new TransitionMenuButton(settings, this);
    m_equaliserButton = makeButton(this, tx("eq.buttonTip"));
    m_equaliserButton->setObjectName(QStringLiteral("equaliserButton"));
    m_equaliserButton->setText(tx("eq.button"));
    connect(m_equaliserButton, &QToolButton::clicked, this, [this] {
        if (!m_equaliserDialog)
            m_equaliserDialog = new EqualiserDialog(m_player, this);
        m_equaliserDialog->refresh();
        m_equaliserDialog->show();
        m_equaliserDialog->raise();
    });
    m_upNextButton = makeButton(this, tx("player.upNext"));
    m_upNextButton->setText(tx("player.upNext"));
    m_upNext = new UpNextPopup(player, this);
    m_volumeIcon = new QLabel(this);
    m_volumeIcon->setPixmap(style()->standardIcon(QStyle::SP_MediaVolume).pixmap(16, 16));
    m_volume = new QSlider(Qt::Horizontal, this);
    m_volume->setRange(0, 100);
    m_volume->setFixedWidth(100);
    m_volume->setAccessibleName(tx("player.volume"));
    m_volume->setToolTip(tx("player.volume"));
    m_volume->setValue(int(std::lround(player.volume() * 100)));
    layout->addWidget(m_transition);
    layout->addWidget(m_equaliserButton);
    layout->addWidget(m_upNextButton);
    layout->addWidget(m_volumeIcon);
    layout->addWidget(m_volume);

    m_tick = new QTimer(this);
    m_tick->setInterval(kPositionTickMs);
    connect(m_tick, &QTimer::timeout, this, &NowPlayingBar::refreshPosition);

    connect(m_playPause, &QToolButton::clicked, &m_player, &Player::playPause);
    connect(m_previous, &QToolButton::clicked, &m_player, &Player::previous);
    connect(m_next, &QToolButton::clicked, &m_player, &Player::next);
    connect(m_shuffle, &QToolButton::clicked, &m_player, &Player::setShuffle);
    connect(m_repeat, &QToolButton::clicked, this, [this] {
        // off -> all -> one -> off, as the button is pressed again and again.
        const Player::Repeat now = m_player.repeat();
        m_player.setRepeat(now == Player::Repeat::off ? Player::Repeat::all
                : now == Player::Repeat::all          ? Player::Repeat::one
                                                      : Player::Repeat::off);
        showRepeat(m_player.repeat()); // the button's own toggle is undone if nothing changed
    });
    connect(m_upNextButton, &QToolButton::clicked, this, [this] { m_upNext->openAbove(m_upNextButton); });
    connect(m_volume, &QSlider::valueChanged, this, [this](int value) {
        m_player.setVolume(value / 100.0);
        m_volumeIcon->setPixmap(
            style()->standardIcon(value == 0 ? QStyle::SP_MediaVolumeMuted : QStyle::SP_MediaVolume).pixmap(16, 16));
    });
    // A drag shows where it would go and seeks once, when released; clicks on the groove
    // and the arrow keys seek at once.
    connect(m_position, &QSlider::sliderMoved, this, [this](int ms) { showTimes(ms, m_position->maximum()); });
    connect(m_position, &QSlider::sliderReleased, this, [this] { seekTo(m_position->value()); });
    connect(m_position, &QSlider::actionTriggered, this, [this](int action) {
        if (action != QAbstractSlider::SliderMove && action != QAbstractSlider::SliderNoAction)
            seekTo(m_position->sliderPosition());
    });

    connect(&m_player, &Player::currentTrackChanged, this,
        [this](const std::optional<Track> &track, int) { showTrack(track); });
    connect(&m_player, &Player::statusChanged, this, [this](Player::Status status) {
        // Something else plays: the station that broke off has been said long enough.
        if (status == Player::Status::playing && !m_player.isLive())
            leaveFailure();
        showStatus(status);
    });
    connect(&m_player, &Player::liveChanged, this, &NowPlayingBar::showLive);
    connect(&m_player, &Player::queueChanged, this, [this] { showStatus(m_player.status()); });
    connect(&m_player, &Player::seeked, this, &NowPlayingBar::refreshPosition);
    connect(&m_player, &Player::shuffleChanged, m_shuffle, &QToolButton::setChecked);
    connect(&m_player, &Player::repeatChanged, this, &NowPlayingBar::showRepeat);
    connect(&m_player, &Player::volumeChanged, this, [this](double volume) {
        const QSignalBlocker blocker(m_volume);
        m_volume->setValue(int(std::lround(volume * 100)));
    });

    connect(m_save, &QPushButton::clicked, this, &NowPlayingBar::saveSong);
    if (m_listener) {
        connect(m_listener, &StationListener::stationChanged, this, &NowPlayingBar::showStation);
        connect(m_listener, &StationListener::titleChanged, this, [this](const QString &title) {
            m_liveTitle = title;
            showLive();
        });
        connect(m_listener, &StationListener::saveStateChanged, this, &NowPlayingBar::showSaveState);
        connect(m_listener, &StationListener::songSaved, this, [this](const Track &track) {
            const QString name
                = track.artist.isEmpty() ? track.title : track.artist + QStringLiteral(" - ") + track.title;
            m_saveStatus->setText(Texts::text("live.savedFormat").arg(name));
        });
        connect(m_listener, &StationListener::songSkipped, this, [this](const QString &title, const QString &reason) {
            m_saveStatus->setText(Texts::text("live.skippedFormat").arg(title, Texts::engineMessage(reason)));
        });
        connect(m_listener, &StationListener::saveFailed, this, [this](const QString &message) {
            m_saveStatus->setText(Texts::text("live.saveFailedFormat").arg(Texts::engineMessage(message)));
        });
    }

    m_shuffle->setChecked(player.shuffle());
    showRepeat(player.repeat());
    showTrack(player.currentTrack());
    showStatus(player.status());
    if (m_listener)
        showStation(m_listener->station());
}

NowPlayingBar::~NowPlayingBar() = default;

bool NowPlayingBar::showsTimeline() const
{
    return !m_timeline->isHidden();
}

void NowPlayingBar::showStation(const std::optional<Station> &station)
{
    m_station = station;
    if (station) {
        // A new station: the old one's failure and its save outcome are history.
        m_failure.reset();
        m_saveStatus->clear();
        m_liveTitle = m_listener->title();
        showSaveState(m_listener->saveState());
    }
    if (showsStation())
        showLive();
    else
        showTrack(m_player.currentTrack());
}

void NowPlayingBar::showListeningFailed(const Station &station, const QString &message)
{
    m_failure = std::make_pair(station, message);
    m_liveTitle.clear();
    showLive();
}

void NowPlayingBar::leaveFailure()
{
    if (!m_failure)
        return;
    m_failure.reset();
    if (m_station)
        showLive();
    else
        showTrack(m_player.currentTrack());
}

void NowPlayingBar::showLive()
{
    if (!showsStation())
        return;
    const bool failed = m_failure.has_value();
    const Station &station = failed ? m_failure->first : *m_station;
    QString line;
    if (failed)
        line = Texts::engineMessage(m_failure->second);
    else if (!m_liveTitle.isEmpty())
        line = m_liveTitle;
    else
        line = tx(m_player.isLive() ? "live.noTitle" : "live.connecting");
    m_title->setText(station.name);
    m_title->setToolTip(station.name);
    m_artist->setText(line);
    m_artist->setToolTip(line);
    m_badge->setVisible(!failed);
    m_timeline->hide();
    m_liveRow->setVisible(!failed);
    // A live stream has no place in a queue to go back or forth from.
    m_previous->setEnabled(false);
    m_next->setEnabled(false);
    m_coverPath.clear();
    showStationLogo(station);
    showStatus(m_player.status());
}

void NowPlayingBar::setStationLogos(StationLogoCache *logos)
{
    if (m_logos)
        disconnect(m_logos, nullptr, this, nullptr);
    m_logos = logos;
    if (m_logos) {
        connect(m_logos, &StationLogoCache::logoChanged, this, [this](const QString &favicon) {
            const std::optional<Station> &shown = m_failure ? std::optional<Station>(m_failure->first) : m_station;
            if (shown && shown->favicon == favicon)
                showStationLogo(*shown);
        });
    }
    if (showsStation())
        showLive();
}

void NowPlayingBar::showStationLogo(const Station &station)
{
    const QPixmap logo = m_logos ? m_logos->pixmap(station.favicon) : QPixmap();
    m_hasCover = !logo.isNull();
    const qreal ratio = devicePixelRatioF();
    const QSize size = QSize(kCoverSize, kCoverSize) * ratio;
    QPixmap pixmap = m_hasCover
        // Favicons are often 16 or 32 pixels: grown to the cover's size, smoothly.
        ? logo.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation)
        : StationLogoCache::placeholder().pixmap(size);
    pixmap.setDevicePixelRatio(ratio);
    m_cover->setPixmap(pixmap);
}

void NowPlayingBar::showSaveState(StationListener::SaveState state)
{
    using SaveState = StationListener::SaveState;
    m_save->setEnabled(state == SaveState::ready);
    m_save->setToolTip(state == SaveState::unavailable ? tx("live.saveUnavailable") : tx("live.saveTip"));
    QString title = m_listener ? m_listener->savingTitle() : QString();
    if (title.isEmpty())
        title = m_liveTitle;
    // Ready and unavailable leave the label to the last outcome, which is said separately.
    if (state == SaveState::armed)
        m_saveStatus->setText(Texts::text("live.armedFormat").arg(title));
    else if (state == SaveState::saving)
        m_saveStatus->setText(Texts::text("live.savingFormat").arg(title));
}

void NowPlayingBar::saveSong()
{
    if (!m_listener || !m_station || m_failure)
        return;
    QString why;
    if (!m_listener->saveCurrentSong(&why))
        m_saveStatus->setText(why);
}

void NowPlayingBar::showTrack(const std::optional<Track> &track)
{
    if (showsStation()) {
        showLive();
        return;
    }
    m_badge->hide();
    m_liveRow->hide();
    m_timeline->show();
    m_title->setText(track ? track->title : tx("player.idle"));
    m_artist->setText(track ? track->artist : QString());
    m_title->setToolTip(track ? track->title : QString());
    m_artist->setToolTip(track ? track->artist : QString());
    const QString path = track ? track->filePath.value_or(QString()) : QString();
    if (path != m_coverPath || !track) {
        m_coverPath = path;
        // The old picture would belong to the wrong song while the new one loads.
        m_hasCover = false;
        m_cover->setPixmap(CoverLoader::placeholder(kCoverSize));
        m_loader->request(path);
    }
    m_position->setEnabled(track.has_value());
    m_previous->setEnabled(track.has_value() || !m_player.queue().isEmpty());
    m_next->setEnabled(track.has_value());
    refreshPosition();
}

void NowPlayingBar::showCover(const QString &audioPath, const QImage &image)
{
    if (audioPath != m_coverPath)
        return;
    m_hasCover = !image.isNull();
    if (!m_hasCover) {
        m_cover->setPixmap(CoverLoader::placeholder(kCoverSize));
        return;
    }
    QPixmap pixmap = QPixmap::fromImage(image.scaled(
        QSize(kCoverSize, kCoverSize) * devicePixelRatioF(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
    pixmap.setDevicePixelRatio(devicePixelRatioF());
    m_cover->setPixmap(pixmap);
}

void NowPlayingBar::showStatus(Player::Status status)
{
    const bool playing = status == Player::Status::playing;
    m_playPause->setIcon(ThemeIcons::icon(playing ? ThemeIcons::Icon::Pause : ThemeIcons::Icon::Play));
    m_playPause->setAccessibleName(tx(playing ? "player.pause" : "player.play"));
    m_playPause->setEnabled(!m_player.queue().isEmpty() || m_player.isLive() || m_station.has_value());
    if (playing)
        m_tick->start();
    else
        m_tick->stop();
    refreshPosition();
}

void NowPlayingBar::showRepeat(Player::Repeat repeat)
{
    static constexpr const char *kTips[] = { "player.repeatOff", "player.repeatAll", "player.repeatOne" };
    m_repeat->setChecked(repeat != Player::Repeat::off);
    m_repeat->setText(repeat == Player::Repeat::one ? QStringLiteral("↻1") : QStringLiteral("↻"));
    m_repeat->setToolTip(tx(kTips[int(repeat)]));
    m_repeat->setAccessibleName(m_repeat->toolTip());
}

void NowPlayingBar::refreshPosition()
{
    if (showsStation())
        return;
    const std::optional<Track> track = m_player.currentTrack();
    if (!track) {
        m_position->setRange(0, 0);
        m_elapsed->setText(QString());
        m_remaining->setText(QString());
        return;
    }
    // The decoder's exact length once the track is loaded; the library's until then.
    const double duration = m_player.duration() > 0 ? m_player.duration() : track->duration;
    const int durationMs = toMs(duration);
    const int elapsedMs = std::min(toMs(m_player.position().value_or(0)), durationMs);
    // A drag in progress keeps its place; the times show where it would go.
    if (m_position->isSliderDown())
        return;
    const QSignalBlocker blocker(m_position);
    m_position->setRange(0, durationMs);
    m_position->setValue(elapsedMs);
    showTimes(elapsedMs, durationMs);
}

void NowPlayingBar::showTimes(int elapsedMs, int durationMs)
{
    m_elapsed->setText(formatMinutesSeconds(elapsedMs / 1000));
    // Rounded up, so the two add up to the length shown in the library.
    const int leftMs = std::max(0, durationMs - elapsedMs);
    m_remaining->setText(QStringLiteral("-") + formatMinutesSeconds((leftMs + 999) / 1000));
}

void NowPlayingBar::seekTo(int milliseconds)
{
    if (!m_player.currentTrack())
        return;
    m_player.seek(milliseconds / 1000.0);
    refreshPosition();
}
