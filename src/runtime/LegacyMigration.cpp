#include "LegacyMigration.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
bool hasEntries(const QString& folder) {
    return !QDir(folder)
                .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)
                .isEmpty();
}
} // namespace

void migrateLegacyInstall(const InstallLayout& layout, const std::function<void(const QString&)>& log) {
    const QString clone = layout.supportURL(QStringLiteral("halvorn"));
    const QString oldJobs = clone + QStringLiteral("/jobs");

    // 1. Jobs of the old clone move to the documents' jobs folder, never over an existing item.
    if (hasEntries(oldJobs)) {
        const QString jobs = layout.jobsDir();
        QDir().mkpath(jobs);
        int moved = 0;
        const QStringList entries =
            QDir(oldJobs).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        for (const QString& name : entries) {
            const QString target = jobs + QLatin1Char('/') + name;
            if (QFileInfo::exists(target) || QFileInfo(target).isSymLink())
                continue;
            if (QDir().rename(oldJobs + QLatin1Char('/') + name, target))
                ++moved;
        }
        log(QStringLiteral("📦 Bibliothèque migrée : %1 élément(s) → %2").arg(moved).arg(jobs));
    }

    // 2. The old settings file, unless the engine already has one.
    const QString oldSettings = clone + QStringLiteral("/settings.json");
    const QString settings = layout.dataDir() + QStringLiteral("/settings.json");
    if (QFileInfo::exists(oldSettings) && !QFileInfo::exists(settings)) {
        QDir().mkpath(layout.dataDir());
        QFile::copy(oldSettings, settings);
    }

    // 3. The clone goes once nothing of the library is left in it.
    if (QFileInfo(clone).isDir() && !hasEntries(oldJobs)) {
        if (QDir(clone).removeRecursively())
            log(QStringLiteral("🧹 Ancien clone git supprimé"));
    }

    // 4. The old completion marker.
    QFile::remove(layout.supportURL(QStringLiteral(".setup_complete")));

    // 5. The old tool folder.
    const QString oldTools = layout.homeDir() + QStringLiteral("/.halvorn");
    if (QFileInfo::exists(oldTools)) {
        if (QDir(oldTools).removeRecursively())
            log(QStringLiteral("🧹 ~/.halvorn supprimé (Node.js et ancien ffmpeg)"));
    }

    // 6. A yt-dlp configuration written by an old version.
    const QString ytDlpConfig = layout.homeDir() + QStringLiteral("/.config/yt-dlp/config");
    QFile config(ytDlpConfig);
    if (config.open(QIODevice::ReadOnly)) {
        const bool ours = QString::fromUtf8(config.readAll()).contains(QStringLiteral("written by Halvorn"));
        config.close();
        if (ours && QFile::remove(ytDlpConfig))
            log(QStringLiteral("🧹 ~/.config/yt-dlp/config (écrit par une ancienne version) supprimé"));
    }
}
