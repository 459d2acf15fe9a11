#include "tools/ytdlpupdater.h"

#include "platform/httpclient.h"
#include "platform/preferences.h"
#include "tools/toolversion.h"

#include "toolscripts.h"

#include <QDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

const QByteArray kRepo = kYtDlpRepo;
const QByteArray kLatest = kYtDlpLatest;

class YtDlpUpdaterTest : public ::testing::Test {
protected:
    TestHome home;
    FixtureServer server;
    HttpClient http;
    QDateTime clock = QDateTime::currentDateTimeUtc();
    ToolLocations locations{home.file("bundle"), home.file("data/Orvida Studio/bin"), {}};
    std::unique_ptr<YtDlpUpdater> updater;

    void SetUp() override
    {
        QDir().mkpath(home.file("dl"));
        YtDlpUpdaterOptions options;
        options.releasesBase = QString::fromUtf8(server.url(kRepo));
        options.assetName = "yt-dlp_linux";
        options.downloadDir = home.file("dl");
        options.now = [this] { return clock; };
        updater = std::make_unique<YtDlpUpdater>(http, locations, options);
    }

    static QByteArray assetPath(const QString &tag, const QByteArray &file) { return ytDlpAssetPath(tag, file); }

    // A release whose single-file build prints `tag` as its version.
    QByteArray publish(const QString &tag)
    {
        const QByteArray asset = "#!/bin/sh\necho " + tag.toUtf8() + "\n";
        publishYtDlp(server, tag, asset, sha256Hex(asset));
        return asset;
    }

    YtDlpUpdateOutcome update(bool force)
    {
        std::optional<YtDlpUpdateOutcome> outcome;
        updater->updateYtDlpIfNeeded(force, [&](YtDlpUpdateOutcome o) { outcome = o; });
        EXPECT_TRUE(waitUntil([&] { return outcome.has_value(); }, 20000));
        return outcome.value_or(YtDlpUpdateOutcome::NoRelease);
    }

    void installPrevious(const QString &version)
    {
        writeScript(locations.privateYtDlpPath(), "echo previous\n");
        Preferences::setValue(YtDlpUpdater::kInstalledVersionKey, version);
    }
    QStringList leftovers() const
    {
        return QDir(home.file("dl")).entryList(QDir::Files)
            + QDir(locations.supportBinDir).entryList({"*.new"}, QDir::Files);
    }
};

TEST_F(YtDlpUpdaterTest, InstallsTheLatestReleaseAsAnExecutablePrivateCopy)
{
    const QByteArray asset = publish("2099.01.01");
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::Installed);

    EXPECT_EQ(readFile(locations.privateYtDlpPath()), asset);
    struct stat st { };
    ASSERT_EQ(::stat(QFile::encodeName(locations.privateYtDlpPath()).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0755u);
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_EQ(Preferences::string(YtDlpUpdater::kInstalledVersionKey), QStringLiteral("2099.01.01"));
    EXPECT_EQ(locations.findYtDlpPath(), locations.privateYtDlpPath());
    EXPECT_EQ(ToolVersion::run(locations.findYtDlpPath()), QStringLiteral("2099.01.01"));
    for (const FixtureServer::Request &request : server.requests())
        EXPECT_EQ(request.header("User-Agent"), "OrvidaStudio") << request.path.toStdString();
}

TEST_F(YtDlpUpdaterTest, ChecksAtMostOnceADayUnlessForced)
{
    publish("2099.01.01");
    installPrevious("2099.01.01");
    const auto storeLastCheck = [](const QDateTime &when) {
        Preferences::setValue(YtDlpUpdater::kLastCheckKey, when.toString(Qt::ISODateWithMs));
    };

    storeLastCheck(clock.addSecs(-86399));
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::CheckedRecently);
    EXPECT_EQ(server.requestCount(kLatest), 0);
    EXPECT_EQ(update(true), YtDlpUpdateOutcome::UpToDate);
    EXPECT_EQ(server.requestCount(kLatest), 1);

    storeLastCheck(clock.addSecs(-86400));
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::UpToDate);
    EXPECT_EQ(server.requestCount(kLatest), 2);
    // The successful check moved the date to now, so the next start does nothing.
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::CheckedRecently);
    EXPECT_EQ(server.requestCount(kLatest), 2);

    // A date ahead of the clock would otherwise block updates until that day comes.
    storeLastCheck(clock.addDays(300));
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::UpToDate);
    EXPECT_EQ(server.requestCount(kLatest), 3);
}

