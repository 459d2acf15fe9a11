#include "clirunner.h"
#include "fixtureserver.h"
#include "icystream.h"
#include "testenv.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

QJsonObject directoryStation(int n)
{
    return {{"stationuuid", QStringLiteral("uuid-%1").arg(n)},
            {"name", QStringLiteral(" Station %1 ").arg(n)},
            {"url_resolved", QStringLiteral("http://stream.example/%1").arg(n)},
            {"country", "Germany"},
            {"bitrate", 128},
            {"codec", "MP3"}};
}

QByteArray page(int from, int count)
{
    QJsonArray array;
    for (int n = from; n < from + count; ++n)
        array.append(directoryStation(n));
    array.append(QJsonObject{{"stationuuid", "broken"}, {"name", "   "}, {"url", "http://x"}});
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

class CliStationsTest : public ::testing::Test {
protected:
    QProcessEnvironment directoryEnv() const
    {
        QProcessEnvironment env;
        env.insert("ORVIDA_DIRECTORY_URL", QString::fromLatin1(server.url("")));
        return env;
    }

    TestHome home;
    FixtureServer server;
};

TEST_F(CliStationsTest, SearchPrintsTheFirstPageInServerOrder)
{
    server.route("/json/stations/search", FixtureServer::Script::response(200, "application/json", page(1, 3)));
    const CliRun run = runCli({"search", "jazz & blues", "--json"}, directoryEnv());
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonArray stations = QJsonDocument::fromJson(run.out).array();
    ASSERT_EQ(stations.size(), 3); // the broken entry is skipped
    EXPECT_EQ(stations[0].toObject().value("id").toString(), "uuid-1");
    EXPECT_EQ(stations[0].toObject().value("name").toString(), "Station 1");
    EXPECT_EQ(stations[2].toObject().value("streamURL").toString(), "http://stream.example/3");

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests[0].target,
              "/json/stations/search?name=jazz%20&%20blues&limit=40&offset=0&hidebroken=true&order=clickcount&reverse=true");

    const CliRun plain = runCli({"search", "jazz"}, directoryEnv());
    ASSERT_EQ(plain.exitCode, 0);
    EXPECT_EQ(plain.out.split('\n').first(), "Station 1\tGermany\tMP3\t128\thttp://stream.example/1\tuuid-1");
}

// A directory's text cannot add fields or lines to ours.
TEST_F(CliStationsTest, SearchLinesCarryNoControlCharactersFromTheDirectory)
{
    QJsonObject forged = directoryStation(1);
    forged["name"] = "Evil\tFM\nsaved\t/etc/passwd\r";
    forged["country"] = QString("De\u2028\x1b[31mutschland");
    server.route("/json/stations/search",
                 FixtureServer::Script::response(200, "application/json",
                                                 QJsonDocument(QJsonArray{forged}).toJson(QJsonDocument::Compact)));
    const CliRun run = runCli({"search", "evil"}, directoryEnv());
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out.count('\n'), 1) << run.out.toStdString();
    EXPECT_EQ(run.out.split('\t').size(), 6) << run.out.toStdString();
    EXPECT_TRUE(run.out.startsWith("Evil FM saved /etc/passwd\tDe  [31mutschland\t")) << run.out.toStdString();
}

