#pragma once

#include <QString>
#include <optional>

// What the processing screen shows of the current job.
struct JobProgress {
    QString phase; // the status text
    double percent = 0;
    QString message; // the engine's stage text, or the status text when it has none
    bool isComplete = false;
    bool isFailed = false;
    std::optional<QString> errorMessage;

    bool operator==(const JobProgress&) const = default;
};
