#include "AppImageReplacer.h"

#include "FileErrorText.h"

#include <QFile>
#include <filesystem>

namespace fs = std::filesystem;

namespace AppImageReplacer {
namespace {

fs::path toPath(const QString& path) {
    return fs::path(QFile::encodeName(path).toStdString());
}

QString shown(const fs::path& path) {
    return QFile::decodeName(QByteArray::fromStdString(path.string()));
}

QString failure(const char* action, const fs::path& from, const fs::path& to, const std::error_code& error) {
    return QStringLiteral("impossible de %1 « %2 » vers « %3 » (%4)")
        .arg(QString::fromUtf8(action), shown(from), shown(to), fileErrorText(error));
}

// Copies `source` to `target` through a hidden sibling of `target`, made executable, then renamed.
std::optional<QString> copyInto(const fs::path& source, const fs::path& target) {
    const fs::path staging = target.parent_path() / ("." + target.filename().string() + ".new");
    std::error_code error;
    fs::remove(staging, error);
    constexpr fs::perms executable = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                     fs::perms::others_read | fs::perms::others_exec;
    if (fs::copy_file(source, staging, fs::copy_options::overwrite_existing, error) &&
        (fs::permissions(staging, executable, error), !error) && (fs::rename(staging, target, error), !error))
        return std::nullopt;
    std::error_code ignored;
    fs::remove(staging, ignored);
    return failure("copier", source, target, error);
}

} // namespace

QString backupPath(const QString& currentPath) {
    return currentPath + QStringLiteral(".bak");
}

std::optional<QString> replace(const QString& currentPath, const QString& newFilePath) {
    const fs::path current = toPath(currentPath);
    const fs::path backup = toPath(backupPath(currentPath));
    std::error_code error;
    fs::remove(backup, error); // best effort
    fs::rename(current, backup, error);
    if (error) // the current file never moved: nothing to restore
        return failure("déplacer", current, backup, error);
    if (const auto copyFailure = copyInto(toPath(newFilePath), current)) {
        std::error_code ignored;
        fs::rename(backup, current, ignored);
        return copyFailure;
    }
    fs::remove(backup, error); // best effort
    return std::nullopt;
}

} // namespace AppImageReplacer
