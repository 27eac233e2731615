#include "AudioConverter.h"

#include "ExportService.h"
#include "platform/UserError.h"

#include <QDir>
#include <QFileInfo>

namespace {
QString normalizedPath(const QString& path) {
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}
} // namespace

const QStringList AudioConverter::acceptedExtensions{
    QStringLiteral("m4a"), QStringLiteral("mp3"),  QStringLiteral("wav"), QStringLiteral("flac"),
    QStringLiteral("aif"), QStringLiteral("aiff"), QStringLiteral("ogg"), QStringLiteral("opus"),
    QStringLiteral("wma"), QStringLiteral("aac")};

AudioConverter::AudioConverter(const ExportService& exports, QObject* parent)
    : QObject(parent)
    , m_exports(exports) {}

void AudioConverter::setOutputFormat(ExportFormat format) {
    if (format == m_outputFormat)
        return;
    m_outputFormat = format;
    Q_EMIT outputFormatChanged();
}

void AudioConverter::setOutputDir(const QString& folder) {
    const QString cleaned = folder.isEmpty() ? QString() : normalizedPath(folder);
    if (cleaned == m_outputDir)
        return;
    m_outputDir = cleaned;
    Q_EMIT outputDirChanged();
}

bool AudioConverter::isAcceptedFile(const QString& path) {
    const QFileInfo info(path);
    return acceptedExtensions.contains(info.suffix().toLower()) && !info.isDir();
}

int AudioConverter::addFiles(const QStringList& paths) {
    int added = 0;
    for (const QString& path : paths) {
        if (path.isEmpty() || !isAcceptedFile(path))
            continue;
        const QString file = normalizedPath(path);
        if (m_inputFiles.contains(file))
            continue;
        m_inputFiles.append(file);
        ++added;
    }
    if (added > 0)
        Q_EMIT inputFilesChanged();
    return added;
}

void AudioConverter::removeFile(const QString& path) {
    if (m_inputFiles.removeAll(normalizedPath(path)) > 0)
        Q_EMIT inputFilesChanged();
}

void AudioConverter::clearInputs() {
    if (m_inputFiles.isEmpty())
        return;
    m_inputFiles.clear();
    Q_EMIT inputFilesChanged();
}

void AudioConverter::clearResults() {
    if (m_results.isEmpty())
        return;
    m_results.clear();
    Q_EMIT resultsChanged();
}

QString AudioConverter::destinationFor(const QString& source, const QString& outputDir, ExportFormat format) {
    const QFileInfo info(source);
    const QString folder = outputDir.isEmpty() ? info.absolutePath() : outputDir;
    return QDir(folder).filePath(info.completeBaseName() + QLatin1Char('.') +
                                 ExportFormats::extension(format));
}

QCoro::Task<> AudioConverter::startConversion() {
    if (m_inputFiles.isEmpty() || m_isConverting)
        co_return;
    setConverting(true);
    m_results.clear();
    Q_EMIT resultsChanged();

    // The batch is the list as it stands now; files added meanwhile wait for the next one.
    const QStringList batch = m_inputFiles;
    const ExportFormat format = m_outputFormat;
    const QString outputDir = m_outputDir;
    bool allSucceeded = true;
    for (const QString& source : batch) {
        const QString dest = destinationFor(source, outputDir, format);
        ConvertResult result;
        result.fileName = QFileInfo(source).fileName();
        try {
            co_await m_exports.convert(source, format, dest);
            result.success = true;
            result.destURL = dest;
        } catch (const UserError& error) {
            result.error = error.message();
        } catch (const std::exception& error) {
            result.error = QString::fromUtf8(error.what());
        }
        allSucceeded = allSucceeded && result.success;
        m_results.append(result);
        Q_EMIT resultsChanged();
    }

    setConverting(false);
    if (allSucceeded) {
        for (const QString& source : batch)
            m_inputFiles.removeAll(source);
        Q_EMIT inputFilesChanged();
    }
}

void AudioConverter::setConverting(bool converting) {
    m_isConverting = converting;
    Q_EMIT isConvertingChanged();
}
