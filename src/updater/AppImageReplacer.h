#pragma once

#include <QString>
#include <optional>

// Replaces the running AppImage with a downloaded one, keeping the old file until the new one is in place.
// Blocking (it copies the whole file): run it off the main thread.
namespace AppImageReplacer {
// "{current}.bak", beside the current file.
QString backupPath(const QString& currentPath);
// Removes any old backup, moves the current file to the backup, copies `newFilePath` into its place
// (through a hidden file in the same folder, so the final name never holds a partial copy), makes it
// executable and removes the backup. When the move or the copy fails, the backup is moved back and the
// French reason is returned; nothing is returned on success.
std::optional<QString> replace(const QString& currentPath, const QString& newFilePath);
} // namespace AppImageReplacer
