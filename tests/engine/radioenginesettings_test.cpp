#include "engine/enginesettingsstore.h"
#include "engine/radioenginesettings.h"

#include "platform/paths.h"
#include "platform/preferences.h"

#include "testenv.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QSignalSpy>

#include <atomic>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

// {leadInSec, leadOutSec, minDurationSec, skipJingles, lossless}
using S = RadioEngineSettings;
namespace Key = EnginePreferenceKeys;

} // namespace

TEST(RadioEngineSettingsJson, LenientKeysStrictTypes)
{
    EXPECT_EQ(S::fromJson(QByteArray("{}")), S::standard());
    // Lacking "skipJingles" means skipping stays on; null reads as missing, unknown keys
    // are ignored, and a whole number is an integer whatever its notation.
    EXPECT_EQ(S::fromJson(QByteArray(R"({"leadInSec":3,"lossless":true,"x":[]})")), (S { 3, 0, 45, true, true }));
    EXPECT_EQ(S::fromJson(QByteArray(R"({"minDurationSec":null,"leadOutSec":4.5e1})")), (S { 0, 45, 45, true, false }));

    const char *bad[] = {
        R"({"leadInSec":"5"})",
        R"({"leadOutSec":4.5})",
        R"({"minDurationSec":9223372036854775808})",
        R"({"skipJingles":1})",
        R"({"lossless":"true"})",
        R"({"leadInSec":true})",
        R"([{"leadInSec":1}])",
        R"({"leadInSec":1)",
        "",
    };
    for (const char *text : bad)
        EXPECT_FALSE(S::fromJson(QByteArray(text))) << text;
}

TEST(RadioEngineSettingsJson, WritesFieldOrderAndClampsEachRange)
{
    const S s { 7, 30, 600, false, true };
    EXPECT_EQ(
        s.toJson(), R"({"leadInSec":7,"leadOutSec":30,"minDurationSec":600,"skipJingles":false,"lossless":true})");
    EXPECT_EQ(S::fromJson(s.toJson()), s);

    EXPECT_EQ((S { 31, -1, 601, false, true }).clamped(), (S { 30, 0, 600, false, true }));
    // Beyond 32 bits still decodes, and clamps instead of wrapping.
    const auto huge = S::fromJson(QByteArray(R"({"leadOutSec":5000000000,"minDurationSec":-5000000000})"));
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->clamped(), (S { 0, 30, 0, true, false }));
}

TEST(RadioEngineSettingsLoad, GlobalIsClampedAndTheLegacyMinimumOnlyAFallback)
{
    TestHome home;
    EXPECT_EQ(S::loadGlobal(), S::standard());
    Preferences::setValue(Key::kMinRecordingDuration, 120);
    EXPECT_EQ(S::loadGlobal(), (S { 0, 0, 120, true, false }));
    Preferences::setValue(Key::kMinRecordingDuration, 0);
    EXPECT_EQ(S::loadGlobal(), S::standard());
    Preferences::setValue(Key::kMinRecordingDuration, 900); // taken as stored, unclamped
    EXPECT_EQ(S::loadGlobal(), (S { 0, 0, 900, true, false }));

    Preferences::setValue(Key::kGlobal, QByteArray(R"({"leadInSec":"3"})"));
    EXPECT_EQ(S::loadGlobal(), (S { 0, 0, 900, true, false }));
    Preferences::setValue(Key::kMinRecordingDuration, QStringLiteral("lots"));
    EXPECT_EQ(S::loadGlobal(), S::standard());

    // A record that decodes wins over the legacy minimum, clamped.
    Preferences::setValue(Key::kMinRecordingDuration, 300);
    Preferences::setValue(Key::kGlobal, QByteArray(R"({"leadInSec":90,"minDurationSec":-5})"));
    EXPECT_EQ(S::loadGlobal(), (S { 30, 0, 0, true, false }));
}

