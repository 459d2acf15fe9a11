#include "app/recordingformat.h"
#include "app/texts.h"

#include <gtest/gtest.h>

namespace {

class TextsTest : public ::testing::Test {
protected:
    void TearDown() override { Texts::setLanguage(Texts::Language::English); }
};

// The keys the favourites view, the engine form and the tools screen are designed with:
// each needs a text in both languages, or the German window shows English fragments.
TEST_F(TextsTest, EveryDesignedKeyHasBothLanguages)
{
    const char *keys[] = {
        "fav.sidebar", "fav.title", "fav.add", "fav.remove", "fav.added", "fav.removed", "fav.emptyTitle",
        "fav.emptyHint", "fav.noMatchesFormat", "fav.searchPlaceholder", "fav.countOne", "fav.countFormat",
        "fav.reorderHint", "fav.moveToTop", "fav.moveUp", "fav.moveDown", "fav.scheduled", "fav.shortcutHint",
        "engineLeadInHint", "engineLeadOutHint", "engineSkipJingles", "engineSkipJinglesHint", "engineQualityHint",
        "engineQualityNormal", "engineQualityLossless", "engineUsesGlobal", "engineResetStation",
        "engineResetGlobal", "engineStationTitle", "engineSettingsHelp", "depsMissingTitle", "depsMissingSubtitle",
        "depsFFmpegDesc", "depsYtdlpDesc", "depsFound", "depsDownload", "depsCopyBinaries", "depsCheckAgain",
        "depsContinueAnyway"};
    for (const char *key : keys) {
        EXPECT_TRUE(Texts::has(key, Texts::Language::English)) << key;
        EXPECT_TRUE(Texts::has(key, Texts::Language::German)) << key;
    }
}

// Keys beyond the designed ones (pages, dialogs, notices) are held to the same rule.
TEST_F(TextsTest, EveryKeyHasBothLanguages)
{
    const QList<QByteArray> keys = Texts::keys();
    EXPECT_GT(keys.size(), 100);
    for (const QByteArray &key : keys) {
        EXPECT_TRUE(Texts::has(key.constData(), Texts::Language::English)) << key.constData();
        EXPECT_TRUE(Texts::has(key.constData(), Texts::Language::German)) << key.constData();
    }
}

TEST_F(TextsTest, LooksUpTheCurrentLanguageAndShowsUnknownKeysAsThemselves)
{
    Texts::setLanguage(Texts::Language::German);
    EXPECT_EQ(tx("fav.added"), QStringLiteral("Zu Favoriten hinzugefügt"));
    EXPECT_EQ(Texts::text("fav.countFormat").arg(3), QStringLiteral("3 Sender"));
    Texts::setLanguage(Texts::Language::English);
    EXPECT_EQ(tx("fav.added"), QStringLiteral("Added to favourites"));
    EXPECT_EQ(tx("no.such.key"), QStringLiteral("no.such.key"));
    EXPECT_FALSE(Texts::has("no.such.key", Texts::Language::English));
}

// Format texts must keep their placeholder in both languages, or the value vanishes.
TEST_F(TextsTest, FormatTextsKeepTheirPlaceholderInBothLanguages)
{
    for (const char *key : {"fav.noMatchesFormat", "fav.countFormat", "engineStationTitle", "rec.countFormat",
                            "lib.countFormat", "lib.deleteOneFormat", "lib.deleteManyFormat", "radio.resultsFormat",
                            "radio.noResultsFormat", "radio.noRandomFormat", "station.kbps", "settings.startAtLoginFailedFormat", "rec.gaveUp",
                            "rec.connectingAttempt", "rec.reconnecting", "rec.savedFailed", "rec.songSaved",
                            "rec.songSkipped", "rec.songFailed", "rec.songNotice", "msg.earlierFormat"}) {
        for (Texts::Language language : {Texts::Language::English, Texts::Language::German}) {
            Texts::setLanguage(language);
            EXPECT_TRUE(tx(key).contains(QStringLiteral("%1"))) << key;
        }
    }
    Texts::setLanguage(Texts::Language::English);
    EXPECT_TRUE(Texts::text("lib.shownFormat").contains(QStringLiteral("%2")));
}

// The engine keeps its German literals; the window says them in its own language, and the
// engine's reason for a failed attempt comes along unchanged.
TEST_F(TextsTest, RecordingStatesReadInTheInterfaceLanguage)
{
    SessionStatus status;
    status.state = SessionStatus::State::Reconnecting;
    status.attempt = 2;
    status.reason = QStringLiteral("HTTP 503");
    status.reconnectAt = QDeadlineTimer(2500);
    EXPECT_EQ(RecordingFormat::statusText(status, {}), QStringLiteral("Reconnecting in 3 s (attempt 2 of 8): HTTP 503"));
    status.state = SessionStatus::State::GaveUp;
    EXPECT_EQ(RecordingFormat::statusText(status, QStringLiteral("Stream unterbrochen")),
              QStringLiteral("Gave up: Stream interrupted (HTTP 503)"));
    status.reason = QStringLiteral("Ungültige Stream-URL");
    EXPECT_EQ(RecordingFormat::statusText(status, status.reason), QStringLiteral("Gave up: Invalid stream URL"));
    Texts::setLanguage(Texts::Language::German);
    EXPECT_EQ(RecordingFormat::statusText(status, status.reason), QStringLiteral("Aufgegeben: Ungültige Stream-URL"));
    EXPECT_EQ(Texts::engineMessage(QStringLiteral("Stream unterbrochen")), QStringLiteral("Stream unterbrochen"));
    EXPECT_EQ(RecordingFormat::elapsedText(3723000), QStringLiteral("1:02:03"));
    EXPECT_EQ(RecordingFormat::elapsedText(7000), QStringLiteral("0:07"));
}

} // namespace
