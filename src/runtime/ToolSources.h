#pragma once

#include "FixedDownloads.h"
#include "platform/BaseAddresses.h"

#include <QProcessEnvironment>
#include <QUrl>

// Where the runtime's tools come from: the base addresses, the table of downloads it trusts, and the
// platform whose rows apply.
struct ToolSources {
    BaseAddresses addresses = BaseAddresses::defaults();
    FixedDownloads downloads = FixedDownloads::builtIn();
    QString platform = FixedDownloads::currentPlatform();
    QString engineRepository = QStringLiteral("halvornapp/halvorn"); // owner/name of the engine's releases

    // A JSON file in the table's format whose rows replace the built-in ones (a mirror's own builds).
    static constexpr const char* trustedTableVariable = "MARLUNE_TOOL_DIGESTS";
    // Another repository to take the engine's releases and source archives from.
    static constexpr const char* engineRepositoryVariable = "MARLUNE_ENGINE_REPO";

    // The base addresses and the engine repository from the environment, and the built-in table overridden by
    // the trusted table when its variable names one; an unreadable or malformed trusted table is ignored with
    // a warning.
    static ToolSources
    fromEnvironment(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    std::optional<FixedDownload> row(const QString& tool) const { return downloads.row(platform, tool); }
    // The row of a fixed-version tool with its pinned digest; throws SetupError when this platform has
    // none, so that an unverified build is never downloaded.
    FixedDownload pinnedRow(const QString& tool) const;
    QUrl addressOf(const FixedDownload& row, const QString& path) const;
    QUrl addressOf(const FixedDownload& row) const { return addressOf(row, row.path); }

    QString architecture() const { return FixedDownloads::architectureOf(platform); }
    // "evermeet.cx", and its short name "evermeet"; an address's host is its own short name.
    QString fallbackHost() const;
    QString fallbackName() const;
};
