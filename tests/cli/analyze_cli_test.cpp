#include "clirunner.h"
#include "testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cmath>

#include <gtest/gtest.h>

namespace {

// `seconds` of a tone at `rate` Hz encoded by ffmpeg with `codec`.
QString makeTone(const QTemporaryDir &dir, const QString &name, double seconds, int rate, const QStringList &codec)
{
    const QString path = dir.filePath(name);
    QString error;
    const auto out = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
        QStringList { "-v", "error", "-y", "-f", "lavfi", "-i",
            QStringLiteral("sine=f=440:r=%1:d=%2").arg(rate).arg(seconds), "-ac", "2" }
            + codec + QStringList { path },
        &error);
    EXPECT_TRUE(out) << error.toStdString();
    return path;
}

QJsonObject json(const CliRun &run)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(run.out, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    return doc.object();
}

} // namespace

TEST(AnalyzeCliTest, PrintsTheBoundsOfEachFormat)
{
    TestHome home;
    QTemporaryDir dir;
    const QString mp3 = makeTone(dir, QStringLiteral("a.mp3"), 2.5, 44100, { "-c:a", "libmp3lame" });
    const QString m4a = makeTone(dir, QStringLiteral("b.m4a"), 2.0, 48000, { "-c:a", "aac" });

    CliRun run = runCli({ "analyze", mp3, "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    QJsonObject o = json(run);
    EXPECT_EQ(o.value("startFrame").toInteger(), 0);
    EXPECT_EQ(o.value("endFrame").toInteger(), 110250);
    EXPECT_EQ(o.value("length").toInteger(), 110250);
    EXPECT_EQ(o.value("sampleRate").toDouble(), 44100);
    EXPECT_EQ(o.value("source").toString(), "coreAudio");
    // ffmpeg's upmix puts the mono tone (peak 1/8) on both channels at -3 dB: a peak of
    // -21.1 dBTP, and ffmpeg's own R128 meter measures the loudness as ours should.
    QString why;
    const QByteArray meter = runProgram(QStringLiteral("/usr/bin/ffmpeg"),
        { "-v", "error", "-i", mp3, "-af", "ebur128=metadata=1,ametadata=mode=print:key=lavfi.r128.I:file=-", "-f",
            "null", "-" },
        &why).value_or(QByteArray());
    const qsizetype at = meter.lastIndexOf("lavfi.r128.I=");
    ASSERT_GE(at, 0) << why.toStdString();
    EXPECT_NEAR(o.value("loudness").toDouble(), meter.mid(at + 13).trimmed().toDouble(), 0.2);
    EXPECT_NEAR(o.value("truePeak").toDouble(), 20 * std::log10(0.125 * M_SQRT1_2), 0.5);
    // A steady tone has no beat.
    EXPECT_EQ(o.value("tempo").toDouble(-1), 0);
    EXPECT_TRUE(o.value("beats").isArray());
    EXPECT_TRUE(o.value("beats").toArray().isEmpty());
    EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();

    run = runCli({ "analyze", m4a, "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    o = json(run);
    EXPECT_EQ(o.value("endFrame").toInteger() - o.value("startFrame").toInteger(), 96000);
    EXPECT_EQ(o.value("source").toString(), "packetTable");

    run = runCli({ "analyze", mp3 });
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.contains("endFrame\t110250\n")) << run.out.toStdString();
    EXPECT_TRUE(run.out.contains("source\tcoreAudio\n")) << run.out.toStdString();

    run = runCli({ "analyze", dir.filePath("missing.flac") });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_EQ(runCli({ "analyze" }).exitCode, 2);
}

TEST(AnalyzeCliTest, PlanGivesTheSanitisedGaplessPlanAndNoPlanForTheOtherModes)
{
    TestHome home;
    QTemporaryDir dir;
    const QString flac = makeTone(dir, QStringLiteral("a.flac"), 3.0, 44100, { "-c:a", "flac" });
    const QString mp3 = makeTone(dir, QStringLiteral("b.mp3"), 1.0, 44100, { "-c:a", "libmp3lame" });

    CliRun run = runCli({ "plan", flac, mp3, "--mode", "gapless", "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonObject o = json(run);
    EXPECT_DOUBLE_EQ(o.value("outgoingStart").toDouble(), 3.0);
    EXPECT_DOUBLE_EQ(o.value("outgoingEnd").toDouble(), 3.0);
    EXPECT_EQ(o.value("incomingStart").toDouble(), 0);
    EXPECT_EQ(o.value("fadeDuration").toDouble(), 0);
    EXPECT_EQ(o.value("fadeOut").toString(), "equalPower");
    EXPECT_EQ(o.value("fadeIn").toString(), "equalPower");
    EXPECT_EQ(o.value("incomingRate").toDouble(), 1);
    EXPECT_EQ(o.value("rateReturnDuration").toDouble(), 0);
    EXPECT_FALSE(o.contains("bassSwapAt"));
    EXPECT_EQ(o.size(), 8);

    run = runCli({ "plan", flac, mp3, "--mode", "gapless", "--seconds", "6" });
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.contains("outgoingEnd\t3\n")) << run.out.toStdString();

    for (const char *mode : { "crossfade", "automix" }) {
        run = runCli({ "plan", flac, mp3, "--mode", mode, "--seconds", "6" });
        EXPECT_EQ(run.exitCode, 1) << mode;
        EXPECT_EQ(run.err.trimmed().split('\n').size(), 1);
        EXPECT_TRUE(run.err.contains("no plan")) << run.err.toStdString();
    }
    run = runCli({ "plan", flac, dir.filePath("missing.mp3"), "--mode", "gapless" });
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("no plan"));

    EXPECT_EQ(runCli({ "plan", flac, mp3 }).exitCode, 2);
    EXPECT_EQ(runCli({ "plan", flac, mp3, "--mode", "Gapless" }).exitCode, 2);
    EXPECT_EQ(runCli({ "plan", flac, mp3, "--mode", "gapless", "--seconds", "x" }).exitCode, 2);
    EXPECT_EQ(runCli({ "plan", flac, "--mode", "gapless" }).exitCode, 2);
}

TEST(AnalyzeCliTest, PlanCrossfadesTracksLongEnoughForIt)
{
    TestHome home;
    QTemporaryDir dir;
    const QString a = makeTone(dir, QStringLiteral("a.flac"), 9.0, 44100, { "-c:a", "flac" });
    const QString b = makeTone(dir, QStringLiteral("b.flac"), 9.0, 44100, { "-c:a", "flac" });

    // A third of the outgoing track's 9 s, ending where its sound ends.
    CliRun run = runCli({ "plan", a, b, "--mode", "crossfade", "--seconds", "6", "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonObject o = json(run);
    EXPECT_NEAR(o.value("outgoingEnd").toDouble(), 9.0, 0.01);
    EXPECT_NEAR(o.value("fadeDuration").toDouble(), 3.0, 0.01);
    EXPECT_NEAR(o.value("outgoingStart").toDouble(), 6.0, 0.02);
    EXPECT_EQ(o.value("incomingStart").toDouble(), 0);
    EXPECT_EQ(o.value("fadeOut").toString(), "equalPower");
    EXPECT_EQ(o.value("incomingRate").toDouble(), 1);
    EXPECT_FALSE(o.contains("bassSwapAt"));

    // 1.5 s asked for is what it gets.
    run = runCli({ "plan", a, b, "--mode", "crossfade", "--seconds", "1.5", "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_NEAR(json(run).value("fadeDuration").toDouble(), 1.5, 1e-9);
}

TEST(AnalyzeCliTest, TempoBeatsAndTheAutomixPlanOfClickTracks)
{
    TestHome home;
    QTemporaryDir dir;
    auto clicks = [&](const QString &name, double period) {
        const QString path = dir.filePath(name);
        const QString click = QStringLiteral("if(lt(mod(t+%1\\,%2)\\,0.003)\\,0.8*sin(2*PI*1000*t)\\,0)")
                                  .arg(period - 0.25)
                                  .arg(period);
        QString error;
        EXPECT_TRUE(runProgram(QStringLiteral("/usr/bin/ffmpeg"),
            { "-v", "error", "-y", "-f", "lavfi", "-i", QStringLiteral("aevalsrc=%1:s=44100:d=12").arg(click), path },
            &error))
            << error.toStdString();
        return path;
    };
    const QString a = clicks(QStringLiteral("a.wav"), 0.5);
    const QString b = clicks(QStringLiteral("b.wav"), 60.0 / 126);

    CliRun run = runCli({ "analyze", a, "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    QJsonObject o = json(run);
    EXPECT_NEAR(o.value("tempo").toDouble(), 120, 0.5);
    const QJsonArray beats = o.value("beats").toArray();
    ASSERT_GE(beats.size(), 22);
    EXPECT_NEAR(beats.at(0).toDouble(), 0.25, 0.012);
    EXPECT_NEAR(beats.at(10).toDouble(), 5.25, 0.012);

    run = runCli({ "plan", a, b, "--mode", "automix", "--seconds", "4", "--json" });
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    o = json(run);
    EXPECT_NEAR(o.value("incomingRate").toDouble(), 120.0 / 126, 0.002);
    EXPECT_NEAR(o.value("fadeDuration").toDouble(), 4, 0.01);
    EXPECT_EQ(o.value("bassSwapAt").toDouble(), 0.5);
    EXPECT_GT(o.value("rateReturnDuration").toDouble(), 0);
}
