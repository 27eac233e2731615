#include "ToolInstall.h"

#include "ArchiveExtractor.h"
#include "ExecutableInstaller.h"
#include "TemporaryPaths.h"
#include "ToolDigest.h"
#include "ToolDownloader.h"

QCoro::Task<> ToolInstall::run() const {
    const ToolInstall job = *this; // the caller's object may not outlive a suspension
    const QString temporaryFolder = Places::tempDir();
    TemporaryPaths temporary;
    const QString downloaded = co_await ToolDownloader::download(job.address, temporaryFolder);
    const QString file = temporary.add(downloaded);
    if (job.form == DownloadForm::executable) {
        co_await ExecutableInstaller::installExecutable(file, job.sha256, job.destination, job.probeArgument);
        co_return;
    }
    if (job.sha256) {
        const QString archiveName = job.address.path().section(QLatin1Char('/'), -1);
        co_await ToolDigest::verify(file, *job.sha256, archiveName);
    }
    const ArchiveKind kind = job.form == DownloadForm::zip ? ArchiveKind::zip : ArchiveKind::tarGz;
    const QString extracted = co_await ArchiveExtractor::extractArchive(file, kind, temporaryFolder);
    const QString folder = temporary.add(extracted);
    const QString executable = ArchiveExtractor::findFile(job.nameInArchive, folder);
    const std::optional<QString> unchecked; // the archive's digest covered it
    co_await ExecutableInstaller::installExecutable(executable, unchecked, job.destination,
                                                    job.probeArgument);
}
