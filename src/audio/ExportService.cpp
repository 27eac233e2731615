#include "ExportService.h"

#include "ExportError.h"
#include "FFmpegProcess.h"
#include "SafeTitle.h"
#include "platform/FileReveal.h"

#include <QDir>
#include <QFileInfo>
#include <filesystem>
#include <system_error>

namespace {
constexpr qsizetype loggedErrorCharacters = 400;
constexpr qsizetype reportedErrorCharacters = 300;

struct StemToWrite {
    QString source;
    QString fileName;
};
} // namespace

void ExportService::defaultReveal(const QString& path) {
    FileReveal::reveal(path);
}

ExportService::Config ExportService::defaultConfig() {
    return Config{InstallLayout(), printConsoleLine, defaultReveal};
}

ExportService& ExportService::shared() {
    static ExportService instance;
    return instance;
}

ExportService::ExportService(Config config)
    : m_config(std::move(config)) {}

std::optional<QString> ExportService::findFFmpeg() const {
    std::optional<QString> path = m_config.layout.ffmpegPath();
    if (path)
        m_config.console(QStringLiteral("[ExportService] ✅ ffmpeg: ") + *path);
    else
        m_config.console(
            QStringLiteral("[ExportService] ❌ ffmpeg introuvable — installer via: sudo apt install ffmpeg"));
    return path;
}

QCoro::Task<> ExportService::convert(QString source, ExportFormat format, QString dest) const {
    const std::optional<QString> ffmpeg = findFFmpeg();
    if (!ffmpeg)
        throw ExportError::ffmpegNotFound();
    std::function<void()> work = [this, path = *ffmpeg, source, format, dest] {
        runFFmpeg(path, source, format, dest);
    };
    co_await FFmpegProcess::inBackground(std::move(work));
}

void ExportService::runFFmpeg(const QString& ffmpeg, const QString& source, ExportFormat format,
                              const QString& dest) const {
    const FFmpegOutcome outcome = FFmpegProcess::run(ffmpeg, conversionArguments(source, format, dest));
    if (!outcome.succeeded()) {
        m_config.console(QStringLiteral("[ExportService] ❌ ffmpeg error:\n") +
                         FFmpegProcess::tail(outcome.errorOutput, loggedErrorCharacters));
        throw ExportError::ffmpegFailed(FFmpegProcess::tail(outcome.errorOutput, reportedErrorCharacters));
    }
    m_config.console(QStringLiteral("[ExportService] ✅ Converted %1 → %2")
                         .arg(QFileInfo(source).fileName(), QFileInfo(dest).fileName()));
}

QStringList ExportService::conversionArguments(const QString& source, ExportFormat format,
                                               const QString& dest) {
    QStringList arguments{QStringLiteral("-y"), QStringLiteral("-i"), FFmpegProcess::pathArgument(source)};
    arguments += ExportFormats::conversionArguments(format);
    arguments.append(FFmpegProcess::pathArgument(dest));
    return arguments;
}

QString ExportService::stemsFolder(const QString& title, const QString& parentFolder) {
    return QDir(parentFolder).filePath(safeTitle(title));
}

QCoro::Task<QString> ExportService::exportStems(QList<StemTrackPtr> tracks, QString title,
                                                ExportFormat format, QString parentFolder) const {
    // Read on the caller's thread before any work starts: later changes in the studio do not count.
    QList<StemToWrite> stems;
    for (const StemTrackPtr& track : tracks)
        if (track && track->audioURL)
            stems.append({FFmpegProcess::inputPath(*track->audioURL), StemKinds::displayName(track->kind()) +
                                                                          QLatin1Char('.') +
                                                                          ExportFormats::extension(format)});

    const QString folder = stemsFolder(title, parentFolder);
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(folder.toStdU16String()), error);
    if (error)
        throw ExportError::folderNotCreated(QString::fromLocal8Bit(error.message()));

    for (const StemToWrite& stem : stems) {
        const QString dest = QDir(folder).filePath(stem.fileName);
        co_await convert(stem.source, format, dest);
    }
    m_config.reveal(folder);
    co_return folder;
}
