#ifdef ORVIDA_BENCH_WIDGETS
#include <QApplication>
#else
#include <QCoreApplication>
#endif

#include <benchmark/benchmark.h>

// The main of every benchmark that does not bring its own: an application object first,
// so event loops, timers and queued calls work as they do in the programs. Benchmarks of
// the window get a QApplication on the offscreen platform unless one is chosen.
int main(int argc, char **argv)
{
#ifdef ORVIDA_BENCH_WIDGETS
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
