#include "library/transitionsettings.h"

#include "platform/preferences.h"

#include <QThread>

namespace {

const QString kModeKey = QStringLiteral("ov.transition.mode");
const QString kCrossfadeKey = QStringLiteral("ov.transition.crossfadeSeconds");
const QString kAutomixKey = QStringLiteral("ov.transition.automixSeconds");

} // namespace

TransitionSettings::TransitionSettings(QObject *parent)
    : QObject(parent), m_mode(readMode()), m_crossfadeSeconds(readCrossfadeSeconds()),
      m_automixSeconds(readAutomixSeconds())
{
}

TransitionMode TransitionSettings::readMode()
{
    const std::optional<QString> raw = Preferences::string(kModeKey);
    return raw ? TransitionModes::fromRawValue(*raw).value_or(TransitionMode::off) : TransitionMode::off;
}

qint64 TransitionSettings::readCrossfadeSeconds()
{
    // A missing or unreadable key counts as 0, which is out of range like any other bad
    // number.
    const qint64 stored = Preferences::integer(kCrossfadeKey).value_or(0);
    if (stored < kMinCrossfadeSeconds || stored > kMaxCrossfadeSeconds)
        return kDefaultCrossfadeSeconds;
    return stored;
}

qint64 TransitionSettings::readAutomixSeconds()
{
    const qint64 stored = Preferences::integer(kAutomixKey).value_or(0);
    if (stored < kMinAutomixSeconds || stored > kMaxAutomixSeconds)
        return kDefaultAutomixSeconds;
    return stored;
}

void TransitionSettings::setMode(TransitionMode mode)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (mode != m_mode) {
        m_mode = mode;
        Q_EMIT modeChanged(mode);
    }
    Preferences::setValue(kModeKey, TransitionModes::rawValue(mode));
}

void TransitionSettings::setCrossfadeSeconds(qint64 seconds)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (seconds != m_crossfadeSeconds) {
        m_crossfadeSeconds = seconds;
        Q_EMIT crossfadeSecondsChanged(seconds);
    }
    Preferences::setValue(kCrossfadeKey, seconds);
}

void TransitionSettings::setAutomixSeconds(qint64 seconds)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (seconds != m_automixSeconds) {
        m_automixSeconds = seconds;
        Q_EMIT automixSecondsChanged(seconds);
    }
    Preferences::setValue(kAutomixKey, seconds);
}
