#include "engine/scheduledrecording.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

using Mode = ScheduledRecording::Mode;
using RepeatRule = ScheduledRecording::RepeatRule;

// 2001-01-01 00:00:00 UTC in milliseconds since 1970.
constexpr qint64 kReferenceEpochMs = 978307200000LL;

// The inside of a JSON string literal for UTF-8 bytes.
void appendEscapedContent(QByteArray &out, QByteArrayView utf8)
{
    qsizetype plainFrom = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.append(utf8.sliced(plainFrom, i - plainFrom));
        plainFrom = i + 1;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default: {
            char escaped[7];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        }
        }
    }
    out.append(utf8.sliced(plainFrom));
}

void appendEscaped(QByteArray &out, QByteArrayView utf8)
{
    out += '"';
    appendEscapedContent(out, utf8);
    out += '"';
}

void appendString(QByteArray &out, const QString &text)
{
    // A directory name can carry a lone surrogate (JSON allows one as an escape), which
    // toUtf8() would turn into '?' and the plan would read back changed: such a code unit
    // is written as an escape of its own.
    out += '"';
    qsizetype plainFrom = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (!c.isSurrogate())
            continue;
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            ++i;
            continue;
        }
        appendEscapedContent(out, QStringView(text).sliced(plainFrom, i - plainFrom).toUtf8());
        char escaped[7];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", unsigned(c.unicode()));
        out += escaped;
        plainFrom = i + 1;
    }
    appendEscapedContent(out, QStringView(text).sliced(plainFrom).toUtf8());
    out += '"';
}

void appendName(QByteArray &out, QLatin1StringView name)
{
    appendEscaped(out, QByteArrayView(name.data(), name.size()));
}

// Shortest text that reads back as the same double, never in exponent form: the reader
// on the other platform expects a plain number such as 760000000.25.
void appendNumber(QByteArray &out, double value)
{
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    out.append(buffer, result.ptr - buffer);
}

void appendKey(QByteArray &out, const char *key, bool first = false)
{
    if (!first)
        out += ',';
    out += '"';
    out += key;
    out += "\":";
}

std::optional<QUuid> uuidFrom(const QString &text)
{
    // Canonical 36-character text only, in either case; no braces.
    if (text.size() != 36)
        return std::nullopt;
    for (qsizetype i = 0; i < 36; ++i) {
        const char16_t c = text[i].unicode();
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        const bool hex = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
        if (dash ? c != u'-' : !hex)
            return std::nullopt;
    }
    return QUuid::fromString(text);
}

std::optional<QString> textOf(const QJsonValue &v)
{
    return v.isString() ? std::optional<QString>(v.toString()) : std::nullopt;
}

std::optional<QDateTime> dateOf(const QJsonValue &v)
{
    if (!v.isDouble())
        return std::nullopt;
    const QDateTime time = Schedule::fromReferenceSeconds(v.toDouble());
    return time.isValid() ? std::optional<QDateTime>(time) : std::nullopt;
}

std::optional<qint64> integerOf(const QJsonValue &v)
{
    const double d = v.toDouble();
    if (!v.isDouble() || !std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 9.0e15)
        return std::nullopt;
    return qint64(d);
}

// Missing and null both mean absent, as for any optional field of the format.
bool isAbsent(const QJsonValue &v)
{
    return v.isUndefined() || v.isNull();
}

enum Key {
    Id,
    StationId,
    StationName,
    StreamUrl,
    Country,
    Bitrate,
    Codec,
    Favicon,
    Start,
    End,
    ModeKey,
    Repeat,
    KeyCount
};
constexpr QLatin1StringView kKeys[KeyCount] = {
    QLatin1StringView("id"),
    QLatin1StringView("stationID"),
    QLatin1StringView("stationName"),
    QLatin1StringView("streamURL"),
    QLatin1StringView("country"),
    QLatin1StringView("bitrate"),
    QLatin1StringView("codec"),
    QLatin1StringView("favicon"),
    QLatin1StringView("start"),
    QLatin1StringView("end"),
    QLatin1StringView("mode"),
    QLatin1StringView("repeatRule"),
};

