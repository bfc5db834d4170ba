#include "admin/PasswordChange.h"

#include "store/SharedDatabase.h"

PasswordChange::Selection PasswordChange::Selection::of(PasswordKind kind)
{
    Selection s;
    s.software = PasswordStore::isSoftware(kind);
    s.handHeld = !s.software;
    s.admin = kind == PasswordKind::Admin;
    s.user = kind == PasswordKind::User;
    s.setup = kind == PasswordKind::Setup;
    s.download = kind == PasswordKind::Download;
    return s;
}

void PasswordChange::load(SharedDatabase& db)
{
    const PasswordStore::Row row = PasswordStore::load(db);
    m_admin = row.admin;
    m_user = row.user;
    m_setup = row.setup;
    m_download = row.download;
}

std::optional<PasswordKind> PasswordChange::kindOf(const Selection& s)
{
    if (s.software && s.admin)
        return PasswordKind::Admin;
    if (s.software && s.user)
        return PasswordKind::User;
    if (s.handHeld && s.setup)
        return PasswordKind::Setup;
    if (s.handHeld && s.download)
        return PasswordKind::Download;
    return std::nullopt;
}

bool PasswordChange::oldPasswordAccepted(const Selection& selection, const QString& typed) const
{
    const auto kind = kindOf(selection);
    if (!kind)
        return true;
    const QString lower = typed.toLower();
    switch (*kind) {
    case PasswordKind::Admin:
        return m_admin.matches(lower);
    case PasswordKind::User:
        return m_user.matches(lower);
    case PasswordKind::Setup:
        return lower == m_setup;
    case PasswordKind::Download:
        return lower == m_download;
    }
    return false;
}

bool PasswordChange::confirms(const QString& newPassword, const QString& confirmation)
{
    return newPassword.toLower().trimmed() == confirmation.toLower().trimmed();
}

PasswordChange::Outcome PasswordChange::save(SharedDatabase& db, const Selection& selection, const QString& newPassword,
                                             const QString& confirmation)
{
    if (!confirms(newPassword, confirmation))
        return Outcome::Mismatch;
    if (const auto kind = kindOf(selection))
        PasswordStore::setPassword(db, *kind, newPassword);
    return Outcome::Saved;
}

QString PasswordChange::backspaced(const QString& text)
{
    // The whole-number value of the leading digits, as version 2.1's Val()
    // read it; the arithmetic form is kept on purpose.
    qint64 value = 0;
    for (const QChar c : text.trimmed()) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9') || value > 99999999999LL)
            break;
        value = value * 10 + (c.unicode() - '0');
    }
    return QString::number(value / 10);
}

bool PasswordChange::typeable(PasswordKind kind, const QString& value)
{
    if (PasswordStore::isSoftware(kind))
        return value.size() <= softwareLimit;
    if (value.size() > terminalLimit)
        return false;
    for (const QChar c : value) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}
