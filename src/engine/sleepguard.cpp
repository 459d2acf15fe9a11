#include "engine/sleepguard.h"

#include "engine/recordingsession.h"

#include <QPointer>
#include <QThread>

#include <memory>

SleepGuard::SleepGuard(DBusLink &systemBus, DBusLink &sessionBus, Flush flush, QObject *parent)
    : QObject(parent)
    , m_block(systemBus, QStringLiteral("sleep"), LogindInhibitor::Mode::Block)
    , m_delay(systemBus, QStringLiteral("sleep"), LogindInhibitor::Mode::Delay)
    , m_session(sessionBus)
    , m_watch(systemBus)
    , m_flush(std::move(flush))
{
    connect(&m_watch, &LogindSleepWatch::prepareForSleep, this, &SleepGuard::prepareForSleep);
}

void SleepGuard::acquire(const QString &reason)
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_block.acquire(reason);
    m_session.acquire(reason);
}

void SleepGuard::release()
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_block.release();
    m_session.release();
}

void SleepGuard::setRecording(bool recording)
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_recording = recording;
    updateDelayLock();
}

void SleepGuard::updateDelayLock()
{
    // While a suspend is being prepared the flush decides when the lock goes, and a
    // recording that starts now gets its lock after the wake-up.
    if (m_preparingForSleep)
        return;
    if (m_recording)
        m_delay.acquire(QString(kFlushReason));
    else
        m_delay.release();
}

void SleepGuard::prepareForSleep(bool start)
{
    if (!start) {
        m_preparingForSleep = false;
        updateDelayLock();
        return;
    }
    if (m_preparingForSleep)
        return; // announced twice: the flush under way covers both
    m_preparingForSleep = true;
    const quint64 serial = ++m_sleepSerial;
    auto flushed = [self = QPointer<SleepGuard>(this), serial] {
        if (!self || !self->m_preparingForSleep || self->m_sleepSerial != serial)
            return; // woken up before the flush came back; the lock is the new period's
        self->m_delay.release();
        Q_EMIT self->readyForSleep();
    };
    // Flushed even when logind refused the lock: the disk should have the audio in any case.
    if (m_recording && m_flush)
        m_flush(std::move(flushed));
    else
        flushed();
}

void SleepGuard::flushSessions(const QList<RecordingSession *> &sessions, std::function<void()> done)
{
    if (sessions.isEmpty()) {
        done();
        return;
    }
    auto remaining = std::make_shared<qsizetype>(sessions.size());
    auto shared = std::make_shared<std::function<void()>>(std::move(done));
    for (RecordingSession *session : sessions) {
        session->flushToDisk([remaining, shared] {
            if (--*remaining == 0)
                (*shared)();
        });
    }
}
