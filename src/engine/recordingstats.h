#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

// Counts the songs the recorder saved: in total, per local calendar day ("yyyy-MM-dd")
// and per station display name, kept in "recording_stats.json" in the support folder and
// rewritten after every saved song. Nothing is ever pruned.
//
// Lives on the GUI thread; sessions report saved songs to it with queued calls.
class RecordingStats : public QObject {
    Q_OBJECT

public:
    // Now, in local time as far as the day key is concerned. Tests pass their own.
    using Clock = std::function<QDateTime()>;

    static constexpr auto kFileName = "recording_stats.json";

    // Loads the file; a missing or damaged one starts every counter from zero and is
    // replaced by the first save.
    explicit RecordingStats(QObject *parent = nullptr);
    explicit RecordingStats(Clock clock, QObject *parent = nullptr);

    // One more saved song of the station with this display name; saves the file.
    // A counter that would overflow stops the process: the numbers could no longer be
    // trusted and writing them would destroy the old ones.
    void note(const QString &stationName);

    [[nodiscard]] qint64 todayCount() const;
    [[nodiscard]] qint64 total() const { return m_total; }
    [[nodiscard]] const QMap<QString, qint64> &byDay() const { return m_byDay; }
    [[nodiscard]] const QMap<QString, qint64> &byStation() const { return m_byStation; }

    // The file's content: compact {"total", "byDay", "byStation"} in that order.
    [[nodiscard]] QByteArray toJson() const;

    // Full path of the statistics file.
    [[nodiscard]] static QString filePath();

Q_SIGNALS:
    void changed();

private:
    void load();
    void save() const;
    [[nodiscard]] QString todayKey() const;

    Clock m_clock;
    QString m_filePath;
    qint64 m_total = 0;
    QMap<QString, qint64> m_byDay;
    QMap<QString, qint64> m_byStation;
};
