#include "ComponentInfo.h"

namespace {
struct ComponentRow {
    ComponentID id;
    const char* raw;
    const char* name;
    bool optional;
};
constexpr ComponentRow kRows[] = {
    {ComponentID::ffmpeg, "ffmpeg", "FFmpeg + ffprobe", false},
    {ComponentID::fpcalc, "fpcalc", "Chromaprint (fpcalc)", true},
    {ComponentID::jsRuntime, "jsRuntime", "QuickJS", true},
    {ComponentID::uv, "uv", "uv", false},
    {ComponentID::python, "python", "Python", false},
    {ComponentID::compiler, "compiler", "Outils de compilation", true},
    {ComponentID::backend, "backend", "Moteur Halvorn", false},
    {ComponentID::ytdlp, "ytdlp", "yt-dlp", false},
    {ComponentID::models, "models", "Modèles IA", true},
};

const ComponentRow& row(ComponentID id) {
    return kRows[static_cast<int>(id)];
}
} // namespace

namespace Components {
QList<ComponentID> all() {
    QList<ComponentID> ids;
    for (const auto& entry : kRows)
        ids.append(entry.id);
    return ids;
}
QString rawValue(ComponentID id) {
    return QString::fromUtf8(row(id).raw);
}
QString displayName(ComponentID id) {
    return QString::fromUtf8(row(id).name);
}
bool isOptional(ComponentID id) {
    return row(id).optional;
}
std::optional<ComponentID> fromRawValue(const QString& raw) {
    for (const auto& entry : kRows)
        if (raw == QLatin1String(entry.raw))
            return entry.id;
    return std::nullopt;
}
} // namespace Components

QList<ComponentInfo> ComponentInfo::initialRows() {
    QList<ComponentInfo> rows;
    for (ComponentID id : Components::all())
        rows.append(ComponentInfo{id, std::nullopt, std::nullopt, State{}});
    return rows;
}
