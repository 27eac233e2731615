#pragma once

#include <QList>
#include <QString>

// One row of the setup pipeline's fixed step list; the step index is the row number.
struct SetupStep {
    QString icon; // a symbol name
    QString title;
    QString detail;

    // The ten steps, in the order the pipeline runs them.
    static const QList<SetupStep>& all();
    // The index of the step with `title`, or -1.
    static int indexOf(const QString& title);
};

// The steps' titles, as the pipeline reports them.
namespace SetupTitle {
inline const QString ffmpeg = QStringLiteral("FFmpeg");
inline const QString audioTools = QStringLiteral("Outils audio");
inline const QString jsRuntime = QStringLiteral("Moteur JavaScript");
inline const QString uv = QStringLiteral("uv");
inline const QString python = QStringLiteral("Python");
inline const QString compiler = QStringLiteral("Outils de compilation");
inline const QString engine = QStringLiteral("Moteur Halvorn");
inline const QString ytdlp = QStringLiteral("yt-dlp");
inline const QString models = QStringLiteral("Modèles IA");
inline const QString start = QStringLiteral("Démarrage");
} // namespace SetupTitle
