#include "stations/recentstations.h"

#include "platform/paths.h"
#include "platform/preferences.h"

#include "testenv.h"

#include <QFile>
#include <QSignalSpy>
#include <QVariantList>
#include <QVariantMap>

#include <unistd.h>

#include <gtest/gtest.h>

namespace {

Station numbered(int n)
{
    const QString number = QString::number(n);
    return {"uuid-" + number, "Station " + number, "http://127.0.0.1/" + number, {}, n};
}

QVariantMap storedMap(const Station &s)
{
    return s.storedObject().toVariantMap();
}

} // namespace

TEST(RecentStationsTest, KeepsThirtyMostRecentFirstWithoutDuplicates)
{
    TestHome home;
    RecentStations recents;
    QSignalSpy spy(&recents, &RecentStations::changed);
    for (int n = 1; n <= 31; ++n)
        recents.add(numbered(n));
    EXPECT_EQ(recents.list().size(), 30);
    EXPECT_EQ(recents.list().front().id, "uuid-31");
    EXPECT_EQ(recents.list().back().id, "uuid-2") << "the oldest one drops out";

    // Third from the front moves to the front; a changed record replaces the old one, and
    // nothing else drops out.
    Station renamed = numbered(29);
    renamed.name = QStringLiteral("Renamed");
    recents.add(renamed);
    EXPECT_EQ(recents.list().mid(0, 4), (QList<Station> { renamed, numbered(31), numbered(30), numbered(28) }));
    EXPECT_EQ(recents.list().size(), 30);
    EXPECT_EQ(recents.list().back(), numbered(2));
    EXPECT_EQ(spy.count(), 32);
    EXPECT_EQ(RecentStations().list(), recents.list());
}

TEST(RecentStationsTest, RemoveForgetsByIdAndEveryFieldPersists)
{
    TestHome home;
    Station full = Station::custom(QStringLiteral("http://127.0.0.1:9/x"), QStringLiteral("Mine"));
    full.favicon = QStringLiteral("http://127.0.0.1/f.png");
    full.geoLat = -33.86;
    full.geoLong = 151.2;
    RecentStations recents;
    recents.add(numbered(1));
    recents.add(full);
    recents.add(numbered(2));
    EXPECT_EQ(RecentStations().list(), (QList<Station> { numbered(2), full, numbered(1) }));

    Station sameId = numbered(1);
    sameId.name = QStringLiteral("Other name, same station");
    recents.remove(sameId);
    recents.remove(numbered(7));
    EXPECT_EQ(RecentStations().list(), (QList<Station> { numbered(2), full }));
}

// Whatever is stored, or however the preferences file is damaged, the list starts empty
// and the next add writes a good one.
TEST(RecentStationsTest, BadStoredValuesOrADamagedFileLeaveTheListEmptyAndTheNextAddWritesAGoodOne)
{
    const QVariant bad[] = {
        QVariant(),
        QVariant(QStringLiteral("not a list")),
        QVariant(QByteArray("[{\"stationuuid\":\"x\"}]")),
        QVariant(QVariantMap { { QStringLiteral("stationuuid"), QStringLiteral("x") } }),
        QVariant(QVariantList { storedMap(numbered(1)), QStringLiteral("stray") }),
        QVariant(QVariantList { storedMap(numbered(1)), QVariantList {} }),
    };
    const QByteArray damaged[] = {
        "",
        "[General]\nov.recentStations=@Variant(\\0\\0\\0\\t\\0\\0\\0",
        "[General]\nov.recentStations=@Variant(garbage)\n",
        QByteArray("\x00\x01\x02\xff", 4),
    };
    const auto startsEmptyAndRecovers = [](const QString &what) {
        RecentStations recents;
        EXPECT_TRUE(recents.list().isEmpty()) << what.toStdString();
        recents.add(numbered(5));
        EXPECT_EQ(RecentStations().list(), QList<Station> { numbered(5) }) << what.toStdString();
    };
    for (const QVariant &value : bad) {
        TestHome home;
        if (value.isValid())
            Preferences::setValue(RecentStations::kPreferenceKey, value);
        startsEmptyAndRecovers(QString::fromLatin1(value.typeName()));
    }
    for (const QByteArray &content : damaged) {
        TestHome home;
        writeFile(Paths::preferencesFile(), content);
        startsEmptyAndRecovers(QString::fromLatin1(content.toHex()));
    }
}

TEST(RecentStationsTest, LoadSkipsUnusableMapsAndRepairsTheShape)
{
    TestHome home;
    Station again = numbered(1);
    again.name = QStringLiteral("Later copy");
    QVariantList stored { storedMap(numbered(1)),
        QVariantMap { { "stationuuid", "no-name" }, { "url_resolved", "http://h/" } }, QVariantMap {},
        storedMap(numbered(2)), storedMap(again) };
    for (int n = 3; n <= 40; ++n)
        stored << storedMap(numbered(n));
    Preferences::setValue(RecentStations::kPreferenceKey, stored);

    RecentStations recents;
    ASSERT_EQ(recents.list().size(), 30);
    EXPECT_EQ(recents.list().mid(0, 3), (QList<Station> { numbered(1), numbered(2), numbered(3) }));
    EXPECT_EQ(recents.list().back(), numbered(30));
}

TEST(RecentStationsTest, UnreadablePreferencesFile)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads files whatever their mode";
    TestHome home;
    Preferences::setValue(RecentStations::kPreferenceKey, QVariantList { storedMap(numbered(1)) });
    const QByteArray written = readFile(Paths::preferencesFile());
    ASSERT_TRUE(written.contains("ov.recentStations=@Variant("));
    // A fresh home, so nothing of the file is cached in this process yet.
    TestHome other;
    writeFile(Paths::preferencesFile(), written);
    QFile::setPermissions(Paths::preferencesFile(), QFileDevice::Permissions());
    EXPECT_TRUE(RecentStations().list().isEmpty());
}
