#pragma once

#include <QString>
#include <stdexcept>

// A database statement failed. Raised by the store so that a screen or a
// session can report the failure in one place instead of silently going on.
// The message is meant for the clerk: it names the file and what to do
// (see StoreProblem).
class StoreError : public std::runtime_error
{
public:
    // What kind of trouble the database file is in; each kind has its own
    // advice.
    enum class Kind {
        Other,    // a statement the program got wrong, or a cause without advice of its own
        Damaged,  // pages of the file do not read back as written
        NotOurs,  // not a database of this program (another program's, random bytes)
        InUse,    // another program (or another copy of this one) holds the file
        DiskFull, // no space left on the disk of the file
        ReadOnly, // the file or its folder may not be written by this user
    };

    explicit StoreError(const QString& message, Kind kind = Kind::Other)
        : std::runtime_error(message.toStdString()), m_message(message), m_kind(kind)
    {
    }
    QString message() const { return m_message; }
    Kind kind() const { return m_kind; }

private:
    QString m_message;
    Kind m_kind;
};
