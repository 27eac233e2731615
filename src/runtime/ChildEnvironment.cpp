#include "ChildEnvironment.h"

#include "platform/Places.h"
#include "platform/SettingsStore.h"

#include <QCoreApplication>

namespace ChildEnvironment {

QProcessEnvironment clean(const QProcessEnvironment& base, const QString& home, const QString& user) {
    QProcessEnvironment environment = base;
    QStringList path = base.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const char* folder :
         {"/usr/bin", "/bin", "/usr/sbin", "/sbin", "/opt/homebrew/bin", "/usr/local/bin"})
        if (!path.contains(QLatin1String(folder)))
            path.append(QLatin1String(folder));
    environment.insert(QStringLiteral("PATH"), path.join(QLatin1Char(':')));
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("USER"), user);
    if (!environment.contains(QStringLiteral("LANG")))
        environment.insert(QStringLiteral("LANG"), QStringLiteral("en_US.UTF-8"));
    for (const char* name : {"VIRTUAL_ENV", "PYTHONHOME", "PYTHONPATH", "CONDA_PREFIX"})
        environment.remove(QLatin1String(name));
    return environment;
}

QProcessEnvironment clean() {
    return clean(QProcessEnvironment::systemEnvironment(), Places::homeDir(), Places::userName());
}

QProcessEnvironment backend(const QProcessEnvironment& clean, const InstallLayout& layout, const QString& tag,
                            const SettingsStore& settings, qint64 parentPid) {
    QProcessEnvironment environment = clean;
    QStringList path{layout.backendBinDir(tag), layout.ffmpegDir(), layout.jsRuntimeDir()};
    path += clean.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    environment.insert(QStringLiteral("PATH"), path.join(QLatin1Char(':')));
    environment.insert(QStringLiteral("HALVORN_DATA_DIR"), layout.dataDir());
    environment.insert(QStringLiteral("HALVORN_DEFAULT_JOBS_DIR"), layout.jobsDir());
    environment.insert(QStringLiteral("HALVORN_PERSIST_LIBRARY"), QStringLiteral("1"));
    environment.insert(QStringLiteral("HALVORN_DESKTOP"), QStringLiteral("1"));
    environment.insert(QStringLiteral("HALVORN_PARENT_PID"), QString::number(parentPid));
    environment.insert(QStringLiteral("TORCH_HOME"), layout.dataDir() + QStringLiteral("/models/torch"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), layout.dataDir() + QStringLiteral("/cache"));
    environment.insert(QStringLiteral("PYTHONUNBUFFERED"), QStringLiteral("1"));
    environment.insert(QStringLiteral("PYTHONUTF8"), QStringLiteral("1"));
    const auto ffmpeg = layout.ffmpegPath();
    const auto ffprobe = layout.ffprobePath();
    if (ffmpeg && ffprobe && *ffmpeg != layout.ownFFmpeg()) {
        environment.insert(QStringLiteral("HALVORN_FFMPEG"), *ffmpeg);
        environment.insert(QStringLiteral("HALVORN_FFPROBE"), *ffprobe);
    }
    const QString device = settings.demucsDevice();
    if (device == QLatin1String("cuda") || device == QLatin1String("cpu"))
        environment.insert(QStringLiteral("HALVORN_DEMUCS_DEVICE"), device);
    // Only a stored value counts: a user who never set a limit gets the engine's own.
    if (const auto maxDuration = settings.storedMaxDuration(); maxDuration && *maxDuration >= 60)
        environment.insert(QStringLiteral("HALVORN_MAX_DURATION_SEC"), QString::number(*maxDuration));
    return environment;
}

} // namespace ChildEnvironment
