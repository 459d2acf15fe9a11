#include "engine/trackinfolookup.h"

#include "platform/httpclient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

namespace TrackInfoLookup {

namespace {

const QString kDefaultStoreBase = QStringLiteral("https://itunes.apple.com/search");

// A look-up must not hold a save up for long: the song is kept either way.
constexpr double kRequestTimeoutSec = 8;
constexpr qint64 kMaxJsonBytes = qint64(2) << 20;
constexpr qint64 kMaxCoverBytes = qint64(4) << 20;

// 2: equal, 1: one contains the other, 0: unrelated or nothing to compare.
int closeness(const QString &found, const QString &wanted)
{
    const QString a = found.trimmed();
    const QString b = wanted.trimmed();
    if (a.isEmpty() || b.isEmpty())
        return 0;
    if (a.compare(b, Qt::CaseInsensitive) == 0)
        return 2;
    if (a.contains(b, Qt::CaseInsensitive) || b.contains(a, Qt::CaseInsensitive))
        return 1;
    return 0;
}

HttpRequest storeRequest(const QByteArray &url, qint64 maxBodyBytes)
{
    HttpRequest request;
    request.url = url;
    request.headers = {{"User-Agent", "Orvida/1.0"}};
    request.totalTimeoutSec = kRequestTimeoutSec;
    request.idleTimeoutSec = kRequestTimeoutSec;
    request.maxRedirects = 3;
    request.maxBodyBytes = maxBodyBytes;
    return request;
}

bool looksLikeJpeg(const QByteArray &bytes)
{
    return bytes.size() > 2 && quint8(bytes[0]) == 0xFF && quint8(bytes[1]) == 0xD8;
}

} // namespace

QString storeBase()
{
    const QString fromEnvironment = qEnvironmentVariable("ORVIDA_STORE_URL");
    return fromEnvironment.isEmpty() ? kDefaultStoreBase : fromEnvironment;
}

QByteArray searchUrl(const QString &base, const QString &artist, const QString &title)
{
    const QString term = (artist.trimmed() + QLatin1Char(' ') + title.trimmed()).trimmed();
    return base.toUtf8() + "?term=" + QUrl::toPercentEncoding(term) + "&entity=song&limit=5";
}

QList<StoreResult> parseResults(const QByteArray &json)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    QList<StoreResult> out;
    for (const QJsonValue &entry : doc.object().value(QLatin1String("results")).toArray()) {
        const QJsonObject o = entry.toObject();
        if (o.isEmpty())
            continue;
        out.append({o.value(QLatin1String("trackName")).toString(), o.value(QLatin1String("artistName")).toString(),
                    o.value(QLatin1String("collectionName")).toString(),
                    o.value(QLatin1String("artworkUrl100")).toString()});
    }
    return out;
}

std::optional<StoreResult> chooseResult(const QList<StoreResult> &results, const QString &artist, const QString &title)
{
    if (results.isEmpty())
        return std::nullopt;
    qsizetype best = 0;
    int bestScore = -1;
    for (qsizetype i = 0; i < results.size(); ++i) {
        const int score = closeness(results[i].artistName, artist) + closeness(results[i].trackName, title);
        if (score > bestScore) {
            best = i;
            bestScore = score;
        }
    }
    return results[best];
}

QByteArray coverUrl(const QString &artworkUrl100)
{
    QString url = artworkUrl100;
    return url.replace(QLatin1String("100x100bb"), QLatin1String("600x600bb")).toUtf8();
}

TrackInfo lookupTrackInfo(HttpClient &http, const QString &base, const QString &artist, const QString &title)
{
    const auto search = http.getBlocking(storeRequest(searchUrl(base, artist, title), kMaxJsonBytes));
    if (!search.result.ok() || search.head.statusCode != 200)
        return {};
    const auto chosen = chooseResult(parseResults(search.body), artist, title);
    if (!chosen)
        return {};

    TrackInfo info;
    if (!chosen->collectionName.trimmed().isEmpty())
        info.album = chosen->collectionName.trimmed();
    if (!chosen->artworkUrl100.isEmpty()) {
        const auto cover = http.getBlocking(storeRequest(coverUrl(chosen->artworkUrl100), kMaxCoverBytes));
        if (cover.result.ok() && cover.head.statusCode == 200 && looksLikeJpeg(cover.body))
            info.cover = cover.body;
    }
    return info;
}

} // namespace TrackInfoLookup