TEST(RadioEngineSettingsLoad, OneBadOverrideEmptiesTheWholeMap)
{
    TestHome home;
    Preferences::setValue(Key::kStations, QByteArray(R"({"a":{"leadInSec":45},"b":{}})"));
    const QMap<QString, S> good { { "a", S { 30, 0, 45, true, false } }, { "b", S::standard() } };
    EXPECT_EQ(S::loadStationOverrides(), good);

    const char *bad[] = {
        R"({"a":{},"b":{"lossless":0}})",
        R"({"a":{},"b":null})",
        R"({"a":{},"b":[]})",
        R"([{"leadInSec":1}])",
        R"({"a":{})",
        "",
    };
    for (const char *text : bad) {
        Preferences::setValue(Key::kStations, QByteArray(text));
        EXPECT_TRUE(S::loadStationOverrides().isEmpty()) << text;
    }
}

TEST(RadioEngineSettingsLoad, OverrideReplacesGlobalCompletelyAndIsReadFresh)
{
    TestHome home;
    EngineSettingsStore store;
    const S global { 10, 12, 200, false, true };
    (void)store.setGlobal(global);
    (void)store.setStation("uuid-1", S::standard());
    EXPECT_EQ(S::effective("uuid-1"), S::standard());
    EXPECT_EQ(S::effective("uuid-2"), global);

    (void)store.setStation("uuid-1", S { 1, 2, 3, true, true });
    EXPECT_EQ(S::effective("uuid-1"), (S { 1, 2, 3, true, true }));
    (void)store.resetStation("uuid-1");
    EXPECT_EQ(S::effective("uuid-1"), global);
}

TEST(RadioEngineSettingsLoad, EffectiveFromOtherThreadsWhileTheStoreWrites)
{
    TestHome home;
    const S a { 1, 1, 10, true, false };
    const S b { 2, 2, 20, false, true };
    EngineSettingsStore store;
    (void)store.setGlobal(S { 9, 9, 99, true, true });
    (void)store.setStation("busy", a);

    std::atomic<bool> stop { false };
    std::atomic<int> reads { 0 };
    std::atomic<int> wrong { 0 };
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            for (; !stop.load(); reads.fetch_add(1)) {
                const S s = S::effective("busy");
                if (s != a && s != b)
                    wrong.fetch_add(1);
            }
        });
    }
    // Every write replaces the file (with an fsync), so a few dozen give the readers
    // thousands of chances to catch one half done.
    for (int i = 0; i < 30; ++i)
        (void)store.setStation("busy", i % 2 ? a : b);
    stop = true;
    for (auto &reader : readers)
        reader.join();
    EXPECT_GT(reads.load(), 30);
    EXPECT_EQ(wrong.load(), 0) << "of " << reads.load() << " reads";
}

