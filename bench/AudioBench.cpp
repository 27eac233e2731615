// The audio engine and the waveform renderer, each beside a reference tool timed in the same run:
// - the mix path rendering 60 s of six stereo 44.1 kHz stems, against ffmpeg mixing the same files;
// - loadTracks of six 5-minute stems (time and added memory), against ffprobe reading the same files;
// - the 1,800-point envelope of a 5-minute stereo WAV, against ffmpeg decoding it to mono floats.
// The whole program is pinned to one core, references included. Counters: realtime_x (seconds of audio
// per second of work), vs_reference (reference time ÷ our time: above 1 means faster than the reference).
#include "audio/AudioPlayerService.h"
#include "audio/PullOutput.h"
#include "audio/WaveformRenderer.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <map>
#include <sched.h>
#include <unistd.h>

namespace {

const QString kFFmpeg = QStringLiteral("/usr/bin/ffmpeg");
const QString kFFprobe = QStringLiteral("/usr/bin/ffprobe");
constexpr int kStems = 6;
constexpr int kRate = 44100;

void runTool(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        throw std::runtime_error(program.toStdString() + " failed");
}

// Six stereo 16-bit stems of the given length, written once per length.
struct StemSet {
    QTemporaryDir dir;
    QStringList paths;
    explicit StemSet(int seconds) {
        for (int i = 0; i < kStems; ++i) {
            const QString path = dir.filePath(QStringLiteral("stem%1.wav").arg(i));
            runTool(
                kFFmpeg,
                {"-v", "error", "-y", "-f", "lavfi", "-i",
                 QStringLiteral("sine=f=%1:d=%2:sample_rate=%3").arg(110 * (i + 1)).arg(seconds).arg(kRate),
                 "-ac", "2", "-c:a", "pcm_s16le", path});
            paths.append(path);
        }
    }
};

StemSet& stems(int seconds) {
    static std::map<int, std::unique_ptr<StemSet>> sets;
    auto& set = sets[seconds];
    if (!set)
        set = std::make_unique<StemSet>(seconds);
    return *set;
}

QList<StemTrackPtr> tracksOf(const QStringList& paths) {
    QList<StemTrackPtr> tracks;
    for (qsizetype i = 0; i < paths.size(); ++i)
        tracks.append(
            std::make_shared<StemTrack>(StemFile{QStringLiteral("bench-%1").arg(i), StemKind::other,
                                                 QStringLiteral("stem.wav"), std::nullopt, std::nullopt},
                                        QUrl::fromLocalFile(paths[i])));
    return tracks;
}

// The best of three runs of a reference command, in seconds.
double referenceSeconds(const QString& program, const QStringList& arguments) {
    double best = 1e9;
    for (int run = 0; run < 3; ++run) {
        QElapsedTimer timer;
        timer.start();
        runTool(program, arguments);
        best = std::min(best, static_cast<double>(timer.nsecsElapsed()) / 1e9);
    }
    return best;
}

double residentMiB() {
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0.0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1
               ? fields[1].toDouble() * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0)
               : 0.0;
}

struct PulledPlayer {
    PullOutput* output = nullptr;
    std::unique_ptr<AudioPlayerService> service;
    PulledPlayer() {
        AudioPlayerConfig config;
        config.createOutput = [this] {
            auto pull = std::make_unique<PullOutput>(kRate);
            output = pull.get();
            return pull;
        };
        config.console = [](const QString&) {};
        config.runMeterTimer = false;
        service = std::make_unique<AudioPlayerService>(config);
    }
};

