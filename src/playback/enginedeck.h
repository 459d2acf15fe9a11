#pragma once

#include "library/track.h"

#include <QString>

#include <functional>
#include <optional>

class AudioEngine;

// The player's handle on one of the engine's two decks: which track it holds, where in
// the file its current schedule began, and where it was told to stop. The sound itself
// is the engine's; this only keeps what the player needs to know about it.
//
// Owned by the player, used on its thread.
class EngineDeck {
public:
    EngineDeck(AudioEngine &engine, int index);

    [[nodiscard]] int index() const { return m_index; }

    std::optional<Track> track;
    double startOffset = 0; // seconds: file position at which the current schedule began
    quint64 startHost = 0; // the output frame that schedule sounds from
    std::optional<double> stopAt; // file position the deck was told to end at
    // The loudness normalisation's linear gain for a track, asked on every load (unity
    // when unset). Runs on the owner thread, before the engine opens the file.
    std::function<float(const Track &)> loudnessGain;

    // Loads `track` positioned at `fromSec`, neutral; false with `error` set when the
    // track has no file or the engine cannot open it.
    [[nodiscard]] bool load(const Track &t, double fromSec, QString *error);
    // Sounds from output frame `atHostFrame` (at once when it has passed).
    void play(quint64 atHostFrame);
    void setStopAt(std::optional<double> sec);
    void unload();

    // Fader 1, the bass-swap band flat and bypassed, rate 1.
    void neutralize();
    // File position of the next frame the deck outputs, seconds; absent when it is not
    // sounding (not loaded, ended, or scheduled for a frame still to come).
    [[nodiscard]] std::optional<double> position() const;
    // Where the deck ends: its stop point, else the end of the file.
    [[nodiscard]] double endSec() const;

private:
    AudioEngine &m_engine;
    int m_index;
};
