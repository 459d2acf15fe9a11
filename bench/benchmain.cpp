#include <QCoreApplication>

#include <benchmark/benchmark.h>

// The main of every benchmark that does not bring its own: an application object first,
// so event loops, timers and queued calls work as they do in the programs.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
