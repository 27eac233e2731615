#include "SettingsStore.h"

namespace {
const QString kBackendPort = QStringLiteral("backendPort");
const QString kDemucsDevice = QStringLiteral("demucsDevice");
const QString kMaxDuration = QStringLiteral("maxDuration");
const QString kAutoUpdate = QStringLiteral("autoUpdate");
const QString kInstallCompilerTools = QStringLiteral("installCompilerTools");
const QString kCompilerToolsDeclined = QStringLiteral("compilerToolsDeclined");

int intValue(const QSettings& settings, const QString& key, int fallback) {
    bool ok = false;
    const int value = settings.value(key).toInt(&ok);
    return ok ? value : fallback;
}
} // namespace

SettingsStore::SettingsStore(const QString& iniFile)
    : m_settings(iniFile.isEmpty()
                     ? std::make_unique<QSettings>(QStringLiteral("Marlune"), QStringLiteral("Marlune"))
                     : std::make_unique<QSettings>(iniFile, QSettings::IniFormat)) {}

int SettingsStore::backendPort() const {
    return intValue(*m_settings, kBackendPort, 8000);
}
QString SettingsStore::demucsDevice() const {
    return m_settings->value(kDemucsDevice, QStringLiteral("auto")).toString();
}
int SettingsStore::maxDuration() const {
    return intValue(*m_settings, kMaxDuration, 1200);
}
std::optional<int> SettingsStore::storedMaxDuration() const {
    bool ok = false;
    const int value = m_settings->value(kMaxDuration).toInt(&ok);
    return ok ? std::optional<int>(value) : std::nullopt;
}
bool SettingsStore::autoUpdate() const {
    return m_settings->value(kAutoUpdate, true).toBool();
}
bool SettingsStore::installCompilerTools() const {
    return m_settings->value(kInstallCompilerTools, false).toBool();
}
bool SettingsStore::compilerToolsDeclined() const {
    return m_settings->value(kCompilerToolsDeclined, false).toBool();
}

void SettingsStore::setBackendPort(int port) {
    m_settings->setValue(kBackendPort, port);
}
void SettingsStore::setDemucsDevice(const QString& device) {
    m_settings->setValue(kDemucsDevice, device);
}
void SettingsStore::setMaxDuration(int seconds) {
    m_settings->setValue(kMaxDuration, seconds);
}
void SettingsStore::setAutoUpdate(bool on) {
    m_settings->setValue(kAutoUpdate, on);
}
void SettingsStore::setInstallCompilerTools(bool on) {
    m_settings->setValue(kInstallCompilerTools, on);
}
void SettingsStore::setCompilerToolsDeclined(bool on) {
    m_settings->setValue(kCompilerToolsDeclined, on);
}

bool SettingsStore::contains(const QString& key) const {
    return m_settings->contains(key);
}
void SettingsStore::remove(const QString& key) {
    m_settings->remove(key);
}
void SettingsStore::sync() {
    m_settings->sync();
}
