#pragma once

#include "stations/station.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QLocale>
#include <QString>
#include <QTimeZone>
#include <QUuid>

#include <optional>

// A planned recording: a station (its fields copied, so the plan records without asking
// the directory again) and a time window, cut into songs or kept as one show, once, daily
// or weekly.
//
// A plain value; identity is `id`, equality memberwise. Times are instants held in UTC
// with millisecond precision; every calendar question (the next day's window, the date in
// a show's title) is answered in the user's time zone (QTimeZone::systemTimeZone(), which
// follows TZ) when it is asked.
struct ScheduledRecording {
    enum class Mode { SplitTracks, FullShow };
    enum class RepeatRule { None, Daily, Weekly };

    QUuid id;
    QString stationId;
    QString stationName;
    QString streamUrl;
    QString country;
    qint64 bitrate = 0;
    QString codec;
    std::optional<QString> favicon;
    QDateTime start;
    QDateTime end;
    Mode mode = Mode::SplitTracks;
    std::optional<RepeatRule> repeatRule; // absent means the same as None

    // A new plan with a fresh id for `station` (its coordinates are not kept).
    [[nodiscard]] static ScheduledRecording make(const Station &station, const QDateTime &start, const QDateTime &end,
        Mode mode, std::optional<RepeatRule> repeatRule);

    // The station rebuilt from the copied fields by the directory's own builder; absent
    // when it rejects them (empty id, blank name, empty address).
    [[nodiscard]] std::optional<Station> station() const;
    // Names full-show recordings: "<station> <medium date> HH:mm–HH:mm" in local time.
    [[nodiscard]] QString showTitle(const QLocale &locale = QLocale()) const;

    [[nodiscard]] bool repeats() const { return repeatRule && *repeatRule != RepeatRule::None; }

    friend bool operator==(const ScheduledRecording &, const ScheduledRecording &) = default;
};

// The arithmetic and the file format of plans, free of any state.
namespace Schedule {

// "splitTracks" / "fullShow" and "none" / "daily" / "weekly", as the file spells them.
[[nodiscard]] QLatin1StringView modeName(ScheduledRecording::Mode mode);
[[nodiscard]] std::optional<ScheduledRecording::Mode> modeNamed(QStringView name);
[[nodiscard]] QLatin1StringView repeatRuleName(ScheduledRecording::RepeatRule rule);
[[nodiscard]] std::optional<ScheduledRecording::RepeatRule> repeatRuleNamed(QStringView name);

// The file counts seconds since 2001-01-01 00:00:00 UTC, fractional.
[[nodiscard]] double referenceSeconds(const QDateTime &time);
[[nodiscard]] QDateTime fromReferenceSeconds(double seconds); // invalid when not representable

// The file's content: a compact JSON array, each plan's keys in field order, the id as
// upper-case UUID text, "favicon" and "repeatRule" left out when absent.
[[nodiscard]] QByteArray encode(const QList<ScheduledRecording> &plans);
// Every key but "favicon" and "repeatRule" is required with its type; one bad element
// fails the whole document, as does anything that is not an array of objects.
[[nodiscard]] std::optional<QList<ScheduledRecording>> decode(const QByteArray &json);

// What a damaged file still holds: every element that decodes on its own, and how many
// did not. Absent when the document is not a JSON array at all.
struct SalvagedPlans {
    QList<ScheduledRecording> plans;
    qsizetype dropped = 0;
};
[[nodiscard]] std::optional<SalvagedPlans> salvage(const QByteArray &json);

// The window of a repeating plan that is next still to end after `after`: the plan itself
// while its end is later, else its start and end moved by whole days (one or seven) in
// local time, so 20:00 stays 20:00 across a daylight-saving change. Windows missed
// meanwhile are skipped. Absent for a plan that does not repeat or whose next dates
// cannot be represented. `zone` is the user's: asked for once, it spares the C library's
// look at /etc/localtime on every conversion.
[[nodiscard]] std::optional<ScheduledRecording> advanced(
    const ScheduledRecording &plan, const QDateTime &after, const QTimeZone &zone = QTimeZone::systemTimeZone());

// What loading keeps of `plans` at `now`: plans still to end as they are, the others
// moved on or dropped; sorted by start, equal starts in their given order.
[[nodiscard]] QList<ScheduledRecording> rolledForward(const QList<ScheduledRecording> &plans, const QDateTime &now);

// Sorts by start, keeping the order of plans that start at the same moment.
void sortByStart(QList<ScheduledRecording> &plans);

// The locale's medium date without weekday ("Jan 5, 2025", "5. Jan. 2025"): its long
// format with the weekday removed and the month abbreviated.
[[nodiscard]] QString mediumDate(const QDate &date, const QLocale &locale);

} // namespace Schedule
