#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// Where everything Marlune installs for the engine lives, under one install root.
class InstallLayout {
public:
    struct Config {
        QString root;                       // the install root ("…/Halvorn")
        QString documentsDir;               // the user's Documents folder
        QString homeDir;                    // the user's home folder
        QStringList systemFFmpegCandidates; // tried in order after the install's own copy
        QStringList systemFFprobeCandidates;
    };

    // The user's layout: XDG data home + "/Halvorn", Documents, home, /usr/local/bin then /usr/bin.
    static Config defaultConfig();
    explicit InstallLayout(Config config = defaultConfig());

    const QString& root() const { return m_config.root; }
    const QString& homeDir() const { return m_config.homeDir; }
    QString supportURL(const QString& name) const; // root + "/" + name

    QString manifestPath() const;                    // components.json
    QString backendsDir() const;                     // backends
    QString backendDir(const QString& tag) const;    // backends/{tag}
    QString backendPython(const QString& tag) const; // backends/{tag}/.venv/bin/python
    QString backendBinDir(const QString& tag) const; // backends/{tag}/.venv/bin
    QString readyMarker(const QString& tag) const;   // backends/{tag}/.halvorn-ready
    QString dataDir() const;                         // data
    QString ffmpegDir() const;                       // data/ffmpeg
    QString ownFFmpeg() const;                       // data/ffmpeg/ffmpeg
    QString ownFFprobe() const;                      // data/ffmpeg/ffprobe
    QString fpcalcPath() const;                      // data/ffmpeg/fpcalc
    QString jsRuntimeDir() const;                    // data/jsruntime
    QString qjsPath() const;                         // data/jsruntime/qjs
    QString uvPath() const;                          // uv/uv
    QString pythonDir() const;                       // python
    QString uvCacheDir() const;                      // uv-cache
    QString backendLogPath() const;                  // backend.log
    QString jobsDir() const;                         // Documents/Halvorn/jobs

    // backends/{tag}/.halvorn-ready exists and backends/{tag}/.venv/bin/python is executable.
    bool isBackendInstalled(const QString& tag) const;
    // The install's own FFmpeg when executable, else the first executable system candidate.
    std::optional<QString> ffmpegPath() const;
    std::optional<QString> ffprobePath() const;

    // The process may execute the file (access with X_OK).
    static bool isExecutable(const QString& path);

private:
    Config m_config;
};
