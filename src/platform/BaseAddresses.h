#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QUrl>

// Base addresses of the outside world, without a trailing slash. Each has a real default and an
// environment override, so that Marlune can run against an offline mirror.
struct BaseAddresses {
    QString githubApi;      // GitHub REST API
    QString githubWeb;      // GitHub web pages, release downloads and source archives
    QString pypi;           // PyPI JSON API
    QString ffmpegFallback; // the fallback FFmpeg build site (zip archives under /ffmpeg/)

    static constexpr const char* githubApiVariable = "MARLUNE_GITHUB_API_URL";
    static constexpr const char* githubWebVariable = "MARLUNE_GITHUB_URL";
    static constexpr const char* pypiVariable = "MARLUNE_PYPI_URL";
    static constexpr const char* ffmpegFallbackVariable = "MARLUNE_FFMPEG_FALLBACK_URL";

    static BaseAddresses defaults();
    // The defaults, each replaced by its variable when that is set and not empty.
    static BaseAddresses
    fromEnvironment(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    // `base` followed by `path` ("/owner/name/…").
    static QUrl join(const QString& base, const QString& path);
};
