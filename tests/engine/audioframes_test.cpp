#include "engine/audioframes.h"

#include "engine/id3tag.h"
#include "engine/songencoder.h"

#include "encodedaudio.h"

#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using EncodedAudio::kFfmpeg;

// Encoded tones made once per run, as ffmpeg writes them (MP3 with its Info frame).
struct Encoded {
    QTemporaryDir dir;
    QString path(const QString &name) const { return dir.filePath(name); }

    QByteArray make(const QString &name, const QStringList &arguments) const
    {
        return EncodedAudio::encode(path(name), QStringList { "-f", "lavfi", "-i", "sine=frequency=440:duration=10" } + arguments);
    }
};

class AudioFramesTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        encoded = std::make_unique<Encoded>();
        mp3 = encoded->make("tone.mp3", { "-c:a", "libmp3lame", "-b:a", "128k", "-ar", "44100" });
        mpeg2 = encoded->make("low.mp3", { "-c:a", "libmp3lame", "-b:a", "32k", "-ar", "22050", "-ac", "1" });
        vbr = encoded->make("vbr.mp3", { "-c:a", "libmp3lame", "-q:a", "4", "-ar", "48000" });
        adts = encoded->make("tone.aac", { "-c:a", "aac", "-b:a", "64k", "-f", "adts" });
    }
    static void TearDownTestSuite() { encoded.reset(); }

    void SetUp() override
    {
        ASSERT_GT(mp3.size(), 150'000);
        ASSERT_GT(adts.size(), 20'000);
    }

    // ffmpeg's own view of a file, the reference the walk must agree with.
    static double ffmpegSec(const QByteArray &bytes, const QString &name)
    {
        writeFile(encoded->path(name), bytes);
        return SongEncoder::probeDuration(kFfmpeg, encoded->path(name));
    }

    static double packetCount(const QString &path)
    {
        return EncodedAudio::run(EncodedAudio::kFfprobe, { "-v", "error", "-count_packets", "-select_streams", "a:0",
                                     "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", path })
            .trimmed()
            .toDouble();
    }

    static inline std::unique_ptr<Encoded> encoded;
    static inline QByteArray mp3, mpeg2, vbr, adts;
};

TEST_F(AudioFramesTest, WholeFilesLastAsLongAsFfmpegSays)
{
    struct Case {
        const char *name;
        QByteArray bytes;
        AudioFrames::Format format;
        QString file;
    } cases[] = {
        { "MPEG-1 layer III, CBR", mp3, AudioFrames::Format::Mp3, "tone.mp3" },
        { "MPEG-2 layer III, mono", mpeg2, AudioFrames::Format::Mp3, "low.mp3" },
        { "MPEG-1 layer III, VBR", vbr, AudioFrames::Format::Mp3, "vbr.mp3" },
        { "ADTS AAC", adts, AudioFrames::Format::Adts, "tone.aac" },
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto walked = AudioFrames::walk(c.bytes, c.format);
        ASSERT_TRUE(walked);
        // For MP3 ffmpeg reads the Info frame's count; for ADTS it only estimates from the
        // bitrate, so there ffprobe counts the packets (1024 samples each at 44.1 kHz).
        if (c.format == AudioFrames::Format::Mp3) {
            EXPECT_NEAR(walked->durationSec, SongEncoder::probeDuration(kFfmpeg, encoded->path(c.file)), 0.03);
        } else {
            EXPECT_NEAR(walked->durationSec, packetCount(encoded->path(c.file)) * 1024 / 44100.0, 1e-9);
        }
        EXPECT_NEAR(walked->durationSec, 10.0, 0.1);
        const auto fromFile = AudioFrames::fileDurationSec(encoded->path(c.file));
        ASSERT_TRUE(fromFile);
        EXPECT_DOUBLE_EQ(*fromFile, walked->durationSec);
    }
}

TEST_F(AudioFramesTest, AByteExactCutCountsTheWholeFramesBetweenItsEdges)
{
    // Cut as a recording cuts: anywhere, with a tag in front whose cover is full of bytes
    // that look like frame headers.
    const QByteArray middle = mp3.mid(40'001, 100'000); // 6.25 s of 128 kbit/s
    QByteArray cover(3000, '\xFF');
    for (qsizetype i = 1; i < cover.size(); i += 4)
        cover[i] = '\xFB';
    const QByteArray tagged = Id3Tag::buildID3v2Tag("Song", "Artist", "Album", cover) + middle;

    const auto bare = AudioFrames::walk(middle, AudioFrames::Format::Mp3);
    const auto withTag = AudioFrames::walk(tagged, AudioFrames::Format::Mp3);
    ASSERT_TRUE(bare);
    ASSERT_TRUE(withTag);
    EXPECT_NEAR(bare->durationSec, 6.25, 2 * 0.0262); // less a partial frame at either edge
    EXPECT_EQ(withTag->frames, bare->frames);
    EXPECT_GT(bare->firstFrameOffset, 0) << "the cut began inside a frame";
    EXPECT_LT(bare->firstFrameOffset, 418);
    // The same cut that ffmpeg, as a file, may mistake for video; whole frames it reads right.
    const QByteArray aligned = middle.mid(bare->firstFrameOffset);
    EXPECT_NEAR(bare->durationSec, ffmpegSec(aligned, "aligned.mp3"), 0.03);

    const QByteArray aacCut = adts.mid(777, 30'000);
    const auto aac = AudioFrames::walk(aacCut, AudioFrames::Format::Adts);
    ASSERT_TRUE(aac);
    EXPECT_NEAR(aac->durationSec, ffmpegSec(aacCut.mid(aac->firstFrameOffset), "cut.aac"), 0.05);
}

TEST_F(AudioFramesTest, DamageCostsOnlyTheDamagedStretch)
{
    const auto whole = AudioFrames::walk(mp3, AudioFrames::Format::Mp3);
    ASSERT_TRUE(whole);
    QByteArray damaged = mp3;
    // 4,000 bytes of noise (a quarter second), then a run of header-like bytes.
    QRandomGenerator random(7);
    for (qsizetype i = 60'000; i < 64'000; ++i)
        damaged[i] = char(random.bounded(256));
    for (qsizetype i = 90'000; i < 90'400; i += 2) {
        damaged[i] = '\xFF';
        damaged[i + 1] = '\xFB';
    }
    const auto walked = AudioFrames::walk(damaged, AudioFrames::Format::Mp3);
    ASSERT_TRUE(walked);
    EXPECT_LT(walked->durationSec, whole->durationSec);
    EXPECT_GT(walked->durationSec, whole->durationSec - 0.4);

    // A file truncated inside its last frame counts the frames before it.
    const auto truncated = AudioFrames::walk(mp3.first(mp3.size() - 100), AudioFrames::Format::Mp3);
    ASSERT_TRUE(truncated);
    EXPECT_EQ(truncated->frames, whole->frames - 1);
}

TEST_F(AudioFramesTest, AnythingThatIsNotFramesHasNoDuration)
{
    QByteArray noise(200'000, '\0');
    QRandomGenerator random(11);
    for (char &c : noise)
        c = char(random.bounded(256));
    EXPECT_FALSE(AudioFrames::walk(noise, AudioFrames::Format::Mp3));
    EXPECT_FALSE(AudioFrames::walk(noise, AudioFrames::Format::Adts));
    EXPECT_FALSE(AudioFrames::walk({}, AudioFrames::Format::Mp3));
    // The other format's frames are not mistaken for these.
    EXPECT_FALSE(AudioFrames::walk(adts, AudioFrames::Format::Mp3));
    EXPECT_FALSE(AudioFrames::walk(mp3, AudioFrames::Format::Adts));
    // A tag alone, whose size field claims more than there is.
    EXPECT_FALSE(AudioFrames::walk(QByteArray("ID3\x03\x00\x00\x00\x00\x7F\x7F", 10), AudioFrames::Format::Mp3));

    writeFile(encoded->path("tone.ogg"), mp3);
    EXPECT_FALSE(AudioFrames::fileDurationSec(encoded->path("tone.ogg"))) << "only MP3 and AAC are walked";
    EXPECT_FALSE(AudioFrames::fileDurationSec(encoded->path("missing.mp3")));
    writeFile(encoded->path("empty.mp3"), {});
    EXPECT_FALSE(AudioFrames::fileDurationSec(encoded->path("empty.mp3")));
}

} // namespace
