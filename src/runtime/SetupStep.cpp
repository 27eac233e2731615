#include "SetupStep.h"

const QList<SetupStep>& SetupStep::all() {
    static const QList<SetupStep> steps{
        {QStringLiteral("waveform"), SetupTitle::ffmpeg,
         QStringLiteral("Décodage / encodage audio (ffmpeg + ffprobe)")},
        {QStringLiteral("wrench.and.screwdriver"), SetupTitle::audioTools,
         QStringLiteral("Chromaprint (identification des morceaux)")},
        {QStringLiteral("curlybraces"), SetupTitle::jsRuntime, QStringLiteral("QuickJS pour YouTube")},
        {QStringLiteral("shippingbox"), SetupTitle::uv, QStringLiteral("Gestionnaire Python")},
        {QStringLiteral("chevron.left.forwardslash.chevron.right"), SetupTitle::python,
         QStringLiteral("Python 3.12 géré par uv")},
        {QStringLiteral("hammer"), SetupTitle::compiler,
         QStringLiteral("Optionnel — voix lead / chœurs (administrateur)")},
        {QStringLiteral("arrow.down.circle"), SetupTitle::engine,
         QStringLiteral("Dernière version publiée + dépendances")},
        {QStringLiteral("play.rectangle"), SetupTitle::ytdlp, QStringLiteral("Téléchargeur YouTube à jour")},
        {QStringLiteral("brain"), SetupTitle::models, QStringLiteral("Demucs, rythme, sections, paroles")},
        {QStringLiteral("play.circle.fill"), SetupTitle::start, QStringLiteral("Lancement du serveur audio")},
    };
    return steps;
}

int SetupStep::indexOf(const QString& title) {
    const QList<SetupStep>& steps = all();
    for (int i = 0; i < steps.size(); ++i)
        if (steps[i].title == title)
            return i;
    return -1;
}
