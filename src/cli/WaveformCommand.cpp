#include "WaveformCommand.h"

#include "Console.h"
#include "audio/WaveformRenderer.h"

#include <QFileInfo>
#include <charconv>

namespace {

const QString kUsage = QStringLiteral("waveform FICHIER [--points N]");

int usageError(const QString& message) {
    Console::err(message + QStringLiteral("\nUtilisation : marlune ") + kUsage);
    return ExitCode::usage;
}

// The shortest text that reads back as the same float.
QString jsonArray(const QList<float>& values) {
    QByteArray text = "[";
    char number[32];
    for (qsizetype i = 0; i < values.size(); ++i) {
        if (i > 0)
            text += ',';
        const auto written = std::to_chars(number, number + sizeof number, values[i]);
        text.append(number, written.ptr - number);
    }
    text += ']';
    return QString::fromLatin1(text);
}

QCoro::Task<int> run(QStringList arguments) {
    QString file;
    int points = WaveformRenderer::studioPoints;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("--points") || argument.startsWith(QLatin1String("--points="))) {
            QString value;
            if (argument.contains(QLatin1Char('=')))
                value = argument.section(QLatin1Char('='), 1);
            else if (i + 1 < arguments.size())
                value = arguments[++i];
            else
                co_return usageError(QStringLiteral("Valeur manquante après --points"));
            bool ok = false;
            points = value.toInt(&ok);
            if (!ok || points < 1)
                co_return usageError(
                    QStringLiteral("Nombre de points invalide : %1 (entier à partir de 1)").arg(value));
        } else if (argument.startsWith(QLatin1Char('-')) && argument != QLatin1String("-")) {
            co_return usageError(QStringLiteral("Option inconnue : %1").arg(argument));
        } else if (!file.isEmpty()) {
            co_return usageError(QStringLiteral("Un seul fichier à la fois."));
        } else {
            file = argument;
        }
    }
    if (file.isEmpty())
        co_return usageError(QStringLiteral("Aucun fichier indiqué."));
    if (!QFileInfo(file).isFile()) {
        Console::err(QStringLiteral("❌ %1 : fichier introuvable").arg(file));
        co_return ExitCode::failure;
    }
    // The decoders' own lines go to standard error: standard output holds only the JSON.
    const WaveformRenderer renderer([](const QString& line) { Console::err(line); });
    QCoro::Task<QList<float>> rendering = renderer.render(file, points);
    const QList<float> envelope = co_await rendering;
    if (envelope.isEmpty()) {
        Console::err(
            QStringLiteral("❌ %1 : aucun son lisible dans ce fichier").arg(QFileInfo(file).fileName()));
        co_return ExitCode::failure;
    }
    Console::out(jsonArray(envelope));
    co_return ExitCode::success;
}

} // namespace

Command waveformCommand() {
    return Command{QStringLiteral("waveform"), kUsage,
                   QStringLiteral("Affiche l'enveloppe du fichier en JSON (1800 points par défaut)."), run};
}
