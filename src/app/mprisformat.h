#pragma once

#include "playback/player.h"

#include <QDBusObjectPath>
#include <QString>
#include <QVariantMap>

#include <optional>

struct Station;
struct Track;

// How the player's state reads in the desktop's media-control protocol: the texts of its
// enumerations, the track ids, the metadata map. Times there are microseconds.
namespace MprisFormat {

// "Playing", "Paused", "Stopped".
[[nodiscard]] QString playbackStatus(Player::Status status);
// "None", "Track", "Playlist"; and back, absent for any other text.
[[nodiscard]] QString loopStatus(Player::Repeat repeat);
[[nodiscard]] std::optional<Player::Repeat> repeatFor(const QString &loopStatus);

// The id of the queue entry at `queueIndex` holding `track`: built from the library id, so
// that the same song keeps its id when the queue changes; tracks not in the library (id 0)
// are named by their place in the queue.
[[nodiscard]] QDBusObjectPath trackId(const Track &track, int queueIndex);
// The id that stands for "no track".
[[nodiscard]] QDBusObjectPath noTrack();

// The metadata of the current entry: track id, length (`durationSec` when known, else the
// library's), title, artist (a list of one), album, and the cover's file URL when there is
// a saved cover. Empty fields are left out; with no track, only the no-track id.
[[nodiscard]] QVariantMap metadata(
    const std::optional<Track> &track, int queueIndex, double durationSec, const std::optional<QString> &coverPath);

// The metadata while a station plays live: what it plays now as the title (the station's
// name until it names a song) and the station as the artist, which is the line desktop
// shells show under the title (GNOME Shell and playerctl show no album); no length. The
// track id follows the station, so a client sees a new "track" when the station changes.
[[nodiscard]] QVariantMap liveMetadata(const Station &station, const QString &liveTitle);

[[nodiscard]] qint64 microseconds(double seconds);
[[nodiscard]] double seconds(qint64 microseconds);

} // namespace MprisFormat
