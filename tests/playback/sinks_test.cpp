#include "playback/audioengine.h"

#include <gtest/gtest.h>

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
