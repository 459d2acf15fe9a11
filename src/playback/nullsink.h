#pragma once

#include "playback/audiosink.h"

#include <atomic>
#include <thread>
#include <vector>

// No device: a thread of its own calls render() block by block at the pace a sound card
// would (one block per blockFrames / sampleRate seconds) and drops the frames. Machines
// without audio play through it, so positions and transitions advance in real time.
class NullSink final : public AudioSink {
public:
    NullSink(int sampleRate, int blockFrames, RenderFunction render, void *context);
    ~NullSink() override;

    [[nodiscard]] bool start(QString *error) override;
    void stop() override;

private:
    void run();

    int m_rate;
    int m_blockFrames;
    RenderFunction m_render;
    void *m_context;
    std::vector<float> m_buffer; // the pacing thread's, allocated before it starts
    std::atomic<bool> m_running { false };
    std::thread m_thread;
};
