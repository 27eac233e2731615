#pragma once

#include <QUrl>

// What a mix export reads from one audible track, captured when the export starts.
struct TrackSnapshot {
    QUrl url;            // the track's audio file
    float volume = 1.0f; // linear gain 0…1

    bool operator==(const TrackSnapshot&) const = default;
};
