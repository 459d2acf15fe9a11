#include "tools/youtubeerror.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace {

TEST(YouTubeErrorTest, DescriptionsAreTheGermanTexts)
{
    EXPECT_EQ(YouTubeError::searchFailed("x").description(), QStringLiteral("Suche fehlgeschlagen: x"));
    EXPECT_EQ(YouTubeError::downloadFailed("y").description(), QStringLiteral("Download fehlgeschlagen: y"));
    EXPECT_EQ(YouTubeError::notInstalled().description(),
        QStringLiteral("yt-dlp ist nicht installiert.\nInstalliere es über das Terminal:\nsudo apt install yt-dlp"));
    EXPECT_EQ(YouTubeError::streamUrlNotFound().description(), QStringLiteral("Kein Audio-Stream gefunden"));
}

TEST(YouTubeErrorTest, StaleToolSignsAreFoundInAnyCaseAndOnlyThere)
{
    const QStringList stale{
        "ERROR: [youtube] abc: Unable to download video data: HTTP Error 403: Forbidden",
        "HTTP Error 403",
        "ERROR: Sign in to confirm you’re not a bot",
        "ERROR: [youtube] abc: Precondition check failed.",
        "ERROR: Unable to extract uploader id",
        "ERROR: Failed to extract any player response",
        "FORBIDDEN",
    };
    for (const QString &message : stale)
        EXPECT_TRUE(isStaleYtDlpError(YouTubeError::downloadFailed(message))) << message.toStdString();

    const QStringList other{"ERROR: Unsupported URL: https://example.org", "Unbekannter Fehler",
        "execve: No such file or directory", "HTTP Error 404: Not Found"};
    for (const QString &message : other)
        EXPECT_FALSE(isStaleYtDlpError(YouTubeError::downloadFailed(message))) << message.toStdString();

    // Other cases are judged by their whole description.
    EXPECT_TRUE(isStaleYtDlpError(YouTubeError::searchFailed("HTTP Error 403")));
    EXPECT_FALSE(isStaleYtDlpError(YouTubeError::notInstalled()));
    EXPECT_FALSE(isStaleYtDlpError(YouTubeError::streamUrlNotFound()));
}

} // namespace
