#pragma once

#include "ConvertResult.h"
#include "ExportFormat.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class ExportService;

// The batch converter behind the converter screen: collected audio files are transcoded one after another
// into WAV or MP3, next to their source or into one chosen folder, each with its own result.
// Lives on the main thread; every property changes there and announces itself.
class AudioConverter : public QObject {
    Q_OBJECT
    Q_PROPERTY(QStringList inputFiles READ inputFiles NOTIFY inputFilesChanged)
    Q_PROPERTY(ExportFormat outputFormat READ outputFormat WRITE setOutputFormat NOTIFY outputFormatChanged)
    Q_PROPERTY(QString outputDir READ outputDir WRITE setOutputDir NOTIFY outputDirChanged)
    Q_PROPERTY(bool isConverting READ isConverting NOTIFY isConvertingChanged)
    Q_PROPERTY(QList<ConvertResult> results READ results NOTIFY resultsChanged)

public:
    // Extensions taken by addFiles, compared in lower case.
    static const QStringList acceptedExtensions;

    // `exports` runs each conversion; it must outlive the converter.
    explicit AudioConverter(const ExportService& exports, QObject* parent = nullptr);

    const QStringList& inputFiles() const { return m_inputFiles; }
    ExportFormat outputFormat() const { return m_outputFormat; }
    const QString& outputDir() const { return m_outputDir; } // empty: next to each source
    bool isConverting() const { return m_isConverting; }
    const QList<ConvertResult>& results() const { return m_results; }

    void setOutputFormat(ExportFormat format);
    void setOutputDir(const QString& folder);

    // Appends, in order, every path with an accepted extension that is not a folder and not listed yet.
    // Returns how many were added; the others are ignored.
    int addFiles(const QStringList& paths);
    static bool isAcceptedFile(const QString& path);
    void removeFile(const QString& path);
    void clearInputs();
    void clearResults();

    // Where `source` is written: the output folder (or, when empty, the source's own) /
    // "{name without its extension}.{format's extension}".
    static QString destinationFor(const QString& source, const QString& outputDir, ExportFormat format);

    // Converts every input in turn; a failure is recorded and the next file goes on. When all succeeded the
    // converted files leave the input list; otherwise it stays for a retry. Does nothing without input or
    // while a batch runs.
    QCoro::Task<> startConversion();

Q_SIGNALS:
    void inputFilesChanged();
    void outputFormatChanged();
    void outputDirChanged();
    void isConvertingChanged();
    void resultsChanged();

private:
    void setConverting(bool converting);

    const ExportService& m_exports;
    QStringList m_inputFiles;
    ExportFormat m_outputFormat = ExportFormat::wav;
    QString m_outputDir;
    bool m_isConverting = false;
    QList<ConvertResult> m_results;
};
