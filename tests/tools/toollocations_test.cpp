#include "tools/toollocations.h"
#include "tools/toolversion.h"

#include "toolscripts.h"

#include <QDir>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

class ToolLocationsTest : public ::testing::Test {
protected:
    TestHome home;
    ToolLocations locations{home.file("bundle"), home.file("support"), {home.file("local"), home.file("usr")}};
};

TEST_F(ToolLocationsTest, PrivateYtDlpMustBeExecutableTheOthersNeedOnlyExist)
{
    EXPECT_EQ(locations.findYtDlpPath(), home.file("bundle/yt-dlp")); // nothing anywhere
    EXPECT_FALSE(ToolLocations::ytdlpPresent(locations.findYtDlpPath()));

    writeScript(home.file("usr/yt-dlp"), "exit 0", false);
    EXPECT_EQ(locations.findYtDlpPath(), home.file("usr/yt-dlp"));
    writeScript(home.file("local/yt-dlp"), "exit 0", false);
    EXPECT_EQ(locations.findYtDlpPath(), home.file("local/yt-dlp"));
    writeScript(home.file("bundle/yt-dlp"), "exit 0", false);
    EXPECT_EQ(locations.findYtDlpPath(), home.file("bundle/yt-dlp"));

    writeScript(home.file("support/yt-dlp"), "exit 0", false);
    EXPECT_EQ(locations.findYtDlpPath(), home.file("bundle/yt-dlp"));
    writeScript(home.file("support/yt-dlp"), "exit 0", true);
    EXPECT_EQ(locations.findYtDlpPath(), home.file("support/yt-dlp"));
    // A folder of that name is no program.
    QDir(home.path()).mkpath("support2/yt-dlp");
    locations.supportBinDir = home.file("support2");
    EXPECT_EQ(locations.findYtDlpPath(), home.file("bundle/yt-dlp"));
}

TEST_F(ToolLocationsTest, FfmpegIsInTheFirstFolderHoldingAnyFileOfThatName)
{
    EXPECT_EQ(locations.findFfmpegDir(), home.file("bundle"));
    EXPECT_FALSE(ToolLocations::ffmpegPresent(locations.findFfmpegDir()));

    writeScript(home.file("usr/ffmpeg"), "exit 0", false);
    EXPECT_EQ(locations.findFfmpegDir(), home.file("usr"));
    EXPECT_TRUE(ToolLocations::ffmpegPresent(locations.findFfmpegDir()));
    writeScript(home.file("local/ffmpeg"), "exit 0");
    EXPECT_EQ(locations.findFfmpegDir(), home.file("local"));
    writeScript(home.file("bundle/ffmpeg"), "exit 0", false);
    EXPECT_EQ(locations.findFfmpegDir(), home.file("bundle"));
}

TEST_F(ToolLocationsTest, VersionOfTheRealTools)
{
    const auto ytdlp = ToolVersion::run("/usr/bin/yt-dlp");
    ASSERT_TRUE(ytdlp);
    EXPECT_TRUE(QRegularExpression("^\\d{4}\\.\\d{2}\\.\\d{2}(\\.\\d+)?$").match(*ytdlp).hasMatch())
        << ytdlp->toStdString();

    // ffmpeg answers "--version" with an error; only "-version" gives its banner.
    EXPECT_FALSE(ToolVersion::run("/usr/bin/ffmpeg"));
    const auto ffmpeg = ToolVersion::run("/usr/bin/ffmpeg", ToolVersion::kFfmpegFlag);
    ASSERT_TRUE(ffmpeg);
    EXPECT_TRUE(ffmpeg->startsWith("ffmpeg version "));
    EXPECT_TRUE(QRegularExpression("^\\d+\\.\\d+").match(ToolVersion::shortForm(*ffmpeg)).hasMatch());
}

TEST_F(ToolLocationsTest, VersionIsTheTrimmedOutputOfACleanRunOnly)
{
    writeScript(home.file("ok"), "printf '  2024.03.10 \\n\\n'");
    EXPECT_EQ(ToolVersion::run(home.file("ok")), QStringLiteral("2024.03.10"));
    writeScript(home.file("args"), "printf '%s' \"$*\"");
    EXPECT_EQ(ToolVersion::run(home.file("args")), QStringLiteral("--version"));

    writeScript(home.file("latin1"), "printf 'Version \\344\\n'");
    EXPECT_FALSE(ToolVersion::run(home.file("latin1")));
    writeScript(home.file("fails"), "echo 2024.03.10; exit 1");
    EXPECT_FALSE(ToolVersion::run(home.file("fails")));
    writeScript(home.file("hangs"), "echo 2024.03.10; exec sleep 600");
    EXPECT_FALSE(ToolVersion::run(home.file("hangs"), ToolVersion::kGnuFlag, 0.3));
    writeScript(home.file("plain"), "echo 2024.03.10", false);
    EXPECT_FALSE(ToolVersion::run(home.file("plain")));
    EXPECT_FALSE(ToolVersion::run(home.file("missing")));
}

} // namespace
