#include "ToolInstall.h"

#include "ArchiveExtractor.h"
#include "ExecutableInstaller.h"
#include "TemporaryPaths.h"
#include "ToolDigest.h"
#include "ToolDownloader.h"

QCoro::Task<> ToolInstall::run() const {
    const ToolInstall job = *this; // the caller's object may not outlive a suspension
    TemporaryPaths temporary;
    const QString file = temporary.add(co_await ToolDownloader::download(job.address));
    if (job.form == DownloadForm::executable) {
        co_await ExecutableInstaller::installExecutable(file, job.sha256, job.destination, job.probeArgument);
        co_return;
    }
    if (job.sha256)
        co_await ToolDigest::verify(file, *job.sha256, job.address.path().section(QLatin1Char('/'), -1));
    const ArchiveKind kind = job.form == DownloadForm::zip ? ArchiveKind::zip : ArchiveKind::tarGz;
    const QString folder = temporary.add(co_await ArchiveExtractor::extractArchive(file, kind));
    const QString executable = ArchiveExtractor::findFile(job.nameInArchive, folder);
    co_await ExecutableInstaller::installExecutable(executable, std::nullopt, job.destination,
                                                    job.probeArgument);
}
