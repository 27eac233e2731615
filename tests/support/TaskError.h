#pragma once

#include "platform/UserError.h"

#include <QCoro/QCoroTask>
#include <QString>

namespace TestSupport {

// Runs `task` to its end; the message of the UserError it throws, or an empty text when it succeeds.
template <typename T> QString errorOf(QCoro::Task<T> task) {
    const auto catching = [](QCoro::Task<T> running) -> QCoro::Task<QString> {
        try {
            co_await std::move(running);
        } catch (const UserError& error) {
            co_return error.message();
        }
        co_return QString();
    };
    return QCoro::waitFor(catching(std::move(task)));
}

} // namespace TestSupport
