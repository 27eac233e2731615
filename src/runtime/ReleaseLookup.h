#pragma once

#include "platform/BaseAddresses.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <optional>

// Latest published versions, looked up on GitHub and PyPI. Every failure gives nothing.
namespace ReleaseLookup {

constexpr int timeoutMs = 15000;

// The latest release tag of `repo` ("owner/name"): "tag_name" of the REST API's latest release, else the
// last path component of the release page the web page "/{repo}/releases/latest" redirects to.
QCoro::Task<std::optional<QString>> latestRelease(BaseAddresses addresses, QString repo);

// "info" → "version" of PyPI's JSON for `package`.
QCoro::Task<std::optional<QString>> latestPyPIVersion(BaseAddresses addresses, QString package);

} // namespace ReleaseLookup
