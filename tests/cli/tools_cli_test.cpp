#include "platform/childprocess.h"

#include "testenv.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

// TestHome has pointed HOME and XDG_* at its folder; the child inherits them, so
// ~/.local/bin and the private yt-dlp folder are the test's own.
ChildProcessResult tools(const QStringList &args)
{
    ChildProcessOptions options;
    options.program = QStringLiteral(ORVIDA_CLI_PATH);
    options.arguments = QStringList{"tools"} + args;
    options.timeoutSec = 60;
    return ChildProcess::run(options);
}

void writeTool(const QString &path, const QByteArray &script, bool executable)
{
    writeFile(path, "#!/bin/sh\n" + script);
    QFile::setPermissions(path,
        executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner : QFile::ReadOwner | QFile::WriteOwner);
}

TEST(ToolsCliTest, ReportsWhereTheToolsAreAndTheVersionsOfThoseThatRun)
{
    TestHome home;
    const QString ffmpeg = home.file(".local/bin/ffmpeg");
    const QString ytdlp = home.file("data/Orvida Studio/bin/yt-dlp");
    const QByteArray ffmpegScript = "[ \"$1\" = -version ] || exit 1\necho 'ffmpeg version 9.9-test Copyright (c) the "
                                    "authors'\necho 'built with sh'\n";
    const QByteArray ytdlpScript = "[ \"$1\" = --version ] && echo 2099.01.01\n";
    writeTool(ffmpeg, ffmpegScript, true);
    writeTool(ytdlp, ytdlpScript, true);
    const auto json = [] {
        const ChildProcessResult run = tools({"--json"});
        EXPECT_TRUE(run.succeeded()) << run.stderrBytes.toStdString();
        return QJsonDocument::fromJson(run.stdoutBytes).object();
    };

    const QJsonObject doc = json();
    EXPECT_EQ(doc["ffmpeg"]["path"].toString(), ffmpeg);
    EXPECT_EQ(doc["ffmpeg"]["version"].toString(), QStringLiteral("9.9-test"));
    EXPECT_EQ(doc["ytdlp"]["path"].toString(), ytdlp);
    EXPECT_EQ(doc["ytdlp"]["version"].toString(), QStringLiteral("2099.01.01"));
    const ChildProcessResult text = tools({});
    ASSERT_TRUE(text.succeeded()) << text.stderrBytes.toStdString();
    EXPECT_EQ(
        QString::fromUtf8(text.stdoutBytes), "ffmpeg\t" + ffmpeg + "\t9.9-test\nyt-dlp\t" + ytdlp + "\t2099.01.01\n");

    // Not executable: an ffmpeg on the path still counts, without a version; a private
    // yt-dlp does not, and the package copy from the machine (bootstrap installs one)
    // stands in.
    writeTool(ffmpeg, ffmpegScript, false);
    writeTool(ytdlp, ytdlpScript, false);
    const QJsonObject notRunnable = json();
    EXPECT_EQ(notRunnable["ffmpeg"]["path"].toString(), ffmpeg);
    EXPECT_TRUE(notRunnable["ffmpeg"]["version"].isNull());
    QJsonValue expected = QJsonValue::Null;
    for (const QString candidate : {"/usr/local/bin/yt-dlp", "/usr/bin/yt-dlp"}) {
        if (QFileInfo::exists(candidate)) {
            expected = candidate;
            break;
        }
    }
    EXPECT_EQ(notRunnable["ytdlp"]["path"], expected);
    EXPECT_NE(notRunnable["ytdlp"]["version"].toString(), QStringLiteral("2099.01.01"));

    EXPECT_EQ(tools({"ffmpeg"}).exitCode, 2);
    EXPECT_EQ(tools({"--verbose"}).exitCode, 2);
}

} // namespace
