#pragma once

#include "ConsoleLine.h"
#include "ExportFormat.h"
#include "StemTrack.h"
#include "TrackSnapshot.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>

class ExportService;

// Writes the audible mix of the studio's tracks into one file: each track at its volume, summed by FFmpeg.
class MixExportService {
public:
    // `exports` locates FFmpeg and transcodes a single audible track; it must outlive this service.
    explicit MixExportService(const ExportService& exports, ConsoleLineSink console = printConsoleLine);

    // Throws MixError::noActiveTracks when no track is audible, else ExportError or ProcessLaunchError.
    // One audible track is transcoded as it is (its volume not applied); two or more are mixed.
    QCoro::Task<> exportMix(QList<StemTrackPtr> tracks, ExportFormat format, QString dest) const;

    // The audible tracks, in list order: not muted, with a file, and soloed when any track is.
    static QList<TrackSnapshot> audibleSnapshots(const QList<StemTrackPtr>& tracks);

    // "-y", the inputs, the filter graph with "%.3f" volumes, "-map" "[out]" "-ac" "2", the format's mix
    // codec arguments and `dest`, last.
    static QStringList mixArguments(const QList<TrackSnapshot>& snapshots, ExportFormat format,
                                    const QString& dest);

    // The name the save dialog proposes: "{safe title} ({soloed names joined by +})", else
    // "{safe title} (mix)" when nothing is muted, else "{safe title} (sans {muted names joined by , })";
    // then "." and the format's extension.
    static QString defaultFileName(const QString& title, const QList<StemTrackPtr>& tracks,
                                   ExportFormat format);

private:
    const ExportService& m_exports;
    ConsoleLineSink m_console;
};
