#pragma once

#include "ComponentInfo.h"

#include <QList>

// What the update-everything operation did.
struct UpdateOutcome {
    struct Component {
        ComponentID id = ComponentID::ffmpeg;
        ComponentInfo::State state; // after its update: ok, failed(message), or what it was
    };

    bool ran = false;            // false when another operation was running
    QList<Component> components; // in ComponentID order
    bool needsRestart = false;   // a newer engine than the running one was installed

    // A required component failed, or nothing ran.
    bool failed() const {
        if (!ran)
            return true;
        for (const Component& component : components)
            if (component.state.kind == ComponentInfo::State::Kind::failed &&
                !Components::isOptional(component.id))
                return true;
        return false;
    }
};
