#pragma once

#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"

#include <QCryptographicHash>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QtTest>

// Database files in the kinds of trouble a branch meets, made for the
// store-fault tests of the command line and of the screens.
namespace StoreFaults {

enum class Fault {
    DamagedSettingsPage, // the page holding the settings row overwritten
    DamagedDataPage,     // a page of the downloaded accounts overwritten
    Truncated,           // the file cut to half its length (a copy that stopped)
    OtherProgramsFile,   // an SQLite file of another program
    RandomBytes,         // not a database at all
};

inline QByteArray bytesOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline QByteArray hashOf(const QString& path)
{
    return QCryptographicHash::hash(bytesOf(path), QCryptographicHash::Sha256).toHex();
}

inline bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

// A sound database of this program: settings, and enough accounts to fill
// a few dozen pages.
inline bool makeOurDatabase(const QString& path, const QString& bankFolder = QString())
{
    SharedDatabase db;
    QString error;
    if (!db.open(path, &error)) {
        qWarning("%s", qPrintable(error));
        return false;
    }
    SharedDatabase::Transaction t(db);
    db.execute(QStringLiteral("INSERT INTO Path (SNo, BankName, BranchName, \"Comm Port\", FontSize, BankInfoPath, "
                              "ReportPath) VALUES ('1', 'OLD BANK', 'OLD BRANCH', '1', '0', ?, '')"),
               {bankFolder});
    for (int i = 0; i < 1500; ++i)
        db.execute(QStringLiteral("INSERT INTO BankData (ACNumber, ACName, AgentID, SNo) VALUES (?, ?, 'AG9', '1')"),
                   {QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')), QString(40, QLatin1Char('N'))});
    t.commit();
    // As every start does: the software passwords become hashes, so that a
    // later start has nothing to write.
    PasswordStore::load(db);
    return true;
}

// The first page of a table (1-based), from the file's own schema.
inline int rootPage(const QString& path, const QString& table)
{
    int page = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("rootpage"));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(
                    QStringLiteral("SELECT rootpage FROM sqlite_master WHERE type='table' AND name='%1'").arg(table)) &&
                q.next())
                page = q.value(0).toInt();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("rootpage"));
    return page;
}

inline void overwritePage(QByteArray& bytes, int page)
{
    const int pageSize = 4096;
    const qsizetype at = qsizetype(page - 1) * pageSize;
    for (int i = 0; i < pageSize && at + i < bytes.size(); ++i)
        bytes[at + i] = static_cast<char>((i * 37 + 11) & 0xFF);
}

// Puts the file at path into the fault's state (bankFolder goes into the
// settings of the files that are ours). False when that could not be done.
inline bool make(Fault fault, const QString& path, const QString& bankFolder = QString())
{
    QFile::remove(path);
    switch (fault) {
    case Fault::DamagedSettingsPage:
    case Fault::DamagedDataPage: {
        if (!makeOurDatabase(path, bankFolder))
            return false;
        const int page = fault == Fault::DamagedSettingsPage ? rootPage(path, QStringLiteral("Path"))
                                                             : rootPage(path, QStringLiteral("BankData")) + 8;
        if (page < 2)
            return false;
        QByteArray bytes = bytesOf(path);
        overwritePage(bytes, page);
        return writeBytes(path, bytes);
    }
    case Fault::Truncated: {
        if (!makeOurDatabase(path, bankFolder))
            return false;
        const QByteArray bytes = bytesOf(path);
        return writeBytes(path, bytes.left(bytes.size() / 2));
    }
    case Fault::OtherProgramsFile: {
        bool ok = false;
        {
            QSqlDatabase other = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
            other.setDatabaseName(path);
            if (other.open()) {
                QSqlQuery q(other);
                ok = q.exec(QStringLiteral("CREATE TABLE customers (id INTEGER PRIMARY KEY, name TEXT)")) &&
                     q.exec(QStringLiteral("INSERT INTO customers (name) VALUES ('Someone')"));
            }
            other.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
        return ok;
    }
    case Fault::RandomBytes: {
        QByteArray bytes(16384, '\0');
        QRandomGenerator generator(20071116);
        for (char& b : bytes)
            b = static_cast<char>(generator.bounded(256));
        return writeBytes(path, bytes);
    }
    }
    return false;
}

// What the clerk must be told for each fault: the advice that fits it.
inline QString adviceFor(Fault fault)
{
    switch (fault) {
    case Fault::DamagedSettingsPage:
    case Fault::DamagedDataPage:
    case Fault::Truncated:
        return QStringLiteral("Restore the backup copy of HandHeldData.db");
    case Fault::OtherProgramsFile:
        return QStringLiteral("It was left unchanged: move it elsewhere or choose another data folder");
    case Fault::RandomBytes:
        return QStringLiteral("It was left unchanged");
    }
    return {};
}

inline void addFaultRows(const char* suffix = "")
{
    QTest::newRow(qPrintable(QStringLiteral("damaged settings page%1").arg(QLatin1String(suffix))))
        << int(Fault::DamagedSettingsPage);
    QTest::newRow(qPrintable(QStringLiteral("damaged page of accounts%1").arg(QLatin1String(suffix))))
        << int(Fault::DamagedDataPage);
    QTest::newRow(qPrintable(QStringLiteral("truncated file%1").arg(QLatin1String(suffix)))) << int(Fault::Truncated);
    QTest::newRow(qPrintable(QStringLiteral("another program's SQLite file%1").arg(QLatin1String(suffix))))
        << int(Fault::OtherProgramsFile);
    QTest::newRow(qPrintable(QStringLiteral("random bytes%1").arg(QLatin1String(suffix)))) << int(Fault::RandomBytes);
}

// Another process holding the file: started, and "locked" read from it,
// before the test goes on; the lock goes when the object does.
class LockHolder
{
public:
    // mode: "exclusive" (nobody may even read) or "immediate" (reading
    // goes on, writing waits).
    bool start(const QString& path, const QString& mode)
    {
        m_process.start(QStringLiteral(LOCKHOLDER_EXE), {path, mode});
        if (!m_process.waitForStarted(10000))
            return false;
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(10000))
                return false;
        }
        return m_process.readLine().trimmed() == "locked";
    }
    ~LockHolder()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.closeWriteChannel();
            if (!m_process.waitForFinished(10000))
                m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

private:
    QProcess m_process;
};

} // namespace StoreFaults
