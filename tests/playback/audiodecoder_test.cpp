#include "decodedaudio.h"

#include "playback/audiodecoder.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace DecodedAudio;

namespace {

struct Case {
    const char *name;
    const char *suffix;
    int rate;
    int channels;
    QStringList codec;
    const char *codecName;
    bool lossless;
    // AAC's noise substitution draws from a generator that runs on from the file's start,
    // so past the first frames a seek can only match a full decode within the noise (a
    // frame of misalignment on the sweep would differ by several tenths).
    float seekTolerance = 0;
};

// Every format the gapless joins rely on, in the shapes that change its length rule.
const Case kCases[] = {
    { "wav_stereo_44k", "wav", 44100, 2, { "-c:a", "pcm_s16le" }, "pcm_s16le", true },
    { "wav_mono_48k", "wav", 48000, 1, { "-c:a", "pcm_s16le" }, "pcm_s16le", true },
    { "flac_stereo_44k", "flac", 44100, 2, { "-c:a", "flac" }, "flac", true },
    { "flac_mono_48k", "flac", 48000, 1, { "-c:a", "flac" }, "flac", true },
    { "mp3_lame_stereo_44k", "mp3", 44100, 2, { "-c:a", "libmp3lame", "-b:a", "128k" }, "mp3", false },
    { "mp3_lame_mono_48k", "mp3", 48000, 1, { "-c:a", "libmp3lame", "-q:a", "4" }, "mp3", false },
    { "mp3_lame_vbr_stereo_48k", "mp3", 48000, 2, { "-c:a", "libmp3lame", "-q:a", "2" }, "mp3", false },
    { "mp3_untagged_stereo_44k", "mp3", 44100, 2, { "-c:a", "libmp3lame", "-b:a", "160k", "-write_xing", "0" }, "mp3",
        false },
    { "mp3_untagged_mono_48k", "mp3", 48000, 1, { "-c:a", "libmp3lame", "-q:a", "5", "-write_xing", "0" }, "mp3",
        false },
    { "mp3_mpeg2_mono_22k", "mp3", 22050, 1, { "-c:a", "libmp3lame", "-b:a", "48k" }, "mp3", false },
    { "aac_m4a_stereo_44k", "m4a", 44100, 2, { "-c:a", "aac", "-b:a", "128k", "-aac_pns", "0" }, "aac", false },
    { "aac_m4a_mono_48k", "m4a", 48000, 1, { "-c:a", "aac", "-b:a", "64k", "-aac_pns", "0" }, "aac", false },
    { "aac_m4a_noise_substitution", "m4a", 44100, 2, { "-c:a", "aac", "-b:a", "96k" }, "aac", false, 0.1f },
};

class DecoderFormats : public ::testing::TestWithParam<Case> {
protected:
    QString makeFile(double seconds = 3.3)
    {
        const Case &c = GetParam();
        const QString path = m_dir.filePath(QStringLiteral("%1.%2").arg(c.name, c.suffix));
        EXPECT_TRUE(makeSweep(path, seconds, c.rate, c.channels, c.codec));
        return path;
    }
    QTemporaryDir m_dir;
};

} // namespace

// length() is what a full decode delivers, known from the headers alone, and for lossless
// files it is the encoded sample count itself.
TEST_P(DecoderFormats, LengthFromHeadersEqualsFramesDecoded)
{
    const Case &c = GetParam();
    const QString path = makeFile();
    QString error;
    auto decoder = AudioDecoder::open(path, 0, &error);
    ASSERT_TRUE(decoder) << error.toStdString();
    EXPECT_EQ(decoder->info().fileRate, c.rate);
    EXPECT_EQ(decoder->info().fileChannels, c.channels);
    EXPECT_EQ(decoder->info().codec, QString::fromLatin1(c.codecName));
    ASSERT_GT(decoder->length(), 0);
    EXPECT_EQ(decoder->length(), decoder->info().fileLength);

    bool failed = false;
    const std::vector<float> all = readAll(*decoder, &failed);
    EXPECT_FALSE(failed) << decoder->lastError().toStdString();
    EXPECT_EQ(qint64(all.size() / 2), decoder->length());
    EXPECT_EQ(decoder->position(), decoder->length());
    if (c.lossless) {
        EXPECT_EQ(decoder->length(), qint64(std::llround(3.3 * c.rate)));
    }

    // FFmpeg's own decode (its demuxer trims MP3 and AAC priming) delivers the same
    // frames: same count, and for stereo the same samples, since both run FFmpeg's decoders.
    const std::vector<float> reference = ffmpegDecode(path);
    EXPECT_EQ(qint64(reference.size()) / c.channels, decoder->length());
    if (c.channels == 2 && reference.size() == all.size()) {
        EXPECT_TRUE(reference == all) << "samples differ from ffmpeg's decode";
    }
    if (c.channels == 1) {
        ASSERT_EQ(reference.size() * 2, all.size());
        bool duplicated = true;
        for (size_t i = 0; i < reference.size(); ++i)
            duplicated = duplicated && all[2 * i] == reference[i] && all[2 * i + 1] == reference[i];
        EXPECT_TRUE(duplicated) << "mono is not duplicated unchanged into both channels";
    }
}

