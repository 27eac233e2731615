#include "ManifestStore.h"

#include "VersionOrder.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <cstdio>

ManifestStore::ManifestStore(InstallLayout layout)
    : m_layout(std::move(layout)) {}

void ManifestStore::load() {
    QFile file(m_layout.manifestPath());
    if (!file.open(QIODevice::ReadOnly))
        return;
    if (auto decoded = InstallManifest::fromJson(file.readAll()))
        m_manifest = *decoded;
}

bool ManifestStore::save() const {
    QDir().mkpath(m_layout.root());
    QSaveFile file(m_layout.manifestPath());
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(m_manifest.toJson());
    return file.commit();
}

void ManifestStore::reconcile() {
    bool changed = false;
    if (!m_manifest.backendTag) {
        const QStringList names =
            QDir(m_layout.backendsDir()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        std::optional<QString> best;
        for (const QString& name : names)
            if (m_layout.isBackendInstalled(name) && (!best || VersionOrder::isGreater(name, *best)))
                best = name;
        if (best) {
            m_manifest.backendTag = best;
            changed = true;
        }
    }
    if (!m_manifest.ffmpegVersion && InstallLayout::isExecutable(m_layout.ownFFmpeg()) &&
        InstallLayout::isExecutable(m_layout.ownFFprobe())) {
        m_manifest.ffmpegVersion = QStringLiteral("8.1.2");
        changed = true;
    }
    if (!m_manifest.fpcalcVersion && InstallLayout::isExecutable(m_layout.fpcalcPath())) {
        m_manifest.fpcalcVersion = QStringLiteral("1.6.1");
        changed = true;
    }
    if (!m_manifest.qjsVersion && InstallLayout::isExecutable(m_layout.qjsPath())) {
        m_manifest.qjsVersion = QStringLiteral("0.16.2");
        changed = true;
    }
    if (!changed)
        return;
    save();
    const QByteArray line = QStringLiteral("[Marlune] Manifeste reconstruit depuis le disque (backend %1)\n")
                                .arg(m_manifest.backendTag.value_or(QStringLiteral("—")))
                                .toUtf8();
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fflush(stdout);
}
