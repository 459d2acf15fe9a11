// The scheduler at the size of a station collector's plan list: 10,000 plans in
// "sniper_schedule.json" on disk (beside this program, so on the build's file system).
// Targets: a tick with nothing due < 2 ms and writes nothing; loading and rolling
// forward < 100 ms.
//
//   build/bench/scheduler_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "engine/powerassertion.h"
#include "engine/radiorecorder.h"
#include "engine/recordingcontext.h"
#include "engine/sniperscheduler.h"
#include "library/librarystore.h"
#include "platform/atomicfile.h"
#include "platform/httpclient.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <sys/stat.h>

namespace {

constexpr int kPlans = 10000;

const QDateTime kNow = QDateTime(QDate(2025, 3, 12), QTime(9, 0), Qt::UTC);

// Directory stations, a third with a logo; a third of the plans record whole shows, and
// the repeat rules rotate through absent, none, daily and weekly.
ScheduledRecording makePlan(int i, const QDateTime &start)
{
    Station s;
    s.id = QStringLiteral("5a1b%1-0601-11e8-ae97-52543be04c81").arg(i, 4, 16, QLatin1Char('0'));
    s.name = QStringLiteral("Radio Beispiel %1 – Hits & Oldies").arg(i);
    s.streamUrl = QStringLiteral("https://stream%1.example/live/mp3-128").arg(i);
    s.country = QStringLiteral("Germany");
    s.bitrate = 128;
    s.codec = QStringLiteral("MP3");
    if (i % 3 == 0)
        s.favicon = QStringLiteral("https://radio%1.example/favicon.png").arg(i);
    using Rule = ScheduledRecording::RepeatRule;
    const std::optional<Rule> rules[] = { std::nullopt, Rule::None, Rule::Daily, Rule::Weekly };
    return ScheduledRecording::make(s, start, start.addSecs(3600),
        i % 3 == 0 ? ScheduledRecording::Mode::FullShow : ScheduledRecording::Mode::SplitTracks, rules[i % 4]);
}

struct Folder {
    // Beside the executable: /tmp may be a RAM file system, and the targets are for a disk.
    QTemporaryDir dir { QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath()
        + QStringLiteral("/scheduler_bench.XXXXXX") };
    QString file(const QString &name) const { return dir.filePath(name); }
};

qint64 changeStamp(const QString &path)
{
    struct stat info { };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return qint64(info.st_ino) * 1000000007LL + info.st_mtim.tv_nsec + info.st_mtim.tv_sec;
}

// Every plan starts within the next weeks: nothing is due, nothing records.
void BM_TickNothingDue(benchmark::State &state)
{
    Folder folder;
    QList<ScheduledRecording> plans;
    for (int i = 0; i < kPlans; ++i)
        plans.append(makePlan(i, kNow.addSecs(3600 + qint64(i) * 97)));
    const QString path = folder.file(QStringLiteral("sniper_schedule.json"));
    if (!AtomicFile::write(path, Schedule::encode(plans)))
        qFatal("cannot write %s", qPrintable(path));

    HttpClient http;
    RecordingContext context(http, nullptr);
    RadioRecorder recorder(context);
    LibraryOpenResult opened = LibraryStore::open(folder.file(QStringLiteral("library.sqlite")));
    if (!opened)
        qFatal("%s", qPrintable(opened.message));
    NullPowerAssertion power;
    SniperScheduler::Options options;
    options.filePath = path;
    options.clock = [] { return kNow; };
    options.tickInterval = std::chrono::hours(1); // only the measured ticks run
    SniperScheduler scheduler(power, options);
    scheduler.configure(recorder, *opened.store);
    if (scheduler.items().size() != kPlans)
        qFatal("the plans did not load");

    const qint64 before = changeStamp(path);
    for (auto _ : state)
        scheduler.tick();
    if (changeStamp(path) != before || !recorder.sessions().isEmpty())
        qFatal("a tick with nothing due wrote the file or started a recording");
    state.counters["plans"] = double(scheduler.items().size());
}
BENCHMARK(BM_TickNothingDue)->Unit(benchmark::kMicrosecond);

// The application starts after three days away: every plan's window has passed; the
// one-off plans are dropped, the repeating ones moved on, and the file is written back.
void BM_LoadAndRollForward(benchmark::State &state)
{
    Folder folder;
    QList<ScheduledRecording> plans;
    for (int i = 0; i < kPlans; ++i)
        plans.append(makePlan(i, kNow.addDays(-3).addSecs(qint64(i) * 7)));
    const QByteArray original = Schedule::encode(plans);
    const QString path = folder.file(QStringLiteral("sniper_schedule.json"));
    NullPowerAssertion power;
    SniperScheduler::Options options;
    options.filePath = path;
    options.clock = [] { return kNow; };
    qsizetype kept = 0;
    for (auto _ : state) {
        state.PauseTiming();
        if (!AtomicFile::write(path, original))
            qFatal("cannot write %s", qPrintable(path));
        state.ResumeTiming();
        SniperScheduler scheduler(power, options);
        kept = scheduler.items().size();
    }
    if (kept != kPlans / 2)
        qFatal("expected the repeating half to remain, got %lld", qlonglong(kept));
    state.counters["fileBytes"] = double(original.size());
}
BENCHMARK(BM_LoadAndRollForward)->Unit(benchmark::kMillisecond);

} // namespace
