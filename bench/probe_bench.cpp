// One ICY probe round of the station search: a page of 40 results whose streams each
// take 200 ms to send their response head. All checks run at once, so the round should
// take little more than one answer, and the GUI thread keeps turning meanwhile: a 1 ms
// timer on it records the longest gap between two ticks.
//
//   build/bench/probe_bench

#include "stations/stationdirectory.h"

#include "fixtureserver.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

#include <benchmark/benchmark.h>

using namespace std::chrono_literals;
using Script = FixtureServer::Script;

namespace {

constexpr int kHeadDelayMs = 200;

// The longest gap between two ticks of a 1 ms timer on this thread while it runs.
class TickGap {
public:
    TickGap()
    {
        m_tick.setTimerType(Qt::PreciseTimer);
        m_tick.setInterval(1);
        QObject::connect(&m_tick, &QTimer::timeout, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            if (m_lastNs >= 0)
                m_longestNs = std::max(m_longestNs, now - m_lastNs);
            m_lastNs = now;
        });
        m_clock.start();
        m_tick.start();
    }
    double longestMs() const { return double(m_longestNs) / 1e6; }

private:
    QElapsedTimer m_clock;
    QTimer m_tick;
    qint64 m_lastNs = -1;
    qint64 m_longestNs = 0;
};

QByteArray resultPage(const FixtureServer &server)
{
    QJsonArray page;
    for (int i = 0; i < StationDirectory::kPageSize; ++i) {
        const QString id = QStringLiteral("probe-%1").arg(i);
        page.append(QJsonObject{{"stationuuid", id},
                                {"name", QStringLiteral("Probe %1").arg(i)},
                                {"url_resolved", QString::fromLatin1(server.url("/s/" + id.toUtf8()))},
                                {"codec", "MP3"},
                                {"bitrate", 128}});
    }
    return QJsonDocument(page).toJson(QJsonDocument::Compact);
}

void BM_ProbeRoundOfOnePage(benchmark::State &state)
{
    FixtureServer server;
    server.route("/json/stations/search", Script::response(200, "application/json", resultPage(server)));
    server.fallback([](const FixtureServer::Request &) {
        return Script()
            .pause(kHeadDelayMs)
            .send("ICY 200 OK\r\nicy-metaint: 16000\r\ncontent-type: audio/mpeg\r\n\r\n")
            .produce(10, [] { return QByteArray(4096, 'A'); });
    });
    HttpClient client;

    double longestGapMs = 0;
    double longestSearchMs = 0;
    for (auto _ : state) {
        StationDirectory directory(client, QString::fromLatin1(server.url("")));
        directory.setDebounceInterval(0ms);

        QElapsedTimer clock;
        qint64 roundStartNs = -1;
        qint64 roundEndNs = -1;
        QEventLoop loop;
        QObject::connect(&directory, &StationDirectory::resultsChanged, [&] { roundStartNs = clock.nsecsElapsed(); });
        QObject::connect(&directory, &StationDirectory::icyStatusChanged, [&] {
            if (directory.icyStatus().size() == StationDirectory::kPageSize) {
                roundEndNs = clock.nsecsElapsed();
                loop.quit();
            }
        });
        QTimer::singleShot(10s, &loop, &QEventLoop::quit);

        clock.start();
        const TickGap gap;
        directory.search(QStringLiteral("bench"));
        loop.exec();

        if (roundEndNs < 0 || roundStartNs < 0) {
            state.SkipWithError("the probe round did not finish");
            break;
        }
        const int icy = int(std::count(directory.icyStatus().cbegin(), directory.icyStatus().cend(), true));
        if (icy != StationDirectory::kPageSize) {
            state.SkipWithError("a stream was not recognised as ICY");
            break;
        }
        state.SetIterationTime(double(roundEndNs - roundStartNs) / 1e9);
        longestGapMs = std::max(longestGapMs, gap.longestMs());
        longestSearchMs = std::max(longestSearchMs, double(roundEndNs) / 1e6);
    }
    state.counters["longestTickGapMs"] = longestGapMs;
    state.counters["searchToLastAnswerMs"] = longestSearchMs;
}
BENCHMARK(BM_ProbeRoundOfOnePage)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

// The same timer with nothing else to do, for comparison: what the machine's scheduler
// alone costs the GUI thread.
void BM_IdleTickGap(benchmark::State &state)
{
    double longestGapMs = 0;
    for (auto _ : state) {
        const TickGap gap;
        QEventLoop loop;
        QTimer::singleShot(kHeadDelayMs, &loop, &QEventLoop::quit);
        loop.exec();
        longestGapMs = std::max(longestGapMs, gap.longestMs());
    }
    state.counters["longestTickGapMs"] = longestGapMs;
}
BENCHMARK(BM_IdleTickGap)->Iterations(10)->Unit(benchmark::kMillisecond);

} // namespace
