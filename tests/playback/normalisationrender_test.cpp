#include "library/librarystore.h"
#include "library/transitionsettings.h"
#include "playback/audioengine.h"
#include "playback/equaliserbank.h"
#include "playback/equalisersettings.h"
#include "playback/loudness.h"
#include "playback/player.h"

#include "playbackaudio.h"
#include "signal.h"
#include "testenv.h"

#include <QFileInfo>

#include <ebur128.h>

#include <gtest/gtest.h>

using namespace PlaybackAudio;

namespace {

// Pink noise of about `lufs` (ffmpeg's pink noise at amplitude 0.5 measures -20.7 LUFS),
// stereo float, a few seconds: loud and quiet "recordings" from different stations.
QString makeNoise(const TestHome &home, const QString &name, double lufs, double seconds = 4)
{
    const QString path = home.file(name);
    const QString gain = QStringLiteral("volume=%1dB").arg(lufs + 20.7);
    EXPECT_TRUE(encode(path,
        { "-f", "lavfi", "-i", QStringLiteral("anoisesrc=color=pink:amplitude=0.5:seed=7:r=%1:d=%2").arg(kRate).arg(seconds),
            "-af", gain, "-ac", "2", "-c:a", "pcm_f32le" }));
    return path;
}

Track trackOf(const QString &path, const QString &album = {})
{
    return Track(QFileInfo(path).completeBaseName(), QStringLiteral("Artist"), album, 4, QDateTime::currentDateTimeUtc(),
        QString(), false, 0, QStringLiteral("radio"), std::nullopt, path);
}

class NormalisationRender : public ::testing::Test {
protected:
    void SetUp() override
    {
        LibraryOpenResult opened = LibraryStore::open(home.file("library.sqlite"));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        store = std::move(opened.store);
    }

    // Measures the file and keeps the analysis in the library, as the background queue would.
    LoudnessAnalysis measureAndStore(const QString &path)
    {
        QString error;
        const auto analysis = Loudness::analyse(path, &error);
        EXPECT_TRUE(analysis) << error.toStdString();
        const auto json = analyseLoudnessJson(path);
        EXPECT_TRUE(json && store->setAnalysis(path, Loudness::kKind, *LibraryStore::FileStamp::of(path), *json));
        return analysis.value_or(LoudnessAnalysis {});
    }

    // The loudness of what the player renders of `tracks`.
    LoudnessAnalysis render(Player &player, const QList<Track> &tracks)
    {
        player.setQueue(tracks);
        QString error;
        const QString out = home.file(QStringLiteral("render%1.wav").arg(++renders));
        EXPECT_TRUE(player.renderQueue(out, &error)) << error.toStdString();
        return Loudness::analyse(out).value_or(LoudnessAnalysis {});
    }

    TestHome home;
    std::unique_ptr<LibraryStore> store;
    AudioEngine engine { AudioEngine::Options { AudioEngine::Output::offline, kRate, 512 } };
    TransitionSettings settings;
    int renders = 0;
};

} // namespace

