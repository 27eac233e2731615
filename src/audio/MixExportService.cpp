#include "MixExportService.h"

#include "ExportError.h"
#include "ExportService.h"
#include "FFmpegProcess.h"
#include "MixError.h"
#include "SafeTitle.h"

#include <algorithm>

namespace {
constexpr qsizetype reportedErrorCharacters = 300;

QString filterGraph(const QList<TrackSnapshot>& snapshots) {
    QStringList filters;
    QString labels;
    for (qsizetype i = 0; i < snapshots.size(); ++i) {
        filters.append(QStringLiteral("[%1:a]volume=%2[a%1]")
                           .arg(i)
                           .arg(QString::asprintf("%.3f", static_cast<double>(snapshots[i].volume))));
        labels += QStringLiteral("[a%1]").arg(i);
    }
    filters.append(labels +
                   QStringLiteral("amix=inputs=%1:duration=longest:normalize=0[out]").arg(snapshots.size()));
    return filters.join(QLatin1Char(';'));
}

QString joinedNames(const QList<StemTrackPtr>& tracks, bool (StemTrack::*flag)() const,
                    const QString& separator) {
    QStringList names;
    for (const StemTrackPtr& track : tracks)
        if (track && (track.get()->*flag)())
            names.append(StemKinds::displayName(track->kind()));
    return names.join(separator);
}

bool anyTrack(const QList<StemTrackPtr>& tracks, bool (StemTrack::*flag)() const) {
    return std::any_of(tracks.begin(), tracks.end(),
                       [flag](const StemTrackPtr& track) { return track && (track.get()->*flag)(); });
}
} // namespace

MixExportService::MixExportService(const ExportService& exports, ConsoleLineSink console)
    : m_exports(exports)
    , m_console(std::move(console)) {}

QList<TrackSnapshot> MixExportService::audibleSnapshots(const QList<StemTrackPtr>& tracks) {
    const bool anySolo = anyTrack(tracks, &StemTrack::isSolo);
    QList<TrackSnapshot> snapshots;
    for (const StemTrackPtr& track : tracks)
        if (track && !track->isMuted() && track->audioURL && (!anySolo || track->isSolo()))
            snapshots.append({*track->audioURL, track->volume()});
    return snapshots;
}

QStringList MixExportService::mixArguments(const QList<TrackSnapshot>& snapshots, ExportFormat format,
                                           const QString& dest) {
    QStringList arguments{QStringLiteral("-y")};
    for (const TrackSnapshot& snapshot : snapshots)
        arguments << QStringLiteral("-i")
                  << FFmpegProcess::pathArgument(FFmpegProcess::inputPath(snapshot.url));
    arguments << QStringLiteral("-filter_complex") << filterGraph(snapshots) << QStringLiteral("-map")
              << QStringLiteral("[out]") << QStringLiteral("-ac") << QStringLiteral("2");
    arguments += ExportFormats::mixArguments(format);
    arguments.append(FFmpegProcess::pathArgument(dest));
    return arguments;
}

QString MixExportService::defaultFileName(const QString& title, const QList<StemTrackPtr>& tracks,
                                          ExportFormat format) {
    const QString base = safeTitle(title);
    QString name;
    if (anyTrack(tracks, &StemTrack::isSolo))
        name =
            QStringLiteral("%1 (%2)").arg(base, joinedNames(tracks, &StemTrack::isSolo, QStringLiteral("+")));
    else if (!anyTrack(tracks, &StemTrack::isMuted))
        name = base + QStringLiteral(" (mix)");
    else
        name = QStringLiteral("%1 (sans %2)")
                   .arg(base, joinedNames(tracks, &StemTrack::isMuted, QStringLiteral(", ")));
    return name + QLatin1Char('.') + ExportFormats::extension(format);
}

QCoro::Task<> MixExportService::exportMix(QList<StemTrackPtr> tracks, ExportFormat format,
                                          QString dest) const {
    const QList<TrackSnapshot> snapshots = audibleSnapshots(tracks);
    if (snapshots.isEmpty())
        throw MixError::noActiveTracks();
    if (snapshots.size() == 1) {
        const QString source = FFmpegProcess::inputPath(snapshots.first().url);
        co_await m_exports.convert(source, format, dest);
        co_return;
    }

    const std::optional<QString> ffmpeg = m_exports.findFFmpeg();
    if (!ffmpeg)
        throw ExportError::ffmpegNotFound();
    const QStringList arguments = mixArguments(snapshots, format, dest);
    m_console(QStringLiteral("[MixExport] ") + arguments.join(QLatin1Char(' ')));
    std::function<void()> work = [path = *ffmpeg, arguments] {
        const FFmpegOutcome outcome = FFmpegProcess::run(path, arguments);
        if (!outcome.succeeded())
            throw ExportError::ffmpegFailed(
                FFmpegProcess::tail(outcome.errorOutput, reportedErrorCharacters));
    };
    co_await FFmpegProcess::inBackground(std::move(work));
}
