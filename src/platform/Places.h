#pragma once

#include <QString>

// The Linux places Marlune uses: install root, documents, caches, temporary folder, home.
namespace Places {
QString installRoot();  // XDG data home + "/Halvorn"
QString documentsDir(); // the user's Documents folder
QString cacheDir();     // XDG cache home
QString tempDir();
QString homeDir();
QString userName();
} // namespace Places
