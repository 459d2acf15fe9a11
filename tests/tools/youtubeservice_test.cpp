#include "tools/youtubeservice.h"

#include "platform/httpclient.h"
#include "platform/preferences.h"
#include "tools/ytdlpcommand.h"

#include "toolscripts.h"


#include <gtest/gtest.h>

#include <csignal>

namespace {

const QByteArray kRepo = kYtDlpRepo;

class YouTubeServiceTest : public ::testing::Test {
protected:
    TestHome home;
    FixtureServer server;
    HttpClient http;
    std::unique_ptr<YouTubeService> service;
    QString ytdlp; // the private copy the service runs

    void SetUp() override { makeService({}); }

    void makeService(const std::function<void(YouTubeServiceOptions &)> &tweak)
    {
        YouTubeServiceOptions options;
        options.locations = {home.file("bundle"), home.file("support"), {}};
        options.updater.releasesBase = QString::fromUtf8(server.url(kRepo));
        options.updater.assetName = "yt-dlp_linux";
        if (tweak)
            tweak(options);
        ytdlp = options.locations.privateYtDlpPath();
        service = std::make_unique<YouTubeService>(http, options);
    }

    YtDlpDownloadResult download(const QString &resultId, const QStringList &args = {"https://example.org/v"})
    {
        std::optional<YtDlpDownloadResult> result;
        service->runYtDlpDownload(args, resultId, [&](const YtDlpDownloadResult &r) { result = r; });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }, 20000));
        return result.value_or(YtDlpDownloadResult{});
    }

    // A release whose yt-dlp is `script`.
    void publish(const QString &tag, const QByteArray &script)
    {
        const QByteArray asset = "#!/bin/sh\n" + script;
        publishYtDlp(server, tag, asset, sha256Hex(asset));
    }
};

TEST_F(YouTubeServiceTest, RunsYtDlpWithTheFixedArgumentsAndReadsProgressAndThePath)
{
    writeScript(ytdlp, R"(printf '%s\n' "$@" > "$0.args"
echo "$PYTHONUNBUFFERED" > "$0.env"
echo '[youtube] abc: Downloading webpage'
echo '[download]  42.5% of 3.00MiB at 1.00MiB/s ETA 00:02'
echo '[info] 50% of the formats are not a download'
echo '/music/tmp/Song.webm'
echo '[download] 100% of 3.00MiB in 00:00:02'
echo '[ExtractAudio] Destination: /music/Song.mp3'
echo '/music/Song.mp3  '
)");
    QList<double> progress;
    QObject::connect(service.get(), &YouTubeService::downloadProgressChanged, [&](const QString &id, double fraction) {
        EXPECT_EQ(id, QStringLiteral("abc"));
        progress << fraction;
    });
    const QStringList args = YtDlpCommand::audioDownload("/music", "abc", "/opt/ff");
    const YtDlpDownloadResult result = download("abc", args);

    ASSERT_TRUE(result.ok()) << result.error->description().toStdString();
    EXPECT_EQ(result.filePath, QStringLiteral("/music/Song.mp3"));
    EXPECT_EQ(progress, (QList<double>{0.425, 1.0}));
    EXPECT_EQ(service->downloadProgress("abc"), 1.0);
    EXPECT_TRUE(service->downloadingIds().isEmpty());
    const QStringList launched = QString::fromUtf8(readFile(ytdlp + ".args")).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(launched, (QStringList{"--extractor-args", "youtube:player_client=default,tv,mweb,web_safari"} + args));
    EXPECT_EQ(readFile(ytdlp + ".env"), "1\n");
}

