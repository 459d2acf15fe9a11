#pragma once

#include "playback/audiosink.h"

#include <utility>

// The sound card: PortAudio's default output device, stereo 32-bit float, driven by
// PortAudio's callback thread.
class PortAudioSink final : public AudioSink {
public:
    PortAudioSink(int sampleRate, int blockFrames, RenderFunction render, void *context);
    ~PortAudioSink() override;

    [[nodiscard]] bool start(QString *error) override;
    void stop() override;

private:
    int m_rate;
    int m_blockFrames;
    RenderFunction m_render;
    void *m_context;
    std::pair<RenderFunction, void *> m_target; // what the device callback receives
    bool m_initialised = false; // Pa_Initialize() succeeded and awaits its Pa_Terminate()
    void *m_stream = nullptr; // PaStream
};
