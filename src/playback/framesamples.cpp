#include "playback/framesamples.h"

#include <cstdint>
#include <type_traits>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

namespace {

// Integer formats are scaled by their full-scale value only, so that 16-bit audio comes out
// exactly as x / 32768.
template <typename T> float toFloat(T v)
{
    if constexpr (std::is_same_v<T, uint8_t>)
        return float(int(v) - 128) * (1.0f / 128.0f);
    else if constexpr (std::is_same_v<T, int16_t>)
        return float(v) * (1.0f / 32768.0f);
    else if constexpr (std::is_same_v<T, int32_t>)
        return float(double(v) * (1.0 / 2147483648.0));
    else if constexpr (std::is_same_v<T, int64_t>)
        return float(double(v) * (1.0 / 9223372036854775808.0));
    else
        return float(v);
}

// A mono or stereo frame as interleaved stereo float, mono copied to both sides.
template <typename T> void interleave(const AVFrame *f, bool planar, float *out)
{
    const int n = f->nb_samples;
    const bool mono = f->ch_layout.nb_channels == 1;
    const auto *left = reinterpret_cast<const T *>(f->extended_data[0]);
    if (mono) {
        for (int i = 0; i < n; ++i)
            out[2 * i] = out[2 * i + 1] = toFloat(left[i]);
    } else if (planar) {
        const auto *right = reinterpret_cast<const T *>(f->extended_data[1]);
        for (int i = 0; i < n; ++i) {
            out[2 * i] = toFloat(left[i]);
            out[2 * i + 1] = toFloat(right[i]);
        }
    } else {
        for (int i = 0; i < 2 * n; ++i)
            out[i] = toFloat(left[i]);
    }
}

} // namespace

bool FrameSamples::toStereo(const AVFrame *f, float *out)
{
    const auto fmt = AVSampleFormat(f->format);
    const bool planar = av_sample_fmt_is_planar(fmt);
    switch (av_get_packed_sample_fmt(fmt)) {
    case AV_SAMPLE_FMT_U8:
        interleave<uint8_t>(f, planar, out);
        return true;
    case AV_SAMPLE_FMT_S16:
        interleave<int16_t>(f, planar, out);
        return true;
    case AV_SAMPLE_FMT_S32:
        interleave<int32_t>(f, planar, out);
        return true;
    case AV_SAMPLE_FMT_S64:
        interleave<int64_t>(f, planar, out);
        return true;
    case AV_SAMPLE_FMT_FLT:
        interleave<float>(f, planar, out);
        return true;
    case AV_SAMPLE_FMT_DBL:
        interleave<double>(f, planar, out);
        return true;
    default:
        return false;
    }
}
