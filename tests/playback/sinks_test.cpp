#include "playback/audioengine.h"

#include "testenv.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

TEST(AudioSinks, NullOutputRendersAtThePaceOfASoundCard)
{
    AudioEngine engine({ AudioEngine::Output::null, 44100, 512 });
    QString error;
    ASSERT_TRUE(engine.start(&error)) << error.toStdString();
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(waitUntil([&] { return engine.hostFrame() >= 22050; }, 5000));
    // Half a second of audio cannot have taken much less than half a second.
    EXPECT_GE(clock.elapsed(), 400);
    engine.setPaused(true);
    const quint64 pausedAt = engine.hostFrame();
    const quint64 later = pausedAt + 4410;
    EXPECT_FALSE(waitUntil([&] { return engine.hostFrame() >= later; }, 300));
    engine.stop();
}

TEST(AudioSinks, DeviceOutputWithoutASoundCardFailsWithAReason)
{
    AudioEngine engine({ AudioEngine::Output::device, 44100, 512 });
    QString error;
    if (engine.start(&error)) {
        engine.stop();
        GTEST_SKIP() << "this machine has an audio device";
    }
    EXPECT_FALSE(error.isEmpty());
}
