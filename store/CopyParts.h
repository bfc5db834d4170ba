#pragma once

#include <QDateTime>
#include <QList>
#include <QSqlDatabase>
#include <QSqlError>
#include <QString>

// The small pieces the checked copy, the daily copy and the restore share:
// paths as the IT person reads and types them, an SQLite connection of their
// own, and the file steps every copy takes (created private, synced).
namespace DatabaseCopy {

QString native(const QString& path);
// A path as the IT person would type it in a shell.
QString typed(const QString& path);
// The command that puts `file` (already typed) back in the data folder.
QString restoreCommand(const QString& dataDir, const QString& file);
QString megabytes(qint64 bytes);
// SQLite's own words for an error, else Qt's.
QString sqliteWords(const QSqlError& error);

// Flushes the file at path to the disk (through DurableFile's sync). False
// with *why when that fails.
bool syncFile(const QString& path, QString* why = nullptr);
// An empty file readable by its owner only, before anything is written into
// it: a copy holds what the database holds, passwords included.
bool createPrivate(const QString& path, QString* why);
// folder/stem.db, or folder/stem-2.db, -3, ... when taken.
QString uniquePath(const QString& folder, const QString& stem);

struct CopyFile
{
    QString path;
    QDateTime made;
};
// The files in folder whose name matches the regular expression.
QList<CopyFile> copiesIn(const QString& folder, const QString& pattern);

// A connection of its own, apart from the program's: a copy or a check must
// not depend on what the screens have open on theirs, and may run on a
// thread of its own.
class Connection
{
public:
    Connection(const QString& path, bool readOnly);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool isOpen() const { return m_open; }
    QSqlError openError() const { return m_error; }
    QSqlDatabase db() const { return QSqlDatabase::database(m_name, false); }

private:
    QString m_name;
    bool m_open = false;
    QSqlError m_error;
};

} // namespace DatabaseCopy
