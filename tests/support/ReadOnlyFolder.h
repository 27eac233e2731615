#pragma once

#include <QString>

// Makes a folder refuse new entries, renames and removals for as long as it lives: mode 0555, and for
// root (whom modes do not stop) the immutable attribute as well. Restores both when destroyed.
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(QString path);
    ~ReadOnlyFolder();
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

    // Whether the folder really refuses a new file (a test should skip when it does not).
    bool isEffective() const;

private:
    QString m_path;
    bool m_immutable = false;
};
