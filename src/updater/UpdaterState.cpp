#include "UpdaterState.h"

GitHubRelease UpdaterState::release() const {
    const auto* available = std::get_if<UpdateAvailable>(&m_value);
    return available ? available->release : GitHubRelease{};
}

double UpdaterState::fraction() const {
    const auto* downloading = std::get_if<Downloading>(&m_value);
    return downloading ? downloading->fraction : 0.0;
}

QString UpdaterState::message() const {
    const auto* failed = std::get_if<Error>(&m_value);
    return failed ? failed->message : QString();
}

QString UpdaterState::caseName() const {
    switch (kind()) {
    case Kind::idle:
        return QStringLiteral("idle");
    case Kind::checking:
        return QStringLiteral("checking");
    case Kind::upToDate:
        return QStringLiteral("upToDate");
    case Kind::updateAvailable:
        return QStringLiteral("updateAvailable");
    case Kind::downloading:
        return QStringLiteral("downloading");
    case Kind::installing:
        return QStringLiteral("installing");
    case Kind::readyToRestart:
        return QStringLiteral("readyToRestart");
    case Kind::error:
        return QStringLiteral("error");
    }
    return QString();
}

QString UpdaterState::description() const {
    switch (kind()) {
    case Kind::updateAvailable:
        return QStringLiteral("updateAvailable(%1)").arg(release().tagName);
    case Kind::downloading:
        return QStringLiteral("downloading(%1)").arg(fraction());
    case Kind::error:
        return QStringLiteral("error(%1)").arg(message());
    default:
        return caseName();
    }
}
