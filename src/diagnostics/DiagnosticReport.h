#pragma once

#include "audio/ConsoleLine.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QProcessEnvironment>
#include <QStringList>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class BackendService;
class PlainHttpClient;
class PythonRuntimeService;

// The diagnostic report: the tools on disk and on the search path, a test conversion and a test download,
// the components, the tail of the engine's log and the engine's health; or a test job followed for 30 s.
// Each action starts from an empty report and writes it line by line. Lives on the main thread.
class DiagnosticReport : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString log READ log NOTIFY logChanged)
    Q_PROPERTY(bool running READ running NOTIFY runningChanged)

public:
    using Sleep = std::function<QCoro::Task<>(std::chrono::milliseconds)>;
    using RefreshComponents = std::function<QCoro::Task<>(PythonRuntimeService& runtime)>;

    struct Config {
        QStringList systemFFmpegCandidates;  // tried after the install's own data/ffmpeg/ffmpeg
        QStringList systemYtDlpCandidates;   // tried after the engine's .venv/bin/yt-dlp
        QString whichProgram;                // looks a name up on the tools' PATH
        QProcessEnvironment toolEnvironment; // every tool runs with it
        QString tempDir;                     // the test files
        QString testVideoURL;                // a public, very short video
        Sleep sleep;                         // the wait between two polls of the test job
        RefreshComponents refreshComponents; // brings the runtime's components list up to date (none: as is)
        ConsoleLineSink console;             // the standard-output copy of each line, "[Diag] …"
    };

    static constexpr const char* testVideoVariable = "MARLUNE_DIAG_VIDEO_URL";
    static QString defaultTestVideoURL();
    // The Linux candidates, /usr/bin/which, the application's environment, the temporary folder, the
    // test video of MARLUNE_DIAG_VIDEO_URL or the default one, real sleeps, the runtime's refresh with the
    // latest versions, standard output.
    static Config defaultConfig();

    DiagnosticReport(PythonRuntimeService& runtime, BackendService& backend, Config config = defaultConfig(),
                     QObject* parent = nullptr);
    ~DiagnosticReport() override;

    const QString& log() const { return m_log; }
    bool running() const { return m_running; }

    // Writes "[Diag] {line}" through the console at once and adds the line and "\n" to the report.
    void appendLine(const QString& line);

    // Both do nothing while an action runs.
    QCoro::Task<> runFullDiagnostic();
    // True when the engine created the test job (it was then followed), false when it did not.
    QCoro::Task<bool> runEngineTest();

    static constexpr int backendLogLines = 30;
    static constexpr int pollCount = 15;
    static constexpr std::chrono::milliseconds pollInterval{2000};
    static constexpr std::chrono::milliseconds createTimeout{10000};
    static constexpr std::chrono::milliseconds pollTimeout{60000};

Q_SIGNALS:
    void logChanged();
    void runningChanged();
    void lineAppended(const QString& line);

private:
    bool begin();
    void finish();
    // Candidate lines, then the which line; the first executable candidate, else what which found.
    QCoro::Task<std::optional<QString>> locate(QString name, QStringList candidates);
    QCoro::Task<std::optional<QString>> checkFFmpeg();
    QCoro::Task<> testConversion(std::optional<QString> ffmpeg);
    QCoro::Task<> checkYtDlp();
    QCoro::Task<> listComponents();
    void showBackendLog();
    QCoro::Task<> checkEngine();

    PythonRuntimeService& m_runtime;
    BackendService& m_backend;
    Config m_config;
    std::unique_ptr<PlainHttpClient> m_http;
    QString m_log;
    bool m_running = false;
};
