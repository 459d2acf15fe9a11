#include "tools/ytdlpoutput.h"

#include "platform/childprocess.h"

#include <gtest/gtest.h>

namespace {

TEST(YtDlpOutputTest, ProgressComesOnlyFromDownloadLines)
{
    const std::vector<std::pair<QByteArray, std::optional<double>>> cases{
        {"[download]  42.5% of    3.00MiB at  1.20MiB/s ETA 00:01", 0.425},
        {"[download]   0.0% of ~  3.00MiB", 0.0},
        {"[download] 100% of    3.00MiB in 00:00:02", 1.0},
        {"[download] 250.0% of 3.00MiB", 1.0}, // clamped
        {"[download] Destination: /music/Song 50% Remix.webm", 0.5},
        {"[download] Destination: /music/Song.webm", std::nullopt},
        {"[info] 42.5% of something", std::nullopt},
        {"[ExtractAudio] Destination: /music/Song.mp3", std::nullopt},
        {"[download] \xff\xfe 12% of 1MiB", 0.12},
    };
    for (const auto &[line, expected] : cases) {
        const auto fraction = YtDlpOutput::progressFraction(line);
        ASSERT_EQ(fraction.has_value(), expected.has_value()) << line.toStdString();
        if (expected) {
            EXPECT_DOUBLE_EQ(*fraction, *expected) << line.toStdString();
        }
    }
}

// Only the tail of a flood of errors is kept; the message says that something came before.
TEST(YtDlpOutputTest, ACutErrorTextIsMarkedAsCut)
{
    ChildProcessResult result;
    result.status = ChildExit::Exited;
    result.exitCode = 1;
    result.stderrBytes = "tail of a long text\n";
    result.stderrTotalBytes = 1 << 30;
    EXPECT_EQ(YtDlpOutput::failureMessage(result), QStringLiteral("…tail of a long text"));
}

} // namespace
