#pragma once

#include "FixedDownload.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QStringList>
#include <optional>

// The table of tool downloads, keyed by platform ("linux-x86_64", "macos-arm64"). Its JSON form is an
// object whose keys are the platforms and whose values are arrays of rows:
//   {"tool": "ffmpeg", "version": "8.1.2", "host": "github", "path": "/…", "form": "executable",
//    "sha256": "…"}
// with "host" one of "github", "ffmpegFallback", "form" one of "executable", "zip", "tar.gz", and the
// optional "versionedPath". The built-in table and a trusted table handed over at run time share it.
class FixedDownloads {
public:
    static FixedDownloads builtIn();
    // Nothing, with the reason in `error`, when the document or any of its rows is malformed.
    static std::optional<FixedDownloads> fromJson(const QByteArray& json, QString* error = nullptr);
    QByteArray toJson() const;

    // The platform Marlune runs on: "{linux|macos|…}-{x86_64|arm64|…}".
    static QString currentPlatform();
    // "x86_64" for "linux-x86_64".
    static QString architectureOf(const QString& platform);

    QStringList platforms() const { return m_rows.keys(); }
    QList<FixedDownload> rows(const QString& platform) const { return m_rows.value(platform); }
    std::optional<FixedDownload> row(const QString& platform, const QString& tool) const;
    // The version of `tool` in whichever platform lists it (every platform ships the same versions).
    QString versionOf(const QString& tool) const;

    // `row` takes the place of the row of the same platform and tool, or is added.
    void put(const QString& platform, const FixedDownload& row);
    // Each row of `trusted` is put in this table.
    void overrideWith(const FixedDownloads& trusted);

    bool operator==(const FixedDownloads&) const = default;

private:
    QMap<QString, QList<FixedDownload>> m_rows;
};
