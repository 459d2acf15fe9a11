#pragma once

#include "engine/scheduledrecording.h"

#include <QLocale>
#include <QString>
#include <QTimeZone>

// How plans read in the window: the window of a plan as one line, its mode and its repeat
// rule in the interface language. Pure; the zone and locale are the user's unless given.
namespace ScheduleFormat {

// The locale dates are written in: German with German texts, else the system's own when
// it is an English one, else US English.
[[nodiscard]] QLocale displayLocale();

// "Mon, Jun 2, 2025, 20:00–21:00" for a window within one day; a window that ends the
// day after reads "…, 23:00–01:00 (next day)"; a longer one names both ends in full.
[[nodiscard]] QString rangeLabel(const ScheduledRecording &plan, const QLocale &locale = displayLocale(),
    const QTimeZone &zone = QTimeZone::systemTimeZone());

[[nodiscard]] QString modeLabel(ScheduledRecording::Mode mode);
// An absent rule reads as "Once", like "none".
[[nodiscard]] QString repeatLabel(std::optional<ScheduledRecording::RepeatRule> rule);

} // namespace ScheduleFormat
