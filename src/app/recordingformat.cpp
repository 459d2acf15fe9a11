#include "app/recordingformat.h"

#include "app/scheduleformat.h"
#include "app/texts.h"

#include <algorithm>

namespace RecordingFormat {

QString statusText(const SessionStatus &status, const QString &error)
{
    using State = SessionStatus::State;
    // The reason is the engine's own explanation of the last failed attempt.
    const auto withReason = [&](QString text) {
        return status.reason.isEmpty() ? text : text + QStringLiteral(": ") + Texts::engineMessage(status.reason);
    };
    switch (status.state) {
    case State::Connecting:
        if (status.attempt == 0)
            return tx("rec.connecting");
        return withReason(Texts::text("rec.connectingAttempt").arg(status.attempt).arg(status.maxAttempts));
    case State::Recording:
        return QStringLiteral("● ") + tx("rec.running");
    case State::Reconnecting:
        return withReason(
            Texts::text("rec.reconnecting").arg(status.reconnectInSec()).arg(status.attempt).arg(status.maxAttempts));
    case State::GaveUp: {
        const QString why = error.isEmpty() ? status.reason : error;
        QString text = Texts::text("rec.gaveUp").arg(Texts::engineMessage(why));
        if (!status.reason.isEmpty() && status.reason != why)
            text += QStringLiteral(" (") + Texts::engineMessage(status.reason) + QLatin1Char(')');
        return text;
    }
    case State::Stopped:
        return tx("rec.stopped");
    }
    return {};
}

QString elapsedText(qint64 ms)
{
    const qint64 total = std::max<qint64>(0, ms) / 1000;
    const qint64 hours = total / 3600;
    const auto two = [](qint64 n) { return QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0')); };
    if (hours > 0)
        return QStringLiteral("%1:%2:%3").arg(hours).arg(two(total / 60 % 60), two(total % 60));
    return QStringLiteral("%1:%2").arg(total / 60).arg(two(total % 60));
}

QString bytesText(qint64 bytes)
{
    return ScheduleFormat::displayLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

} // namespace RecordingFormat
