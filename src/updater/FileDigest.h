#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// SHA-256 of a file's contents, read in large blocks. Blocking: run it off the main thread.
namespace FileDigest {
// Lower-case hexadecimal, or nothing when the file cannot be read to its end.
std::optional<QByteArray> sha256Hex(const QString& path);
// Whether the file matches a GitHub asset digest "sha256:{hex}" (hex in either case).
// A digest of another algorithm or malformed never matches.
bool matches(const QString& path, const QString& digest);
} // namespace FileDigest
