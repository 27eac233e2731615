#include "JobDescription.h"

#include "app/AppState.h"

#include <QStringList>

namespace {
QString localTime(const QDateTime& time) {
    return time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"));
}

QString number(double value, int decimals) {
    return QString::number(value, 'f', decimals);
}

QString analysisText(const SongAnalysis& analysis) {
    QStringList parts;
    if (analysis.bpm)
        parts.append(number(*analysis.bpm, 1) + QStringLiteral(" BPM"));
    if (analysis.key)
        parts.append(analysis.scale ? *analysis.key + QLatin1Char(' ') + *analysis.scale : *analysis.key);
    if (analysis.integratedLufs)
        parts.append(number(*analysis.integratedLufs, 1) + QStringLiteral(" LUFS"));
    if (analysis.samplePeakDb)
        parts.append(QStringLiteral("crête ") + number(*analysis.samplePeakDb, 1) + QStringLiteral(" dB"));
    return parts.join(QStringLiteral(" · "));
}
} // namespace

namespace JobDescription {

QString percent(double progress) {
    return QString::number(progress, 'g', 6);
}

QString listLine(const StemJob& job) {
    return QStringList{job.id, JobStatuses::statusLabel(job.status),
                       percent(job.progress) + QStringLiteral(" %"), localTime(job.createdAt), job.title}
        .join(QLatin1Char('\t'));
}

QString progressLine(const StemJob& job) {
    QString line = JobStatuses::statusLabel(job.status) + QLatin1Char(' ') + percent(job.progress) +
                   QStringLiteral(" %");
    if (!job.stage.isEmpty())
        line += QStringLiteral(" — ") + job.stage;
    return line;
}

QString details(const StemJob& job) {
    QStringList lines{QStringLiteral("Identifiant : ") + job.id, QStringLiteral("Titre : ") + job.title,
                      QStringLiteral("État : ") + JobStatuses::statusLabel(job.status),
                      QStringLiteral("Progression : ") + percent(job.progress) + QStringLiteral(" %")};
    if (!job.stage.isEmpty())
        lines.append(QStringLiteral("Étape : ") + job.stage);
    lines.append(QStringLiteral("Créée le : ") + localTime(job.createdAt));
    if (!job.stems.isEmpty()) {
        QStringList names;
        for (const StemFile& stem : job.stems)
            names.append(StemKinds::displayName(stem.kind));
        lines.append(QStringLiteral("Pistes : ") + names.join(QStringLiteral(", ")));
    }
    if (job.analysis)
        lines.append(QStringLiteral("Analyse : ") + analysisText(*job.analysis));
    if (const std::optional<QString> error = AppState::errorText(job))
        lines.append(QStringLiteral("Erreur : ") + *error);
    lines.append(QStringLiteral("Favori : ") +
                 (job.favorite ? QStringLiteral("oui") : QStringLiteral("non")));
    return lines.join(QLatin1Char('\n'));
}

} // namespace JobDescription
