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

TEST(ToolsCliTest, ReportsWhereTheToolsAreAndTheirVersions)
{
    TestHome home;
    const QString ffmpeg = home.file(".local/bin/ffmpeg");
    const QString ytdlp = home.file("data/Orvida Studio/bin/yt-dlp");
    writeTool(ffmpeg,
        "[ \"$1\" = -version ] || exit 1\necho 'ffmpeg version 9.9-test Copyright (c) the authors'\necho 'built with "
        "sh'\n",
        true);
    writeTool(ytdlp, "[ \"$1\" = --version ] && echo 2099.01.01\n", true);

    const ChildProcessResult json = tools({"--json"});
    ASSERT_TRUE(json.succeeded()) << json.stderrBytes.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(json.stdoutBytes).object();
    EXPECT_EQ(doc["ffmpeg"]["path"].toString(), ffmpeg);
    EXPECT_EQ(doc["ffmpeg"]["version"].toString(), QStringLiteral("9.9-test"));
    EXPECT_EQ(doc["ytdlp"]["path"].toString(), ytdlp);
    EXPECT_EQ(doc["ytdlp"]["version"].toString(), QStringLiteral("2099.01.01"));

    const ChildProcessResult text = tools({});
    ASSERT_TRUE(text.succeeded()) << text.stderrBytes.toStdString();
    EXPECT_EQ(
        QString::fromUtf8(text.stdoutBytes), "ffmpeg\t" + ffmpeg + "\t9.9-test\nyt-dlp\t" + ytdlp + "\t2099.01.01\n");
}

TEST(ToolsCliTest, AnFfmpegThatOnlyExistsHasNoVersionAndAPrivateYtDlpMustBeExecutable)
{
    TestHome home;
    const QString ffmpeg = home.file(".local/bin/ffmpeg");
    writeTool(ffmpeg, "echo 'ffmpeg version 9.9'\n", false);
    writeTool(home.file("data/Orvida Studio/bin/yt-dlp"), "echo 2099.01.01\n", false);

    const ChildProcessResult json = tools({"--json"});
    ASSERT_TRUE(json.succeeded()) << json.stderrBytes.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(json.stdoutBytes).object();
    EXPECT_EQ(doc["ffmpeg"]["path"].toString(), ffmpeg);
    EXPECT_TRUE(doc["ffmpeg"]["version"].isNull());

    // The package copy from the machine (bootstrap installs yt-dlp) stands in.
    QJsonValue expected = QJsonValue::Null;
    for (const QString candidate : {"/usr/local/bin/yt-dlp", "/usr/bin/yt-dlp"}) {
        if (QFileInfo::exists(candidate)) {
            expected = candidate;
            break;
        }
    }
    EXPECT_EQ(doc["ytdlp"]["path"], expected);
    EXPECT_NE(doc["ytdlp"]["version"].toString(), QStringLiteral("2099.01.01"));

    EXPECT_EQ(tools({"ffmpeg"}).exitCode, 2);
    EXPECT_EQ(tools({"--verbose"}).exitCode, 2);
}

} // namespace