// seek(n) then read() gives exactly what the decode from the start gives from frame n on,
// including positions inside the first codec frames and right at the end.
TEST_P(DecoderFormats, SeekLandsOnTheExactFrame)
{
    const QString path = makeFile();
    auto decoder = AudioDecoder::open(path, 0);
    ASSERT_TRUE(decoder);
    const std::vector<float> all = readAll(*decoder);
    const qint64 length = qint64(all.size() / 2);
    ASSERT_EQ(length, decoder->length());

    for (const qint64 target : { length / 2, qint64(1), qint64(1151), qint64(44100 + 7), qint64(0), length - 1500,
             qint64(20000), length - 1, length }) {
        SCOPED_TRACE(target);
        ASSERT_TRUE(decoder->seek(target));
        EXPECT_EQ(decoder->position(), target);
        std::vector<float> got(2 * 3000);
        const qint64 n = decoder->read(got.data(), 3000);
        const qint64 expected = std::min<qint64>(3000, length - target);
        ASSERT_EQ(n, expected);
        float worst = 0;
        for (size_t i = 0; i < size_t(2 * n); ++i)
            worst = std::max(worst, std::abs(got[i] - all[size_t(2 * target) + i]));
        if (GetParam().seekTolerance == 0 || target < 8192)
            EXPECT_EQ(worst, 0.0f);
        else
            EXPECT_LT(worst, GetParam().seekTolerance);
    }
    EXPECT_FALSE(decoder->seek(length + 1));
    EXPECT_FALSE(decoder->seek(-1));
}

INSTANTIATE_TEST_SUITE_P(Formats, DecoderFormats, ::testing::ValuesIn(kCases),
    [](const auto &param) { return std::string(param.param.name); });

// 16-bit PCM comes out as the samples divided by 32768, nothing else: the condition for
// bit-exact gapless joins of WAV and FLAC.
TEST(AudioDecoder, PcmIsConvertedWithoutAnyProcessing)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("ramp.wav"));
    const int frames = 5000;
    QByteArray pcm;
    for (int i = 0; i < frames; ++i) {
        const qint16 l = qint16((i * 37) % 65536 - 32768);
        const qint16 r = qint16(32767 - (i * 11) % 65535);
        pcm.append(reinterpret_cast<const char *>(&l), 2).append(reinterpret_cast<const char *>(&r), 2);
    }
    writeFile(dir.filePath(QStringLiteral("ramp.raw")), pcm);
    ASSERT_TRUE(make(path,
        { "-f", "s16le", "-ar", "44100", "-ac", "2", "-i", dir.filePath(QStringLiteral("ramp.raw")), "-c:a",
            "pcm_s16le" }));
    auto decoder = AudioDecoder::open(path, 0);
    ASSERT_TRUE(decoder);
    const std::vector<float> all = readAll(*decoder);
    ASSERT_EQ(all.size(), size_t(2 * frames));
    const auto *s = reinterpret_cast<const qint16 *>(pcm.constData());
    for (int i = 0; i < 2 * frames; ++i)
        ASSERT_EQ(all[size_t(i)], float(s[i]) / 32768.0f) << i;
}

// At another output rate the length is the file's scaled and rounded, a full decode
// delivers exactly that, and a seek continues the same signal (the resampler starts a
// little ahead of the target on a frame where both rates meet).
TEST(AudioDecoder, ResampledOutputKeepsLengthAndSeekAgreement)
{
    QTemporaryDir dir;
    for (const auto &[name, codec] : { std::pair { "sweep.flac", QStringList { "-c:a", "flac" } },
             std::pair { "sweep.mp3", QStringList { "-c:a", "libmp3lame" } },
             std::pair { "sweep.m4a", QStringList { "-c:a", "aac", "-aac_pns", "0" } } }) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QString::fromLatin1(name));
        ASSERT_TRUE(makeSweep(path, 2.5, 44100, 2, codec));
        auto decoder = AudioDecoder::open(path, 48000);
        ASSERT_TRUE(decoder);
        EXPECT_EQ(decoder->outputRate(), 48000);
        const qint64 fileLength = decoder->info().fileLength;
        ASSERT_GT(fileLength, 0);
        const qint64 length = (fileLength * 48000 + 22050) / 44100;
        EXPECT_EQ(decoder->length(), length);
        const std::vector<float> all = readAll(*decoder);
        ASSERT_EQ(qint64(all.size() / 2), length);
        for (const qint64 target : { qint64(50000), qint64(7), length - 1000 }) {
            SCOPED_TRACE(target);
            ASSERT_TRUE(decoder->seek(target));
            std::vector<float> got(2 * 800);
            const qint64 n = std::min<qint64>(800, length - target);
            ASSERT_EQ(decoder->read(got.data(), 800), n);
            float worst = 0;
            for (size_t i = 0; i < size_t(2 * n); ++i)
                worst = std::max(worst, std::abs(got[i] - all[size_t(2 * target) + i]));
            EXPECT_LT(worst, 1e-4f);
        }
    }
}

