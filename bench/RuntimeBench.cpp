// Child-process and log overheads of the runtime, each beside a plain reference doing the same work.
#include "log/AppLogger.h"
#include "runtime/ToolRunner.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QProcess>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace {
const QStringList kPrintLines{QStringLiteral("-c"), QStringLiteral("seq 1 20000")};

void runToolSeq(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(QCoro::waitFor(
            runTool(QStringLiteral("/bin/sh"), kPrintLines, ToolRunOptions{{}, {}, [](const QString&) {}})));
}
BENCHMARK(runToolSeq)->Unit(benchmark::kMillisecond);

// Reference: QProcess run to completion with a blocking wait, output read once.
void plainProcessSeq(benchmark::State& state) {
    for (auto _ : state) {
        QProcess process;
        process.start(QStringLiteral("/bin/sh"), kPrintLines);
        process.waitForFinished(-1);
        benchmark::DoNotOptimize(process.readAll());
    }
}
BENCHMARK(plainProcessSeq)->Unit(benchmark::kMillisecond);

void appLoggerLog(benchmark::State& state) {
    AppLogger logger;
    for (auto _ : state) {
        for (int i = 0; i < 1000; ++i)
            logger.log(QStringLiteral("ligne de journal"), LogLevel::info);
        QCoreApplication::processEvents();
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(appLoggerLog)->Unit(benchmark::kMillisecond);

// Reference: the same lines written to standard output with printf.
void printfLines(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < 1000; ++i)
            std::printf("[00:00:00.000] ℹ️ ligne de journal\n");
        std::fflush(stdout);
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(printfLines)->Unit(benchmark::kMillisecond);
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // The log echoes to standard output; keep the report on standard error readable.
    benchmark::Initialize(&argc, argv);
    const int saved = dup(fileno(stdout));
    FILE* report = fdopen(saved, "w");
    std::freopen("/dev/null", "w", stdout);
    benchmark::ConsoleReporter reporter;
    reporter.SetOutputStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::fclose(report);
    return 0;
}