TEST_F(NormalisationRender, QuietAndLoudTracksPlayAtTheTarget)
{
    const QString quiet = makeNoise(home, "quiet.wav", -30);
    const QString loud = makeNoise(home, "loud.wav", -12);
    const LoudnessAnalysis quietMeasured = measureAndStore(quiet);
    const LoudnessAnalysis loudMeasured = measureAndStore(loud);
    ASSERT_NEAR(quietMeasured.integratedLufs.value_or(0), -30, 1);
    ASSERT_NEAR(loudMeasured.integratedLufs.value_or(0), -12, 1);
    EXPECT_NEAR(quietMeasured.durationSec, 4, 1e-6);

    // ffmpeg's own R128 meter agrees with ours.
    QString why;
    const QByteArray report = runProgram(kFfmpeg,
        { "-v", "error", "-i", loud, "-af", "ebur128=metadata=1,ametadata=mode=print:key=lavfi.r128.I:file=-", "-f",
            "null", "-" },
        &why).value_or(QByteArray());
    const qsizetype at = report.lastIndexOf("lavfi.r128.I=");
    ASSERT_GE(at, 0) << why.toStdString();
    const double ffmpegLufs = report.mid(at + 13).trimmed().split('\n').first().toDouble();
    EXPECT_NEAR(*loudMeasured.integratedLufs, ffmpegLufs, 0.1);
    // Our true-peak meter against libebur128's own (a different interpolator: close, not equal).
    const std::vector<float> frames = ffmpegDecode(loud);
    ebur128_state *meter = ebur128_init(2, kRate, EBUR128_MODE_TRUE_PEAK);
    ASSERT_EQ(ebur128_add_frames_float(meter, frames.data(), frames.size() / 2), EBUR128_SUCCESS);
    double left = 0, right = 0;
    ebur128_true_peak(meter, 0, &left);
    ebur128_true_peak(meter, 1, &right);
    ebur128_destroy(&meter);
    EXPECT_NEAR(*loudMeasured.truePeakDb, 20 * std::log10(std::max(left, right)), 0.2);

    Player player(engine, settings, store.get());
    EXPECT_NEAR(render(player, { trackOf(quiet) }).integratedLufs.value_or(0), -30, 0.1); // off by default
    player.setNormalisation(NormalisationMode::track);
    for (const QString &path : { quiet, loud })
        EXPECT_NEAR(render(player, { trackOf(path) }).integratedLufs.value_or(0), -18, 1) << path.toStdString();

    // A file the library has not measured plays as it is and is reported for measuring.
    const QString unknown = makeNoise(home, "unknown.wav", -30, 1);
    QStringList missing;
    player.setLoudnessMissing([&missing](const QString &path) { missing << path; });
    EXPECT_NEAR(render(player, { trackOf(unknown) }).integratedLufs.value_or(0), -30, 1);
    EXPECT_EQ(missing, QStringList { unknown });
}

TEST_F(NormalisationRender, TruePeakLimitsTheGainSoNothingClips)
{
    const QString loud = makeNoise(home, "loud.wav", -12);
    const LoudnessAnalysis measured = measureAndStore(loud);
    ASSERT_TRUE(measured.truePeakDb);
    Player player(engine, settings, store.get());
    player.setNormalisation(NormalisationMode::track);
    // -5 LUFS would need +7 dB, which would put the peaks far above full scale.
    player.setNormalisationTarget(-5);
    const LoudnessAnalysis out = render(player, { trackOf(loud) });
    ASSERT_TRUE(out.truePeakDb && out.integratedLufs);
    EXPECT_LE(*out.truePeakDb, Loudness::kPeakCeilingDb + 0.05);
    EXPECT_GT(*out.truePeakDb, Loudness::kPeakCeilingDb - 0.2); // raised as far as allowed
    EXPECT_LT(*out.integratedLufs, -5 - 1);
}

TEST_F(NormalisationRender, AlbumModeKeepsTheAlbumsBalanceUntilATrackIsUnmeasured)
{
    const QString quiet = makeNoise(home, "a1.wav", -30);
    const QString loud = makeNoise(home, "a2.wav", -12);
    const QString third = makeNoise(home, "a3.wav", -20, 1);
    const QList<Track> album { trackOf(quiet, "Album"), trackOf(loud, "Album"), trackOf(third, "Album") };
    ASSERT_EQ(store->insertTracks(album).size(), 3);
    measureAndStore(quiet);
    measureAndStore(loud);

    Player player(engine, settings, store.get());
    player.setNormalisation(NormalisationMode::album);
    // The third track is not measured yet: each plays by its own loudness.
    EXPECT_NEAR(20 * std::log10(player.loudnessGain(album[0])), 12, 1);
    EXPECT_NEAR(20 * std::log10(player.loudnessGain(album[1])), -6, 1);

    const LoudnessAnalysis thirdMeasured = measureAndStore(third);
    const std::vector<LoudnessAnalysis> all { *Loudness::analyse(quiet), *Loudness::analyse(loud), thirdMeasured };
    const double albumGainDb = Loudness::gainDb(*Loudness::album(all), -18);
    for (const Track &t : album)
        EXPECT_NEAR(20 * std::log10(player.loudnessGain(t)), albumGainDb, 1e-4) << t.title.toStdString();
    // The loud track dominates the album's energy: the album as a whole is turned down.
    EXPECT_LT(albumGainDb, -2);

    // A track of no album is on its own even in album mode.
    EXPECT_NEAR(20 * std::log10(player.loudnessGain(trackOf(quiet))), 12, 1);
}

