#include "PasswordStore.h"

#include "SharedDatabase.h"

StoredPassword StoredPassword::fromField(const QString& stored)
{
    StoredPassword p;
    p.m_lower = stored.toLower();
    return p;
}

bool StoredPassword::matches(const QString& typed) const
{
    return typed == m_lower;
}

namespace PasswordStore {

Row load(SharedDatabase& db)
{
    Row row;
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("Select * from password where SNo=?"),
                                                 {QStringLiteral("1")});
    if (!rs.eof()) {
        row.found = true;
        row.admin = StoredPassword::fromField(rs.text(QStringLiteral("admin")));
        row.user = StoredPassword::fromField(rs.text(QStringLiteral("user")));
        row.setup = rs.text(QStringLiteral("Setup")).toLower();
        row.download = rs.text(QStringLiteral("download")).toLower();
    }
    db.closeSharedRecordset();
    return row;
}

} // namespace PasswordStore
