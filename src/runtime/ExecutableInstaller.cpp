#include "ExecutableInstaller.h"

#include "SetupError.h"
#include "TemporaryPaths.h"
#include "ToolDigest.h"
#include "ToolRunner.h"

#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ExecutableInstaller {

namespace {
constexpr QFileDevice::Permissions executablePermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadUser |
    QFileDevice::WriteUser | QFileDevice::ExeUser | QFileDevice::ReadGroup | QFileDevice::ExeGroup |
    QFileDevice::ReadOther | QFileDevice::ExeOther; // 0755

QCoro::Task<bool> runs(QString executable, QString argument) {
    const QStringList arguments{argument};
    try {
        const ToolRunOptions options;
        co_await runTool(executable, arguments, options);
    } catch (const SetupError&) {
        co_return false;
    }
    co_return true;
}
} // namespace

QCoro::Task<> installExecutable(QString source, std::optional<QString> expectedSha, QString destination,
                                std::optional<QString> probeArgument) {
    const QString file = QFileInfo(destination).fileName();
    if (expectedSha)
        co_await ToolDigest::verify(source, *expectedSha, file);

    const QString folder = QFileInfo(destination).absolutePath();
    if (!QDir().mkpath(folder))
        throw SetupError(QStringLiteral("Impossible de créer le dossier %1").arg(folder));
    TemporaryPaths leftovers;
    const QString partial = leftovers.add(destination + QStringLiteral(".partial"));
    QFile::remove(partial);
    QFile input(source);
    if (!input.copy(partial))
        throw SetupError(QStringLiteral("Copie de %1 impossible : %2").arg(file, input.errorString()));
    if (!QFile::setPermissions(partial, executablePermissions))
        throw SetupError(QStringLiteral("Impossible de rendre %1 exécutable").arg(file));

    if (probeArgument && !co_await runs(partial, *probeArgument))
        throw SetupError(QStringLiteral("%1 ne s'exécute pas sur cette machine").arg(file));

    // rename(2) replaces the old file in one step: the destination is never missing nor half-written.
    if (std::rename(QFile::encodeName(partial).constData(), QFile::encodeName(destination).constData()) != 0)
        throw SetupError(QStringLiteral("Installation de %1 impossible : %2")
                             .arg(file, QString::fromLocal8Bit(std::strerror(errno))));
}

} // namespace ExecutableInstaller
