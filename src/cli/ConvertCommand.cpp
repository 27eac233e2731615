#include "ConvertCommand.h"

#include "Console.h"
#include "audio/AudioConverter.h"
#include "audio/ExportService.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>

namespace {

const QString kUsage = QStringLiteral("convert FICHIER… [--format wav|mp3] [--out DOSSIER] [--verbose]");

struct ConvertOptions {
    QStringList files;
    ExportFormat format = ExportFormat::wav;
    QString outputDir;
    bool verbose = false;
};

int usageError(const QString& message) {
    Console::err(message + QStringLiteral("\nUtilisation : marlune ") + kUsage);
    return ExitCode::usage;
}

// Fills `options`; returns an exit code when the arguments are unusable.
std::optional<int> parse(const QStringList& arguments, ConvertOptions& options) {
    bool onlyFiles = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (onlyFiles || !argument.startsWith(QLatin1Char('-')) || argument == QLatin1String("-")) {
            options.files.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            onlyFiles = true;
            continue;
        }
        if (argument == QLatin1String("--verbose")) {
            options.verbose = true;
            continue;
        }
        const QString name = argument.section(QLatin1Char('='), 0, 0);
        if (name != QLatin1String("--format") && name != QLatin1String("--out"))
            return usageError(QStringLiteral("Option inconnue : %1").arg(argument));
        QString value;
        if (argument.contains(QLatin1Char('=')))
            value = argument.section(QLatin1Char('='), 1);
        else if (i + 1 < arguments.size())
            value = arguments.at(++i);
        else
            return usageError(QStringLiteral("Valeur manquante après %1").arg(name));
        if (name == QLatin1String("--out")) {
            if (value.isEmpty())
                return usageError(QStringLiteral("Dossier de sortie vide"));
            options.outputDir = value;
        } else if (const std::optional<ExportFormat> format = ExportFormats::fromName(value)) {
            options.format = *format;
        } else {
            return usageError(QStringLiteral("Format inconnu : %1 (wav ou mp3)").arg(value));
        }
    }
    if (options.files.isEmpty())
        return usageError(QStringLiteral("Aucun fichier à convertir."));
    return std::nullopt;
}

void printFailure(const QString& fileName, const QString& message) {
    Console::err(QStringLiteral("❌ %1 : %2")
                     .arg(fileName, QString(message).replace(QLatin1Char('\n'), QLatin1Char(' ')).trimmed()));
}

// Files that cannot be handed to the converter, reported at once; returns how many.
int rejectUnusable(const QStringList& files, QStringList& usable) {
    int rejected = 0;
    for (const QString& file : files) {
        const QFileInfo info(file);
        if (!info.exists()) {
            printFailure(info.fileName(), QStringLiteral("fichier introuvable"));
            ++rejected;
        } else if (!AudioConverter::isAcceptedFile(file)) {
            printFailure(info.fileName(),
                         QStringLiteral("format non pris en charge (%1)")
                             .arg(AudioConverter::acceptedExtensions.join(QStringLiteral(", "))));
            ++rejected;
        } else {
            usable.append(file);
        }
    }
    return rejected;
}

QCoro::Task<int> runConvert(QStringList arguments) {
    ConvertOptions options;
    if (const std::optional<int> exitCode = parse(arguments, options))
        co_return *exitCode;

    if (!options.outputDir.isEmpty() && !QDir().mkpath(options.outputDir)) {
        Console::err(QStringLiteral("Impossible de créer le dossier : %1").arg(options.outputDir));
        co_return ExitCode::failure;
    }

    QStringList usable;
    const int rejected = rejectUnusable(options.files, usable);

    ExportService::Config config = ExportService::defaultConfig();
    // The service's own trace lines only on request, on standard error: standard output lists results.
    config.console = options.verbose ? ConsoleLineSink([](const QString& line) { Console::err(line); })
                                     : ConsoleLineSink([](const QString&) {});
    const ExportService exports(config);
    AudioConverter converter(exports);
    converter.setOutputFormat(options.format);
    converter.setOutputDir(options.outputDir);
    converter.addFiles(usable);

    qsizetype printed = 0;
    QObject::connect(&converter, &AudioConverter::resultsChanged, [&] {
        for (; printed < converter.results().size(); ++printed) {
            const ConvertResult& result = converter.results().at(printed);
            if (result.success)
                Console::out(
                    QStringLiteral("✅ %1 → %2").arg(result.fileName, result.destURL.value_or(QString())));
            else
                printFailure(result.fileName, result.error.value_or(QString()));
        }
    });
    co_await converter.startConversion();

    const bool allSucceeded = std::all_of(converter.results().cbegin(), converter.results().cend(),
                                          [](const ConvertResult& result) { return result.success; });
    co_return rejected == 0 && allSucceeded ? ExitCode::success : ExitCode::failure;
}

} // namespace

Command convertCommand() {
    return Command{QStringLiteral("convert"), kUsage,
                   QStringLiteral("Convertit des fichiers audio en WAV ou MP3 avec FFmpeg, un par un."),
                   runConvert};
}
