#include "SubmitCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"
#include "StemOption.h"

#include <QFileInfo>

namespace {
const QString kUsage = QStringLiteral("submit FICHIER|ADRESSE [--stems vocals,drums,…] [--engine-url URL]");

bool isWebAddress(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() &&
           (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https")) &&
           !url.host().isEmpty();
}

QCoro::Task<int> runSubmit(QStringList arguments) {
    QString error;
    const QStringList valueOptions{QStringLiteral("--stems")};
    const std::optional<EngineCommandLine> line =
        EngineCommandLine::parse(arguments, 1, false, valueOptions, &error);
    if (!line)
        co_return usageError(error, kUsage);
    QList<StemKind> stems = StemKinds::separable();
    if (line->values.contains(QStringLiteral("--stems"))) {
        const std::optional<QList<StemKind>> chosen =
            parseStemOption(line->values.value(QStringLiteral("--stems")), &error);
        if (!chosen)
            co_return usageError(error, kUsage);
        stems = *chosen;
    }
    const QString input = line->positional.first();
    const std::unique_ptr<BackendService> backend = line->backend();
    QString jobId;
    if (QFileInfo(input).isFile()) {
        const QString path = QFileInfo(input).absoluteFilePath();
        jobId = co_await backend->createJobFromFile(path, stems);
    } else if (isWebAddress(input)) {
        jobId = co_await backend->createJobFromURL(input, stems);
    } else {
        Console::err(QStringLiteral("Ni un fichier ni une adresse web : %1").arg(input));
        co_return ExitCode::failure;
    }
    Console::out(jobId);
    co_return ExitCode::success;
}
} // namespace

Command submitCommand() {
    return Command{QStringLiteral("submit"), kUsage,
                   QStringLiteral("Crée une tâche de séparation et affiche son identifiant."), runSubmit};
}
