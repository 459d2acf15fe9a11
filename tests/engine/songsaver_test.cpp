#include "engine/songsaver.h"

#include "engine/apppaths.h"
#include "engine/id3tag.h"
#include "engine/songencoder.h"
#include "platform/httpclient.h"
#include "platform/preferences.h"

#include "encodedaudio.h"
#include "fixtureserver.h"
#include "smallfs.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

namespace {

using EncodedAudio::kFfmpeg;

// Test audio made once per run: raw stream bytes as a station would send them.
struct Audio {
    QTemporaryDir dir;
    QByteArray mp3Short; // 3 s
    QByteArray mp3Long;  // 60 s
    QByteArray aacShort; // 3 s, ADTS
    QByteArray coverJpeg;

    QByteArray make(const QString &name, const QStringList &arguments)
    {
        return EncodedAudio::encode(dir.filePath(name), arguments);
    }
};

class SongSaverTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        audio = std::make_unique<Audio>();
        const QStringList mp3{"-c:a", "libmp3lame", "-b:a", "128k", "-write_xing", "0", "-id3v2_version", "0", "-f", "mp3"};
        audio->mp3Short = audio->make("short.mp3", QStringList{"-f", "lavfi", "-i", "sine=frequency=440:duration=3"} + mp3);
        audio->mp3Long = audio->make("long.mp3", QStringList{"-f", "lavfi", "-i", "sine=frequency=330:duration=60"} + mp3);
        audio->aacShort = audio->make("short.aac", {"-f", "lavfi", "-i", "sine=frequency=440:duration=3", "-c:a", "aac",
                                                     "-b:a", "64k", "-f", "adts"});
        audio->coverJpeg = audio->make("cover.jpg", {"-f", "lavfi", "-i", "color=c=red:s=32x32", "-frames:v", "1",
                                                      "-c:v", "mjpeg", "-f", "image2"});
    }
    static void TearDownTestSuite() { audio.reset(); }

    void SetUp() override
    {
        ASSERT_GT(audio->mp3Long.size(), 900'000);
        ASSERT_GT(audio->aacShort.size(), 1000);
        ASSERT_TRUE(audio->coverJpeg.startsWith("\xFF\xD8"));
        AppPaths::ensure();
        radio = AppPaths::radioDir();
    }

    // The bytes cut into `pieces` segment files in tmp, as a recording session leaves them.
    std::vector<SegmentLock> segments(const QByteArray &bytes, int pieces, const QString &ext = "mp3")
    {
        std::vector<SegmentLock> out;
        const qsizetype step = bytes.size() / pieces + 1;
        for (qsizetype at = 0; at < bytes.size(); at += step) {
            const QString path =
                AppPaths::tmpDir() + "/." + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + "." + ext;
            auto file = SegmentFile::create(path);
            EXPECT_TRUE(file);
            file->write(bytes.mid(at, step));
            out.push_back(file->close());
            segmentPaths << path;
        }
        return out;
    }

    // The saved song, if any; `last` keeps the whole outcome.
    std::optional<SavedSong> save(std::vector<SegmentLock> pieces, const QString &title, const QString &station,
                                  const SaveOptions &options)
    {
        last = SongSaver::mergeAndSave(std::move(pieces), title, station, options);
        EXPECT_EQ(last.song.has_value(), last.result == SaveResult::Saved);
        return last.song;
    }

    SaveOptions options(SaveSettings settings, bool fullShow = false)
    {
        return {"station-1", fullShow, nullptr, QString(), kFfmpeg, [settings] { return settings; }};
    }

    // Everything below the radio folder except tmp, relative.
    QStringList savedFiles() const
    {
        QStringList files;
        QDirIterator it(radio, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString rel = QDir(radio).relativeFilePath(it.next());
            if (!rel.startsWith("tmp/"))
                files << rel;
        }
        files.sort();
        return files;
    }
    QStringList tmpFiles() const { return QDir(AppPaths::tmpDir()).entryList(QDir::Files | QDir::Hidden, QDir::Name); }
    bool segmentsGone() const
    {
        return std::none_of(segmentPaths.begin(), segmentPaths.end(), [](const QString &p) { return QFileInfo::exists(p); });
    }

    static QJsonObject probe(const QString &path)
    {
        return QJsonDocument::fromJson(EncodedAudio::run(EncodedAudio::kFfprobe,
                                                         {"-v", "error", "-show_format", "-show_streams", "-of", "json", path}))
            .object();
    }

    static inline std::unique_ptr<Audio> audio;
    TestHome home;
    SaveOutcome last;
    QString radio;
    QStringList segmentPaths;
    const SaveSettings lossless{true, true, 0};
    const SaveSettings reencode{true, false, 0};
};

