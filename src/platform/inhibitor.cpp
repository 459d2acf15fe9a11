#include "platform/inhibitor.h"

#include <QThread>

Inhibitor::Inhibitor(QObject *parent)
    : QObject(parent)
{
}

void Inhibitor::acquire(const QString &why)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (!m_wantedWhy)
        m_wantedWhy = why;
    if (!m_held && !m_requestedWhy)
        startRequest();
}

void Inhibitor::release()
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_wantedWhy.reset();
    if (!m_held)
        return; // a request on its way is given back when it is granted
    m_held = false;
    drop();
    Q_EMIT heldChanged(false);
}

void Inhibitor::startRequest()
{
    m_requestedWhy = m_wantedWhy;
    request(*m_requestedWhy);
}

void Inhibitor::settle(bool granted)
{
    Q_ASSERT(m_requestedWhy);
    const QString requestedWhy = *m_requestedWhy;
    m_requestedWhy.reset();
    if (!granted)
        return;
    if (m_wantedWhy != requestedWhy) {
        // Released while the request was on its way, or released and wanted again for
        // another reason: this lock is not the one wanted now.
        drop();
        if (m_wantedWhy)
            startRequest();
        return;
    }
    m_held = true;
    Q_EMIT heldChanged(true);
}
