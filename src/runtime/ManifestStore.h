#pragma once

#include "InstallLayout.h"
#include "InstallManifest.h"

// The install manifest in memory and on disk (components.json), with its rebuild from the disk.
class ManifestStore {
public:
    explicit ManifestStore(InstallLayout layout);

    InstallManifest& manifest() { return m_manifest; }
    const InstallManifest& manifest() const { return m_manifest; }

    // Reads components.json; a missing, unreadable or undecodable file leaves the empty manifest.
    void load();
    // Writes components.json atomically (creating the install root); failures leave the old file.
    bool save() const;
    // Fills what a lost or older manifest lacks from what is installed; saves and says so when it changed.
    void reconcile();

private:
    InstallLayout m_layout;
    InstallManifest m_manifest;
};
