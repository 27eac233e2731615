#pragma once

// Shared pieces of the export and converter tests: generated tones, an isolated ExportService, stand-in
// FFmpeg scripts, and reading results back with the real ffprobe and ffmpeg.

#include "audio/ExportService.h"
#include "audio/StemTrack.h"
#include "audio/TestSignals.h"
#include "platform/UserError.h"
#include "support/TempInstallRoot.h"

#include <QCoro/QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QProcess>
#include <QStringList>
#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <vector>

namespace ExportFixtures {

constexpr int rate = 44100;
inline const QString systemFFmpeg = QStringLiteral("/usr/bin/ffmpeg");
inline const QString systemFFprobe = QStringLiteral("/usr/bin/ffprobe");

// Console lines and revealed paths of one service, from whatever thread.
struct Recorder {
    QMutex mutex;
    QStringList lines;
    QStringList revealed;

    ConsoleLineSink sink() {
        return [this](const QString& line) {
            QMutexLocker lock(&mutex);
            lines.append(line);
        };
    }
    ExportService::RevealFunction reveal() {
        return [this](const QString& path) {
            QMutexLocker lock(&mutex);
            revealed.append(path);
        };
    }
    QStringList takeLines() {
        QMutexLocker lock(&mutex);
        return std::exchange(lines, {});
    }
};

// A service whose FFmpeg is the install's own copy under `root` (when written there), else `candidates`.
inline ExportService::Config serviceConfig(const TempInstallRoot& root, const QStringList& candidates,
                                           Recorder& recorder) {
    InstallLayout::Config layout{root.root(), root.documents(), root.home(), candidates, {}};
    return ExportService::Config{InstallLayout(layout), recorder.sink(), recorder.reveal()};
}

// A float WAV of a sine at `frequency`, `seconds` long, the same on every channel.
inline QString writeTone(const QString& path, double frequency, float amplitude, double seconds = 1.0,
                         int channels = 1) {
    const auto frames = static_cast<int64_t>(seconds * rate);
    TestSignals::writeWav(path, channels, rate,
                          TestSignals::sine(frames, channels, rate, frequency, amplitude));
    return path;
}

// A stand-in FFmpeg: a shell script with `body`, executable.
inline QString writeStandIn(const TempInstallRoot& root, const QString& relative, const QByteArray& body) {
    return root.writeFile(relative, "#!/bin/sh\n" + body + "\n", true);
}

// The first audio stream as ffprobe reports it.
inline QJsonObject probe(const QString& path) {
    QProcess process;
    process.start(systemFFprobe,
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_streams"),
                   QStringLiteral("-of"), QStringLiteral("json"), path});
    process.waitForFinished(30000);
    const QJsonArray streams = QJsonDocument::fromJson(process.readAllStandardOutput())[u"streams"].toArray();
    return streams.isEmpty() ? QJsonObject() : streams.first().toObject();
}

// The file decoded by the real ffmpeg to 44.1 kHz float samples of its first channel; empty when it fails.
inline std::vector<float> decodeFirstChannel(const QString& path, int* channels = nullptr) {
    const int count = probe(path)[u"channels"].toInt();
    if (channels)
        *channels = count;
    if (count <= 0)
        return {};
    QProcess process;
    process.start(systemFFmpeg, {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), path,
                                 QStringLiteral("-f"), QStringLiteral("f32le"), QStringLiteral("-ar"),
                                 QString::number(rate), QStringLiteral("-")});
    process.waitForFinished(30000);
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return {};
    const QByteArray bytes = process.readAllStandardOutput();
    const size_t frames = static_cast<size_t>(bytes.size()) / sizeof(float) / static_cast<size_t>(count);
    std::vector<float> first(frames);
    for (size_t i = 0; i < frames; ++i)
        std::memcpy(&first[i], bytes.constData() + (i * static_cast<size_t>(count)) * sizeof(float),
                    sizeof(float));
    return first;
}

// Amplitude of the sine at `frequency` in samples [start, start + length) (single-bin DFT).
inline double toneAmplitude(const std::vector<float>& samples, double frequency, size_t start,
                            size_t length) {
    std::complex<double> sum;
    for (size_t i = 0; i < length && start + i < samples.size(); ++i) {
        const double phase = -2.0 * M_PI * frequency * static_cast<double>(i) / rate;
        sum +=
            static_cast<double>(samples[start + i]) * std::complex<double>(std::cos(phase), std::sin(phase));
    }
    return 2.0 * std::abs(sum) / static_cast<double>(length);
}

inline StemTrackPtr track(StemKind kind, const std::optional<QString>& path, float volume = 1.0f,
                          bool muted = false, bool solo = false) {
    auto result =
        std::make_shared<StemTrack>(StemFile::forJob(QStringLiteral("job1"), kind),
                                    path ? std::optional<QUrl>(QUrl::fromLocalFile(*path)) : std::nullopt);
    result->setVolume(volume);
    result->setMuted(muted);
    result->setSolo(solo);
    return result;
}

// The `Error` that `task` ends with, or none when it succeeds.
template <typename Error, typename Task> std::optional<Error> caught(Task task) {
    auto body = [](Task awaited) -> QCoro::Task<std::optional<Error>> {
        try {
            co_await std::move(awaited);
        } catch (const Error& error) {
            co_return error;
        }
        co_return std::nullopt;
    };
    return QCoro::waitFor(body(std::move(task)));
}

// The message of the UserError that `task` ends with, or an empty text when it succeeds.
template <typename Task> QString failureOf(Task task) {
    const std::optional<UserError> error = caught<UserError>(std::move(task));
    return error ? error->message() : QString();
}

} // namespace ExportFixtures
