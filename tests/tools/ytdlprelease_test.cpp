#include "tools/ytdlprelease.h"

#include <gtest/gtest.h>

namespace {

TEST(YtDlpReleaseTest, DownloadsDeriveFromTheSameBase)
{
    const QString api = YtDlpRelease::defaultBase();
    EXPECT_EQ(YtDlpRelease::latestUrl(api), "https://api.github.com/repos/yt-dlp/yt-dlp/releases/latest");
    EXPECT_EQ(YtDlpRelease::downloadUrl(api, "2024.03.10", "yt-dlp_linux"),
        "https://github.com/yt-dlp/yt-dlp/releases/download/2024.03.10/yt-dlp_linux");
    EXPECT_EQ(YtDlpRelease::downloadUrl("http://127.0.0.1:4000/mirror", "2024.03.10", "SHA2-256SUMS"),
        "http://127.0.0.1:4000/mirror/releases/download/2024.03.10/SHA2-256SUMS");
}

TEST(YtDlpReleaseTest, LatestTagNeedsStatus200AndANonEmptyStringTag)
{
    EXPECT_EQ(YtDlpRelease::parseLatestTag(200, R"({"tag_name":"2024.03.10","assets":[]})"), "2024.03.10");
    EXPECT_FALSE(YtDlpRelease::parseLatestTag(404, R"({"tag_name":"2024.03.10"})"));
    EXPECT_FALSE(YtDlpRelease::parseLatestTag(200, "<html>rate limited</html>"));
    EXPECT_FALSE(YtDlpRelease::parseLatestTag(200, R"([{"tag_name":"2024.03.10"}])"));
    EXPECT_FALSE(YtDlpRelease::parseLatestTag(200, R"({"tag_name":""})"));
    EXPECT_FALSE(YtDlpRelease::parseLatestTag(200, R"({"tag_name":20240310})"));
}

TEST(YtDlpReleaseTest, ChecksumIsTakenFromTheExactFileName)
{
    const QByteArray a(64, 'a'), b(64, 'B'), c(64, 'c');
    const QByteArray sums = a + "  yt-dlp_linux_aarch64\n" + b + " *yt-dlp_linux\r\n" + c + "  yt-dlp.exe\n";
    EXPECT_EQ(YtDlpRelease::expectedSha256(sums, "yt-dlp_linux"), QByteArray(64, 'b'));
    EXPECT_EQ(YtDlpRelease::expectedSha256(sums, "yt-dlp_linux_aarch64"), a);
    EXPECT_FALSE(YtDlpRelease::expectedSha256(sums, "yt-dlp"));
    EXPECT_FALSE(YtDlpRelease::expectedSha256(QByteArray(64, 'z') + "  yt-dlp_linux\n", "yt-dlp_linux"));
    EXPECT_FALSE(YtDlpRelease::expectedSha256("<html><body>Not here</body></html>", "yt-dlp_linux"));
}

} // namespace
