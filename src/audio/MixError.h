#pragma once

#include "platform/UserError.h"

// A mix export that cannot start.
class MixError : public UserError {
public:
    enum class Kind { noActiveTracks };

    // No track is audible: all muted, or none with a file.
    static MixError noActiveTracks() {
        return MixError(Kind::noActiveTracks,
                        QStringLiteral("Aucune piste active. Activez au moins une piste avant d'exporter."));
    }

    Kind kind() const { return m_kind; }

private:
    MixError(Kind kind, QString message)
        : UserError(std::move(message))
        , m_kind(kind) {}

    Kind m_kind;
};
