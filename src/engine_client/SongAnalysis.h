#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <optional>

// The musical analysis of a song; every field may be missing.
struct SongAnalysis {
    std::optional<double> bpm;
    std::optional<QString> key;
    std::optional<QString> scale;
    std::optional<double> keyConfidence;
    std::optional<double> integratedLufs;
    std::optional<double> samplePeakDb;

    bool operator==(const SongAnalysis&) const = default;

    // An object whose keys "bpm", "key", "scale", "key_confidence", "integrated_lufs" and "sample_peak_db"
    // are each missing, null or of their type; none for anything else.
    static std::optional<SongAnalysis> fromJson(const QJsonValue& value);
    // The present fields only, in the order above.
    QByteArray toJsonText() const;
};
