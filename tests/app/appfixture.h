#pragma once

#include "app/application.h"
#include "app/texts.h"
#include "engine/recordingcontext.h"
#include "engine/recordingsession.h"
#include "library/librarystore.h"
#include "stations/favoritestations.h"
#include "stations/recentstations.h"
#include "stations/stationdirectory.h"

#include "fixtureserver.h"
#include "testenv.h"

#include <QDir>
#include <QPushButton>
#include <QTest>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <memory>

// The window's real services against a loopback directory, a library file and
// preferences in a fresh temporary home. English texts, whatever the machine's locale.
class AppFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        Texts::setLanguage(Texts::Language::English);
        app = std::make_unique<Application>(testOptions(home, server));
        app->directory().setDebounceInterval(std::chrono::milliseconds(0));
    }

public:
    // Services reached on loopback and in `home`; English texts.
    static ApplicationOptions testOptions(const TestHome &home, const FixtureServer &server)
    {
        ApplicationOptions options;
        options.directoryBase = QString::fromLatin1(server.url("/")).chopped(1);
        options.storeBase = QString::fromLatin1(server.url("/store"));
        options.libraryPath = home.file(QStringLiteral("data/Orvida/library.sqlite"));
        options.recoverSegments = false;
        options.checkForToolUpdate = false;
        // A developer's own desktop has buses: no test takes its locks or shows notifications.
        options.systemBusAddress = std::nullopt;
        options.sessionBusAddress = std::nullopt;
        // Nothing sounds and nothing runs by itself: a test advances the player by rendering.
        options.audioOutput = AudioEngine::Output::offline;
        return options;
    }

protected:

    void TearDown() override
    {
        app->shutDown();
    }

    // From here on no state file can be written: a file stands where the data folder was.
    void blockDataFolder() const
    {
        ASSERT_TRUE(QDir().rename(home.file(QStringLiteral("data/Orvida")), home.file(QStringLiteral("data/moved"))));
        writeFile(home.file(QStringLiteral("data/Orvida")), "not a folder");
    }

    TestHome home;
    FixtureServer server;
    std::unique_ptr<Application> app;
};

inline Station makeStation(const QString &id, const QString &name, const QString &country = QStringLiteral("Germany"))
{
    Station station;
    station.id = id;
    station.name = name;
    station.streamUrl = QStringLiteral("http://127.0.0.1:9/") + id;
    station.country = country;
    station.bitrate = 128;
    station.codec = QStringLiteral("MP3");
    return station;
}