// The music store fails here: the song is saved all the same, with only TIT2 and TPE1.
TEST_F(SongSaverTest, ByteExactMp3IsTheTagFollowedByTheSegmentsInOrder)
{
    FixtureServer store;
    store.route("/search", FixtureServer::Script::response(500, "text/plain", "oops"));
    HttpClient http;
    SaveOptions withStore = options(lossless);
    withStore.http = &http;
    withStore.storeBase = store.url("/search");
    const auto saved = save(segments(audio->mp3Long, 3), "Queen - Bohemian Rhapsody", "Rock FM", withStore);
    ASSERT_TRUE(saved);
    EXPECT_EQ(store.requestCount("/search"), 1);
    EXPECT_EQ(saved->filePath, radio + "/Queen - Bohemian Rhapsody.mp3");
    EXPECT_EQ((QStringList{saved->artist, saved->title, saved->album, saved->stationName}),
              (QStringList{"Queen", "Bohemian Rhapsody", "", "Rock FM"}));
    EXPECT_NEAR(saved->durationSec, 60.0, 0.5);
    EXPECT_EQ(readFile(saved->filePath), Id3Tag::buildID3v2Tag("Bohemian Rhapsody", "Queen", "", {}) + audio->mp3Long);
    EXPECT_TRUE(segmentsGone());
    EXPECT_EQ(tmpFiles(), QStringList());
}

TEST_F(SongSaverTest, ReencodedMp3CarriesTheTagsAndTheStoreCover)
{
    FixtureServer store;
    QByteArray answer = R"({"results":[{"artistName":"Queen","trackName":"Bohemian Rhapsody",
        "collectionName":"A Night at the Opera","artworkUrl100":"URL/art/100x100bb.jpg"}]})";
    answer.replace("URL", store.url(""));
    store.route("/search", FixtureServer::Script::response(200, "application/json", answer));
    store.route("/art/600x600bb.jpg", FixtureServer::Script::response(200, "image/jpeg", audio->coverJpeg));
    HttpClient http;
    SaveOptions withStore = options(reencode);
    withStore.http = &http;
    withStore.storeBase = store.url("/search");

    const auto saved = save(segments(audio->aacShort, 2, "aac"), "Queen - Bohemian Rhapsody",
                                               "Rock FM", withStore);
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->filePath, radio + "/Queen - Bohemian Rhapsody.mp3");
    EXPECT_EQ(saved->album, "A Night at the Opera");
    EXPECT_NEAR(saved->durationSec, 3.0, 0.5);

    const QJsonObject info = probe(saved->filePath);
    const QJsonObject format = info["format"].toObject();
    EXPECT_EQ(format["format_name"].toString(), "mp3");
    const QJsonObject tags = format["tags"].toObject();
    EXPECT_EQ(tags["title"].toString(), "Bohemian Rhapsody");
    EXPECT_EQ(tags["artist"].toString(), "Queen");
    EXPECT_EQ(tags["album"].toString(), "A Night at the Opera");
    EXPECT_EQ(tags["comment"].toString(), "Recorded from Rock FM");
    QStringList codecs;
    for (const QJsonValue &stream : info["streams"].toArray())
        codecs << stream["codec_name"].toString();
    EXPECT_EQ(codecs, (QStringList{"mp3", "mjpeg"}));
    EXPECT_EQ(tmpFiles(), QStringList()) << "merged, cover and output work files are gone";
    EXPECT_TRUE(segmentsGone());
}

