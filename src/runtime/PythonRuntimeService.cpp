#include "PythonRuntimeService.h"

#include "ChildEnvironment.h"
#include "LegacyMigration.h"
#include "log/AppLogger.h"
#include "platform/Places.h"
#include "platform/SettingsStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QThread>
#include <cstdio>

PythonRuntimeService::Config PythonRuntimeService::defaultConfig() {
    return Config{InstallLayout::defaultConfig(),
                  QString(),
                  QProcessEnvironment::systemEnvironment(),
                  Places::homeDir(),
                  Places::userName(),
                  QCoreApplication::applicationPid()};
}

PythonRuntimeService& PythonRuntimeService::shared() {
    static PythonRuntimeService* instance = [] {
        auto* service = new PythonRuntimeService;
        if (QCoreApplication* app = QCoreApplication::instance())
            service->moveToThread(app->thread());
        return service;
    }();
    return *instance;
}

PythonRuntimeService::PythonRuntimeService(Config config, QObject* parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_layout(m_config.layout)
    , m_manifest(m_layout) {
    qRegisterMetaType<ComponentInfo>();
    m_manifest.load();
    m_manifest.reconcile();
}

PythonRuntimeService::~PythonRuntimeService() {
    stopBackendBlocking();
}

void PythonRuntimeService::purgeOldBackends() {
    const QDir backends(m_layout.backendsDir());
    if (!backends.exists())
        return;
    const QStringList names = backends.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QString& name : names) {
        if (name == manifest().backendTag || name == m_runningTag)
            continue;
        const QString path = backends.filePath(name);
        const bool removed = QFileInfo(path).isDir() && !QFileInfo(path).isSymLink()
                                 ? QDir(path).removeRecursively()
                                 : QFile::remove(path);
        if (removed)
            log(QStringLiteral("🧹 Ancien backend supprimé : %1").arg(name));
    }
}

void PythonRuntimeService::migrateLegacyInstall() {
    ::migrateLegacyInstall(m_layout, [this](const QString& line) { log(line); });
}

QProcessEnvironment PythonRuntimeService::cleanEnvironment() const {
    return ChildEnvironment::clean(m_config.baseEnvironment, m_config.homeDir, m_config.userName);
}

QProcessEnvironment PythonRuntimeService::backendEnvironment() const {
    return backendEnvironment(manifest().backendTag.value_or(QString()));
}

QProcessEnvironment PythonRuntimeService::backendEnvironment(const QString& tag) const {
    const SettingsStore settings(m_config.settingsFile);
    return ChildEnvironment::backend(cleanEnvironment(), m_layout, tag, settings, m_config.parentPid);
}

void PythonRuntimeService::recordInstalledBackend(const QString& tag, const QStringList& skipped) {
    {
        const std::lock_guard<std::mutex> guard(m_opLock);
        manifest().backendTag = tag;
        manifest().skippedPackages = skipped.isEmpty() ? std::nullopt : std::optional<QStringList>(skipped);
    }
    saveManifest();
}

void PythonRuntimeService::log(const QString& line) {
    const QByteArray echo = QStringLiteral("[Halvorn] %1\n").arg(line).toUtf8();
    std::fwrite(echo.constData(), 1, static_cast<size_t>(echo.size()), stdout);
    std::fflush(stdout);
    AppLogger::shared().log(line, LogLevel::info);
    onOwnThread([this, line] { appendSetupLog(line + QLatin1Char('\n')); });
}

void PythonRuntimeService::appendSetupLog(const QString& text) {
    m_setupLog += text;
    if (m_setupLog.size() > setupLogLimit)
        m_setupLog = m_setupLog.right(setupLogKept);
    Q_EMIT setupLogChanged();
}

qint64 PythonRuntimeService::backendPid() const {
    return m_process ? m_process->processId() : 0;
}

void PythonRuntimeService::setRunning(bool running) {
    if (m_isRunning == running)
        return;
    m_isRunning = running;
    Q_EMIT isRunningChanged();
}

void PythonRuntimeService::setComponents(const QList<ComponentInfo>& components) {
    onOwnThread([this, components] {
        m_components = components;
        Q_EMIT componentsChanged();
    });
}

bool PythonRuntimeService::tryBeginOperation() {
    {
        const std::lock_guard<std::mutex> guard(m_opLock);
        if (m_busy)
            return false;
        m_busy = true;
    }
    publishBusy(true);
    return true;
}

void PythonRuntimeService::endOperation() {
    setBusy(false);
}

void PythonRuntimeService::setBusy(bool busy) {
    {
        const std::lock_guard<std::mutex> guard(m_opLock);
        m_busy = busy;
    }
    publishBusy(busy);
}

void PythonRuntimeService::publishBusy(bool busy) {
    onOwnThread([this, busy] {
        if (m_isBusy == busy)
            return;
        m_isBusy = busy;
        Q_EMIT isBusyChanged();
    });
}

void PythonRuntimeService::setComponent(const ComponentInfo& row) {
    onOwnThread([this, row] {
        const auto index = static_cast<qsizetype>(row.id);
        if (index >= m_components.size() || m_components[index] == row)
            return;
        m_components[index] = row;
        Q_EMIT componentsChanged();
    });
}

void PythonRuntimeService::setComponentState(ComponentID id, const ComponentInfo::State& state) {
    onOwnThread([this, id, state] {
        const auto index = static_cast<qsizetype>(id);
        if (index >= m_components.size() || m_components[index].state == state)
            return;
        m_components[index].state = state;
        Q_EMIT componentsChanged();
    });
}

void PythonRuntimeService::setNeedsRestart(bool needsRestart) {
    onOwnThread([this, needsRestart] {
        if (m_needsRestart == needsRestart)
            return;
        m_needsRestart = needsRestart;
        Q_EMIT needsRestartChanged();
    });
}

void PythonRuntimeService::setRunningVersion(const std::optional<QString>& version) {
    onOwnThread([this, version] {
        if (m_runningVersion == version)
            return;
        m_runningVersion = version;
        Q_EMIT runningVersionChanged();
    });
}
