#pragma once

#include "platform/statefile.h"

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

class FileWatch;

// Counts the songs the recorder saved: in total, per local calendar day ("yyyy-MM-dd")
// and per station display name, kept in "recording_stats.json" in the support folder and
// rewritten after every saved song. Nothing is ever pruned.
//
// Several processes may record at once (the window beside orvida-cli, two `record`
// runs), so the file is the total and each process only adds: a save reads the file under
// its lock, adds the songs this process counted since its last good save and writes the
// sum. Songs counted while the file cannot be written are kept and added by the next save
// that works. Changes by other processes are read in when the file changes.
//
// Lives on the GUI thread; sessions report saved songs to it with queued calls.
class RecordingStats : public QObject {
    Q_OBJECT

public:
    // Now, in local time as far as the day key is concerned. Tests pass their own.
    using Clock = std::function<QDateTime()>;

    static constexpr auto kFileName = "recording_stats.json";

    // The three counters; also the delta of songs not yet in the file.
    struct Counts {
        qint64 total = 0;
        QMap<QString, qint64> byDay;
        QMap<QString, qint64> byStation;
        [[nodiscard]] bool isEmpty() const { return total == 0 && byDay.isEmpty() && byStation.isEmpty(); }
    };

    // Loads the file; a missing one starts every counter from zero, a damaged one is set
    // aside (loadProblem() says where) and the counting starts from zero.
    explicit RecordingStats(QObject *parent = nullptr);
    explicit RecordingStats(Clock clock, QObject *parent = nullptr);
    ~RecordingStats() override;

    // One more saved song of the station with this display name; saves the file. A
    // failed save is sent as storageProblem() and tried again with the next song.
    // A counter that would overflow stops the process: the numbers could no longer be
    // trusted and writing them would destroy the old ones.
    void note(const QString &stationName);
    // Writes what is still unsaved; the result says whether that worked.
    [[nodiscard]] StateResult flush();
    // Reads the file again now; changed() when another process counted songs.
    void reload();

    // What loading had to report (damaged file set aside); empty when nothing.
    [[nodiscard]] const QString &loadProblem() const { return m_loadProblem; }

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
    // A save failed, or a damaged file was set aside: one line naming the file.
    void storageProblem(const QString &message);

private:
    // Reads the file under its lock and, with `write`, adds the unsaved songs to it.
    StateResult sync(bool write);
    void show(const Counts &counts);
    [[nodiscard]] QString todayKey() const;

    Clock m_clock;
    QString m_filePath;
    StateFile m_file;
    FileWatch *m_watch;
    QString m_loadProblem;
    Counts m_unsaved;
    qint64 m_total = 0;
    QMap<QString, qint64> m_byDay;
    QMap<QString, qint64> m_byStation;
};
