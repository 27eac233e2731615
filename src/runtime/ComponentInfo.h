#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <optional>

// The nine components shown to the user, in display order.
enum class ComponentID { ffmpeg, fpcalc, jsRuntime, uv, python, compiler, backend, ytdlp, models };

namespace Components {
QList<ComponentID> all();
QString rawValue(ComponentID id);    // the case name, e.g. "jsRuntime"
QString displayName(ComponentID id); // e.g. "FFmpeg + ffprobe"
bool isOptional(ComponentID id);
std::optional<ComponentID> fromRawValue(const QString& raw);
} // namespace Components

// One row of the components list.
struct ComponentInfo {
    struct State {
        enum class Kind { unknown, checking, ok, missing, outdated, working, failed };
        Kind kind = Kind::unknown;
        QString message; // only for failed

        static State failed(const QString& message) { return {Kind::failed, message}; }
        bool operator==(const State& other) const {
            return kind == other.kind && (kind != Kind::failed || message == other.message);
        }
    };

    ComponentID id = ComponentID::ffmpeg;
    std::optional<QString> installed;
    std::optional<QString> latest;
    State state;

    bool operator==(const ComponentInfo&) const = default;

    // Nine rows in order, no versions, every state unknown.
    static QList<ComponentInfo> initialRows();
};

Q_DECLARE_METATYPE(ComponentInfo)
