// Export overheads: the mix export and the single-file conversion, each beside the very same ffmpeg
// command line run directly; the ratio of each pair is printed after the report.
#include "audio/ExportService.h"
#include "audio/MixExportService.h"
#include "audio/StemTrack.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <iostream>
#include <map>

namespace {

const QString kFFmpeg = QStringLiteral("/usr/bin/ffmpeg");
constexpr int kMaxStems = 6;

// Six 5-second stereo tones, written once.
struct Stems {
    QTemporaryDir dir;
    QList<StemTrackPtr> tracks;

    Stems() {
        for (int i = 0; i < kMaxStems; ++i) {
            const QString path = dir.filePath(QStringLiteral("stem%1.wav").arg(i));
            QProcess make;
            make.start(kFFmpeg, {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"),
                                 QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                 QStringLiteral("sine=f=%1:d=5").arg(220 * (i + 1)), QStringLiteral("-ac"),
                                 QStringLiteral("2"), path});
            make.waitForFinished(-1);
            auto track = std::make_shared<StemTrack>(
                StemFile::forJob(QStringLiteral("bench"), StemKinds::all().at(i)), QUrl::fromLocalFile(path));
            track->setVolume(0.5f + 0.1f * static_cast<float>(i % 5));
            tracks.append(track);
        }
    }
    QString output(const QString& name) const { return dir.filePath(name); }
};

Stems& stems() {
    static Stems instance;
    return instance;
}

ExportService& quietService() {
    static ExportService service([] {
        ExportService::Config config = ExportService::defaultConfig();
        config.console = [](const QString&) {};
        config.reveal = [](const QString&) {};
        return config;
    }());
    return service;
}

void runDirectly(const QStringList& arguments) {
    QProcess process;
    process.start(kFFmpeg, arguments);
    process.waitForFinished(-1);
    if (process.exitCode() != 0)
        throw std::runtime_error("ffmpeg failed");
}

void mixExport(benchmark::State& state) {
    const QList<StemTrackPtr> tracks = stems().tracks.mid(0, state.range(0));
    const MixExportService mixer(quietService(), [](const QString&) {});
    const QString dest = stems().output(QStringLiteral("mix.wav"));
    for (auto _ : state)
        QCoro::waitFor(mixer.exportMix(tracks, ExportFormat::wav, dest));
}

// Reference: the same argument list given to ffmpeg by a blocking QProcess on the calling thread.
void directMix(benchmark::State& state) {
    const QStringList arguments = MixExportService::mixArguments(
        MixExportService::audibleSnapshots(stems().tracks.mid(0, state.range(0))), ExportFormat::wav,
        stems().output(QStringLiteral("mix-direct.wav")));
    for (auto _ : state)
        runDirectly(arguments);
}

void convertToMp3(benchmark::State& state) {
    const QString source = stems().tracks.first()->audioURL->toLocalFile();
    const QString dest = stems().output(QStringLiteral("one.mp3"));
    for (auto _ : state)
        QCoro::waitFor(quietService().convert(source, ExportFormat::mp3, dest));
}

void directConvertToMp3(benchmark::State& state) {
    const QStringList arguments =
        ExportService::conversionArguments(stems().tracks.first()->audioURL->toLocalFile(), ExportFormat::mp3,
                                           stems().output(QStringLiteral("one-direct.mp3")));
    for (auto _ : state)
        runDirectly(arguments);
}

// Each measurement beside its reference, so that both see the same machine load.
#define EXPORT_BENCH(function) BENCHMARK(function)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0)
EXPORT_BENCH(mixExport)->Arg(2);
EXPORT_BENCH(directMix)->Arg(2);
EXPORT_BENCH(mixExport)->Arg(4);
EXPORT_BENCH(directMix)->Arg(4);
EXPORT_BENCH(mixExport)->Arg(6);
EXPORT_BENCH(directMix)->Arg(6);
EXPORT_BENCH(convertToMp3);
EXPORT_BENCH(directConvertToMp3);

// Console report plus, at the end, "service / direct" for each pair measured.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (!run.error_occurred)
                m_times[run.run_name.function_name +
                        (run.run_name.args.empty() ? std::string() : "/" + run.run_name.args)] =
                    run.GetAdjustedRealTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        const std::pair<const char*, const char*> pairs[] = {{"mixExport/2", "directMix/2"},
                                                             {"mixExport/4", "directMix/4"},
                                                             {"mixExport/6", "directMix/6"},
                                                             {"convertToMp3", "directConvertToMp3"}};
        for (const auto& [service, direct] : pairs) {
            const auto measured = m_times.find(service);
            const auto reference = m_times.find(direct);
            if (measured != m_times.end() && reference != m_times.end() && reference->second > 0)
                GetOutputStream() << service << " / " << direct << " = "
                                  << measured->second / reference->second << "\n";
        }
    }

private:
    std::map<std::string, double> m_times;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
