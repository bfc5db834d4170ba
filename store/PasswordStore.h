#pragma once

#include <QString>

class SharedDatabase;

// One stored password of the Password row, for comparing what a user types.
// The stored form is always the lower-case one; the typed text is compared as
// it stands, so a typed capital letter never matches.
class StoredPassword
{
public:
    StoredPassword() = default;
    // From the value of a field of the Password row.
    static StoredPassword fromField(const QString& stored);
    bool matches(const QString& typed) const;
    bool isEmpty() const { return m_lower.isEmpty(); }

private:
    QString m_lower;
};

namespace PasswordStore {

struct Row
{
    bool found = false;
    StoredPassword admin;
    StoredPassword user;
    QString setup;    // terminal set-up password, travels to the terminal
    QString download; // terminal main-screen password, travels to the terminal
};

// Reads "Select * from password where SNo='1'" and closes the result set.
// Throws StoreError when the statement fails.
Row load(SharedDatabase& db);

} // namespace PasswordStore
