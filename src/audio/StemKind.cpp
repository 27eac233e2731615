#include "audio/StemKind.h"

#include <array>

namespace {
struct KindTexts {
    const char* raw;
    const char* displayName;
    const char* icon;
};

constexpr std::array<KindTexts, 8> kTexts{{
    {"vocals", "Voix", "mic.fill"},
    {"drums", "Batterie", "waveform"},
    {"bass", "Basse", "music.note"},
    {"guitar", "Guitare", "guitars.fill"},
    {"piano", "Piano", "pianokeys"},
    {"other", "Autres (sax, cordes…)", "music.note.list"},
    {"original", "Original", "music.quarternote.3"},
    {"mix", "Mix", "slider.horizontal.3"},
}};

constexpr std::array<const char*, 8> kColors{"#C084FC", "#F97316", "#22D3EE", "#4ADE80",
                                             "#FBBF24", "#94A3B8", "#60A5FA", "#A3E635"};

const KindTexts& textsOf(StemKind kind) {
    return kTexts[static_cast<size_t>(kind)];
}
} // namespace

namespace StemKinds {
QList<StemKind> all() {
    return {StemKind::vocals, StemKind::drums, StemKind::bass,     StemKind::guitar,
            StemKind::piano,  StemKind::other, StemKind::original, StemKind::mix};
}

QList<StemKind> separable() {
    return all().first(6);
}

QList<StemKind> studioFallback() {
    return all().first(7);
}

QString rawValue(StemKind kind) {
    return QString::fromLatin1(textsOf(kind).raw);
}

QString displayName(StemKind kind) {
    return QString::fromUtf8(textsOf(kind).displayName);
}

QString iconName(StemKind kind) {
    return QString::fromLatin1(textsOf(kind).icon);
}

QString colorHex(StemKind kind) {
    return QString::fromLatin1(kColors[static_cast<size_t>(kind)]);
}

QColor color(StemKind kind) {
    return colorFromHex(colorHex(kind));
}

std::optional<StemKind> fromRawValue(const QString& raw) {
    for (StemKind kind : all()) {
        if (raw == QLatin1String(textsOf(kind).raw))
            return kind;
    }
    return std::nullopt;
}
} // namespace StemKinds

QColor colorFromHex(const QString& text) {
    QString cleaned;
    for (QChar c : text) {
        if (c.isLetterOrNumber())
            cleaned.append(c);
    }
    bool ok = false;
    const quint64 value = cleaned.toULongLong(&ok, 16);
    if (cleaned.size() != 6 || !ok)
        return QColor::fromRgbF(0.0f, 0.0f, 0.0f, 1.0f);
    return QColor::fromRgbF(float((value >> 16) & 0xFF) / 255.0f, float((value >> 8) & 0xFF) / 255.0f,
                            float(value & 0xFF) / 255.0f, 1.0f);
}