TEST_F(NormalisationRender, FlatEqualiserIsBitExactAndABandLiftsItsCentreBySixDb)
{
    const QString noise = makeNoise(home, "noise.wav", -20, 2);
    const std::vector<float> decoded = ffmpegDecode(noise);
    ASSERT_FALSE(decoded.empty());
    QString error;
    ASSERT_TRUE(engine.load(0, noise, 0, &error)) << error.toStdString();
    // On, but flat: the filters and the preamp are skipped.
    Equaliser::apply(engine, *Equaliser::preset("flat"));
    engine.play(0);
    const qint64 frames = qint64(decoded.size() / 2);
    std::vector<float> out(decoded.size());
    const qint64 firstPart = kRate / 2;
    engine.renderOffline(out.data(), firstPart);
    // A boost and back: once the ramp back to flat has run, the output is exact again.
    Equaliser::apply(engine, *Equaliser::preset("bass"));
    std::vector<float> scratch(2 * 4096);
    engine.renderOffline(scratch.data(), 4096);
    Equaliser::apply(engine, EqualiserSettings { true, 0, {} });
    engine.renderOffline(scratch.data(), 1024);
    const qint64 resumed = firstPart + 4096 + 1024;
    engine.renderOffline(out.data() + 2 * resumed, frames - resumed);
    EXPECT_EQ(firstDifference(std::vector<float>(out.begin(), out.begin() + 2 * firstPart),
                  std::vector<float>(decoded.begin(), decoded.begin() + 2 * firstPart)),
        -1);
    EXPECT_EQ(firstDifference(std::vector<float>(out.begin() + 2 * resumed, out.end()),
                  std::vector<float>(decoded.begin() + 2 * resumed, decoded.end())),
        -1);

    // Sines at three band centres, each with its band at +6 dB and the rest flat.
    for (const int band : { 2, 5, 8 }) {
        const double hz = EqualiserBank::kPeakHz[size_t(band)];
        const QString tone = home.file(QStringLiteral("tone%1.wav").arg(band));
        ASSERT_TRUE(encode(tone,
            { "-f", "lavfi", "-i", QStringLiteral("sine=frequency=%1:sample_rate=%2:duration=1").arg(hz).arg(kRate), "-af",
                "volume=0.25", "-ac", "2", "-c:a", "pcm_f32le" }));
        EqualiserSettings oneBand { true, 0, {} };
        oneBand.bandsDb[size_t(band)] = 6;
        Equaliser::apply(engine, oneBand);
        ASSERT_TRUE(engine.load(0, tone, 0, &error)) << error.toStdString();
        engine.play(0, engine.hostFrame());
        std::vector<float> rendered(size_t(2 * kRate));
        engine.renderOffline(rendered.data(), kRate);
        const std::vector<float> input = ffmpegDecode(tone);
        // Past the filter's settling, away from the end.
        const size_t from = kRate / 4, to = 3 * kRate / 4;
        EXPECT_NEAR(Signal::rmsDb(rendered, from, to) - Signal::rmsDb(input, from, to), 6.0, 0.5) << hz << " Hz";
        engine.unload(0);
    }
}
