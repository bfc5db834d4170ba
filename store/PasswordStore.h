#pragma once

#include <QByteArray>
#include <QString>

class SharedDatabase;

// The four passwords of the Password row.
enum class PasswordKind { Admin, User, Setup, Download };

// One stored software password, for comparing what a user types. The stored
// form is made from the lower-case password and the typed text is compared
// as it stands, so a typed capital letter never matches.
//
// The field holds either a salted PBKDF2 hash
// ("pbkdf2-sha256$<iterations>$<salt, base64>$<hash, base64>") or, in a
// database written before passwords were hashed, the password itself.
class StoredPassword
{
public:
    static constexpr int defaultIterations = 100000;

    StoredPassword() = default;
    // From the value of a field of the Password row.
    static StoredPassword fromField(const QString& stored);
    // The stored form for a password: a hash of its lower-case form with a
    // fresh random salt. An empty password stays empty.
    static QString hashed(const QString& password, int iterations = defaultIterations);
    static bool isHashedField(const QString& stored);

    bool matches(const QString& typed) const;
    // Nothing stored: only an empty entry matches.
    bool isEmpty() const { return !m_hashed && m_lower.isEmpty(); }

private:
    bool m_hashed = false;
    bool m_malformed = false; // a damaged hash matches nothing
    QString m_lower;          // plain form from an older database
    int m_iterations = 0;
    QByteArray m_salt;
    QByteArray m_hash;
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

// The field of the Password row that holds a kind ("admin", "user", "setup",
// "download").
QString fieldName(PasswordKind kind);
// Admin and user guard this program; setup and download travel to the
// terminal and so stay readable.
bool isSoftware(PasswordKind kind);

// Reads "Select * from password where SNo='1'" and closes the result set.
// Software passwords still stored as plain text (an older database, or the
// initial row of a new one) are replaced by their hashes on the way; when
// that write fails the row is still returned and the conversion is tried
// again at the next load. Throws StoreError when the read fails.
Row load(SharedDatabase& db);

// Sets one password to newValue lower-cased and trimmed, hashed for the
// software passwords. Throws StoreError when the row is missing or the
// write fails.
void setPassword(SharedDatabase& db, PasswordKind kind, const QString& newValue);

} // namespace PasswordStore
