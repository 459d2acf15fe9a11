#pragma once

struct AVFrame;

// Samples of a decoded FFmpeg frame in the engine's form: interleaved stereo float. Shared
// by the file and the stream decoders, so a station sounds as loud as its recording.
namespace FrameSamples {

// Writes a mono or stereo frame's nb_samples frames to `out` (2 * nb_samples floats),
// mono copied to both sides; integer formats are scaled by their full-scale value only,
// so 16-bit audio comes out exactly as x / 32768. False for a sample format we do not know.
[[nodiscard]] bool toStereo(const AVFrame *frame, float *out);

} // namespace FrameSamples
