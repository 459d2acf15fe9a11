#include "playback/enginedeck.h"

#include "playback/audioengine.h"

EngineDeck::EngineDeck(AudioEngine &engine, int index)
    : m_engine(engine)
    , m_index(index)
{
}

bool EngineDeck::load(const Track &t, double fromSec, QString *error)
{
    track.reset();
    stopAt.reset();
    if (!t.filePath || t.filePath->isEmpty()) {
        m_engine.unload(m_index);
        if (error)
            *error = QStringLiteral("no file");
        return false;
    }
    // Before the load, so that the track's first frame already has it.
    m_engine.setTrackGain(m_index, loudnessGain ? loudnessGain(t) : 1.0f);
    if (!m_engine.load(m_index, *t.filePath, fromSec, error)) {
        m_engine.unload(m_index);
        return false;
    }
    neutralize();
    track = t;
    startOffset = fromSec;
    return true;
}

void EngineDeck::play(quint64 atHostFrame)
{
    startHost = std::max(atHostFrame, m_engine.hostFrame());
    m_engine.play(m_index, atHostFrame);
}

void EngineDeck::setStopAt(std::optional<double> sec)
{
    stopAt = sec;
    m_engine.setStopAt(m_index, sec);
}

void EngineDeck::unload()
{
    m_engine.unload(m_index);
    track.reset();
    stopAt.reset();
    startOffset = 0;
}

void EngineDeck::neutralize()
{
    m_engine.setVolume(m_index, 1);
    m_engine.setBandGain(m_index, AudioEngine::kBassSwapBand, 0);
    m_engine.setBandBypass(m_index, AudioEngine::kBassSwapBand, true);
    m_engine.setRate(m_index, 1);
}

std::optional<double> EngineDeck::position() const
{
    return m_engine.position(m_index);
}

double EngineDeck::endSec() const
{
    const double duration = m_engine.duration(m_index);
    return stopAt ? std::min(*stopAt, duration) : duration;
}
