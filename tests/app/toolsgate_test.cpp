#include "app/texts.h"
#include "app/toolsgateview.h"

#include "testenv.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

class ToolsGateTest : public ::testing::Test {
protected:
    void TearDown() override { Texts::setLanguage(Texts::Language::English); }

    static bool showsFound(const QLabel *state) { return !state->text().contains(QStringLiteral("<a href")); }

    TestHome home;
    ToolLocations locations{home.file("bundle"), home.file("support"), {home.file("local"), home.file("usr")}};
};

// Each row says whether its own program is there: yt-dlp alone is not "missing" because
// ffmpeg is, and ffmpeg alone does not make yt-dlp "found".
TEST_F(ToolsGateTest, EachRowFollowsItsOwnProgram)
{
    Texts::setLanguage(Texts::Language::English);
    writeFile(home.file("usr/yt-dlp"), "#!/bin/sh\n");
    ToolsGateView onlyYtDlp(locations);
    EXPECT_FALSE(onlyYtDlp.ffmpegPresent());
    EXPECT_TRUE(onlyYtDlp.ytdlpPresent());
    EXPECT_FALSE(showsFound(onlyYtDlp.ffmpegState()));
    EXPECT_TRUE(showsFound(onlyYtDlp.ytdlpState()));

    QFile::remove(home.file("usr/yt-dlp"));
    writeFile(home.file("local/ffmpeg"), "#!/bin/sh\n");
    ToolsGateView onlyFfmpeg(locations);
    EXPECT_TRUE(onlyFfmpeg.ffmpegPresent());
    EXPECT_FALSE(onlyFfmpeg.ytdlpPresent());
    EXPECT_TRUE(showsFound(onlyFfmpeg.ffmpegState()));
    EXPECT_FALSE(showsFound(onlyFfmpeg.ytdlpState()));
    EXPECT_TRUE(onlyFfmpeg.ytdlpState()->text().contains(QStringLiteral("yt-dlp/releases")));

    // Installed meanwhile: "check again" finds it and lets the content through.
    QSignalSpy allFound(&onlyFfmpeg, &ToolsGateView::allFound);
    writeFile(home.file("bundle/yt-dlp"), "#!/bin/sh\n");
    onlyFfmpeg.checkAgain();
    EXPECT_TRUE(showsFound(onlyFfmpeg.ytdlpState()));
    EXPECT_EQ(allFound.count(), 1);
}

TEST_F(ToolsGateTest, CommandsOfferThePackageManagerFirstInTheInterfaceLanguage)
{
    Texts::setLanguage(Texts::Language::English);
    const QStringList lines = ToolsGateView::copyCommands(QStringLiteral("/opt/My Apps/orvida")).split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 9);
    EXPECT_EQ(lines[0], QStringLiteral("# On Debian or Ubuntu:"));
    EXPECT_EQ(lines[1], QStringLiteral("sudo apt install ffmpeg yt-dlp"));
    EXPECT_EQ(lines[2], QString());
    EXPECT_EQ(lines[3], QStringLiteral("# Or download ffmpeg and yt-dlp, then:"));
    // Every path is quoted, and the chmod line goes on after a backslash.
    EXPECT_EQ(lines[4], QStringLiteral("mkdir -p \"/opt/My Apps/orvida\""));
    EXPECT_EQ(lines[5], QStringLiteral("cp /path/to/ffmpeg \"/opt/My Apps/orvida/ffmpeg\""));
    EXPECT_EQ(lines[6], QStringLiteral("cp /path/to/yt-dlp \"/opt/My Apps/orvida/yt-dlp\""));
    EXPECT_EQ(lines[7], QStringLiteral("chmod +x \"/opt/My Apps/orvida/ffmpeg\" \\"));
    EXPECT_EQ(lines[8], QStringLiteral("         \"/opt/My Apps/orvida/yt-dlp\""));

    Texts::setLanguage(Texts::Language::German);
    ToolsGateView gate(locations);
    const QStringList german = gate.commandsBlock()->toPlainText().split(QLatin1Char('\n'));
    ASSERT_EQ(german.size(), 9);
    EXPECT_EQ(german[0], QStringLiteral("# Unter Debian oder Ubuntu:"));
    EXPECT_EQ(german[1], QStringLiteral("sudo apt install ffmpeg yt-dlp"));
    EXPECT_EQ(german[3], QStringLiteral("# ffmpeg und yt-dlp herunterladen, dann:"));
    EXPECT_EQ(german[4], QStringLiteral("mkdir -p \"") + home.file("bundle") + QLatin1Char('"'));
}

} // namespace