TEST_F(YtDlpUpdaterTest, AFailedReleaseCheckLeavesTheDateForTheNextStart)
{
    const QString twoDaysAgo = clock.addDays(-2).toString(Qt::ISODateWithMs);
    const QList<FixtureServer::Script> answers{
        FixtureServer::Script::response(500, "text/plain", "oops"),
        FixtureServer::Script::response(200, "text/html", "<html>Rate limit exceeded</html>"),
        FixtureServer::Script::response(200, "application/json", R"({"tag_name": null})"),
        FixtureServer::Script().close(),
    };
    for (const FixtureServer::Script &answer : answers) {
        Preferences::setValue(YtDlpUpdater::kLastCheckKey, twoDaysAgo);
        server.route(kLatest, answer);
        EXPECT_EQ(update(false), YtDlpUpdateOutcome::NoRelease);
        EXPECT_EQ(Preferences::string(YtDlpUpdater::kLastCheckKey), twoDaysAgo);
    }
    Preferences::remove(YtDlpUpdater::kLastCheckKey);
    EXPECT_EQ(update(false), YtDlpUpdateOutcome::NoRelease);
    EXPECT_FALSE(Preferences::contains(YtDlpUpdater::kLastCheckKey));
}

TEST_F(YtDlpUpdaterTest, TagsAreComparedExactly)
{
    publish("2099.01.01");
    installPrevious("2099.01.01");
    EXPECT_EQ(update(true), YtDlpUpdateOutcome::UpToDate);
    EXPECT_EQ(server.requestCount(assetPath("2099.01.01", "yt-dlp_linux")), 0);

    installPrevious("v2099.01.01");
    EXPECT_EQ(update(true), YtDlpUpdateOutcome::Installed);
    EXPECT_EQ(server.requestCount(assetPath("2099.01.01", "yt-dlp_linux")), 1);
}

TEST_F(YtDlpUpdaterTest, WithoutAPrivateCopyTheBundledOneIsAskedForItsVersion)
{
    publish("2099.01.01");
    writeScript(locations.bundleYtDlpPath(), "[ \"$1\" = --version ] && echo 2099.01.01\n");
    EXPECT_EQ(update(true), YtDlpUpdateOutcome::UpToDate);

    // A private copy that is not executable does not count; the recorded tag is ignored.
    writeScript(locations.privateYtDlpPath(), "echo 1999.01.01\n", false);
    Preferences::setValue(YtDlpUpdater::kInstalledVersionKey, "1999.01.01");
    EXPECT_EQ(update(true), YtDlpUpdateOutcome::UpToDate);
    EXPECT_EQ(server.requestCount(assetPath("2099.01.01", "yt-dlp_linux")), 0);
}

TEST_F(YtDlpUpdaterTest, KeepsThePreviousCopyWhenTheNewOneCannotBeTrusted)
{
    const QByteArray good = "#!/bin/sh\necho 2099.01.01\n";
    const QByteArray html = "<!DOCTYPE html><html><body>Sign in to continue</body></html>";
    using Script = FixtureServer::Script;
    struct Case {
        const char *name;
        QByteArray asset;
        QByteArray replacedFile = {}; // served by `answer` instead, when set
        std::optional<Script> answer = std::nullopt;
        QString tag = QStringLiteral("2099.01.01");
    };
    const Case cases[]{
        {"asset missing", good, "yt-dlp_linux", Script::response(404, "text/plain", "no")},
        {"asset is a web page", html},
        {"checksums missing", good, "SHA2-256SUMS", Script::response(404, "text/plain", "no")},
        {"checksums are a web page", good, "SHA2-256SUMS", Script::response(200, "text/html", html)},
        {"asset cut short", good, "yt-dlp_linux",
         Script::head("HTTP/1.1 200 OK", {{"Content-Length", "1000"}}).send(good).close()},
        {"tag leaves the release folder", good, {}, std::nullopt, QStringLiteral("../../evil")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        installPrevious("2000.01.01");
        publishYtDlp(server, c.tag, c.asset, sha256Hex(good));
        if (c.answer)
            server.route(assetPath(c.tag, c.replacedFile), *c.answer);
        EXPECT_EQ(update(true), YtDlpUpdateOutcome::InstallFailed);
        EXPECT_EQ(readFile(locations.privateYtDlpPath()), "#!/bin/sh\necho previous\n");
        EXPECT_TRUE(isExecutableFile(locations.privateYtDlpPath()));
        EXPECT_EQ(leftovers(), QStringList());
        EXPECT_EQ(Preferences::string(YtDlpUpdater::kInstalledVersionKey), QStringLiteral("2000.01.01"));
    }
    for (const FixtureServer::Request &request : server.requests())
        EXPECT_FALSE(request.path.contains("evil")) << request.path.toStdString();
}

TEST_F(YtDlpUpdaterTest, ACallDuringAnUpdateJoinsIt)
{
    publish("2099.01.01");
    std::vector<YtDlpUpdateOutcome> outcomes;
    updater->updateYtDlpIfNeeded(true, [&](YtDlpUpdateOutcome o) { outcomes.push_back(o); });
    updater->updateYtDlpIfNeeded(true, [&](YtDlpUpdateOutcome o) { outcomes.push_back(o); });
    ASSERT_TRUE(waitUntil([&] { return outcomes.size() == 2; }, 20000));
    EXPECT_EQ(outcomes, (std::vector{YtDlpUpdateOutcome::Installed, YtDlpUpdateOutcome::Installed}));
    EXPECT_EQ(server.requestCount(kLatest), 1);
    EXPECT_FALSE(updater->isUpdating());
}

} // namespace