TEST_F(SongSaverTest, JinglesAreDroppedUnlessSkippingIsOffOrItIsAFullShow)
{
    for (const char *title : {"Radio X - Werbung", "Station ID", "Artist - n/a", ""}) {
        segmentPaths.clear();
        EXPECT_FALSE(save(segments(audio->mp3Short, 2), title, "Radio X", options(lossless))) << title;
        EXPECT_EQ(last.reason, "jingle or advert");
        EXPECT_TRUE(segmentsGone()) << title;
    }
    EXPECT_EQ(savedFiles(), QStringList());

    SaveSettings keepAll = lossless;
    keepAll.skipJingles = false;
    EXPECT_TRUE(save(segments(audio->mp3Short, 1), "Radio X - Werbung", "Radio X", options(keepAll)));
    EXPECT_TRUE(save(segments(audio->mp3Short, 1), "Morning Show", "Radio X", options(lossless, true)));
    // An untitled recording goes by the station's name.
    EXPECT_TRUE(save(segments(audio->mp3Short, 1), "", "Radio X", options(keepAll)));
    EXPECT_EQ(savedFiles(), (QStringList{"Morning Show.mp3", "Radio X - Werbung.mp3", "Radio X.mp3"}));
}

TEST_F(SongSaverTest, MinimumDurationDropsShortSongsExceptInFullShows)
{
    SaveSettings strict = lossless;
    strict.minDurationSec = 45;
    EXPECT_FALSE(save(segments(audio->mp3Short, 2), "A - Short", "FM", options(strict)));
    EXPECT_EQ(last.reason, "too short (3.0 s, minimum 45 s)");
    EXPECT_TRUE(segmentsGone());
    EXPECT_EQ(savedFiles(), QStringList());
    EXPECT_EQ(tmpFiles(), QStringList());
    // A byte-exact cut begins inside a frame; its length is still known, so it goes too.
    EXPECT_FALSE(save(segments(audio->mp3Long.mid(1001, 100'000), 3), "A - Cut", "FM", options(strict)));
    EXPECT_EQ(savedFiles(), QStringList());

    EXPECT_TRUE(save(segments(audio->mp3Long, 2), "A - Long", "FM", options(strict)));
    EXPECT_TRUE(save(segments(audio->mp3Short, 1), "A - Kept", "FM", options(lossless)));
    EXPECT_TRUE(save(segments(audio->mp3Short, 1), "A - Show", "FM", options(strict, true)));
    EXPECT_EQ(savedFiles(), (QStringList{"A - Kept.mp3", "A - Long.mp3", "A - Show.mp3"}));

    EXPECT_TRUE(SongSaver::isTooShort(45.0, 45));
    EXPECT_FALSE(SongSaver::isTooShort(45.1, 45));
    EXPECT_FALSE(SongSaver::isTooShort(3.0, 0));
    EXPECT_FALSE(SongSaver::isTooShort(0.0, 45)) << "unknown length keeps the song";
}

TEST_F(SongSaverTest, ASameNameRecordingIsReplacedOnlyByALongerOne)
{
    const auto first = save(segments(audio->mp3Long, 2), "A - B/C", "FM", options(lossless));
    ASSERT_TRUE(first);
    const QByteArray longFile = readFile(first->filePath);
    // A different title that comes out as the same name.
    EXPECT_FALSE(save(segments(audio->mp3Short, 1), "A - B-C", "FM", options(lossless)));
    EXPECT_EQ(last.result, SaveResult::Skipped);
    EXPECT_EQ(last.reason, radio + "/A - B-C.mp3 already holds a recording at least as long");
    EXPECT_EQ(readFile(first->filePath), longFile);
    EXPECT_TRUE(segmentsGone());

    const auto shortFirst = save(segments(audio->mp3Short, 1), "C - D", "FM", options(lossless));
    ASSERT_TRUE(shortFirst);
    const auto longer = save(segments(audio->mp3Long, 1), "C - D", "FM", options(lossless));
    ASSERT_TRUE(longer);
    EXPECT_EQ(longer->filePath, shortFirst->filePath);
    EXPECT_NEAR(SongEncoder::probeDuration(kFfmpeg, longer->filePath), 60.0, 0.5);
    EXPECT_EQ(savedFiles(), (QStringList{"A - B-C.mp3", "C - D.mp3"}));
    EXPECT_EQ(tmpFiles(), QStringList());
}

TEST_F(SongSaverTest, FileNamesAndTagsNeverCarrySeparatorsOrControlCharacters)
{
    const auto saved = save(segments(audio->mp3Short, 1), "AC/DC - What? Now: Yes\x01\n", "FM\t1",
                                               options(lossless));
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->filePath, radio + "/AC-DC - What- Now- Yes.mp3");
    EXPECT_EQ(saved->title, "What? Now: Yes");
    EXPECT_EQ(saved->stationName, "FM 1");
    EXPECT_TRUE(readFile(saved->filePath).startsWith(Id3Tag::buildID3v2Tag("What? Now: Yes", "AC/DC", "", {})));

    Preferences::setValue("ov.radioFolderPattern", "%station%/%artist%");
    const auto nested = save(segments(audio->mp3Short, 1), "AC/DC - T", "FM", options(reencode));
    ASSERT_TRUE(nested);
    EXPECT_EQ(nested->filePath, radio + "/FM/AC-DC/AC-DC - T.mp3");
}

TEST_F(SongSaverTest, WithoutFfmpegTheStreamBytesAreKeptWithANotice)
{
    // (A failing ffmpeg is the command-line test's case.)
    SaveOptions broken = options(reencode);
    broken.ffmpegPath = home.file("no-such/ffmpeg");
    const auto saved = save(segments(audio->mp3Short, 2), "A - B", "FM", broken);
    ASSERT_TRUE(saved) << last.reason.toStdString();
    EXPECT_TRUE(last.reason.startsWith("saved without re-encoding: ffmpeg (" + broken.ffmpegPath + ") did not start"))
        << last.reason.toStdString();
    EXPECT_EQ(readFile(saved->filePath), Id3Tag::buildID3v2Tag("B", "A", "", {}) + audio->mp3Short);
    EXPECT_NEAR(saved->durationSec, 3.0, 0.5);
    EXPECT_TRUE(segmentsGone());
    EXPECT_EQ(tmpFiles(), QStringList());
}

TEST_F(SongSaverTest, OnlyAudioFramesReachTheRadioFolder)
{
    const QByteArray page = "<html><body><h1>500 Internal Server Error</h1></body></html>\n";
    const QByteArray garbage(3000, '\x5A');
    const auto saved = save(segments(page + audio->mp3Short + garbage, 3), "A - Framed", "FM", options(lossless));
    ASSERT_TRUE(saved);
    EXPECT_EQ(readFile(saved->filePath), Id3Tag::buildID3v2Tag("Framed", "A", "", {}) + audio->mp3Short);
    // AAC is kept as exactly the stream's frames, untagged.
    const auto aac = save(segments(page + audio->aacShort, 2, "aac"), "A - Framed AAC", "FM", options(lossless));
    ASSERT_TRUE(aac);
    EXPECT_EQ(readFile(aac->filePath), audio->aacShort);
    EXPECT_NEAR(aac->durationSec, 3.0, 0.5);

    // A page where audio should be is no song, in either path, and ffmpeg is not asked.
    for (const SaveSettings &mode : {lossless, reencode}) {
        segmentPaths.clear();
        SaveOptions noFfmpeg = options(mode);
        noFfmpeg.ffmpegPath = home.file("no-such/ffmpeg");
        EXPECT_FALSE(save(segments(page.repeated(200), 2), "Evil - err500", "FM", noFfmpeg));
        EXPECT_EQ(last.result, SaveResult::Skipped);
        EXPECT_EQ(last.reason, "no audio frames in the stream's data");
        EXPECT_TRUE(segmentsGone());
    }
    EXPECT_EQ(savedFiles(), (QStringList{"A - Framed AAC.aac", "A - Framed.mp3"}));
    EXPECT_EQ(tmpFiles(), QStringList());
}

TEST_F(SongSaverTest, AFailedMoveIsReportedAndKeepsTheSegments)
{
    // A plain file where the station's folder should be: the final move cannot succeed,
    // whatever the user's rights (tests may run as root).
    writeFile(radio + "/FM", "in the way");
    Preferences::setValue("ov.radioFolderPattern", "%station%");
    for (const SaveSettings &mode : {lossless, reencode}) {
        segmentPaths.clear();
        EXPECT_FALSE(save(segments(audio->mp3Short, 2), "A - B", "FM", options(mode)));
        EXPECT_EQ(last.result, SaveResult::Failed);
        EXPECT_TRUE(last.reason.startsWith("cannot move it to " + radio + "/FM/A - B.mp3")) << last.reason.toStdString();
        EXPECT_EQ(savedFiles(), QStringList{"FM"});
        EXPECT_EQ(tmpFiles().size(), 2) << "only the segments remain: " << tmpFiles().join(' ').toStdString();
        for (const QString &path : segmentPaths) {
            EXPECT_TRUE(SegmentLock::tryAcquire(path)) << "the save let go of " << path.toStdString();
            EXPECT_TRUE(QFile::remove(path));
        }
    }
}

TEST_F(SongSaverTest, AFullDiskFailsTheSaveWithItsReasonAndKeepsTheSegments)
{
    const QString small = home.file("small");
    SmallFileSystem disk(small, 1200 * 1024);
    if (!disk.mounted())
        GTEST_SKIP() << SmallFileSystem::reason();
    Preferences::setValue("ov.radioSaveDir", small);
    AppPaths::ensure();
    radio = AppPaths::radioDir();
    EXPECT_EQ(SongSaver::checkRadioFolder(), std::nullopt);
    auto pieces = segments(audio->mp3Long.first(700'000), 2);
    const auto saved = save(std::move(pieces), "A - Too Big", "FM", options(lossless));
    EXPECT_FALSE(saved);
    EXPECT_EQ(last.result, SaveResult::Failed);
    EXPECT_TRUE(last.reason.contains("disk full")) << last.reason.toStdString();
    EXPECT_EQ(tmpFiles().size(), 2) << tmpFiles().join(' ').toStdString();
    EXPECT_EQ(savedFiles(), QStringList());
}

TEST(SongSaverScreen, DropsJinglesAndClearlyShortSongsBeforeAnyFileWork)
{
    const SaveSettings defaults{true, false, 45};
    const qint64 rate = 16000; // 128 kbit/s
    EXPECT_EQ(SongSaver::screen("Radio X - Werbung", 10'000'000, rate, defaults, false), "jingle or advert");
    EXPECT_EQ(SongSaver::screen("A - B", 0, rate, defaults, false), "no audio");
    // A title storm's 100 ms songs.
    EXPECT_EQ(SongSaver::screen("A - B", 1600, rate, defaults, false), "too short (about 0 s, minimum 45 s)");
    // Half the minimum is the line: a station listed at twice its real bitrate keeps its songs.
    EXPECT_EQ(SongSaver::screen("A - B", 22 * rate, rate, defaults, false), "too short (about 22 s, minimum 45 s)");
    EXPECT_EQ(SongSaver::screen("A - B", 23 * rate, rate, defaults, false), std::nullopt);
    EXPECT_EQ(SongSaver::screen("Radio X - Werbung", 1600, rate, defaults, true), std::nullopt) << "a full show";
    EXPECT_EQ(SongSaver::screen("A - B", 1600, rate, {true, false, 0}, false), std::nullopt);
}

// The real runs above show the tags and the cover arrive; what they cannot show is that
// the stream's format is forced on the merged file only (it has no extension to go by).
TEST(SongEncoder, TheInputFormatIsForcedOnTheMergedFileOnly)
{
    const SongEncoder::ReencodeInput in{"aac", "/t/.merged_1", "/t/.cover_1.jpg", "T", "A", "", "c", "/t/.out_1.mp3"};
    const QString args = SongEncoder::reencodeArguments(in).join(' ');
    EXPECT_TRUE(args.startsWith("-y -f aac -i /t/.merged_1 -i /t/.cover_1.jpg -map 0:a -map 1:v ")) << qPrintable(args);
    EXPECT_TRUE(args.endsWith(" /t/.out_1.mp3"));
}

TEST(SongEncoder, ReadsTheFirstDurationLine)
{
    EXPECT_DOUBLE_EQ(SongEncoder::parseDuration("Input #0, mp3, from 'x':\n  Duration: 00:03:25.47, start: 0.0"),
                     205.47);
    EXPECT_DOUBLE_EQ(SongEncoder::parseDuration("  Duration: 12:00:01.5, bitrate\n  Duration: 00:00:01.00"), 43201.5);
    EXPECT_EQ(SongEncoder::parseDuration("  Duration: N/A, start: 0\n  Duration: 00:00:01.00"), 0);
    EXPECT_EQ(SongEncoder::parseDuration("x: Invalid data found when processing input"), 0);
    EXPECT_EQ(SongEncoder::parseDuration(""), 0);
    EXPECT_EQ(SongEncoder::probeDuration("/nonexistent/ffmpeg", "/nonexistent.mp3"), 0);
}

} // namespace
