#pragma once

#include <QSettings>
#include <QString>
#include <memory>
#include <optional>

// The per-user settings store and its keys, with their defaults.
class SettingsStore {
public:
    // The user's store ("Marlune"/"Marlune"), or an INI file when a path is given (tests).
    explicit SettingsStore(const QString& iniFile = {});

    int backendPort() const;                      // "backendPort", 8000
    QString demucsDevice() const;                 // "demucsDevice", "auto"
    int maxDuration() const;                      // "maxDuration", 1200 seconds
    std::optional<int> storedMaxDuration() const; // only what the user stored
    bool autoUpdate() const;                      // "autoUpdate", yes
    bool installCompilerTools() const;            // "installCompilerTools", no
    bool compilerToolsDeclined() const;           // "compilerToolsDeclined", no

    void setBackendPort(int port);
    void setDemucsDevice(const QString& device);
    void setMaxDuration(int seconds);
    void setAutoUpdate(bool on);
    void setInstallCompilerTools(bool on);
    void setCompilerToolsDeclined(bool on);

    bool contains(const QString& key) const;
    void remove(const QString& key);
    void sync();

private:
    std::unique_ptr<QSettings> m_settings;
};
