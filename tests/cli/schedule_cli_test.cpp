#include "clirunner.h"
#include "testenv.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

QString scheduleFile()
{
    return qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Orvida/sniper_schedule.json");
}

// ISO 8601 with the local offset, as a user would type it after `date -Iseconds`.
QString isoWithOffset(const QDateTime &time)
{
    const QDateTime local = time.toLocalTime();
    return local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODate);
}

CliRun schedule(const QStringList &args)
{
    return runCli(QStringList { QStringLiteral("schedule") } + args);
}

QJsonArray listedJson()
{
    const CliRun run = schedule({ QStringLiteral("list"), QStringLiteral("--json") });
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    return QJsonDocument::fromJson(run.out).array();
}

class ScheduleCliTest : public ::testing::Test {
protected:
    TestHome home;
};

TEST_F(ScheduleCliTest, AddListAndRemoveWorkOnTheScheduleFile)
{
    const QDateTime base = QDateTime::currentDateTimeUtc().addDays(2);
    const QString start = isoWithOffset(base);
    const CliRun first = schedule({ "add", "http://127.0.0.1:9/late", "--name", "Late Show", "--start", start, "--end",
        isoWithOffset(base.addSecs(3600)), "--mode", "fullShow", "--repeat", "weekly" });
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    const QString firstId = QString::fromUtf8(first.out.trimmed());
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")).match(firstId).hasMatch())
        << first.out.toStdString();

    // Local time without an offset; this one starts earlier and is listed first.
    const QString localStart = base.addSecs(-7200).toLocalTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    const QString localEnd = base.addSecs(-3600).toLocalTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm"));
    const CliRun second
        = schedule({ "add", "http://127.0.0.1:9/early", "--name", "Früh", "--start", localStart, "--end", localEnd });
    ASSERT_EQ(second.exitCode, 0) << second.err.toStdString();
    const QString secondId = QString::fromUtf8(second.out.trimmed());

    // The JSON list is the file itself, whose format the engine's tests pin down; the
    // start is in seconds since 2001, to the second the user gave.
    const CliRun json = schedule({ "list", "--json" });
    ASSERT_EQ(json.exitCode, 0);
    EXPECT_EQ(json.out, readFile(scheduleFile()) + "\n");
    const QJsonArray plans = QJsonDocument::fromJson(json.out).array();
    EXPECT_EQ(plans.at(1)["start"].toDouble(), double(base.toSecsSinceEpoch() - 978307200));
    EXPECT_FALSE(plans.at(0).toObject().contains("repeatRule")) << "no --repeat: the key is left out";

    const CliRun plain = schedule({ "list" });
    ASSERT_EQ(plain.exitCode, 0);
    EXPECT_EQ(plain.out,
        (QStringList { secondId, "Früh", isoWithOffset(QDateTime::fromString(localStart, "yyyy-MM-ddTHH:mm")),
             isoWithOffset(QDateTime::fromString(localEnd, "yyyy-MM-ddTHH:mm")), "splitTracks", "none",
             "http://127.0.0.1:9/early" }.join('\t') + '\n'
            + QStringList { firstId, "Late Show", start, isoWithOffset(base.addSecs(3600)), "fullShow", "weekly",
                  "http://127.0.0.1:9/late" }.join('\t') + '\n')
            .toUtf8());

    // Ids are taken in either case.
    ASSERT_EQ(schedule({ "remove", firstId.toLower() }).exitCode, 0);
    const QJsonArray left = listedJson();
    ASSERT_EQ(left.size(), 1);
    EXPECT_EQ(left[0].toObject().value("id").toString(), secondId);

    const CliRun again = schedule({ "remove", firstId });
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.err.count('\n'), 1) << again.err.toStdString();
    EXPECT_TRUE(again.err.contains(firstId.toUtf8()));
}

TEST_F(ScheduleCliTest, WindowsInThePastAreRefusedOrMovedOn)
{
    const QDateTime yesterday = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch() - 86400, Qt::UTC);
    const QStringList window { "--start", isoWithOffset(yesterday), "--end", isoWithOffset(yesterday.addSecs(600)) };
    const CliRun once = schedule(QStringList { "add", "http://127.0.0.1:9/x", "--name", "Once" } + window);
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err.count('\n'), 1) << once.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(scheduleFile()));

    const CliRun daily
        = schedule(QStringList { "add", "http://127.0.0.1:9/x", "--name", "Daily", "--repeat", "daily" } + window);
    ASSERT_EQ(daily.exitCode, 0) << daily.err.toStdString();
    const QJsonObject plan = listedJson().at(0).toObject();
    const QDateTime end = QDateTime::fromSecsSinceEpoch(qint64(plan.value("end").toDouble()) + 978307200, Qt::UTC);
    EXPECT_GT(end, QDateTime::currentDateTimeUtc());
    EXPECT_EQ(end.toLocalTime().time(), yesterday.addSecs(600).toLocalTime().time());
}

TEST_F(ScheduleCliTest, MisuseIsAUsageError)
{
    const QString start = isoWithOffset(QDateTime::currentDateTimeUtc().addDays(1));
    const QString end = isoWithOffset(QDateTime::currentDateTimeUtc().addDays(1).addSecs(60));
    const QList<QStringList> misuses {
        {},
        { "plan" },
        { "add", "--name", "X", "--start", start, "--end", end },
        { "add", "http://127.0.0.1:9/x", "--start", start, "--end", end },
        { "add", "http://127.0.0.1:9/x", "--name", "X", "--start", "tomorrow", "--end", end },
        { "add", "http://127.0.0.1:9/x", "--name", "X", "--start", start.left(10), "--end", end },
        { "add", "http://127.0.0.1:9/x", "--name", "X", "--start", end, "--end", start },
        { "add", "http://127.0.0.1:9/x", "--name", "X", "--start", start, "--end", end, "--mode", "live" },
        { "add", "http://127.0.0.1:9/x", "--name", "X", "--start", start, "--end", end, "--repeat", "monthly" },
        { "list", "extra" },
        { "remove" },
    };
    for (const QStringList &args : misuses) {
        const CliRun run = schedule(args);
        EXPECT_EQ(run.exitCode, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(run.err.contains("usage:")) << args.join(' ').toStdString();
    }
    EXPECT_FALSE(QFileInfo::exists(scheduleFile()));
    EXPECT_EQ(runCli({ "run", "--tick", "0" }).exitCode, 2);
}

} // namespace