std::optional<ScheduledRecording> planFrom(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject o = value.toObject();
    // One pass over the object's own keys: looking each key up would search the object
    // twelve times, and a schedule may hold thousands of plans.
    QJsonValue values[KeyCount];
    for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
        const QString key = it.key();
        const auto known = std::find(std::begin(kKeys), std::end(kKeys), key);
        if (known != std::end(kKeys))
            values[known - std::begin(kKeys)] = it.value();
    }

    const auto idText = textOf(values[Id]);
    const auto id = idText ? uuidFrom(*idText) : std::nullopt;
    const auto stationId = textOf(values[StationId]);
    const auto stationName = textOf(values[StationName]);
    const auto streamUrl = textOf(values[StreamUrl]);
    const auto country = textOf(values[Country]);
    const auto bitrate = integerOf(values[Bitrate]);
    const auto codec = textOf(values[Codec]);
    const auto start = dateOf(values[Start]);
    const auto end = dateOf(values[End]);
    const auto modeText = textOf(values[ModeKey]);
    const auto mode = modeText ? Schedule::modeNamed(*modeText) : std::nullopt;
    if (!id || !stationId || !stationName || !streamUrl || !country || !bitrate || !codec || !start || !end || !mode)
        return std::nullopt;

    ScheduledRecording plan;
    if (!isAbsent(values[Favicon])) {
        plan.favicon = textOf(values[Favicon]);
        if (!plan.favicon)
            return std::nullopt;
    }
    if (!isAbsent(values[Repeat])) {
        const auto ruleText = textOf(values[Repeat]);
        plan.repeatRule = ruleText ? Schedule::repeatRuleNamed(*ruleText) : std::nullopt;
        if (!plan.repeatRule)
            return std::nullopt;
    }
    plan.id = *id;
    plan.stationId = *stationId;
    plan.stationName = *stationName;
    plan.streamUrl = *streamUrl;
    plan.country = *country;
    plan.bitrate = *bitrate;
    plan.codec = *codec;
    plan.start = *start;
    plan.end = *end;
    plan.mode = *mode;
    return plan;
}

QByteArray encodePlan(const ScheduledRecording &plan)
{
    QByteArray out;
    out.reserve(384);
    out += '{';
    appendKey(out, "id", true);
    appendEscaped(out, plan.id.toByteArray(QUuid::WithoutBraces).toUpper());
    appendKey(out, "stationID");
    appendString(out, plan.stationId);
    appendKey(out, "stationName");
    appendString(out, plan.stationName);
    appendKey(out, "streamURL");
    appendString(out, plan.streamUrl);
    appendKey(out, "country");
    appendString(out, plan.country);
    appendKey(out, "bitrate");
    out += QByteArray::number(plan.bitrate);
    appendKey(out, "codec");
    appendString(out, plan.codec);
    if (plan.favicon) {
        appendKey(out, "favicon");
        appendString(out, *plan.favicon);
    }
    appendKey(out, "start");
    appendNumber(out, Schedule::referenceSeconds(plan.start));
    appendKey(out, "end");
    appendNumber(out, Schedule::referenceSeconds(plan.end));
    appendKey(out, "mode");
    appendName(out, Schedule::modeName(plan.mode));
    if (plan.repeatRule) {
        appendKey(out, "repeatRule");
        appendName(out, Schedule::repeatRuleName(*plan.repeatRule));
    }
    out += '}';
    return out;
}

// Whole days later in the zone the time is given in, back in UTC; invalid when Qt cannot
// represent it.
QDateTime daysLater(const QDateTime &zonedTime, qint64 days)
{
    const QDateTime moved = zonedTime.addDays(days);
    return moved.isValid() ? moved.toUTC() : QDateTime();
}

} // namespace

ScheduledRecording ScheduledRecording::make(const Station &station, const QDateTime &start, const QDateTime &end,
    Mode mode, std::optional<RepeatRule> repeatRule)
{
    ScheduledRecording plan;
    plan.id = QUuid::createUuid();
    plan.stationId = station.id;
    plan.stationName = station.name;
    plan.streamUrl = station.streamUrl;
    plan.country = station.country;
    plan.bitrate = station.bitrate;
    plan.codec = station.codec;
    plan.favicon = station.favicon;
    // Through the file's precision, so a plan equals itself read back.
    plan.start = Schedule::fromReferenceSeconds(Schedule::referenceSeconds(start));
    plan.end = Schedule::fromReferenceSeconds(Schedule::referenceSeconds(end));
    plan.mode = mode;
    plan.repeatRule = repeatRule;
    return plan;
}

std::optional<Station> ScheduledRecording::station() const
{
    // Through the directory's object and builder, so a plan is exactly as usable as the
    // station it was made from would be today.
    Station copied;
    copied.id = stationId;
    copied.name = stationName;
    copied.streamUrl = streamUrl;
    copied.country = country;
    copied.bitrate = bitrate;
    copied.codec = codec;
    copied.favicon = favicon;
    return Station::json(copied.storedObject());
}

QString ScheduledRecording::showTitle(const QLocale &locale) const
{
    const QTimeZone zone = QTimeZone::systemTimeZone();
    const QDateTime from = start.toTimeZone(zone);
    const QDateTime to = end.toTimeZone(zone);
    return stationName + QLatin1Char(' ') + Schedule::mediumDate(from.date(), locale) + QLatin1Char(' ')
        + from.toString(QStringLiteral("HH:mm")) + QChar(0x2013) + to.toString(QStringLiteral("HH:mm"));
}

