#pragma once

#include <QString>

// Shows a file or folder in the user's file manager.
namespace FileReveal {
// org.freedesktop.FileManager1.ShowItems, else opens the containing folder. Returns whether either worked.
bool reveal(const QString& path);
} // namespace FileReveal
