#pragma once

#include "engine/enginesettingsstore.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "library/librarystore.h"
#include "platform/httpclient.h"

#include "fixtureserver.h"
#include "bytesettings.h"
#include "testenv.h"

#include <gtest/gtest.h>

#include <memory>

// A recorder against the fixture server, filing into a real library in the test's home:
// songs are saved as the stream's own bytes whatever their length, reconnects come at
// once, and no status document is polled.
class RecorderFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        useByteExactSaves();
        context.timings.reconnectDelaySec = [](qint64) { return 0.01; };
        context.timings.statusPolling = false;
        LibraryOpenResult opened = LibraryStore::open(home.file(QStringLiteral("library.sqlite")));
        ASSERT_TRUE(opened) << opened.message.toStdString();
        library = std::move(opened.store);
    }

    void TearDown() override
    {
        recorder.stop();
        recorder.waitForSaves();
    }

    TestHome home;
    FixtureServer server;
    HttpClient http;
    RecordingContext context { http, nullptr };
    RadioRecorder recorder { context };
    std::unique_ptr<LibraryStore> library;
};
