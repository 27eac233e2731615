#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// The built `marlune` executable run in a home of its own (XDG folders inside `home`).
struct MarluneRun {
    int exitCode = -1;
    QString out;
    QString err;
};

QProcessEnvironment marluneEnvironment(const QString& home, quint16 enginePort);
MarluneRun runMarlune(const QStringList& arguments, const QProcessEnvironment& environment,
                      int timeoutMs = 180000);
