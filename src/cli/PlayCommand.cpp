#include "PlayCommand.h"

#include "Console.h"
#include "PlaybackSession.h"
#include "audio/AudioPlayerService.h"

#include <QCoro/QCoroSignal>
#include <QFileInfo>
#include <QUrl>

namespace {

const QString kUsage = QStringLiteral("play FICHIER…");

int usageError(const QString& message) {
    Console::err(message + QStringLiteral("\nUtilisation : marlune ") + kUsage);
    return ExitCode::usage;
}

QCoro::Task<int> run(QStringList arguments) {
    QStringList files;
    bool onlyFiles = false;
    for (const QString& argument : arguments) {
        if (!onlyFiles && argument == QLatin1String("--"))
            onlyFiles = true;
        else if (!onlyFiles && argument.startsWith(QLatin1Char('-')) && argument != QLatin1String("-"))
            co_return usageError(QStringLiteral("Option inconnue : %1").arg(argument));
        else
            files.append(argument);
    }
    if (files.isEmpty())
        co_return usageError(QStringLiteral("Aucun fichier à lire."));

    QList<StemTrackPtr> tracks;
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QFileInfo info(files[i]);
        if (!info.isFile()) {
            Console::err(QStringLiteral("❌ %1 : fichier introuvable").arg(files[i]));
            continue;
        }
        const StemFile stemFile{QStringLiteral("play-%1").arg(i), StemKind::other, info.fileName(),
                                std::nullopt, std::nullopt};
        tracks.append(std::make_shared<StemTrack>(stemFile, QUrl::fromLocalFile(info.absoluteFilePath())));
    }

    AudioPlayerConfig config;
    config.console = [](const QString& line) { Console::err(line); };
    AudioPlayerService player(config);
    QCoro::Task<> loading = player.loadTracks(tracks);
    co_await loading;
    if (player.loadedTracks().isEmpty()) {
        Console::err(QStringLiteral("Aucun fichier lisible."));
        co_return ExitCode::failure;
    }
    Console::err(
        QStringLiteral("Lecture de %1 fichier(s) — espace : lecture/pause · [ ] : −5 s/+5 s · q : quitter")
            .arg(player.loadedTracks().size()));
    PlaybackSession session(player);
    session.start();
    const int exitCode = co_await qCoro(&session, &PlaybackSession::finished);
    co_return exitCode;
}

} // namespace

Command playCommand() {
    return Command{QStringLiteral("play"), kUsage,
                   QStringLiteral("Lit les fichiers ensemble, synchronisés (espace, [ ], q au clavier)."),
                   run};
}
