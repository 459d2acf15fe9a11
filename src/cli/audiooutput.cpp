#include "cli/audiooutput.h"

#include "cli/cli.h"

std::unique_ptr<AudioEngine> startAudioOutput(AudioEngine::Options options, QString *error)
{
    auto engine = std::make_unique<AudioEngine>(options);
    if (options.output == AudioEngine::Output::offline || engine->start(error))
        return engine;
    if (options.output != AudioEngine::Output::device)
        return nullptr;
    Cli::note(QStringLiteral("no audio device (%1): playing into the null output").arg(*error));
    options.output = AudioEngine::Output::null;
    engine = std::make_unique<AudioEngine>(options);
    if (!engine->start(error)) {
        *error = QStringLiteral("the audio output cannot start: %1").arg(*error);
        return nullptr;
    }
    return engine;
}
