#include "engine/recordingstats.h"

#include "platform/atomicfile.h"
#include "platform/paths.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QThread>
#include <QVariant>

#include <limits>

namespace {

// The file is ours and tiny; anything near this size is not.
constexpr qint64 kMaxFileBytes = 16 << 20;

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

qint64 plusOne(qint64 count, const char *what)
{
    if (count == std::numeric_limits<qint64>::max())
        qFatal("Recording statistics: the %s counter overflowed", what);
    return count + 1;
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
{
    load();
}

QString RecordingStats::filePath()
{
    return Paths::supportFile(QString::fromLatin1(kFileName));
}

void RecordingStats::note(const QString &stationName)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const QString day = todayKey();
    const qint64 total = plusOne(m_total, "total");
    const qint64 dayCount = plusOne(m_byDay.value(day), "day");
    const qint64 stationCount = plusOne(m_byStation.value(stationName), "station");
    m_total = total;
    m_byDay.insert(day, dayCount);
    m_byStation.insert(stationName, stationCount);
    save();
    Q_EMIT changed();
}

qint64 RecordingStats::todayCount() const
{
    return m_byDay.value(todayKey());
}

QByteArray RecordingStats::toJson() const
{
    return QByteArrayLiteral("{\"total\":") + QByteArray::number(m_total) + QByteArrayLiteral(",\"byDay\":")
        + compact(m_byDay) + QByteArrayLiteral(",\"byStation\":") + compact(m_byStation) + '}';
}

QString RecordingStats::todayKey() const
{
    return m_clock().toLocalTime().date().toString(QStringLiteral("yyyy-MM-dd"));
}

void RecordingStats::load()
{
    const auto bytes = AtomicFile::read(m_filePath, kMaxFileBytes);
    if (!bytes)
        return;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(*bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return;
    const QJsonObject object = doc.object();
    const auto total = jsonInteger(object.value(QLatin1String("total")));
    const auto byDay = counterMap(object.value(QLatin1String("byDay")));
    const auto byStation = counterMap(object.value(QLatin1String("byStation")));
    if (!total || !byDay || !byStation)
        return;
    m_total = *total;
    m_byDay = *byDay;
    m_byStation = *byStation;
}

void RecordingStats::save() const
{
    // A failed write keeps the counters in memory; the next song tries again.
    (void)AtomicFile::write(m_filePath, toJson());
}
