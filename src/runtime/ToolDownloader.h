#pragma once

#include "platform/Places.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <QUrl>

// Downloads of tools and archives to temporary files.
namespace ToolDownloader {

constexpr int timeoutMs = 120000; // without data for this long, the download fails

// Downloads `address` (redirects followed, "User-Agent: Marlune") into `folder` under a unique name
// "halvorn-{id}-{last path component}" and returns that file's path. Throws SetupError
// "HTTP {status} pour {file}" for a status of 400 or more, or the transport failure's description;
// a failed or cut download leaves no file behind.
QCoro::Task<QString> download(QUrl address, QString folder = Places::tempDir());

} // namespace ToolDownloader
