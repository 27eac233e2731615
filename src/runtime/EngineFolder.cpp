#include "EngineFolder.h"

#include "ToolRunner.h"

#include <QFile>

namespace EngineFolder {

QCoro::Task<> checkImports(QString python, QString folder, QProcessEnvironment environment) {
    ToolRunOptions options;
    options.workingDirectory = folder;
    options.environment = environment;
    const QStringList arguments{QStringLiteral("-c"), QStringLiteral("import app.main")};
    co_await runTool(python, arguments, options);
}

bool markReady(const InstallLayout& layout, const QString& tag) {
    QFile marker(layout.readyMarker(tag));
    if (!marker.open(QIODevice::WriteOnly))
        return false;
    marker.close();
    return true;
}

} // namespace EngineFolder
