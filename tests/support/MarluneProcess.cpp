#include "MarluneProcess.h"

#include <QProcess>

QProcessEnvironment marluneEnvironment(const QString& home, quint16 enginePort) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    environment.insert(QStringLiteral("MARLUNE_ENGINE_URL"),
                       QStringLiteral("http://127.0.0.1:%1/").arg(enginePort));
    environment.insert(QStringLiteral("MARLUNE_REFERENCE_ENGINE"),
                       qEnvironmentVariable("MARLUNE_SOURCE_DIR") + QStringLiteral("/reference-engine"));
    return environment;
}

namespace {
QStringList linesOf(const QString& text) {
    QStringList lines = text.split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}
} // namespace

QStringList MarluneRun::outLines() const {
    return linesOf(out);
}

QStringList MarluneRun::errLines() const {
    return linesOf(err);
}

MarluneRun runMarlune(const QStringList& arguments, const QProcessEnvironment& environment, int timeoutMs,
                      const QString& workingDirectory) {
    QProcess process;
    process.setProcessEnvironment(environment);
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(qEnvironmentVariable("MARLUNE_BINARY"), arguments);
    process.waitForFinished(timeoutMs);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}
