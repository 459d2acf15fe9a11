#include "library/librarystore.h"

#include "clirunner.h"
#include "testenv.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

class LibraryCliTest : public ::testing::Test {
protected:
    std::unique_ptr<LibraryStore> openStore()
    {
        LibraryOpenResult opened = LibraryStore::open(LibraryStore::defaultPath());
        EXPECT_TRUE(opened) << opened.message.toStdString();
        return std::move(opened.store);
    }

    TestHome home;
};

TEST_F(LibraryCliTest, JsonListsEveryTrackWhileTheLibraryIsOpenElsewhere)
{
    // The window keeps the library open while orvida-cli reads it.
    const std::unique_ptr<LibraryStore> store = openStore();
    ASSERT_TRUE(store);
    const QDateTime added = QDateTime::fromMSecsSinceEpoch(1700000000250, Qt::UTC);
    const std::optional<qint64> radioId = store->insert(Track(
        QStringLiteral("Über den Wolken"), QStringLiteral("Reinhard Mey"), QStringLiteral("Live"), 245.5, added,
        QStringLiteral("Schlager"), true, 4, QStringLiteral("radio"), QStringLiteral("Bayern 1"),
        QStringLiteral("/home/u/Musik/Orvida/Radio/Bayern 1/Reinhard Mey - Über den Wolken.mp3")));
    const std::optional<qint64> captureId =
        store->insert(Track(QStringLiteral("Aufnahme"), QString(), QString(), 12, added, QString(), false, 0,
                            QStringLiteral("recorder"), std::nullopt, std::nullopt));
    ASSERT_TRUE(radioId && captureId);

    const CliRun run = runCli({QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--json")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(run.out, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    ASSERT_TRUE(doc.isArray());
    const QJsonArray array = doc.array();
    ASSERT_EQ(array.size(), 2);

    // Every field under its name, and no other; missing station and file are null.
    QJsonObject radio = array[0].toObject();
    EXPECT_EQ(QDateTime::fromString(radio.take("dateAdded").toString(), Qt::ISODateWithMs), added);
    EXPECT_EQ(radio, (QJsonObject{{"id", *radioId}, {"title", "Über den Wolken"}, {"artist", "Reinhard Mey"},
                                  {"album", "Live"}, {"duration", 245.5}, {"source", "radio"}, {"station", "Bayern 1"},
                                  {"filePath", "/home/u/Musik/Orvida/Radio/Bayern 1/Reinhard Mey - Über den Wolken.mp3"},
                                  {"genre", "Schlager"}, {"playCount", 4}, {"isFavorite", true}}))
        << QJsonDocument(radio).toJson().toStdString();
    const QJsonObject capture = array[1].toObject();
    EXPECT_EQ(capture.value("source").toString(), "recorder");
    EXPECT_TRUE(capture.value("station").isNull());
    EXPECT_TRUE(capture.value("filePath").isNull());
    EXPECT_FALSE(capture.value("isFavorite").toBool());
}

TEST_F(LibraryCliTest, PlainOutputIsOneTabSeparatedLinePerTrack)
{
    {
        const std::unique_ptr<LibraryStore> store = openStore();
        ASSERT_TRUE(store);
        ASSERT_TRUE(store->insert(Track(QStringLiteral("Tab\there"), QStringLiteral("Two\nLines"), QStringLiteral("A"),
                                        3725.9, QDateTime::currentDateTimeUtc(), QString(), false, 0,
                                        QStringLiteral("radio"), QStringLiteral("FM4"), QStringLiteral("/m/x.mp3"))));
        ASSERT_TRUE(store->insert(Track(QStringLiteral("Kurz"), QStringLiteral("B"), QString(), 0.9,
                                        QDateTime::currentDateTimeUtc(), QString(), false, 0,
                                        QStringLiteral("podcast"), std::nullopt, std::nullopt)));
    }
    const CliRun run = runCli({QStringLiteral("library"), QStringLiteral("list")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QList<QByteArray> lines = run.out.split('\n');
    ASSERT_EQ(lines.size(), 3) << run.out.toStdString(); // two lines and the final newline
    EXPECT_EQ(lines[0], "Tab here\tTwo Lines\tA\t62:05\tradio\tFM4\t/m/x.mp3");
    EXPECT_EQ(lines[1], "Kurz\tB\t\t0:00\tpodcast\t\t");
    EXPECT_TRUE(lines[2].isEmpty());
}

TEST_F(LibraryCliTest, NoLibraryYetListsNothingAndCreatesNothing)
{
    const CliRun json = runCli({QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--json")});
    ASSERT_EQ(json.exitCode, 0) << json.err.toStdString();
    EXPECT_TRUE(QJsonDocument::fromJson(json.out).isArray());
    EXPECT_TRUE(QJsonDocument::fromJson(json.out).array().isEmpty());
    const CliRun plain = runCli({QStringLiteral("library"), QStringLiteral("list")});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_TRUE(plain.out.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(LibraryStore::defaultPath()));
}

TEST_F(LibraryCliTest, UnreadableLibraryFailsWithOneLineAndIsKept)
{
    const QByteArray garbage(4096, 'x');
    writeFile(LibraryStore::defaultPath(), garbage);
    const CliRun run = runCli({QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--json")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(LibraryStore::defaultPath().toUtf8())) << run.err.toStdString();
    EXPECT_EQ(readFile(LibraryStore::defaultPath()), garbage);
}

TEST_F(LibraryCliTest, MisuseIsAUsageError)
{
    const QList<QStringList> misuses{{QStringLiteral("library")},
                                     {QStringLiteral("library"), QStringLiteral("show")},
                                     {QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("extra")},
                                     {QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--station"),
                                      QStringLiteral("x")}};
    for (const QStringList &args : misuses) {
        const CliRun run = runCli(args);
        EXPECT_EQ(run.exitCode, 2) << args.join(u' ').toStdString();
        EXPECT_TRUE(run.err.contains("usage: library list [--json]")) << run.err.toStdString();
        EXPECT_TRUE(run.out.isEmpty());
    }
}

} // namespace
