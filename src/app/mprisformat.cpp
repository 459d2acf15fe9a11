#include "app/mprisformat.h"

#include "library/track.h"
#include "stations/station.h"

#include <QCryptographicHash>

#include <QStringList>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace MprisFormat {

QString playbackStatus(Player::Status status)
{
    switch (status) {
    case Player::Status::playing:
        return QStringLiteral("Playing");
    case Player::Status::paused:
        return QStringLiteral("Paused");
    case Player::Status::stopped:
        break;
    }
    return QStringLiteral("Stopped");
}

QString loopStatus(Player::Repeat repeat)
{
    switch (repeat) {
    case Player::Repeat::one:
        return QStringLiteral("Track");
    case Player::Repeat::all:
        return QStringLiteral("Playlist");
    case Player::Repeat::off:
        break;
    }
    return QStringLiteral("None");
}

std::optional<Player::Repeat> repeatFor(const QString &loopStatus)
{
    if (loopStatus == QLatin1String("None"))
        return Player::Repeat::off;
    if (loopStatus == QLatin1String("Track"))
        return Player::Repeat::one;
    if (loopStatus == QLatin1String("Playlist"))
        return Player::Repeat::all;
    return std::nullopt;
}

QDBusObjectPath trackId(const Track &track, int queueIndex)
{
    // Ids under /org/mpris are reserved for the protocol itself.
    if (track.id > 0)
        return QDBusObjectPath(QStringLiteral("/app/orvida/Orvida/track/%1").arg(track.id));
    return QDBusObjectPath(QStringLiteral("/app/orvida/Orvida/queue/%1").arg(std::max(queueIndex, 0)));
}

QDBusObjectPath noTrack()
{
    return QDBusObjectPath(QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack"));
}

QVariantMap metadata(
    const std::optional<Track> &track, int queueIndex, double durationSec, const std::optional<QString> &coverPath)
{
    QVariantMap map;
    if (!track) {
        map.insert(QStringLiteral("mpris:trackid"), QVariant::fromValue(noTrack()));
        return map;
    }
    map.insert(QStringLiteral("mpris:trackid"), QVariant::fromValue(trackId(*track, queueIndex)));
    const double length = durationSec > 0 ? durationSec : track->duration;
    if (length > 0)
        map.insert(QStringLiteral("mpris:length"), qlonglong(microseconds(length)));
    if (!track->title.isEmpty())
        map.insert(QStringLiteral("xesam:title"), track->title);
    if (!track->artist.isEmpty())
        map.insert(QStringLiteral("xesam:artist"), QStringList { track->artist });
    if (!track->album.isEmpty())
        map.insert(QStringLiteral("xesam:album"), track->album);
    if (!track->genre.isEmpty())
        map.insert(QStringLiteral("xesam:genre"), QStringList { track->genre });
    if (const auto url = track->fileUrl())
        map.insert(QStringLiteral("xesam:url"), url->toString(QUrl::FullyEncoded));
    if (coverPath)
        map.insert(QStringLiteral("mpris:artUrl"), QUrl::fromLocalFile(*coverPath).toString(QUrl::FullyEncoded));
    return map;
}

QVariantMap liveMetadata(const Station &station, const QString &liveTitle)
{
    QVariantMap map;
    // Station ids are free text ("custom:http://..."); an object path takes [A-Za-z0-9_].
    const QByteArray hash = QCryptographicHash::hash(station.id.toUtf8(), QCryptographicHash::Sha1).toHex().left(16);
    map.insert(QStringLiteral("mpris:trackid"),
        QVariant::fromValue(QDBusObjectPath(QStringLiteral("/app/orvida/Orvida/live/") + QString::fromLatin1(hash))));
    map.insert(QStringLiteral("xesam:title"), liveTitle.isEmpty() ? station.name : liveTitle);
    if (!station.name.isEmpty())
        map.insert(QStringLiteral("xesam:artist"), QStringList { station.name });
    if (!station.streamUrl.isEmpty())
        map.insert(QStringLiteral("xesam:url"), station.streamUrl);
    return map;
}

qint64 microseconds(double seconds)
{
    if (!std::isfinite(seconds))
        return 0;
    return qint64(std::llround(seconds * 1e6));
}

double seconds(qint64 microseconds)
{
    return double(microseconds) / 1e6;
}

} // namespace MprisFormat
