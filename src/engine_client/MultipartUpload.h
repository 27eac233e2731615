#pragma once

#include "audio/StemKind.h"

#include <QByteArray>
#include <QList>
#include <QString>

// The multipart form of a job created from a file: a "stems" part holding the JSON list of stem raw
// values, then a "file" part holding the file. The body is assembled in a file on disk, never in memory.
class WriteProgress;

namespace MultipartUpload {
constexpr qint64 chunkBytes = 4 * 1024 * 1024;

// "Halvorn-" followed by a new upper-case UUID.
QString newBoundary();
// By the lower-cased extension: wav, mp3, m4a/m4b, flac, ogg, opus; "application/octet-stream" else.
QString contentType(const QString& fileName);
// The last path component with every double quote replaced by an apostrophe.
QString filenameParameter(const QString& filePath);
// "multipart/form-data; boundary={boundary}"
QByteArray contentTypeHeader(const QString& boundary);
// Everything before the file's bytes, and everything after them.
QByteArray head(const QString& boundary, const QList<StemKind>& stems, const QString& filePath);
QByteArray tail(const QString& boundary);
// Writes the whole body to `bodyPath`, the file copied in chunks of at most `chunkBytes` (in the kernel
// where it can). Throws UploadError, leaving nothing at `bodyPath`, when the file cannot be read or the
// body written. `progress`, when given, is told the body's size once the file is created, then every
// chunk written; when its reader abandons the body, the writing stops and nothing is left at `bodyPath`.
// Blocking: run it off the main thread.
void writeBody(const QString& filePath, const QString& bodyPath, const QString& boundary,
               const QList<StemKind>& stems, WriteProgress* progress = nullptr);
// "Le fichier « {name} » n’a pas pu être ouvert : {reason}", the reason being "il n’existe pas." for
// a missing file.
QString openFailure(const QString& filePath, const QString& reason);
// "Le fichier « {name} » n’a pas pu être lu : {reason}"
QString readFailure(const QString& filePath, const QString& reason);
} // namespace MultipartUpload
