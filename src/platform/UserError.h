#pragma once

#include <QString>
#include <exception>

// Base of every error that reaches the user: one French message, shown as it stands.
// Raised with `throw SomeError(message)` and caught as `const UserError&` where any will do.
class UserError : public std::exception {
public:
    explicit UserError(QString message)
        : m_message(std::move(message))
        , m_utf8(m_message.toUtf8()) {}
    const QString& message() const { return m_message; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_message;
    QByteArray m_utf8;
};
