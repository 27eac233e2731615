#pragma once

#include <QString>
#include <QTemporaryDir>

// A throw-away install root with its own documents, home and settings file.
class TempInstallRoot {
public:
    TempInstallRoot();
    bool isValid() const { return m_dir.isValid(); }
    QString path() const { return m_dir.path(); }
    QString root() const { return m_dir.path() + QStringLiteral("/Halvorn"); }
    QString documents() const { return m_dir.path() + QStringLiteral("/Documents"); }
    QString home() const { return m_dir.path() + QStringLiteral("/home"); }
    QString settingsFile() const { return m_dir.path() + QStringLiteral("/settings.ini"); }

    // Writes `contents` at `relative` under the folder (creating folders), optionally executable.
    QString writeFile(const QString& relative, const QByteArray& contents, bool executable = false) const;

private:
    QTemporaryDir m_dir;
};