TEST_F(YouTubeServiceTest, FailuresCarryYtDlpsTextOrSayWhatEndedTheRun)
{
    makeService([](YouTubeServiceOptions &o) {
        o.downloadIdleTimeoutSec = 0.5;
        o.maxOutputBytes = 8 << 20;
    });
    const std::vector<std::pair<QByteArray, QString>> cases{
        {"echo '[download] 10%'; echo 'ERROR: Unsupported URL: x' >&2; exit 1", "ERROR: Unsupported URL: x"},
        {"exit 2", "Unbekannter Fehler"},
        {"echo 'WARNING: nothing to do' >&2; exit 0", "WARNING: nothing to do"},
        {"printf '/music/\\344.mp3\\n'", "yt-dlp hat einen Dateipfad ausgegeben, der kein gültiges UTF-8 ist"},
        {"echo $$ > \"$0.pid\"; exec sleep 600", "yt-dlp hat sich nicht mehr gemeldet und wurde beendet"},
        {"echo $$ > \"$0.pid\"; exec yes 'ERROR: flood' >&2", "yt-dlp hat zu viel ausgegeben und wurde beendet"},
        {"printf 'ERROR: \\377\\376 broken\\n' >&2; exit 1", "ERROR: \uFFFD\uFFFD broken"},
    };
    for (const auto &[script, message] : cases) {
        SCOPED_TRACE(script.toStdString());
        QFile::remove(ytdlp + ".pid");
        writeScript(ytdlp, script);
        const YtDlpDownloadResult result = download("id");
        ASSERT_FALSE(result.ok());
        EXPECT_EQ(result.error->description(), "Download fehlgeschlagen: " + message);
        if (QFile::exists(ytdlp + ".pid")) {
            const pid_t pid = readFile(ytdlp + ".pid").trimmed().toInt();
            EXPECT_NE(::kill(pid, 0), 0); // ended and reaped
        }
    }

    QFile::remove(ytdlp); // a missing yt-dlp shows as the launcher's error
    const YtDlpDownloadResult missing = download("id");
    ASSERT_FALSE(missing.ok());
    EXPECT_TRUE(missing.error->message.contains("No such file")) << missing.error->message.toStdString();
    EXPECT_EQ(server.requests().size(), 0); // none of these looks like an outdated yt-dlp
}

TEST_F(YouTubeServiceTest, ARefusedDownloadUpdatesYtDlpOnceAndRetriesWithTheNewCopy)
{
    writeScript(
        ytdlp, "echo 'ERROR: [youtube] abc: Unable to download video data: HTTP Error 403: Forbidden' >&2; exit 1");
    Preferences::setValue(YtDlpUpdater::kInstalledVersionKey, "2000.01.01");
    Preferences::setValue(YtDlpUpdater::kLastCheckKey, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    publish("2099.01.01", "echo '[download] 100%'; echo '/music/Fresh.mp3'\n");

    const YtDlpDownloadResult result = download("abc");
    ASSERT_TRUE(result.ok()) << result.error->description().toStdString();
    EXPECT_EQ(result.filePath, QStringLiteral("/music/Fresh.mp3"));
    EXPECT_EQ(server.requestCount(kRepo + "/releases/latest"), 1);
    EXPECT_EQ(Preferences::string(YtDlpUpdater::kInstalledVersionKey), QStringLiteral("2099.01.01"));
}

TEST_F(YouTubeServiceTest, ASecondRefusalIsFinal)
{
    writeScript(ytdlp, "echo run >> \"$0.runs\"; echo 'ERROR: Sign in to confirm your age' >&2; exit 1");
    Preferences::setValue(YtDlpUpdater::kInstalledVersionKey, "2099.01.01");
    publish("2099.01.01", "exit 0\n"); // already installed: the update changes nothing

    const YtDlpDownloadResult result = download("abc");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error->message, QStringLiteral("ERROR: Sign in to confirm your age"));
    EXPECT_EQ(readFile(ytdlp + ".runs"), "run\nrun\n");
    EXPECT_EQ(server.requestCount(kRepo + "/releases/latest"), 1);
}

TEST_F(YouTubeServiceTest, TheSameIdIsNotDownloadedTwiceAtOnce)
{
    writeScript(ytdlp, "sleep 0.3; echo /music/One.mp3");
    std::optional<YtDlpDownloadResult> first;
    service->runYtDlpDownload({"x"}, "abc", [&](const YtDlpDownloadResult &r) { first = r; });
    EXPECT_EQ(service->downloadingIds(), QSet<QString>{"abc"});
    const YtDlpDownloadResult second = download("abc");
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error->message, QStringLiteral("Wird bereits heruntergeladen"));

    ASSERT_TRUE(waitUntil([&] { return first.has_value(); }, 20000));
    EXPECT_EQ(first->filePath, QStringLiteral("/music/One.mp3"));
}

} // namespace