TEST(EngineSettingsStoreTest, ClampsPersistsAndSignalsRealChanges)
{
    TestHome home;
    const QString odd = QStringLiteral("custom:http://x/\"q\"");
    Preferences::setValue(Key::kGlobal, QByteArray(R"({"leadOutSec":5})"));
    Preferences::setValue(Key::kStations, QByteArray(R"({"custom:http://x/\"q\"":{"minDurationSec":700}})"));
    EngineSettingsStore store;
    EXPECT_EQ(store.global(), (S { 0, 5, 45, true, false }));
    EXPECT_TRUE(store.hasOverride(odd));
    EXPECT_EQ(store.settings(odd), (S { 0, 0, 600, true, false }));
    EXPECT_EQ(store.settings("other"), store.global());

    QSignalSpy spy(&store, &EngineSettingsStore::changed);
    (void)store.setGlobal(S { -3, 44, 1000, false, true });
    const S expected { 0, 30, 600, false, true };
    EXPECT_EQ(store.global(), expected);
    EXPECT_EQ(Preferences::bytes(Key::kGlobal), expected.toJson());
    EXPECT_EQ(Preferences::integer(Key::kMinRecordingDuration), 600);
    (void)store.setGlobal(expected);
    EXPECT_EQ(spy.count(), 1) << "storing the same record again is no change";

    (void)store.setStation("j", S { 99, 0, 0, false, false });
    EXPECT_FALSE(store.hasOverride("other"));
    EXPECT_EQ(S::loadStationOverrides(), store.overrides());
    EXPECT_EQ(store.overrides().value("j"), (S { 30, 0, 0, false, false }));
    EXPECT_EQ(store.overrides().value(odd), (S { 0, 0, 600, true, false }));
}

TEST(EngineSettingsStoreTest, ResetWithoutOverrideRewritesTheMapUnchanged)
{
    TestHome home;
    // Same content as the store would write, but not in its form.
    Preferences::setValue(Key::kStations, QByteArray("{ \"k\" : { \"leadInSec\" : 4 } }"));
    EngineSettingsStore store;
    QSignalSpy spy(&store, &EngineSettingsStore::changed);
    (void)store.resetStation("absent");
    EXPECT_EQ(Preferences::bytes(Key::kStations),
        R"({"k":{"leadInSec":4,"leadOutSec":0,"minDurationSec":45,"skipJingles":true,"lossless":false}})");
    EXPECT_EQ(spy.count(), 0);

    (void)store.resetStation("k");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(Preferences::bytes(Key::kStations), "{}");
}

TEST(EngineSettingsStoreTest, DamagedPreferencesFileFallsBackAndTheNextSaveIsGood)
{
    const QByteArray damaged[] = {
        "",
        "[General]\nov.engine.global=@ByteArray({\\\"leadInSec\\\":5",
        "[General]\nov.engine.global=1, 2, 3\nov.engine.stations=@ByteArray([])\n",
        "\x01\x02\xff\xfe garbage without sections",
    };
    for (const QByteArray &content : damaged) {
        TestHome home;
        writeFile(Paths::preferencesFile(), content);
        {
            EngineSettingsStore store;
            EXPECT_EQ(store.global(), S::standard()) << content.constData();
            EXPECT_TRUE(store.overrides().isEmpty()) << content.constData();
            (void)store.setGlobal(S { 3, 4, 60, false, false });
            (void)store.setStation("s", S { 5, 6, 70, true, true });
        }
        EngineSettingsStore reloaded;
        EXPECT_EQ(reloaded.global(), (S { 3, 4, 60, false, false })) << content.constData();
        EXPECT_EQ(reloaded.settings("s"), (S { 5, 6, 70, true, true })) << content.constData();
    }
}

TEST(EngineSettingsStoreTest, EachWriterChangesOnlyItsOwnOverrideAndADamagedMapIsKept)
{
    TestHome home;
    EngineSettingsStore window;
    EngineSettingsStore cli;
    QSignalSpy windowChanged(&window, &EngineSettingsStore::changed);
    ASSERT_TRUE(window.setStation("w", S { 1, 1, 10, true, false }).ok);
    ASSERT_TRUE(cli.setStation("c", S { 2, 2, 20, true, false }).ok);
    ASSERT_TRUE(window.resetStation("nothing").ok);
    EXPECT_EQ(S::loadStationOverrides().keys(), (QStringList { "c", "w" }));
    EXPECT_TRUE(waitUntil([&] { return window.hasOverride("c"); }));

    // A map that does not decode is not silently replaced by the next change.
    const QByteArray damaged = R"({"x":{"leadInSec":"many"}})";
    Preferences::setValue(Key::kStations, damaged);
    const StateResult written = cli.setStation("c", S { 3, 3, 30, true, false });
    ASSERT_TRUE(written.ok);
    EXPECT_TRUE(written.notice.contains("Orvida.corrupt.conf")) << written.notice.toStdString();
    QSettings kept(QFileInfo(Paths::preferencesFile()).absolutePath() + "/Orvida.corrupt.conf", QSettings::IniFormat);
    EXPECT_EQ(Preferences::bytesOf(kept.value(Key::kStations)), damaged);
    EXPECT_EQ(S::loadStationOverrides().keys(), QStringList { "c" });
}

TEST(EngineSettingsStoreTest, UnreadablePreferencesFileFallsBack)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads files whatever their mode";
    TestHome home;
    // Written by hand so no earlier read in this process has cached the content.
    writeFile(Paths::preferencesFile(), "[General]\nov.minRecordingDuration=200\n");
    QFile::setPermissions(Paths::preferencesFile(), QFileDevice::Permissions());
    EXPECT_EQ(S::effective("x"), S::standard());
    EngineSettingsStore store;
    EXPECT_EQ(store.global(), S::standard());
    // Nothing can be written back through an unreadable file; the store still answers
    // with what the user set.
    (void)store.setGlobal(S { 8, 8, 80, false, false });
    EXPECT_EQ(store.global(), (S { 8, 8, 80, false, false }));
}
