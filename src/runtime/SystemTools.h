#pragma once

#include <QString>
#include <QStringList>

// System programs the runtime relies on beyond its own install.
struct SystemTools {
    QString compiler = QStringLiteral("cc"); // a name is looked up on the clean environment's PATH
    QString adminLauncher = QStringLiteral("/usr/bin/pkexec");
    QString packageManager = QStringLiteral("/usr/bin/apt-get");
    QStringList fpcalcCandidates{QStringLiteral("/usr/local/bin/fpcalc"), QStringLiteral("/usr/bin/fpcalc"),
                                 QStringLiteral("/bin/fpcalc")};
};
