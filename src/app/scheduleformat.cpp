#include "app/scheduleformat.h"

#include "app/texts.h"

namespace ScheduleFormat {

namespace {

    QString dayAndDate(const QDate &date, const QLocale &locale)
    {
        return locale.dayName(date.dayOfWeek(), QLocale::ShortFormat) + QStringLiteral(", ")
            + Schedule::mediumDate(date, locale);
    }

    QString clock(const QDateTime &time)
    {
        return time.toString(QStringLiteral("HH:mm"));
    }

} // namespace

QLocale displayLocale()
{
    if (Texts::language() == Texts::Language::German)
        return QLocale(QLocale::German, QLocale::Germany);
    const QLocale system = QLocale::system();
    return system.language() == QLocale::English ? system : QLocale(QLocale::English, QLocale::UnitedStates);
}

QString rangeLabel(const ScheduledRecording &plan, const QLocale &locale, const QTimeZone &zone)
{
    const QDateTime from = plan.start.toTimeZone(zone);
    const QDateTime to = plan.end.toTimeZone(zone);
    const QString first = dayAndDate(from.date(), locale) + QStringLiteral(", ") + clock(from);
    const qint64 days = from.date().daysTo(to.date());
    if (days == 0)
        return first + QChar(0x2013) + clock(to);
    if (days == 1)
        return first + QChar(0x2013) + clock(to) + QStringLiteral(" (") + tx("schedule.nextDay") + QLatin1Char(')');
    return first + QStringLiteral(" \u2013 ") + dayAndDate(to.date(), locale) + QStringLiteral(", ") + clock(to);
}

QString modeLabel(ScheduledRecording::Mode mode)
{
    return mode == ScheduledRecording::Mode::FullShow ? tx("schedule.modeFull") : tx("schedule.modeSplit");
}

QString repeatLabel(std::optional<ScheduledRecording::RepeatRule> rule)
{
    switch (rule.value_or(ScheduledRecording::RepeatRule::None)) {
    case ScheduledRecording::RepeatRule::Daily:
        return tx("schedule.repeatDaily");
    case ScheduledRecording::RepeatRule::Weekly:
        return tx("schedule.repeatWeekly");
    case ScheduledRecording::RepeatRule::None:
        break;
    }
    return tx("schedule.repeatNone");
}

} // namespace ScheduleFormat
