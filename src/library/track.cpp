#include "library/track.h"

#include <QHashFunctions>
#include <QtGlobal>

#include <cmath>

namespace {

// 2^63: the first double that no longer fits qint64 (every smaller double does).
constexpr double kInt64Limit = 9223372036854775808.0;

bool sameFields(const Track &a, const Track &b)
{
    return a.title == b.title && a.artist == b.artist && a.album == b.album && a.duration == b.duration
        && a.dateAdded == b.dateAdded && a.isFavorite == b.isFavorite && a.genre == b.genre
        && a.playCount == b.playCount && a.source == b.source && a.station == b.station && a.filePath == b.filePath;
}

} // namespace

Track::Track(QString title_, QString artist_, QString album_, double duration_, const QDateTime &dateAdded_,
             QString genre_, bool isFavorite_, qint64 playCount_, QString source_, std::optional<QString> station_,
             std::optional<QString> filePath_)
    : title(std::move(title_))
    , artist(std::move(artist_))
    , album(std::move(album_))
    , duration(storableDuration(duration_))
    , dateAdded(dateAdded_.toUTC())
    , isFavorite(isFavorite_)
    , genre(std::move(genre_))
    , playCount(playCount_)
    , source(std::move(source_))
    , station(std::move(station_))
    , filePath(std::move(filePath_))
{
    if (duration != duration_) // also true for NaN
        qWarning("Track \"%s\": duration %g is not storable, stored as 0", qPrintable(title), duration_);
}

double Track::storableDuration(double durationSec)
{
    if (!std::isfinite(durationSec) || durationSec >= kInt64Limit || durationSec < -kInt64Limit)
        return 0;
    return durationSec;
}

std::optional<QUrl> Track::fileUrl() const
{
    if (!filePath || filePath->isEmpty())
        return std::nullopt;
    return QUrl::fromLocalFile(*filePath);
}

QString Track::formattedDuration() const
{
    // storableDuration again: the field is writable, and a bad value must not crash a view.
    return formatMinutesSeconds(qint64(storableDuration(duration)));
}

bool operator==(const Track &a, const Track &b)
{
    if (a.id != 0 || b.id != 0)
        return a.id == b.id;
    // Neither is stored yet, so there is no identity to compare; fall back to the values.
    return sameFields(a, b);
}

size_t qHash(const Track &track, size_t seed)
{
    return qHash(track.id, seed);
}

QString formatMinutesSeconds(qint64 wholeSeconds)
{
    // Truncating division, as C's "%d:%02d" of (s / 60, s % 60): a negative duration
    // prints as "-m:-s", which only a broken producer can cause.
    return QString::asprintf("%lld:%02lld", static_cast<long long>(wholeSeconds / 60),
                             static_cast<long long>(wholeSeconds % 60));
}
