#include "store/PasswordStore.h"

#include "store/AuditTrail.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QList>
#include <QPasswordDigestor>
#include <QRandomGenerator>
#include <QStringList>

namespace {

const QLatin1String scheme("pbkdf2-sha256");
constexpr int saltBytes = 16;
constexpr int hashBytes = 32;

QByteArray derive(const QString& password, const QByteArray& salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256, password.toUtf8(), salt, iterations,
                                              hashBytes);
}

// Takes as long for a near miss as for a far one.
bool sameBytes(const QByteArray& a, const QByteArray& b)
{
    if (a.size() != b.size())
        return false;
    unsigned char diff = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        diff |= static_cast<unsigned char>(a.at(i) ^ b.at(i));
    return diff == 0;
}

// The password's name as the password screen shows its choice.
QString auditName(PasswordKind kind)
{
    switch (kind) {
    case PasswordKind::Admin:
        return QStringLiteral("software admin");
    case PasswordKind::User:
        return QStringLiteral("software user");
    case PasswordKind::Setup:
        return QStringLiteral("terminal setup");
    case PasswordKind::Download:
        return QStringLiteral("terminal main screen");
    }
    return QString();
}

} // namespace

bool StoredPassword::isHashedField(const QString& stored)
{
    return stored.startsWith(scheme + QLatin1Char('$'));
}

StoredPassword StoredPassword::fromField(const QString& stored)
{
    StoredPassword p;
    if (!isHashedField(stored)) {
        p.m_lower = stored.toLower();
        return p;
    }
    p.m_hashed = true;
    const QStringList parts = stored.split(QLatin1Char('$'));
    bool ok = parts.size() == 4;
    if (ok)
        p.m_iterations = parts.at(1).toInt(&ok);
    if (ok) {
        const auto salt =
            QByteArray::fromBase64Encoding(parts.at(2).toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        const auto hash =
            QByteArray::fromBase64Encoding(parts.at(3).toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        ok = salt && hash && p.m_iterations > 0 && !hash.decoded.isEmpty();
        if (ok) {
            p.m_salt = *salt;
            p.m_hash = *hash;
        }
    }
    p.m_malformed = !ok;
    return p;
}

QString StoredPassword::hashed(const QString& password, int iterations)
{
    const QString lower = password.toLower();
    if (lower.isEmpty())
        return {};
    QList<quint32> words(saltBytes / 4);
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    const QByteArray salt(reinterpret_cast<const char*>(words.constData()), saltBytes);
    const QByteArray hash = derive(lower, salt, iterations);
    return QStringList{scheme, QString::number(iterations), QString::fromLatin1(salt.toBase64()),
                       QString::fromLatin1(hash.toBase64())}
        .join(QLatin1Char('$'));
}

bool StoredPassword::matches(const QString& typed) const
{
    if (!m_hashed)
        return typed == m_lower;
    if (m_malformed)
        return false;
    return sameBytes(derive(typed, m_salt, m_iterations), m_hash);
}

namespace PasswordStore {

QString fieldName(PasswordKind kind)
{
    switch (kind) {
    case PasswordKind::Admin:
        return QStringLiteral("admin");
    case PasswordKind::User:
        return QStringLiteral("user");
    case PasswordKind::Setup:
        return QStringLiteral("setup");
    case PasswordKind::Download:
        return QStringLiteral("download");
    }
    return {};
}

bool isSoftware(PasswordKind kind)
{
    return kind == PasswordKind::Admin || kind == PasswordKind::User;
}

Row load(SharedDatabase& db)
{
    Row row;
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("Select * from password where SNo=?"), {QStringLiteral("1")});
    if (!rs.eof()) {
        row.found = true;
        const QString admin = rs.text(QStringLiteral("admin"));
        const QString user = rs.text(QStringLiteral("user"));
        row.admin = StoredPassword::fromField(admin);
        row.user = StoredPassword::fromField(user);
        row.setup = rs.text(QStringLiteral("Setup")).toLower();
        row.download = rs.text(QStringLiteral("download")).toLower();

        const bool plainAdmin = !admin.isEmpty() && !StoredPassword::isHashedField(admin);
        const bool plainUser = !user.isEmpty() && !StoredPassword::isHashedField(user);
        if (plainAdmin || plainUser) {
            try {
                rs.edit();
                if (plainAdmin)
                    rs.setValue(QStringLiteral("admin"), StoredPassword::hashed(admin));
                if (plainUser)
                    rs.setValue(QStringLiteral("user"), StoredPassword::hashed(user));
                rs.update();
            } catch (const StoreError&) {
                // A read-only or locked file: the plain row still works and
                // the next load tries again.
            }
        }
    }
    db.closeSharedRecordset();
    return row;
}

void setPassword(SharedDatabase& db, PasswordKind kind, const QString& newValue)
{
    const QString value = newValue.toLower().trimmed();
    // The password and its audit event together or not at all.
    SharedDatabase::Transaction transaction(db);
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("Select * from Password where SNo=?"), {QStringLiteral("1")});
    if (rs.eof()) {
        db.closeSharedRecordset();
        throw StoreError(QStringLiteral("Database error: the Password table has no row with SNo 1"));
    }
    rs.edit();
    rs.setValue(fieldName(kind), isSoftware(kind) ? StoredPassword::hashed(value) : value);
    rs.update();
    db.closeSharedRecordset();
    // Which password, never its value.
    AuditTrail::record(db, AuditTrail::Action::Password, QStringLiteral("%1 password changed").arg(auditName(kind)));
    transaction.commit();
}

} // namespace PasswordStore
