#pragma once

#include "GitHubRelease.h"

#include <QMetaType>
#include <QString>
#include <variant>

// What the self-updater is doing, with the payload of the cases that carry one.
class UpdaterState {
public:
    enum class Kind {
        idle,
        checking,
        upToDate,
        updateAvailable,
        downloading,
        installing,
        readyToRestart,
        error
    };

    UpdaterState() = default;
    static UpdaterState idle() { return UpdaterState(Idle{}); }
    static UpdaterState checking() { return UpdaterState(Checking{}); }
    static UpdaterState upToDate() { return UpdaterState(UpToDate{}); }
    static UpdaterState updateAvailable(GitHubRelease release) {
        return UpdaterState(UpdateAvailable{std::move(release)});
    }
    static UpdaterState downloading(double fraction) { return UpdaterState(Downloading{fraction}); }
    static UpdaterState installing() { return UpdaterState(Installing{}); }
    static UpdaterState readyToRestart() { return UpdaterState(ReadyToRestart{}); }
    static UpdaterState error(QString message) { return UpdaterState(Error{std::move(message)}); }

    Kind kind() const { return static_cast<Kind>(m_value.index()); }
    // The payloads; a case without one gives the empty value.
    GitHubRelease release() const;
    double fraction() const;
    QString message() const;

    // The case's name as written in code: "idle", "downloading", …
    QString caseName() const;
    // The case with its payload, for logs and test failures: "downloading(0.25)".
    QString description() const;

    bool operator==(const UpdaterState&) const = default;

private:
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Checking {
        bool operator==(const Checking&) const = default;
    };
    struct UpToDate {
        bool operator==(const UpToDate&) const = default;
    };
    struct UpdateAvailable {
        GitHubRelease release;
        bool operator==(const UpdateAvailable&) const = default;
    };
    struct Downloading {
        double fraction = 0;
        bool operator==(const Downloading&) const = default;
    };
    struct Installing {
        bool operator==(const Installing&) const = default;
    };
    struct ReadyToRestart {
        bool operator==(const ReadyToRestart&) const = default;
    };
    struct Error {
        QString message;
        bool operator==(const Error&) const = default;
    };
    // Alternatives in the order of Kind.
    using Value = std::variant<Idle, Checking, UpToDate, UpdateAvailable, Downloading, Installing,
                               ReadyToRestart, Error>;

    explicit UpdaterState(Value value)
        : m_value(std::move(value)) {}

    Value m_value;
};

Q_DECLARE_METATYPE(UpdaterState)
