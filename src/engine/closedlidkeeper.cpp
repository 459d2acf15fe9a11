#include "engine/closedlidkeeper.h"

#include "platform/preferences.h"

#include <QThread>

#include <algorithm>

namespace {

// QTimer takes an int of milliseconds; a plan weeks away is looked at again daily.
constexpr qint64 kMaxTimerMs = qint64(24) * 3600 * 1000;

} // namespace

ClosedLidKeeper::ClosedLidKeeper(DBusLink &systemBus, QObject *parent, Clock now)
    : QObject(parent)
    , m_lid(systemBus, QStringLiteral("handle-lid-switch"), LogindInhibitor::Mode::Block)
    , m_now(std::move(now))
{
    m_lookAhead.setSingleShot(true);
    connect(&m_lookAhead, &QTimer::timeout, this, &ClosedLidKeeper::refresh);
}

bool ClosedLidKeeper::isEnabled()
{
    return Preferences::value(QString(kPreferenceKey)).toBool();
}

void ClosedLidKeeper::setEnabled(bool enabled)
{
    Preferences::setValue(QString(kPreferenceKey), enabled);
    refresh();
}

void ClosedLidKeeper::reconcileAtLaunch()
{
    if (isEnabled())
        qInfo("Closed-lid recording is on: the lid switch is left alone while recordings run or start within the hour");
    refresh();
}

void ClosedLidKeeper::scheduleAdded()
{
    refresh();
}

void ClosedLidKeeper::refresh()
{
    Q_ASSERT(QThread::currentThread() == thread());
    m_lookAhead.stop();
    const QDateTime now = m_now();
    const bool enabled = isEnabled();
    const bool planSoon =
        m_nextPlannedStart && now.msecsTo(*m_nextPlannedStart) <= kLookAheadSec * 1000; // also one already due
    const bool keep = enabled && (m_recording || planSoon);
    if (keep != m_lid.isWanted()) {
        if (keep)
            m_lid.acquire(QString(kReason));
        else
            m_lid.release();
        Q_EMIT keepingChanged(keep);
    }
    if (enabled && !planSoon && m_nextPlannedStart)
        armLookAhead(now);
}

void ClosedLidKeeper::armLookAhead(const QDateTime &now)
{
    const qint64 untilWindowMs = now.msecsTo(*m_nextPlannedStart) - kLookAheadSec * 1000;
    m_lookAhead.start(int(std::clamp<qint64>(untilWindowMs, 1, kMaxTimerMs)));
}
