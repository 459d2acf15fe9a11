#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QVariantMap>

class CoverCache;
class Player;
class StationListener;

// org.mpris.MediaPlayer2.Player on the exported object: the player's controls and state for
// media keys and the desktop's media controls. Every property is read from the Player when
// asked, so a Get is never stale; MprisService compares them to say what changed. Times on
// this interface are microseconds.
//
// While a station is heard (the listener has one) the properties describe it instead of
// the queue: its live title and name, no length, no seeking, no next or previous; play and
// pause still act on the player, which opens the stream again on play.
//
// Lives on the GUI thread, a child of the object MprisService exports; the Player, the
// listener and the cover cache outlive it.
class MprisPlayerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(QString LoopStatus READ loopStatus WRITE setLoopStatus)
    Q_PROPERTY(double Rate READ rate WRITE setRate)
    Q_PROPERTY(bool Shuffle READ shuffle WRITE setShuffle)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(double MinimumRate READ rate)
    Q_PROPERTY(double MaximumRate READ rate)
    Q_PROPERTY(bool CanGoNext READ canGoNext)
    Q_PROPERTY(bool CanGoPrevious READ canGoPrevious)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ canPause)
    Q_PROPERTY(bool CanSeek READ canSeek)
    Q_PROPERTY(bool CanControl READ canControl)

public:
    static constexpr const char *kInterface = "org.mpris.MediaPlayer2.Player";
    // The one property that changes all the time: clients read it, it is never announced.
    static constexpr const char *kLiveProperty = "Position";

    // `listener` may be null: no live mode.
    MprisPlayerAdaptor(QObject *exported, Player &player, CoverCache &covers, StationListener *listener);

    [[nodiscard]] QString playbackStatus() const;
    [[nodiscard]] QString loopStatus() const;
    void setLoopStatus(const QString &status);
    // The player has no speed control of its own: always 1. (A client setting 0 means
    // pause.)
    [[nodiscard]] double rate() const { return 1.0; }
    void setRate(double rate);
    [[nodiscard]] bool shuffle() const;
    void setShuffle(bool on);
    [[nodiscard]] QVariantMap metadata() const;
    [[nodiscard]] double volume() const;
    void setVolume(double volume);
    [[nodiscard]] qlonglong position() const;
    [[nodiscard]] bool canGoNext() const;
    [[nodiscard]] bool canGoPrevious() const;
    [[nodiscard]] bool canPlay() const;
    [[nodiscard]] bool canPause() const;
    [[nodiscard]] bool canSeek() const;
    [[nodiscard]] bool canControl() const { return true; }

public Q_SLOTS:
    void Next();
    void Previous();
    void Pause();
    void PlayPause();
    void Stop();
    void Play();
    // Relative to the current position; past the end it goes to the next track, before the
    // start it seeks to the start.
    void Seek(qlonglong Offset);
    // Absolute, in the track named by `TrackId`; a request for another track (the client
    // saw an older state) or outside the track is ignored.
    void SetPosition(const QDBusObjectPath &TrackId, qlonglong Position);
    // Does nothing: the player plays library tracks, and SupportedUriSchemes is empty, as
    // the protocol allows for a player that opens no addresses.
    void OpenUri(const QString &Uri);

Q_SIGNALS:
    // The position jumped (a seek, a track restarted), in microseconds.
    void Seeked(qlonglong Position);

private:
    [[nodiscard]] qint64 lengthUs() const;
    [[nodiscard]] bool live() const;

    Player &m_player;
    CoverCache &m_covers;
    StationListener *m_listener;
    // As the listener last announced it: the title comes with its signal.
    QString m_liveTitle;
};
