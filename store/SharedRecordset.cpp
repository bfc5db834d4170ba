#include "store/SharedRecordset.h"

#include "store/StoreProblem.h"

#include <QRegularExpression>
#include <QSqlError>
#include <QSqlQuery>

namespace {

QString quoted(const QString& column)
{
    QString c = column;
    c.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + c + QLatin1Char('"');
}

} // namespace

void SharedRecordset::open(QSqlDatabase db, const QString& sql, const QVariantList& values)
{
    close();
    m_db = db;

    // A "select * from <table>" is widened with the row id so that edits can
    // find their row again; anything else is read-only.
    static const QRegularExpression selectAll(
        QStringLiteral(R"(^\s*select\s+\*\s+from\s+("?)([A-Za-z_][A-Za-z0-9_]*)\1)"),
        QRegularExpression::CaseInsensitiveOption);
    QString statement = sql;
    const auto match = selectAll.match(sql);
    bool withRowId = false;
    if (match.hasMatch()) {
        m_table = match.captured(2);
        const qsizetype star = sql.indexOf(QLatin1Char('*'));
        statement = sql.left(star) + QStringLiteral("rowid AS \"__rowid__\", *") + sql.mid(star + 1);
        withRowId = true;
    }

    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.prepare(statement))
        throw StoreProblem::error(m_db, query.lastError());
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        throw StoreProblem::error(m_db, query.lastError());

    const QSqlRecord rec = query.record();
    const int first = withRowId ? 1 : 0;
    for (int i = first; i < rec.count(); ++i)
        m_columns << rec.fieldName(i);
    while (query.next()) {
        QVariantList row;
        row.reserve(m_columns.size());
        for (int i = first; i < rec.count(); ++i)
            row << query.value(i);
        m_rows << row;
        m_rowIds << (withRowId ? query.value(0).toLongLong() : -1);
    }
    m_open = true;
    m_current = 0;
}

void SharedRecordset::close()
{
    m_statement = QSqlQuery();
    m_statementSql.clear();
    m_db = QSqlDatabase(); // lets the connection be removed cleanly at exit
    m_open = false;
    m_table.clear();
    m_columns.clear();
    m_rows.clear();
    m_rowIds.clear();
    m_current = 0;
    m_mode = Mode::None;
    m_pending.clear();
    m_touched.clear();
}

bool SharedRecordset::eof() const
{
    return !m_open || m_current >= m_rows.size();
}

bool SharedRecordset::bof() const
{
    return !m_open || m_rows.isEmpty() || m_current < 0;
}

void SharedRecordset::moveFirst()
{
    m_current = 0;
}

void SharedRecordset::moveNext()
{
    if (m_current < m_rows.size())
        ++m_current;
}

int SharedRecordset::fieldIndex(const QString& field) const
{
    for (int i = 0; i < m_columns.size(); ++i) {
        if (m_columns.at(i).compare(field, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

QString SharedRecordset::columnName(const QString& field) const
{
    const int i = fieldIndex(field);
    if (i < 0)
        throw StoreProblem::misuse(QStringLiteral("no field named '%1'").arg(field));
    return m_columns.at(i);
}

QVariant SharedRecordset::value(const QString& field) const
{
    const int i = fieldIndex(field);
    if (i < 0)
        throw StoreProblem::misuse(QStringLiteral("no field named '%1'").arg(field));
    if (m_mode != Mode::None && m_touched.value(i))
        return m_pending.at(i);
    if (m_mode == Mode::AddNew)
        return {};
    if (eof())
        throw StoreProblem::misuse(QStringLiteral("no current record"));
    return m_rows.at(m_current).at(i);
}

void SharedRecordset::addNew()
{
    if (!m_open || m_table.isEmpty())
        throw StoreProblem::misuse(QStringLiteral("this record set cannot be changed"));
    m_mode = Mode::AddNew;
    m_pending = QVariantList(m_columns.size());
    m_touched = QList<bool>(m_columns.size(), false);
}

void SharedRecordset::edit()
{
    if (!m_open || m_table.isEmpty())
        throw StoreProblem::misuse(QStringLiteral("this record set cannot be changed"));
    if (eof())
        throw StoreProblem::misuse(QStringLiteral("no current record"));
    m_mode = Mode::Edit;
    m_pending = m_rows.at(m_current);
    m_touched = QList<bool>(m_columns.size(), false);
}

void SharedRecordset::setValue(const QString& field, const QVariant& value)
{
    if (m_mode == Mode::None)
        throw StoreProblem::misuse(QStringLiteral("update without AddNew or Edit"));
    const int i = fieldIndex(field);
    if (i < 0)
        throw StoreProblem::misuse(QStringLiteral("no field named '%1'").arg(field));
    m_pending[i] = value;
    m_touched[i] = true;
}

void SharedRecordset::update()
{
    if (m_mode == Mode::None)
        throw StoreProblem::misuse(QStringLiteral("update without AddNew or Edit"));

    QStringList names;
    QVariantList values;
    for (int i = 0; i < m_columns.size(); ++i) {
        if (m_touched.at(i)) {
            names << quoted(m_columns.at(i));
            values << m_pending.at(i);
        }
    }

    QString sql;
    if (m_mode == Mode::AddNew) {
        if (names.isEmpty())
            sql = QStringLiteral("INSERT INTO %1 DEFAULT VALUES").arg(quoted(m_table));
        else
            sql = QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
                      .arg(quoted(m_table), names.join(QLatin1String(", ")),
                           QStringList(names.size(), QStringLiteral("?")).join(QLatin1String(", ")));
    } else {
        if (names.isEmpty()) {
            m_mode = Mode::None;
            return;
        }
        QStringList sets;
        for (const QString& n : names)
            sets << n + QStringLiteral(" = ?");
        sql = QStringLiteral("UPDATE %1 SET %2 WHERE rowid = ?").arg(quoted(m_table), sets.join(QLatin1String(", ")));
        values << m_rowIds.at(m_current);
    }
    if (sql != m_statementSql) {
        m_statementSql.clear();
        m_statement = QSqlQuery(m_db);
        if (!m_statement.prepare(sql))
            throw StoreProblem::error(m_db, m_statement.lastError());
        m_statementSql = sql;
    }
    for (int i = 0; i < values.size(); ++i)
        m_statement.bindValue(i, values.at(i));
    const bool ran = m_statement.exec();
    const QSqlError error = m_statement.lastError();
    m_statement.finish();
    if (!ran) {
        m_statementSql.clear();
        throw StoreProblem::error(m_db, error);
    }

    if (m_mode == Mode::Edit)
        m_rows[m_current] = m_pending;
    m_mode = Mode::None;
    m_pending.clear();
    m_touched.clear();
}
