#pragma once

#include <QStringList>

// Temporary files and folders removed when it goes out of scope, whatever happened meanwhile.
class TemporaryPaths {
public:
    TemporaryPaths() = default;
    TemporaryPaths(const TemporaryPaths&) = delete;
    TemporaryPaths& operator=(const TemporaryPaths&) = delete;
    ~TemporaryPaths();

    // Returns `path`, now owned.
    const QString& add(const QString& path);

    // A fresh name in `folder`: "halvorn-{unique id}" followed by `suffix`.
    static QString uniqueName(const QString& folder, const QString& suffix = QString());

private:
    QStringList m_paths;
};
