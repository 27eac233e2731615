#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Release asset digests. Blocking: run it off the main thread.
namespace FileDigest {
// Whether the file matches a GitHub asset digest "sha256:{hex}" (hex in either case).
// A digest of another algorithm or malformed never matches.
bool matches(const QString& path, const QString& digest);
} // namespace FileDigest
