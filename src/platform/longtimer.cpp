#include "platform/longtimer.h"

namespace {

// Short enough that a suspended machine notices a passed deadline soon after waking.
constexpr qint64 kMaxStepMs = 3600 * 1000;

} // namespace

LongTimer::LongTimer(QObject *parent) : QObject(parent)
{
    m_step.setSingleShot(true);
    m_step.setTimerType(Qt::PreciseTimer);
    m_step.callOnTimeout(this, &LongTimer::step);
}

void LongTimer::start(std::chrono::milliseconds wait)
{
    m_deadline = QDeadlineTimer(std::max<qint64>(0, wait.count()));
    arm();
}

void LongTimer::stop()
{
    m_step.stop();
}

qint64 LongTimer::remainingMs() const
{
    return isActive() ? m_deadline.remainingTime() : -1;
}

void LongTimer::arm()
{
    // remainingTime() is -1 for a deadline too far away to represent: wait in steps.
    const qint64 left = m_deadline.remainingTime();
    m_step.start(int(left < 0 ? kMaxStepMs : std::min(left, kMaxStepMs)));
}

void LongTimer::step()
{
    if (m_deadline.remainingTime() == 0)
        Q_EMIT timeout();
    else
        arm();
}
