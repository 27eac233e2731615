#pragma once

#include "platform/Places.h"

#include <QCoro/QCoroTask>
#include <QString>

enum class ArchiveKind { zip, tarGz };

// Unpacking of downloaded archives with the system's unzip and tar.
namespace ArchiveExtractor {

// Unpacks `archive` into a fresh folder "halvorn-{id}" of `parent` and returns that folder. Throws
// SetupError("Archive {file} illisible : {reason}"); a failed extraction leaves no folder behind.
QCoro::Task<QString> extractArchive(QString archive, ArchiveKind kind, QString parent = Places::tempDir());

// The regular file called `name` in the tree under `folder` (links are neither followed nor taken; the
// shallowest match wins). Throws SetupError("{name} absent de l'archive").
QString findFile(const QString& name, const QString& folder);

} // namespace ArchiveExtractor
