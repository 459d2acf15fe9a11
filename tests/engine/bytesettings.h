#pragma once

#include "engine/enginesettingsstore.h"

#include <gtest/gtest.h>

// Engine settings for tests that compare saved audio with what the server sent: songs
// are kept as the stream's own bytes, whatever their length.
inline void useByteExactSaves()
{
    RadioEngineSettings settings;
    settings.lossless = true;
    settings.minDurationSec = 0;
    EXPECT_TRUE(EngineSettingsStore().setGlobal(settings).ok);
}
