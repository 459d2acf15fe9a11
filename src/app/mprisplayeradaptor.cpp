#include "app/mprisplayeradaptor.h"

#include "app/covercache.h"
#include "app/mprisformat.h"
#include "engine/stationlistener.h"
#include "playback/player.h"

#include <algorithm>

MprisPlayerAdaptor::MprisPlayerAdaptor(QObject *exported, Player &player, CoverCache &covers, StationListener *listener)
    : QDBusAbstractAdaptor(exported)
    , m_player(player)
    , m_covers(covers)
    , m_listener(listener)
{
    if (m_listener) {
        m_liveTitle = m_listener->title();
        connect(
            m_listener, &StationListener::titleChanged, this, [this](const QString &title) { m_liveTitle = title; });
        connect(m_listener, &StationListener::stationChanged, this, [this] { m_liveTitle = m_listener->title(); });
    }
    connect(&m_player, &Player::seeked, this,
        [this](double seconds) { Q_EMIT Seeked(MprisFormat::microseconds(seconds)); });
}

QString MprisPlayerAdaptor::playbackStatus() const
{
    return MprisFormat::playbackStatus(m_player.status());
}

QString MprisPlayerAdaptor::loopStatus() const
{
    return MprisFormat::loopStatus(m_player.repeat());
}

void MprisPlayerAdaptor::setLoopStatus(const QString &status)
{
    if (const auto repeat = MprisFormat::repeatFor(status))
        m_player.setRepeat(*repeat);
}

void MprisPlayerAdaptor::setRate(double rate)
{
    if (rate == 0)
        m_player.pause();
}

bool MprisPlayerAdaptor::shuffle() const
{
    return m_player.shuffle();
}

void MprisPlayerAdaptor::setShuffle(bool on)
{
    m_player.setShuffle(on);
}

bool MprisPlayerAdaptor::live() const
{
    return m_listener && m_listener->station();
}

QVariantMap MprisPlayerAdaptor::metadata() const
{
    if (live())
        return MprisFormat::liveMetadata(*m_listener->station(), m_liveTitle);
    const std::optional<Track> track = m_player.currentTrack();
    const std::optional<QString> cover = track ? m_covers.coverPath(*track) : std::nullopt;
    return MprisFormat::metadata(track, m_player.currentIndex(), track ? m_player.duration() : 0, cover);
}

double MprisPlayerAdaptor::volume() const
{
    return m_player.volume();
}

void MprisPlayerAdaptor::setVolume(double volume)
{
    // The protocol allows more than 1 (amplification); the player's fader does not.
    m_player.setVolume(std::clamp(volume, 0.0, 1.0));
}

qlonglong MprisPlayerAdaptor::position() const
{
    return MprisFormat::microseconds(m_player.position().value_or(0));
}

qint64 MprisPlayerAdaptor::lengthUs() const
{
    if (live())
        return 0; // a stream has no end to reach and no place to seek to
    const auto track = m_player.currentTrack();
    if (!track)
        return 0;
    const double seconds = m_player.duration() > 0 ? m_player.duration() : track->duration;
    return MprisFormat::microseconds(seconds);
}

bool MprisPlayerAdaptor::canGoNext() const
{
    if (live() || m_player.queue().isEmpty())
        return false;
    return m_player.repeat() != Player::Repeat::off || !m_player.upNext().isEmpty();
}

bool MprisPlayerAdaptor::canGoPrevious() const
{
    // Previous restarts the current track at least.
    return !live() && m_player.currentIndex() >= 0;
}

bool MprisPlayerAdaptor::canPlay() const
{
    return live() || !m_player.queue().isEmpty();
}

bool MprisPlayerAdaptor::canPause() const
{
    return live() || m_player.currentIndex() >= 0;
}

bool MprisPlayerAdaptor::canSeek() const
{
    return lengthUs() > 0;
}

void MprisPlayerAdaptor::Next()
{
    // Next would leave the station for the queue; a media key pressed by habit should not.
    if (!live())
        m_player.next();
}

void MprisPlayerAdaptor::Previous()
{
    if (!live())
        m_player.previous();
}

void MprisPlayerAdaptor::Pause()
{
    if (m_player.status() == Player::Status::playing)
        m_player.pause();
}

void MprisPlayerAdaptor::PlayPause()
{
    m_player.playPause();
}

void MprisPlayerAdaptor::Stop()
{
    m_player.stop();
}

void MprisPlayerAdaptor::Play()
{
    if (m_player.status() != Player::Status::playing)
        m_player.play();
}

void MprisPlayerAdaptor::Seek(qlonglong Offset)
{
    const qint64 length = lengthUs();
    if (length <= 0)
        return;
    const qint64 target = std::max<qint64>(0, position() + Offset);
    if (target >= length)
        m_player.next();
    else
        m_player.seek(MprisFormat::seconds(target));
}

void MprisPlayerAdaptor::SetPosition(const QDBusObjectPath &TrackId, qlonglong Position)
{
    const auto track = m_player.currentTrack();
    if (live() || !track || TrackId != MprisFormat::trackId(*track, m_player.currentIndex()))
        return;
    if (Position < 0 || Position > lengthUs())
        return;
    m_player.seek(MprisFormat::seconds(Position));
}

void MprisPlayerAdaptor::OpenUri(const QString &) { }
