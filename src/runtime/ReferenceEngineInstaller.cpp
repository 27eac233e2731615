#include "ReferenceEngineInstaller.h"

#include "EngineFolder.h"
#include "PythonRuntimeService.h"
#include "SetupError.h"
#include "ToolRunner.h"

#include <BuildInfo.h>
#include <QCoreApplication>
#include <QCoro/QCoroFuture>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QtConcurrent>

namespace {

bool isPackageSource(const QString& relative) {
    static const QStringList skipped{QStringLiteral(".venv"), QStringLiteral("__pycache__"),
                                     QStringLiteral(".pytest_cache"), QStringLiteral("tests"),
                                     QStringLiteral("bench")};
    for (const QString& piece : relative.split(QLatin1Char('/')))
        if (skipped.contains(piece))
            return false;
    return true;
}

// Copies the engine's files (not its tests, caches or environments); false on the first failure.
bool copyTree(const QString& from, const QString& to) {
    QDirIterator it(from, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    const QDir source(from);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = source.relativeFilePath(path);
        if (!isPackageSource(relative))
            continue;
        const QString target = to + QLatin1Char('/') + relative;
        if (!QDir().mkpath(QFileInfo(target).absolutePath()) || !QFile::copy(path, target))
            return false;
    }
    return true;
}

// Copies the engine into `staging` and gives it its environment; returns the failure's message, if any.
QCoro::Task<QString> prepareStaging(PythonRuntimeService& runtime, QString sourceDir, QString staging,
                                    QString systemPython) {
    QDir(staging).removeRecursively();
    QFuture<bool> copy = QtConcurrent::run([sourceDir, staging] { return copyTree(sourceDir, staging); });
    const bool copied = co_await copy;
    if (!copied)
        co_return QStringLiteral("Copie du moteur impossible vers %1").arg(staging);
    ToolRunOptions options;
    options.environment = runtime.cleanEnvironment();
    const QStringList venv{QStringLiteral("-m"), QStringLiteral("venv"),
                           QStringLiteral("--system-site-packages"), QStringLiteral("--without-pip"),
                           staging + QStringLiteral("/.venv")};
    try {
        co_await runTool(systemPython, venv, options);
        const QString python = staging + QStringLiteral("/.venv/bin/python");
        const QProcessEnvironment environment = runtime.cleanEnvironment();
        co_await EngineFolder::checkImports(python, staging, environment);
    } catch (const SetupError& error) {
        co_return error.message();
    }
    co_return QString();
}

} // namespace

namespace ReferenceEngineInstaller {

std::optional<QString> bundledSourceDir() {
    QStringList candidates;
    if (const QString fromEnvironment = qEnvironmentVariable("MARLUNE_REFERENCE_ENGINE");
        !fromEnvironment.isEmpty())
        candidates.append(fromEnvironment);
    if (QCoreApplication::instance())
        candidates.append(QCoreApplication::applicationDirPath() +
                          QStringLiteral("/../share/marlune/reference-engine"));
    candidates.append(QStringLiteral(MARLUNE_SOURCE_DIR "/reference-engine"));
    for (const QString& candidate : candidates)
        if (QFileInfo::exists(candidate + QStringLiteral("/pyproject.toml")))
            return QDir(candidate).absolutePath();
    return std::nullopt;
}

QString tagOf(const QString& sourceDir) {
    QFile file(sourceDir + QStringLiteral("/pyproject.toml"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression version(QStringLiteral(R"re(^\s*version\s*=\s*"([^"]+)")re"),
                                            QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = version.match(QString::fromUtf8(file.readAll()));
    return match.hasMatch() ? QStringLiteral("v") + match.captured(1) : QString();
}

QCoro::Task<QString> install(PythonRuntimeService& runtime, QString sourceDir, QString systemPython) {
    const QString tag = tagOf(sourceDir);
    if (tag.isEmpty())
        throw SetupError(
            QStringLiteral("Moteur de référence introuvable ou sans version : %1").arg(sourceDir));
    if (runtime.runningTag() == tag)
        throw SetupError(
            QStringLiteral("Le moteur %1 est en cours d'exécution : arrêtez-le avant de le réinstaller.")
                .arg(tag));

    const InstallLayout& layout = runtime.layout();
    const QString target = layout.backendDir(tag);
    const QString staging = target + QStringLiteral(".partial");
    runtime.log(QStringLiteral("📦 Installation du moteur de référence %1…").arg(tag));

    const QString failure = co_await prepareStaging(runtime, sourceDir, staging, systemPython);
    if (!failure.isEmpty()) {
        QDir(staging).removeRecursively();
        throw SetupError(failure);
    }

    QDir(target).removeRecursively();
    if (!QDir().rename(staging, target)) {
        QDir(staging).removeRecursively();
        throw SetupError(QStringLiteral("Installation du moteur impossible dans %1").arg(target));
    }
    if (!EngineFolder::markReady(layout, tag))
        throw SetupError(QStringLiteral("Installation du moteur impossible dans %1").arg(target));
    runtime.recordInstalledBackend(tag, QStringList());
    runtime.log(QStringLiteral("✅ Moteur de référence %1 installé").arg(tag));
    co_return tag;
}

} // namespace ReferenceEngineInstaller
