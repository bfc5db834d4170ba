#pragma once

#include <QString>
#include <stdexcept>

// A database statement failed. Raised by the store so that a screen or a
// session can report the failure in one place instead of silently going on.
class StoreError : public std::runtime_error
{
public:
    explicit StoreError(const QString& message)
        : std::runtime_error(message.toStdString()), m_message(message) {}
    QString message() const { return m_message; }

private:
    QString m_message;
};
