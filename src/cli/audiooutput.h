#pragma once

#include "playback/audioengine.h"

#include <QString>

#include <memory>

// The output play and listen sound on: the asked one, or (for the default device) the
// null output with a note when the machine has no device, since a box without a sound
// card still plays, records and saves. Absent with `error` set when nothing starts.
[[nodiscard]] std::unique_ptr<AudioEngine> startAudioOutput(AudioEngine::Options options, QString *error);
