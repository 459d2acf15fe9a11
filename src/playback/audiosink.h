#pragma once

#include <QString>

// Where the engine's mixed frames go when they are rendered in real time. A sink owns the
// thread that calls `render` (the device's callback thread, or a pacing thread) and calls
// it with interleaved stereo float frames to fill; `render` must be real-time safe.
//
// start() and stop() are called from the owner thread; after stop() returns, `render` is
// not called any more.
class AudioSink {
public:
    using RenderFunction = void (*)(void *context, float *stereo, int frames);

    virtual ~AudioSink() = default;
    // False with `error` set when the output cannot run.
    [[nodiscard]] virtual bool start(QString *error) = 0;
    virtual void stop() = 0;

protected:
    AudioSink() = default;
};