namespace Schedule {

QLatin1StringView modeName(Mode mode)
{
    return mode == Mode::FullShow ? QLatin1StringView("fullShow") : QLatin1StringView("splitTracks");
}

std::optional<Mode> modeNamed(QStringView name)
{
    if (name == QLatin1StringView("splitTracks"))
        return Mode::SplitTracks;
    if (name == QLatin1StringView("fullShow"))
        return Mode::FullShow;
    return std::nullopt;
}

QLatin1StringView repeatRuleName(RepeatRule rule)
{
    switch (rule) {
    case RepeatRule::Daily:
        return QLatin1StringView("daily");
    case RepeatRule::Weekly:
        return QLatin1StringView("weekly");
    case RepeatRule::None:
        break;
    }
    return QLatin1StringView("none");
}

std::optional<RepeatRule> repeatRuleNamed(QStringView name)
{
    for (const RepeatRule rule : { RepeatRule::None, RepeatRule::Daily, RepeatRule::Weekly }) {
        if (name == repeatRuleName(rule))
            return rule;
    }
    return std::nullopt;
}

double referenceSeconds(const QDateTime &time)
{
    return double(time.toMSecsSinceEpoch() - kReferenceEpochMs) / 1000.0;
}

QDateTime fromReferenceSeconds(double seconds)
{
    // Beyond a few hundred million years QDateTime gives up; so do we.
    if (!std::isfinite(seconds) || std::fabs(seconds) > 1.0e13)
        return {};
    return QDateTime::fromMSecsSinceEpoch(kReferenceEpochMs + std::llround(seconds * 1000.0), Qt::UTC);
}

QByteArray encode(const QList<ScheduledRecording> &plans)
{
    QByteArray out;
    out.reserve(plans.size() * 384 + 2);
    out += '[';
    for (qsizetype i = 0; i < plans.size(); ++i) {
        if (i > 0)
            out += ',';
        out += encodePlan(plans[i]);
    }
    out += ']';
    return out;
}

std::optional<QList<ScheduledRecording>> decode(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    const QJsonArray array = doc.array();
    QList<ScheduledRecording> plans;
    plans.reserve(array.size());
    for (const QJsonValue &value : array) {
        auto plan = planFrom(value);
        if (!plan)
            return std::nullopt;
        plans.append(std::move(*plan));
    }
    return plans;
}

std::optional<SalvagedPlans> salvage(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    const QJsonArray array = doc.array();
    SalvagedPlans salvaged;
    salvaged.plans.reserve(array.size());
    for (const QJsonValue &value : array) {
        if (auto plan = planFrom(value))
            salvaged.plans.append(std::move(*plan));
        else
            ++salvaged.dropped;
    }
    return salvaged;
}

std::optional<ScheduledRecording> advanced(
    const ScheduledRecording &plan, const QDateTime &after, const QTimeZone &zone)
{
    if (!plan.repeats())
        return std::nullopt;
    if (plan.end > after)
        return plan;
    const qint64 stepDays = *plan.repeatRule == RepeatRule::Daily ? 1 : 7;
    const QDateTime localStart = plan.start.toTimeZone(zone);
    const QDateTime localEnd = plan.end.toTimeZone(zone);
    // Jump close to the answer instead of walking a plan missed for years day by day: the
    // end moved by this many steps lies on or before the day of `after`, and so does every
    // earlier one, so at most the next step or two can be the first to end later.
    const qint64 daysBehind = localEnd.date().daysTo(after.toTimeZone(zone).date());
    for (qint64 steps = std::max<qint64>(1, daysBehind / stepDays);; ++steps) {
        const QDateTime end = daysLater(localEnd, steps * stepDays);
        if (!end.isValid())
            return std::nullopt;
        if (end <= after)
            continue;
        const QDateTime start = daysLater(localStart, steps * stepDays);
        if (!start.isValid())
            return std::nullopt;
        ScheduledRecording next = plan;
        next.start = start;
        next.end = end;
        return next;
    }
}

QList<ScheduledRecording> rolledForward(const QList<ScheduledRecording> &plans, const QDateTime &now)
{
    QList<ScheduledRecording> kept;
    kept.reserve(plans.size());
    const QTimeZone zone = QTimeZone::systemTimeZone();
    for (const ScheduledRecording &plan : plans) {
        if (plan.end > now) {
            kept.append(plan);
        } else if (auto next = advanced(plan, now, zone)) {
            kept.append(std::move(*next));
        }
    }
    sortByStart(kept);
    return kept;
}

void sortByStart(QList<ScheduledRecording> &plans)
{
    std::stable_sort(plans.begin(), plans.end(),
        [](const ScheduledRecording &a, const ScheduledRecording &b) { return a.start < b.start; });
}

QString mediumDate(const QDate &date, const QLocale &locale)
{
    static const QRegularExpression weekday(QStringLiteral("\\s*,?\\s*dddd[,.]?\\s*"));
    QString format = locale.dateFormat(QLocale::LongFormat);
    format.replace(weekday, QStringLiteral(" "));
    format.replace(QLatin1String("MMMM"), QLatin1String("MMM"));
    return locale.toString(date, format.trimmed());
}

} // namespace Schedule
