#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// What a run of the built `marlune` executable printed and returned.
struct MarluneRun {
    int exitCode = -1;
    QString out;
    QString err;

    // The lines of each stream, without the empty piece after the last line end.
    QStringList outLines() const;
    QStringList errLines() const;
};

// The system environment with a home of its own (XDG folders inside `home`) and an engine address.
QProcessEnvironment marluneEnvironment(const QString& home, quint16 enginePort);
MarluneRun runMarlune(const QStringList& arguments,
                      const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
                      int timeoutMs = 180000, const QString& workingDirectory = QString());
