#include "stations/station.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject directoryObject(const QJsonObject &extra = {})
{
    QJsonObject o{{"stationuuid", "9617a958-0601-11e8-ae97-52543be04c81"},
                  {"name", "Radio Eins"},
                  {"url", "http://example.invalid/plain"},
                  {"url_resolved", "https://example.invalid/resolved.mp3"}};
    for (auto it = extra.begin(); it != extra.end(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

TEST(StationJson, ReadsAFullDirectoryObject)
{
    const auto s = Station::json(directoryObject({{"country", "Germany"}, {"bitrate", 128}, {"codec", "MP3"},
                                                  {"favicon", "https://example.invalid/logo.png"},
                                                  {"geo_lat", 52.52}, {"geo_long", 13}, {"votes", 7}}));
    ASSERT_TRUE(s);
    EXPECT_EQ(*s, (Station{"9617a958-0601-11e8-ae97-52543be04c81", "Radio Eins", "https://example.invalid/resolved.mp3",
                           "Germany", 128, "MP3", "https://example.invalid/logo.png", 52.52, 13.0}));
    EXPECT_FALSE(s->isCustom());
}

TEST(StationJson, RejectsObjectsWithoutAUsableIdNameOrUrl)
{
    const QList<QJsonObject> unusable{
        directoryObject({{"stationuuid", ""}}),
        directoryObject({{"stationuuid", 42}}),
        directoryObject({{"name", " \t  "}}),
        directoryObject({{"name", QJsonValue::Null}}),
        // An empty resolved URL does not fall back to the plain one.
        directoryObject({{"url_resolved", ""}}),
        QJsonObject{{"stationuuid", "a"}, {"name", "A"}, {"url", ""}},
        QJsonObject{{"stationuuid", "a"}, {"name", "A"}},
        QJsonObject{{"name", "A"}, {"url", "http://a"}},
    };
    for (const QJsonObject &o : unusable)
        EXPECT_FALSE(Station::json(o)) << QJsonDocument(o).toJson().toStdString();
}

TEST(StationJson, TakesThePlainUrlOnlyWhenTheResolvedOneIsNotATextAndTrimsOnlyTheName)
{
    EXPECT_EQ(Station::json(directoryObject({{"url_resolved", QJsonArray{"x"}}}))->streamUrl,
              "http://example.invalid/plain");
    EXPECT_EQ(Station::json(directoryObject({{"url_resolved", " http://x.invalid/a "}}))->streamUrl,
              " http://x.invalid/a ");
    EXPECT_EQ(Station::json(directoryObject({{"name", "\t  Jazz FM \t"}}))->name, "Jazz FM");
    // Only spaces and tabs are blanks.
    EXPECT_EQ(Station::json(directoryObject({{"name", "\nJazz\n"}}))->name, "\nJazz\n");
    // A number with a fraction is not a bitrate; a whole one written as a float is.
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
    for (const char *text : {"north", "", " 48.1", "48.1 ", "48,1", "0x10", "inf", "nan", "1e999"})
        EXPECT_FALSE(parseCoord(QJsonValue(text))) << text;
    EXPECT_FALSE(parseCoord(QJsonValue(true)));
    EXPECT_FALSE(parseCoord(QJsonValue(QJsonValue::Null)));
    EXPECT_FALSE(parseCoord(QJsonValue(QJsonValue::Undefined)));
}

TEST(StationCustom, IsNamedByTheGivenNameTheHostOrTheFixedFallback)
{
    const Station named = Station::custom("https://radio.example.com:8000/live", "Mein Sender");
    EXPECT_EQ(named.id, "custom:https://radio.example.com:8000/live");
    EXPECT_EQ(named.streamUrl, "https://radio.example.com:8000/live");
    EXPECT_EQ(named.name, "Mein Sender");
    EXPECT_TRUE(named.isCustom());
    EXPECT_TRUE(named.country.isEmpty() && named.codec.isEmpty() && named.bitrate == 0);
    EXPECT_FALSE(named.favicon || named.geoLat || named.geoLong);

    EXPECT_EQ(Station::custom("https://radio.example.com:8000/live", "").name, "radio.example.com");
    EXPECT_EQ(Station::custom("not a url", "").name, "Eigener Sender");
    EXPECT_EQ(Station::custom("stream.mp3", "").name, "Eigener Sender"); // parses, but has no host
    EXPECT_EQ(Station::custom("", "").name, "Eigener Sender");
    // Taken as given: no trimming, no scheme check.
    EXPECT_EQ(Station::custom(" ftp://x.invalid ", "").id, "custom: ftp://x.invalid ");
}

TEST(StationStoredObject, RoundTripsThroughTheDirectoryBuilder)
{
    const Station full = *Station::json(directoryObject({{"country", "Österreich"}, {"bitrate", 192},
                                                         {"codec", "AAC+"}, {"favicon", "https://example.invalid/f.ico"},
                                                         {"geo_lat", "47.07"}, {"geo_long", 15.43}}));
    const Station bare = *Station::json(directoryObject());
    const Station custom = Station::custom("http://127.0.0.1:8000/stream", "");
    for (const Station &s : {full, bare, custom}) {
        const QByteArray bytes = QJsonDocument(s.storedObject()).toJson();
        const auto back = Station::json(QJsonDocument::fromJson(bytes).object());
        ASSERT_TRUE(back) << bytes.toStdString();
        EXPECT_EQ(*back, s) << bytes.toStdString();
        EXPECT_EQ(qHash(*back), qHash(s));
    }
    EXPECT_FALSE(bare.storedObject().contains("favicon") || bare.storedObject().contains("geo_lat"));
}

} // namespace
