#pragma once

#include <QList>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QString>
#include <QVariant>
#include <QVariantList>

// The program-wide result set: a query's rows held in memory, a current row,
// fields read and written by name without regard to case, and the add-new /
// edit / update cycle of version 2.1's record sets. Updates go back to the one
// table named in the query's "select * from <table>".
class SharedRecordset
{
public:
    SharedRecordset() = default;

    // Runs the query with its bound values and makes its rows the content.
    // Throws StoreError when the statement fails.
    void open(QSqlDatabase db, const QString& sql, const QVariantList& values = {});
    void close();
    bool isOpen() const { return m_open; }

    bool eof() const;
    bool bof() const;
    int recordCount() const { return static_cast<int>(m_rows.size()); }
    void moveFirst();
    void moveNext();

    // Field of the current row (case-insensitive name). Throws StoreError
    // when there is no current row or no such field.
    QVariant value(const QString& field) const;
    QString text(const QString& field) const { return value(field).toString(); }

    void addNew();
    void edit();
    void setValue(const QString& field, const QVariant& value);
    // Saves the pending add-new or edit. Throws StoreError on failure.
    void update();

    QString table() const { return m_table; }

private:
    int fieldIndex(const QString& field) const; // -1 when absent
    QString columnName(const QString& field) const;

    enum class Mode { None, AddNew, Edit };

    QSqlDatabase m_db;
    bool m_open = false;
    QString m_table;
    QStringList m_columns; // without the hidden rowid
    QList<QVariantList> m_rows;
    QList<qint64> m_rowIds;
    int m_current = 0;
    Mode m_mode = Mode::None;
    QVariantList m_pending;
    QList<bool> m_touched;
    // The last statement update() ran, kept prepared: rows added one after
    // another with the same fields reuse it instead of preparing each anew.
    QSqlQuery m_statement;
    QString m_statementSql;
};
