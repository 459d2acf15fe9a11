#include "playback/nullsink.h"

#include <chrono>

NullSink::NullSink(int sampleRate, int blockFrames, RenderFunction render, void *context)
    : m_rate(sampleRate)
    , m_blockFrames(blockFrames)
    , m_render(render)
    , m_context(context)
    , m_buffer(size_t(2 * blockFrames))
{
}

NullSink::~NullSink()
{
    stop();
}

bool NullSink::start(QString *)
{
    if (!m_running.exchange(true))
        m_thread = std::thread([this] { run(); });
    return true;
}

void NullSink::stop()
{
    m_running = false;
    if (m_thread.joinable())
        m_thread.join();
}

void NullSink::run()
{
    using Clock = std::chrono::steady_clock;
    const auto blockTime
        = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(double(m_blockFrames) / m_rate));
    auto due = Clock::now();
    while (m_running.load(std::memory_order_relaxed)) {
        m_render(m_context, m_buffer.data(), m_blockFrames);
        due += blockTime;
        const auto now = Clock::now();
        // A machine that stalled for a long while resumes at the present instead of
        // rendering the missed time in a burst.
        if (now - due > std::chrono::seconds(1))
            due = now;
        std::this_thread::sleep_until(due);
    }
}
