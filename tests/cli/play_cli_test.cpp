#include "clirunner.h"
#include "testenv.h"

#include "../playback/signal.h"
#include "../playback/sweepparts.h"

#include <QtEndian>

#include <gtest/gtest.h>

using namespace PlaybackAudio;

namespace {

QList<QByteArray> lines(const QByteArray &out)
{
    QList<QByteArray> result = out.split('\n');
    if (!result.isEmpty() && result.last().isEmpty())
        result.removeLast();
    return result;
}

} // namespace

// The whole queue rendered through the player: the first track from its first frame, the
// joins gapless, the file ending where the last track does, and the contract's lines.
TEST(PlayCli, RenderJoinsPartsIntoTheSignalTheyWereCutFrom)
{
    TestHome home;
    QString error;
    const SweepParts sweep = SweepParts::make(home.path(), QStringLiteral("flac"), { "-c:a", "flac" }, &error);
    ASSERT_EQ(sweep.parts.size(), 4) << error.toStdString();
    const QString out = home.file("out.wav");
    const CliRun run
        = runCli(QStringList { "play" } + sweep.parts + QStringList { "--mode", "gapless", "--render", out });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();

    const QList<QByteArray> printed = lines(run.out);
    QList<QByteArray> tracks, transitions;
    for (const QByteArray &line : printed) {
        if (line.startsWith("track\t"))
            tracks << line;
        else if (line.startsWith("transition\t"))
            transitions << line;
    }
    ASSERT_EQ(tracks.size(), 4) << run.out.toStdString();
    EXPECT_EQ(tracks[2], "track\t2\t" + sweep.parts[2].toUtf8());
    ASSERT_EQ(transitions.size(), 3);
    const QList<QByteArray> fields = transitions[0].split('\t');
    ASSERT_EQ(fields.size(), 5);
    EXPECT_EQ(fields[1], "gapless");
    EXPECT_NEAR(fields[2].toDouble(), double(sweep.lengths[0]) / kRate, 1e-6);
    EXPECT_EQ(fields[4].toDouble(), 0.0);
    EXPECT_EQ(printed.last(), "ended");

    const std::vector<float> rendered = readFloatWav(out);
    EXPECT_EQ(qint64(rendered.size()), 2 * sweep.totalFrames());
    EXPECT_EQ(firstDifference(rendered, ffmpegDecode(sweep.full)), -1);
}

// Two tones 12 dB apart come out of a normalised render at one level.
TEST(PlayCli, NormaliseBringsTracksToOneLoudness)
{
    TestHome home;
    QStringList files;
    for (const double dB : { 0.0, -12.0 }) {
        files << home.file(QStringLiteral("tone%1.flac").arg(files.size()));
        ASSERT_TRUE(encode(files.last(),
            { "-f", "lavfi", "-i", QStringLiteral("sine=f=440:r=%1:d=2").arg(kRate), "-af",
                QStringLiteral("volume=%1dB").arg(dB), "-ac", "2", "-c:a", "flac" }));
    }
    const auto levels = [&](const QStringList &options) {
        const QString out = home.file("out.wav");
        const CliRun run = runCli(QStringList { "play" } + files + QStringList { "--render", out } + options);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        const std::vector<float> rendered = readFloatWav(out);
        EXPECT_EQ(rendered.size(), size_t(2 * 4 * kRate));
        if (rendered.size() != size_t(2 * 4 * kRate))
            return std::pair { 0.0, 0.0 };
        return std::pair { Signal::rmsDb(rendered, kRate / 2, 3 * kRate / 2),
            Signal::rmsDb(rendered, 5 * kRate / 2, 7 * kRate / 2) };
    };
    const auto [loudAsIs, quietAsIs] = levels({});
    EXPECT_NEAR(loudAsIs - quietAsIs, 12, 0.1);
    const auto [loud, quiet] = levels({ "--normalise", "track" });
    EXPECT_NEAR(loud - quiet, 0, 0.1);
    // The louder tone measures about -22 LUFS: raised by some 4 dB to the -18 LUFS target.
    EXPECT_NEAR(loud - loudAsIs, 4, 1);
    EXPECT_EQ(runCli(QStringList { "play" } + files + QStringList { "--normalise", "loud" }).exitCode, 2);
}

TEST(PlayCli, RenderAtAnotherRate)
{
    TestHome home;
    const QString in = home.file("in.wav");
    ASSERT_TRUE(makeLevels(in, 0.2, 0.2, kRate / 2));
    const QString out = home.file("out.wav");
    const CliRun run = runCli({ "play", in, "--render", out, "--rate", "48000" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QByteArray header = readFile(out).left(44);
    ASSERT_EQ(header.size(), 44);
    EXPECT_EQ(qFromLittleEndian<quint32>(header.constData() + 24), 48000u);
    EXPECT_NEAR(double(readFloatWav(out).size()) / 2, 24000, 2);
}

// No sound card here: the device cannot open, which is said once on stderr, and the queue
// plays in real time into the null output.
TEST(PlayCli, WithoutADevicePlaysIntoTheNullOutput)
{
    TestHome home;
    const QString a = home.file("a.wav"), b = home.file("b.wav");
    ASSERT_TRUE(makeLevels(a, 0.2, 0.2, kRate / 4));
    ASSERT_TRUE(makeLevels(b, 0.1, 0.1, kRate / 4));
    const CliRun run = runCli({ "play", a, b });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains("null output")) << run.err.toStdString();
    EXPECT_EQ(lines(run.err).size(), 1) << "the sound libraries' probing stays quiet: " << run.err.toStdString();
    EXPECT_EQ(lines(run.out), QList<QByteArray>({ "track\t0\t" + a.toUtf8(), "track\t1\t" + b.toUtf8(), "ended" }));
}

TEST(PlayCli, UsageErrorsAndFilesThatCannotBePlayed)
{
    TestHome home;
    EXPECT_EQ(runCli({ "play", "x.wav", "--mode", "Crossfade" }).exitCode, 2);
    EXPECT_EQ(runCli({ "play" }).exitCode, 2);
    EXPECT_EQ(runCli({ "play", "x.wav", "--rate", "fast" }).exitCode, 2);

    const QString good = home.file("good.wav");
    ASSERT_TRUE(makeLevels(good, 0.2, 0.2, kRate / 10));
    writeFile(home.file("broken.mp3"), QByteArray(4000, 'x'));
    const QString out = home.file("out.wav");
    CliRun run = runCli({ "play", home.file("missing.flac"), home.file("broken.mp3"), good, "--render", out });
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QList<QByteArray> printed = lines(run.out);
    ASSERT_EQ(printed.size(), 4) << run.out.toStdString();
    EXPECT_TRUE(printed[0].startsWith("error\t" + home.file("missing.flac").toUtf8()));
    EXPECT_TRUE(printed[1].startsWith("error\t" + home.file("broken.mp3").toUtf8()));
    EXPECT_EQ(printed[2], "track\t2\t" + good.toUtf8());

    run = runCli({ "play", home.file("missing.flac"), "--render", out });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(lines(run.err).size(), 1) << run.err.toStdString();
}
