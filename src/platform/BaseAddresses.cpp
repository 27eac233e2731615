#include "BaseAddresses.h"

namespace {
QString withoutTrailingSlash(QString address) {
    while (address.endsWith(QLatin1Char('/')))
        address.chop(1);
    return address;
}

QString overridden(const QProcessEnvironment& environment, const char* variable, const QString& fallback) {
    const QString value = environment.value(QString::fromLatin1(variable)).trimmed();
    return withoutTrailingSlash(value.isEmpty() ? fallback : value);
}
} // namespace

BaseAddresses BaseAddresses::defaults() {
    return BaseAddresses{QStringLiteral("https://api.github.com"), QStringLiteral("https://github.com"),
                         QStringLiteral("https://pypi.org"), QStringLiteral("https://evermeet.cx")};
}

BaseAddresses BaseAddresses::fromEnvironment(const QProcessEnvironment& environment) {
    const BaseAddresses fallback = defaults();
    return BaseAddresses{overridden(environment, githubApiVariable, fallback.githubApi),
                         overridden(environment, githubWebVariable, fallback.githubWeb),
                         overridden(environment, pypiVariable, fallback.pypi),
                         overridden(environment, ffmpegFallbackVariable, fallback.ffmpegFallback)};
}

QUrl BaseAddresses::join(const QString& base, const QString& path) {
    return QUrl(withoutTrailingSlash(base) + path);
}
