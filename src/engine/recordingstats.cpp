#include "engine/recordingstats.h"

#include "platform/filewatch.h"
#include "platform/paths.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QThread>
#include <QVariant>

#include <limits>

namespace {

// Whole numbers within 64 bits, which Qt's parser keeps as integers whatever their notation.
std::optional<qint64> jsonInteger(const QJsonValue &value)
{
    if (!value.isDouble() || value.toVariant().typeId() != QMetaType::LongLong)
        return std::nullopt;
    return value.toInteger();
}

std::optional<QMap<QString, qint64>> counterMap(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    QMap<QString, qint64> counters;
    for (auto it = object.begin(); it != object.end(); ++it) {
        const auto count = jsonInteger(it.value());
        if (!count)
            return std::nullopt;
        counters.insert(it.key(), *count);
    }
    return counters;
}

QByteArray compact(const QMap<QString, qint64> &counters)
{
    QJsonObject object;
    for (auto it = counters.constBegin(); it != counters.constEnd(); ++it)
        object.insert(it.key(), QJsonValue(it.value()));
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

qint64 plus(qint64 count, qint64 more, const char *what)
{
    qint64 sum = 0;
    if (__builtin_add_overflow(count, more, &sum))
        qFatal("Recording statistics: the %s counter overflowed", what);
    return sum;
}

void addTo(QMap<QString, qint64> &counters, const QMap<QString, qint64> &more, const char *what)
{
    for (auto it = more.constBegin(); it != more.constEnd(); ++it)
        counters.insert(it.key(), plus(counters.value(it.key()), it.value(), what));
}

using Counts = RecordingStats::Counts;

Counts sum(Counts counts, const Counts &more)
{
    counts.total = plus(counts.total, more.total, "total");
    addTo(counts.byDay, more.byDay, "day");
    addTo(counts.byStation, more.byStation, "station");
    return counts;
}

// The file's counters; absent when it is damaged (all three keys are required).
std::optional<Counts> decoded(const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject object = doc.object();
    const auto total = jsonInteger(object.value(QLatin1String("total")));
    const auto byDay = counterMap(object.value(QLatin1String("byDay")));
    const auto byStation = counterMap(object.value(QLatin1String("byStation")));
    if (!total || !byDay || !byStation)
        return std::nullopt;
    return Counts { *total, *byDay, *byStation };
}

QByteArray encoded(const Counts &counts)
{
    return QByteArrayLiteral("{\"total\":") + QByteArray::number(counts.total) + QByteArrayLiteral(",\"byDay\":")
        + compact(counts.byDay) + QByteArrayLiteral(",\"byStation\":") + compact(counts.byStation) + '}';
}

} // namespace

RecordingStats::RecordingStats(QObject *parent)
    : RecordingStats(&QDateTime::currentDateTime, parent)
{
}

RecordingStats::RecordingStats(Clock clock, QObject *parent)
    : QObject(parent)
    , m_clock(std::move(clock))
    , m_filePath(filePath())
    , m_file(m_filePath)
    , m_watch(new FileWatch(m_filePath, this))
{
    connect(m_watch, &FileWatch::changed, this, &RecordingStats::reload);
    const StateResult loaded = sync(false);
    m_loadProblem = loaded.ok ? loaded.notice : loaded.error;
}

RecordingStats::~RecordingStats() = default;

QString RecordingStats::filePath()
{
    return Paths::supportFile(QString::fromLatin1(kFileName));
}

void RecordingStats::note(const QString &stationName)
{
    Q_ASSERT(QThread::currentThread() == thread());
    Counts one;
    one.total = 1;
    one.byDay.insert(todayKey(), 1);
    one.byStation.insert(stationName, 1);
    // Checked against what is shown, which is at least what the file holds.
    (void)sum(Counts { m_total, m_byDay, m_byStation }, one);
    m_unsaved = sum(m_unsaved, one);
    if (const StateResult saved = flush(); !saved)
        show(sum(Counts { m_total, m_byDay, m_byStation }, one)); // counted, not yet saved
}

StateResult RecordingStats::flush()
{
    return sync(true);
}

void RecordingStats::reload()
{
    (void)sync(false);
}

StateResult RecordingStats::sync(bool write)
{
    Counts stored;
    const StateResult result = m_file.access([&](const QByteArray *bytes) {
        StateFile::Access access;
        stored = {};
        if (bytes) {
            const auto counts = decoded(*bytes);
            if (counts)
                stored = *counts;
            else
                access.damage = StateFile::Damage::Whole;
        }
        if (write && !m_unsaved.isEmpty()) {
            stored = sum(stored, m_unsaved);
            access.write = encoded(stored);
        }
        return access;
    });
    if (!result.notice.isEmpty())
        Q_EMIT storageProblem(result.notice);
    if (!result.ok) {
        Q_EMIT storageProblem(result.error);
        return result;
    }
    if (write)
        m_unsaved = {};
    m_watch->noteCurrent();
    show(sum(stored, m_unsaved));
    return result;
}

void RecordingStats::show(const Counts &counts)
{
    if (counts.total == m_total && counts.byDay == m_byDay && counts.byStation == m_byStation)
        return;
    m_total = counts.total;
    m_byDay = counts.byDay;
    m_byStation = counts.byStation;
    Q_EMIT changed();
}

qint64 RecordingStats::todayCount() const
{
    return m_byDay.value(todayKey());
}

QByteArray RecordingStats::toJson() const
{
    return encoded(Counts { m_total, m_byDay, m_byStation });
}

QString RecordingStats::todayKey() const
{
    return m_clock().toLocalTime().date().toString(QStringLiteral("yyyy-MM-dd"));
}
