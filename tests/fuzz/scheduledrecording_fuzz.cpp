// The schedule file decoder ("sniper_schedule.json") on arbitrary bytes, followed by what
// loading does with the plans.
//
// A decoded schedule must be written back to a file that decodes to the same plans; rolling
// it forward must keep only plans still to end, sorted by start, each one an original or the
// original moved by whole days; and every plan's title and station can be made.

#include "engine/scheduledrecording.h"

#include "fuzzcheck.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

// Found by argument-dependent lookup from the checks' printing, hence not file-local.
QDebug operator<<(QDebug debug, const QList<ScheduledRecording> &plans)
{
    return debug << Schedule::encode(plans);
}

namespace {

// A Sunday on which Berlin moves its clocks forward, so that days of 23 hours are met.
const QDateTime kNow = QDateTime(QDate(2025, 3, 30), QTime(0, 30), Qt::UTC);

// A plan that had ended, moved on by whole steps of its rule in local time: same wall-clock
// end unless a clock change lies between (or the time fell into the skipped hour).
bool movedOn(const ScheduledRecording &from, const ScheduledRecording &plan)
{
    if (!from.repeats() || from.end > kNow)
        return false;
    ScheduledRecording unmoved = plan;
    unmoved.start = from.start;
    unmoved.end = from.end;
    if (!(unmoved == from))
        return false;
    const QTimeZone zone = QTimeZone::systemTimeZone();
    const qint64 stepDays = *from.repeatRule == ScheduledRecording::RepeatRule::Weekly ? 7 : 1;
    const qint64 days = from.end.toTimeZone(zone).date().daysTo(plan.end.toTimeZone(zone).date());
    const bool sameClock = from.end.toTimeZone(zone).time() == plan.end.toTimeZone(zone).time()
        || zone.isDaylightTime(plan.end) != zone.isDaylightTime(from.end);
    return days > 0 && days % stepDays == 0 && sameClock;
}

void checkRolledForward(const QList<ScheduledRecording> &plans)
{
    const QList<ScheduledRecording> kept = Schedule::rolledForward(plans, kNow);
    FUZZ_CHECK(kept.size() <= plans.size());
    for (qsizetype i = 0; i < kept.size(); ++i) {
        const ScheduledRecording &plan = kept[i];
        FUZZ_CHECK(plan.end > kNow);
        FUZZ_CHECK(i == 0 || kept[i - 1].start <= plan.start);
        FUZZ_CHECK(std::any_of(plans.begin(), plans.end(),
            [&](const ScheduledRecording &from) { return from == plan || movedOn(from, plan); }));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Local time with daylight saving, so the day arithmetic is tried across clock changes.
    setenv("TZ", "Europe/Berlin", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto plans = Schedule::decode(FuzzInput::bytes(data, size));
    if (!plans)
        return 0;

    const QByteArray file = Schedule::encode(*plans);
    const QJsonDocument written = QJsonDocument::fromJson(file);
    FUZZ_CHECK(written.isArray() && written.array().size() == plans->size());
    FUZZ_CHECK_EQ(Schedule::decode(file), plans);

    for (const ScheduledRecording &plan : *plans) {
        FUZZ_CHECK(plan.start.isValid() && plan.end.isValid());
        if (const auto station = plan.station()) {
            FUZZ_CHECK(station->id == plan.stationId && station->streamUrl == plan.streamUrl);
            FUZZ_CHECK(!station->name.isEmpty());
        }
        FUZZ_CHECK(plan.showTitle(QLocale::c()).startsWith(plan.stationName));
    }
    checkRolledForward(*plans);
    return 0;
}
