#include "library/playlist.h"

#include "library/track.h"

#include <QHashFunctions>

#include <algorithm>

PlaylistEntry::PlaylistEntry(QString title_, QString artist_, double duration_,
                             std::optional<QString> youtubeVideoID_, qint64 sortOrder_,
                             std::optional<qint64> linkedTrack_)
    : title(std::move(title_))
    , artist(std::move(artist_))
    , duration(Track::storableDuration(duration_))
    , youtubeVideoID(std::move(youtubeVideoID_))
    , sortOrder(sortOrder_)
    , linkedTrack(linkedTrack_)
{
}

QString PlaylistEntry::formattedDuration() const
{
    const auto wholeSeconds = qint64(Track::storableDuration(duration));
    if (wholeSeconds < 1)
        return QStringLiteral("--:--");
    return formatMinutesSeconds(wholeSeconds);
}

bool operator==(const PlaylistEntry &a, const PlaylistEntry &b)
{
    if (a.id != 0 || b.id != 0)
        return a.id == b.id;
    return a.title == b.title && a.artist == b.artist && a.duration == b.duration
        && a.youtubeVideoID == b.youtubeVideoID && a.sortOrder == b.sortOrder && a.playlist == b.playlist
        && a.linkedTrack == b.linkedTrack;
}

Playlist::Playlist(QString name_) : name(std::move(name_)), dateCreated(QDateTime::currentDateTimeUtc()) {}

bool operator==(const Playlist &a, const Playlist &b)
{
    if (a.id != 0 || b.id != 0)
        return a.id == b.id;
    return a.name == b.name && a.dateCreated == b.dateCreated && a.entries == b.entries;
}

size_t qHash(const PlaylistEntry &entry, size_t seed)
{
    return qHash(entry.id, seed);
}

size_t qHash(const Playlist &playlist, size_t seed)
{
    return qHash(playlist.id, seed);
}

namespace Playlists {

void sortEntries(QList<PlaylistEntry> &entries)
{
    std::stable_sort(entries.begin(), entries.end(),
                     [](const PlaylistEntry &a, const PlaylistEntry &b) { return a.sortOrder < b.sortOrder; });
}

} // namespace Playlists
