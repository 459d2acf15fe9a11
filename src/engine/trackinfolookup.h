#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

class HttpClient;

// Album name and cover art for a recorded song, from the music store's search service.
//
// The look-up is a nicety: every failure (no network, an error status, unreadable JSON,
// no result, a cover that is not a JPEG) gives no album and no cover, and the song is
// saved without them.
namespace TrackInfoLookup {

struct TrackInfo {
    std::optional<QString> album;
    QByteArray cover; // JPEG bytes, empty when none
};

// One entry of the store's "results" array; missing fields are empty.
struct StoreResult {
    QString trackName;
    QString artistName;
    QString collectionName;
    QString artworkUrl100;
};

// ORVIDA_STORE_URL when set and non-empty, else the store's public search endpoint.
[[nodiscard]] QString storeBase();

// base + "?term=" + the percent-encoded "artist title" + "&entity=song&limit=5".
[[nodiscard]] QByteArray searchUrl(const QString &storeBase, const QString &artist, const QString &title);

// The entries of "results"; empty for anything that is not the store's JSON object.
[[nodiscard]] QList<StoreResult> parseResults(const QByteArray &json);

// The entry whose artist and track name match best, compared case-insensitively:
// equal beats containing (either way round) beats unrelated, the artist and the track
// counting alike; among equals the store's own order wins. The first entry when none
// matches at all; absent only for an empty list.
[[nodiscard]] std::optional<StoreResult> chooseResult(const QList<StoreResult> &results, const QString &artist,
                                                      const QString &title);

// The 600 x 600 variant of a 100 x 100 artwork address.
[[nodiscard]] QByteArray coverUrl(const QString &artworkUrl100);

// Asks the store and fetches the chosen result's cover. Blocks for up to about twice
// the per-request time-out; for thread-pool tasks only, never the GUI thread.
[[nodiscard]] TrackInfo lookupTrackInfo(HttpClient &http, const QString &storeBase, const QString &artist,
                                        const QString &title);

} // namespace TrackInfoLookup
