#include "stations/station.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject directoryObject(QJsonObject extra = {})
{
    QJsonObject o{
        {"stationuuid", "9617a958-0601-11e8-ae97-52543be04c81"},
        {"name", "Radio Eins"},
        {"url", "http://example.invalid/plain"},
        {"url_resolved", "https://example.invalid/resolved.mp3"},
    };
    for (auto it = extra.begin(); it != extra.end(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

TEST(StationJson, ReadsEveryFieldOfAFullDirectoryObject)
{
    const auto s = Station::json(directoryObject({{"country", "Germany"},
                                                  {"bitrate", 128},
                                                  {"codec", "MP3"},
                                                  {"favicon", "https://example.invalid/logo.png"},
                                                  {"geo_lat", 52.52},
                                                  {"geo_long", 13},
                                                  {"votes", 7}}));
    ASSERT_TRUE(s);
    EXPECT_EQ(s->id, "9617a958-0601-11e8-ae97-52543be04c81");
    EXPECT_EQ(s->name, "Radio Eins");
    EXPECT_EQ(s->streamUrl, "https://example.invalid/resolved.mp3");
    EXPECT_EQ(s->country, "Germany");
    EXPECT_EQ(s->bitrate, 128);
    EXPECT_EQ(s->codec, "MP3");
    EXPECT_EQ(s->favicon, "https://example.invalid/logo.png");
    EXPECT_EQ(s->geoLat, 52.52);
    EXPECT_EQ(s->geoLong, 13.0); // an integer JSON number is a coordinate too
    EXPECT_FALSE(s->isCustom());
}

TEST(StationJson, RejectsObjectsWithoutAUsableIdNameOrUrl)
{
    QJsonObject noUuid = directoryObject();
    noUuid.remove("stationuuid");
    EXPECT_FALSE(Station::json(noUuid));
    EXPECT_FALSE(Station::json(directoryObject({{"stationuuid", ""}})));
    EXPECT_FALSE(Station::json(directoryObject({{"stationuuid", 42}})));

    EXPECT_FALSE(Station::json(directoryObject({{"name", " \t  "}})));
    EXPECT_FALSE(Station::json(directoryObject({{"name", ""}})));
    EXPECT_FALSE(Station::json(directoryObject({{"name", QJsonValue::Null}})));

    // An empty resolved URL does not fall back to the plain one.
    EXPECT_FALSE(Station::json(directoryObject({{"url_resolved", ""}})));
    QJsonObject noUrls = directoryObject();
    noUrls.remove("url");
    noUrls.remove("url_resolved");
    EXPECT_FALSE(Station::json(noUrls));
    QJsonObject emptyPlain = directoryObject({{"url", ""}});
    emptyPlain.remove("url_resolved");
    EXPECT_FALSE(Station::json(emptyPlain));
}

TEST(StationJson, FallsBackToThePlainUrlOnlyWhenTheResolvedOneIsNotAText)
{
    QJsonObject missing = directoryObject();
    missing.remove("url_resolved");
    EXPECT_EQ(Station::json(missing)->streamUrl, "http://example.invalid/plain");

    const auto wrongType = Station::json(directoryObject({{"url_resolved", QJsonArray{"x"}}}));
    ASSERT_TRUE(wrongType);
    EXPECT_EQ(wrongType->streamUrl, "http://example.invalid/plain");

    // Stored as given: the stream URL is not trimmed.
    EXPECT_EQ(Station::json(directoryObject({{"url_resolved", " http://x.invalid/a "}}))->streamUrl,
              " http://x.invalid/a ");
}

TEST(StationJson, TrimsOnlySpacesAndTabsFromTheName)
{
    EXPECT_EQ(Station::json(directoryObject({{"name", "\t  Jazz FM \t"}}))->name, "Jazz FM");
    EXPECT_EQ(Station::json(directoryObject({{"name", "\nJazz\n"}}))->name, "\nJazz\n");
    EXPECT_FALSE(Station::json(directoryObject({{"name", "\t"}})));
}

TEST(StationJson, WrongTypesFallBackToDefaultsInsteadOfRejecting)
{
    const auto s = Station::json(directoryObject({{"country", 49},
                                                  {"bitrate", "128"},
                                                  {"codec", true},
                                                  {"favicon", QJsonObject{}},
                                                  {"geo_lat", true},
                                                  {"geo_long", QJsonArray{1.0}}}));
    ASSERT_TRUE(s);
    EXPECT_EQ(s->country, "");
    EXPECT_EQ(s->bitrate, 0);
    EXPECT_EQ(s->codec, "");
    EXPECT_FALSE(s->favicon);
    EXPECT_FALSE(s->geoLat);
    EXPECT_FALSE(s->geoLong);

    EXPECT_EQ(Station::json(directoryObject({{"bitrate", 128.5}}))->bitrate, 0);
    EXPECT_EQ(Station::json(directoryObject({{"bitrate", 320.0}}))->bitrate, 320);
    EXPECT_FALSE(Station::json(directoryObject({{"favicon", ""}}))->favicon);
}

TEST(StationJson, CoordinatesComeFromNumbersOrWholeDecimalTexts)
{
    using StationJson::parseCoord;
    EXPECT_EQ(parseCoord(QJsonValue(-33.87)), -33.87);
    EXPECT_EQ(parseCoord(QJsonValue(0)), 0.0);
    EXPECT_EQ(parseCoord(QJsonValue("48.1372")), 48.1372);
    EXPECT_EQ(parseCoord(QJsonValue("-1e1")), -10.0);
    EXPECT_FALSE(parseCoord(QJsonValue("north")));
    EXPECT_FALSE(parseCoord(QJsonValue("")));
    EXPECT_FALSE(parseCoord(QJsonValue(" 48.1")));
    EXPECT_FALSE(parseCoord(QJsonValue("48.1 ")));
    EXPECT_FALSE(parseCoord(QJsonValue("48,1")));
    EXPECT_FALSE(parseCoord(QJsonValue("0x10")));
    // Not a position anyone can draw, whatever the parser makes of it.
    EXPECT_FALSE(parseCoord(QJsonValue("inf")));
    EXPECT_FALSE(parseCoord(QJsonValue("nan")));
    EXPECT_FALSE(parseCoord(QJsonValue("1e999")));
    EXPECT_FALSE(parseCoord(QJsonValue(QJsonValue::Null)));
    EXPECT_FALSE(parseCoord(QJsonValue(QJsonValue::Undefined)));

    const auto s = Station::json(directoryObject({{"geo_lat", "51.5"}, {"geo_long", "west"}}));
    EXPECT_EQ(s->geoLat, 51.5);
    EXPECT_FALSE(s->geoLong);
}

TEST(StationCustom, NamesTheStationAfterTheGivenNameTheHostOrTheFixedFallback)
{
    const Station named = Station::custom("https://radio.example.com:8000/live", "Mein Sender");
    EXPECT_EQ(named.id, "custom:https://radio.example.com:8000/live");
    EXPECT_EQ(named.streamUrl, "https://radio.example.com:8000/live");
    EXPECT_EQ(named.name, "Mein Sender");
    EXPECT_TRUE(named.isCustom());
    EXPECT_EQ(named.country, "");
    EXPECT_EQ(named.bitrate, 0);
    EXPECT_EQ(named.codec, "");
    EXPECT_FALSE(named.favicon || named.geoLat || named.geoLong);

    EXPECT_EQ(Station::custom("https://radio.example.com:8000/live", "").name, "radio.example.com");
    EXPECT_EQ(Station::custom("not a url", "").name, "Eigener Sender");
    EXPECT_EQ(Station::custom("stream.mp3", "").name, "Eigener Sender"); // parses, but has no host
    EXPECT_EQ(Station::custom("", "").name, "Eigener Sender");

    // Taken as given: no trimming, no scheme check.
    const Station raw = Station::custom(" ftp://x.invalid ", "");
    EXPECT_EQ(raw.id, "custom: ftp://x.invalid ");
    EXPECT_EQ(raw.streamUrl, " ftp://x.invalid ");
}

TEST(StationStoredObject, RoundTripsThroughTheDirectoryBuilder)
{
    const Station full = *Station::json(directoryObject({{"country", "Österreich"},
                                                         {"bitrate", 192},
                                                         {"codec", "AAC+"},
                                                         {"favicon", "https://example.invalid/f.ico"},
                                                         {"geo_lat", "47.07"},
                                                         {"geo_long", 15.43}}));
    const Station bare = *Station::json(directoryObject());
    const Station custom = Station::custom("http://127.0.0.1:8000/stream", "");

    for (const Station &s : {full, bare, custom}) {
        // Through bytes, as favourites and recents keep them.
        const QByteArray bytes = QJsonDocument(s.storedObject()).toJson();
        const auto back = Station::json(QJsonDocument::fromJson(bytes).object());
        ASSERT_TRUE(back) << bytes.toStdString();
        EXPECT_EQ(*back, s) << bytes.toStdString();
        EXPECT_EQ(qHash(*back), qHash(s));
    }
    EXPECT_FALSE(bare.storedObject().contains("favicon"));
    EXPECT_FALSE(bare.storedObject().contains("geo_lat"));
}

TEST(StationEquality, ComparesEveryFieldIncludingAbsentOptionals)
{
    const Station a = *Station::json(directoryObject({{"geo_lat", 0}, {"geo_long", 10}}));
    Station b = a;
    EXPECT_EQ(a, b);
    b.geoLat.reset(); // absent is not the same as 0
    EXPECT_NE(a, b);
    b = a;
    b.bitrate = 1;
    EXPECT_NE(a, b);
    b = a;
    b.favicon = QString();
    EXPECT_NE(a, b);

    QSet<Station> set{a, a, b};
    EXPECT_EQ(set.size(), 2);
}

} // namespace
