#include "playback/portaudiosink.h"

#include <alsa/error.h>
#include <jack/jack.h>
#include <portaudio.h>

#include <mutex>

namespace {

void ignoreAlsa(const char *, int, const char *, int, const char *, ...) {}
void ignoreJack(const char *) {}

// PortAudio's probe of every host API makes ALSA and JACK print dozens of lines on stderr
// when there is no card or no JACK server, which is the normal state of the small boxes
// Orvida records on. Whether a device opened is what we report, in one line of our own.
void quietenAudioLibraries()
{
    static std::once_flag once;
    std::call_once(once, [] {
        snd_lib_error_set_handler(ignoreAlsa);
        jack_set_error_function(ignoreJack);
        jack_set_info_function(ignoreJack);
    });
}

int callback(const void *, void *output, unsigned long frames, const PaStreamCallbackTimeInfo *, PaStreamCallbackFlags,
    void *userData)
{
    auto *sink = static_cast<std::pair<AudioSink::RenderFunction, void *> *>(userData);
    sink->first(sink->second, static_cast<float *>(output), int(frames));
    return paContinue;
}

QString paError(const char *what, PaError code)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromUtf8(Pa_GetErrorText(code)));
}

} // namespace

PortAudioSink::PortAudioSink(int sampleRate, int blockFrames, RenderFunction render, void *context)
    : m_rate(sampleRate)
    , m_blockFrames(blockFrames)
    , m_render(render)
    , m_context(context)
{
}

PortAudioSink::~PortAudioSink()
{
    stop();
}

bool PortAudioSink::start(QString *error)
{
    const auto fail = [&](const QString &why) {
        if (error)
            *error = why;
        stop();
        return false;
    };
    if (m_stream)
        return true;
    quietenAudioLibraries();
    if (const PaError e = Pa_Initialize(); e != paNoError)
        return fail(paError("Audio output unavailable", e));
    m_initialised = true;
    PaStreamParameters out {};
    out.device = Pa_GetDefaultOutputDevice();
    if (out.device == paNoDevice)
        return fail(QStringLiteral("No audio output device"));
    const PaDeviceInfo *info = Pa_GetDeviceInfo(out.device);
    out.channelCount = 2;
    out.sampleFormat = paFloat32;
    out.suggestedLatency = info ? info->defaultLowOutputLatency : 0.05;
    m_target = { m_render, m_context };
    PaStream *stream = nullptr;
    // PortAudio clips what lies beyond full scale (two decks at full level in a fade can
    // add up to more): converted unclipped to the device's integers it would wrap around.
    if (const PaError e
        = Pa_OpenStream(&stream, nullptr, &out, m_rate, unsigned(m_blockFrames), paNoFlag, callback, &m_target);
        e != paNoError)
        return fail(paError("Cannot open the audio output", e));
    m_stream = stream;
    if (const PaError e = Pa_StartStream(stream); e != paNoError)
        return fail(paError("Cannot start the audio output", e));
    return true;
}

void PortAudioSink::stop()
{
    if (m_stream) {
        auto *stream = static_cast<PaStream *>(m_stream);
        Pa_StopStream(stream);
        Pa_CloseStream(stream);
        m_stream = nullptr;
    }
    if (m_initialised) {
        Pa_Terminate();
        m_initialised = false;
    }
}
