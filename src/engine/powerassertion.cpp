#include "engine/powerassertion.h"

void NullPowerAssertion::acquire(const QString &reason)
{
    m_reason = reason;
    ++m_acquisitions;
}

void NullPowerAssertion::release()
{
    m_reason.reset();
}