TEST_F(CliStationsTest, DirectoryFailuresExitWithOneLine)
{
    server.route("/json/stations/search", FixtureServer::Script::response(200, "text/html", "<html>maintenance</html>"));
    for (const QStringList &args : {QStringList{"search", "x"}, QStringList{"random", "--tag", "rock"}}) {
        const CliRun run = runCli(args, directoryEnv());
        EXPECT_EQ(run.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
    }
    EXPECT_TRUE(server.requests().last().target.contains("order=random&limit=1&hidebroken=true&tag=rock"));
}

TEST_F(CliStationsTest, ProbeAndTitleReadOnlyTheStreamHead)
{
    server.route("/icy", FixtureServer::Script::head("ICY 200 OK", {{"ICY-MetaInt", "100"}})
                             .send(QByteArray(100, 'a') + IcyStream::metaBlock("StreamTitle='Artist - Song';") + QByteArray(100, 'b'))
                             .hang());
    server.route("/plain", FixtureServer::Script::head("HTTP/1.0 200 OK", {{"icy-name", "No Titles"}}).send("x").hang());

    EXPECT_EQ(runCli({"probe", QString::fromLatin1(server.url("/icy"))}).out, "icy\n");
    // The head alone decides: a server that sends no body is not waited for.
    server.route("/headonly", FixtureServer::Script::head("ICY 200 OK", {{"icy-metaint", "8192"}}).hang());
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(runCli({"probe", QString::fromLatin1(server.url("/headonly"))}).out, "icy\n");
    EXPECT_LT(clock.elapsed(), 4000); // the probe's time-out is 6 s
    EXPECT_EQ(runCli({"probe", QString::fromLatin1(server.url("/plain"))}).out, "no-icy\n");
    EXPECT_EQ(runCli({"probe", "not a url"}).out, "no-icy\n");

    const CliRun title = runCli({"title", QString::fromLatin1(server.url("/icy"))});
    EXPECT_EQ(title.exitCode, 0);
    EXPECT_EQ(title.out, "Artist - Song\n");
    EXPECT_EQ(runCli({"title", QString::fromLatin1(server.url("/plain"))}).exitCode, 1);
}

TEST_F(CliStationsTest, FavoritesPersistAcrossRuns)
{
    EXPECT_EQ(runCli({"favorites", "add", "http://a.example/live", "--name", "Alpha"}).out, "custom:http://a.example/live\n");
    EXPECT_EQ(runCli({"favorites", "add", "http://b.example/live", "--name", "Beta"}).exitCode, 0);
    EXPECT_EQ(runCli({"favorites", "remove", "custom:http://a.example/live"}).exitCode, 0);
    EXPECT_EQ(runCli({"favorites", "remove", "custom:http://a.example/live"}).exitCode, 1);
    const QJsonArray list = QJsonDocument::fromJson(runCli({"favorites", "list", "--json"}).out).array();
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list[0].toObject().value("name").toString(), "Beta");
    EXPECT_EQ(runCli({"favorites", "add", "http://c.example"}).exitCode, 2); // --name is required
}

TEST_F(CliStationsTest, EngineSettingsAreClampedAndOverridesReplaceTheGlobalRecord)
{
    ASSERT_EQ(runCli({"engine", "set", "--lead-in", "90", "--min-duration", "-5", "--lossless", "on"}).exitCode, 0);
    const QJsonObject global = QJsonDocument::fromJson(runCli({"engine", "show", "--json"}).out).object();
    EXPECT_EQ(global.value("leadInSec").toInt(), 30);
    EXPECT_EQ(global.value("minDurationSec").toInt(), 0);
    EXPECT_TRUE(global.value("lossless").toBool());
    EXPECT_TRUE(global.value("skipJingles").toBool()); // unnamed fields keep their value

    // A station's override starts from the global record and then stands alone.
    ASSERT_EQ(runCli({"engine", "set", "--station", "s1", "--lead-out", "5"}).exitCode, 0);
    ASSERT_EQ(runCli({"engine", "set", "--lossless", "off"}).exitCode, 0);
    const QJsonObject station = QJsonDocument::fromJson(runCli({"engine", "show", "--station", "s1", "--json"}).out).object();
    EXPECT_EQ(station.value("leadOutSec").toInt(), 5);
    EXPECT_TRUE(station.value("lossless").toBool());

    ASSERT_EQ(runCli({"engine", "reset", "--station", "s1"}).exitCode, 0);
    const QJsonObject afterReset = QJsonDocument::fromJson(runCli({"engine", "show", "--station", "s1", "--json"}).out).object();
    EXPECT_EQ(afterReset.value("leadOutSec").toInt(), 0);
    EXPECT_FALSE(afterReset.value("lossless").toBool());

    EXPECT_EQ(runCli({"engine", "set", "--lossless", "maybe"}).exitCode, 2);
    EXPECT_EQ(runCli({"engine", "reset"}).exitCode, 2);
}

TEST_F(CliStationsTest, ConfigStatsAndUsageErrors)
{
    EXPECT_EQ(runCli({"config", "get", "ov.radioNamePattern"}).exitCode, 1);
    EXPECT_EQ(runCli({"config", "set", "ov.radioNamePattern", "%artist% - %title%"}).exitCode, 0);
    EXPECT_EQ(runCli({"config", "get", "ov.radioNamePattern"}).out, "%artist% - %title%\n");

    const QJsonObject stats = QJsonDocument::fromJson(runCli({"stats", "--json"}).out).object();
    EXPECT_EQ(stats.value("total").toInt(-1), 0);
    EXPECT_TRUE(stats.value("byDay").isObject());

    for (const QStringList &args : {QStringList{}, QStringList{"nonsense"}, QStringList{"search"}, QStringList{"probe", "a", "b"},
                                    QStringList{"stats", "--verbose"}}) {
        const CliRun run = runCli(args);
        EXPECT_EQ(run.exitCode, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(run.err.contains("usage")) << run.err.toStdString();
    }
}

} // namespace