// 60 s of six stems through the whole mix path: reader thread, rings, one render callback summing gains.
void mixSixStems60s(benchmark::State& state) {
    const StemSet& set = stems(60);
    PulledPlayer player;
    QCoro::waitFor(player.service->loadTracks(tracksOf(set.paths)));
    for (int i = 0; i < kStems; ++i)
        player.service->setVolume(QStringLiteral("bench-%1").arg(i), 0.4f + 0.1f * static_cast<float>(i));
    std::vector<float> block(PullOutput::sliceFrames * 2);
    QElapsedTimer timer;
    timer.start();
    for (auto _ : state) {
        player.service->seek(0.0);
        player.service->play();
        for (int64_t done = 0; done < 60 * kRate + 2205; done += PullOutput::sliceFrames)
            player.output->pullInto(block.data(), PullOutput::sliceFrames);
        benchmark::DoNotOptimize(block.data());
        player.service->stop();
    }
    const double ours =
        static_cast<double>(timer.nsecsElapsed()) / 1e9 / static_cast<double>(state.iterations());
    static const double reference = [&] {
        QStringList arguments{"-v", "error"};
        for (const QString& path : set.paths)
            arguments << "-i" << path;
        arguments << "-filter_complex" << QStringLiteral("amix=inputs=%1:normalize=0").arg(kStems) << "-f"
                  << "f32le"
                  << "-y"
                  << "/dev/null";
        return referenceSeconds(kFFmpeg, arguments);
    }();
    state.counters["realtime_x"] =
        benchmark::Counter(60.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["ms_per_audio_s"] = ours * 1000.0 / 60.0;
    state.counters["ffmpeg_amix_s"] = reference;
    state.counters["vs_reference"] = reference / ours;
}
BENCHMARK(mixSixStems60s)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// loadTracks of six 5-minute stems: time, and memory added (bounded rings, not the songs).
void loadSixStems5min(benchmark::State& state) {
    const StemSet& set = stems(300);
    const QList<StemTrackPtr> tracks = tracksOf(set.paths);
    double addedMiB = 0.0, afterPlayMiB = 0.0, loadSeconds = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        auto player = std::make_unique<PulledPlayer>();
        const double before = residentMiB();
        state.ResumeTiming();
        QElapsedTimer timer;
        timer.start();
        QCoro::waitFor(player->service->loadTracks(tracks));
        loadSeconds += static_cast<double>(timer.nsecsElapsed()) / 1e9;
        state.PauseTiming();
        addedMiB = std::max(addedMiB, residentMiB() - before);
        // Ten seconds of playback: the rings fill, and memory stays where it is.
        player->service->play();
        std::vector<float> block(PullOutput::sliceFrames * 2);
        for (int64_t done = 0; done < 10 * kRate; done += PullOutput::sliceFrames)
            player->output->pullInto(block.data(), PullOutput::sliceFrames);
        afterPlayMiB = std::max(afterPlayMiB, residentMiB() - before);
        player.reset();
        state.ResumeTiming();
    }
    static const double reference = [&] {
        QStringList arguments{"-v",  "error", "-show_entries", "stream=duration,sample_rate,channels",
                              "-of", "csv"};
        double total = 0.0;
        for (const QString& path : set.paths)
            total += referenceSeconds(kFFprobe, arguments + QStringList{path});
        return total;
    }();
    state.counters["added_MiB"] = addedMiB;
    state.counters["after_10s_play_MiB"] = afterPlayMiB;
    state.counters["ffprobe_6_files_ms"] = reference * 1000.0;
    state.counters["vs_reference"] = reference / (loadSeconds / static_cast<double>(state.iterations()));
}
BENCHMARK(loadSixStems5min)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);

// The 1,800-point envelope of a 5-minute stereo WAV, each decoder, against ffmpeg's own decode to mono.
void envelope5minWav(benchmark::State& state) {
    const QString path = stems(300).paths.first();
    const WaveformRenderer renderer([](const QString&) {});
    const bool streaming = state.range(0) == 0;
    QElapsedTimer timer;
    timer.start();
    for (auto _ : state) {
        const QList<float> envelope =
            streaming ? renderer.decodeWithAssetReader(path, 1800) : renderer.decodeWithAudioFile(path, 1800);
        if (envelope.size() != 1800)
            state.SkipWithError("unexpected envelope size");
        benchmark::DoNotOptimize(envelope.constData());
    }
    static const double reference =
        referenceSeconds(kFFmpeg, {"-v", "error", "-i", path, "-ac", "1", "-f", "f32le", "-y", "/dev/null"});
    const double ours =
        static_cast<double>(timer.nsecsElapsed()) / 1e9 / static_cast<double>(state.iterations());
    state.counters["ffmpeg_decode_s"] = reference;
    state.counters["vs_reference"] = reference / ours;
    state.counters["realtime_x"] =
        benchmark::Counter(300.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel(streaming ? "streaming decoder (FFmpeg libraries)" : "direct decoder (libsndfile)");
}
BENCHMARK(envelope5minWav)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace

int main(int argc, char** argv) {
    // One core for everything, the reference tools included (children inherit the mask).
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu() >= 0 ? sched_getcpu() : 0, &one);
    sched_setaffinity(0, sizeof one, &one);
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
