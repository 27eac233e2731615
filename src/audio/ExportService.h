#pragma once

#include "ConsoleLine.h"
#include "ExportFormat.h"
#include "StemTrack.h"
#include "runtime/InstallLayout.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>
#include <functional>
#include <optional>

// Transcodes audio files into WAV or MP3 with FFmpeg, and writes the stems of a job as separate files.
// FFmpeg is run with an argument list ("-y" first, the output path last), off the main thread.
class ExportService {
public:
    using RevealFunction = std::function<void(const QString& path)>;

    struct Config {
        InstallLayout layout;                       // where FFmpeg is looked for
        ConsoleLineSink console = printConsoleLine; // "[ExportService] …" lines; called from any thread
        RevealFunction reveal = defaultReveal;      // shows a written stems folder in the file manager
    };
    static void defaultReveal(const QString& path); // the desktop's file manager
    static Config defaultConfig();                  // the user's install layout, standard output

    static ExportService& shared();
    explicit ExportService(Config config = defaultConfig());

    // The runtime's FFmpeg (its own copy, then the system's), or none; says which on the console.
    std::optional<QString> findFFmpeg() const;

    // Transcodes `source` into `dest`. Throws ExportError (not found, failed) or ProcessLaunchError.
    QCoro::Task<> convert(QString source, ExportFormat format, QString dest) const;

    // The process part of convert with a known FFmpeg, on the calling thread. Throws like convert.
    void runFFmpeg(const QString& ffmpeg, const QString& source, ExportFormat format,
                   const QString& dest) const;

    // "-y", "-i", source, the format's codec arguments, dest. Relative paths are made absolute so that
    // no name can be read as an option.
    static QStringList conversionArguments(const QString& source, ExportFormat format, const QString& dest);

    // Converts every track that has a file, in list order, into parentFolder/{safe title}/{display
    // name}.{ext}, then reveals that folder and returns its path. The first failure ends the export (files
    // already written stay); a folder that cannot be created throws ExportError::folderNotCreated.
    QCoro::Task<QString> exportStems(QList<StemTrackPtr> tracks, QString title, ExportFormat format,
                                     QString parentFolder) const;

    // parentFolder/{safe title}.
    static QString stemsFolder(const QString& title, const QString& parentFolder);

private:
    Config m_config;
};