// Surround files are mixed down to two channels at the same length.
TEST(AudioDecoder, MoreChannelsAreMixedDownToStereo)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("surround.flac"));
    ASSERT_TRUE(make(path,
        { "-f", "lavfi", "-i", sweepSource(1.0, 48000), "-af", "pan=5.1|FL=c0|FR=c1|FC=c0|LFE=c1|BL=c0|BR=c1", "-c:a",
            "flac" }));
    auto decoder = AudioDecoder::open(path, 0);
    ASSERT_TRUE(decoder);
    EXPECT_EQ(decoder->info().fileChannels, 6);
    const std::vector<float> all = readAll(*decoder);
    ASSERT_EQ(qint64(all.size() / 2), 48000);
    float left = 0;
    float right = 0;
    for (size_t i = 0; i < all.size(); i += 2) {
        left = std::max(left, std::abs(all[i]));
        right = std::max(right, std::abs(all[i + 1]));
    }
    EXPECT_GT(left, 0.1f);
    EXPECT_GT(right, 0.1f);
    EXPECT_LE(std::max(left, right), 1.0f);
}

// A file cut short while it plays ends the read with an error instead of a hang, for our
// MP3 frame reader as for FFmpeg's demuxers.
TEST(AudioDecoder, FileTruncatedUnderTheReaderIsAnError)
{
    QTemporaryDir dir;
    for (const auto &[name, codec] : { std::pair { "cut.wav", QStringList { "-c:a", "pcm_s16le" } },
             std::pair { "cut.mp3", QStringList { "-c:a", "libmp3lame" } },
             std::pair { "cut.m4a", QStringList { "-c:a", "aac" } } }) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QString::fromLatin1(name));
        ASSERT_TRUE(makeSweep(path, 20, 44100, 2, codec));
        auto decoder = AudioDecoder::open(path, 0);
        ASSERT_TRUE(decoder);
        std::vector<float> block(2 * 1000);
        ASSERT_EQ(decoder->read(block.data(), 1000), 1000);
        QFile file(path);
        ASSERT_TRUE(file.resize(file.size() / 3));
        bool failed = false;
        const std::vector<float> rest = readAll(*decoder, &failed);
        EXPECT_TRUE(failed);
        EXPECT_LT(qint64(rest.size() / 2), decoder->length());
        EXPECT_FALSE(decoder->lastError().isEmpty());
    }
}

// Damaged frames in the middle (a glitch in a recorded stream) play as silence: the file
// keeps its length, reports no error, and what follows the damage is where it belongs.
TEST(AudioDecoder, DamagedFramesBecomeSilenceInPlace)
{
    QTemporaryDir dir;
    for (const auto &[name, codec] : { std::pair { "hurt.mp3", QStringList { "-c:a", "libmp3lame" } },
             std::pair { "hurt.m4a", QStringList { "-c:a", "aac", "-aac_pns", "0" } },
             std::pair { "hurt.flac", QStringList { "-c:a", "flac" } } }) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QString::fromLatin1(name));
        ASSERT_TRUE(makeSweep(path, 5, 44100, 2, codec));
        auto clean = AudioDecoder::open(path, 0);
        ASSERT_TRUE(clean);
        const std::vector<float> expected = readAll(*clean);

        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        const qint64 size = file.size();
        quint32 noise = 12345;
        for (int k = 0; k < 30; ++k) {
            ASSERT_TRUE(file.seek(size / 4 + k * (size / 4) / 30));
            QByteArray junk(48, '\0');
            for (char &c : junk)
                c = char((noise = noise * 1103515245u + 12345u) >> 24);
            file.write(junk);
        }
        file.close();

        auto damaged = AudioDecoder::open(path, 0);
        ASSERT_TRUE(damaged);
        bool failed = false;
        const std::vector<float> got = readAll(*damaged, &failed);
        EXPECT_FALSE(failed) << damaged->lastError().toStdString();
        ASSERT_EQ(got.size(), expected.size());
        EXPECT_NE(got, expected);
        const size_t tail = expected.size() * 7 / 10;
        EXPECT_TRUE(std::equal(got.begin() + qsizetype(tail), got.end(), expected.begin() + qsizetype(tail)));
    }
}

TEST(AudioDecoder, UnreadableFilesGiveAnError)
{
    QTemporaryDir dir;
    QString error;
    EXPECT_FALSE(AudioDecoder::open(dir.filePath(QStringLiteral("missing.mp3")), 0, &error));
    EXPECT_FALSE(error.isEmpty());
    const QString junk = dir.filePath(QStringLiteral("junk.mp3"));
    writeFile(junk, QByteArray(4096, 'x'));
    error.clear();
    EXPECT_FALSE(AudioDecoder::open(junk, 0, &error));
    EXPECT_FALSE(error.isEmpty());
}
