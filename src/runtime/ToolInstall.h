#pragma once

#include "FixedDownload.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <QUrl>
#include <optional>

// One tool from its download address to its place in the install.
struct ToolInstall {
    QUrl address;
    DownloadForm form = DownloadForm::executable;
    std::optional<QString> sha256;        // of the downloaded file; nothing for an unpinned latest release
    QString nameInArchive;                // the executable to take out of an archive
    QString destination;                  // its final path
    std::optional<QString> probeArgument; // what proves that it runs here

    // Downloads, checks the digest, unpacks an archive and finds the executable in it, then installs it
    // (ExecutableInstaller). Throws SetupError; temporary files and folders are removed in every case.
    QCoro::Task<> run() const;
};
