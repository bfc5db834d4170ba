#pragma once

#include "tests/support/TestTiming.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QtTest>
#include <functional>
#include <signal.h>

// What the kill tests share: a real tonvy-cli run under the write-point shim
// (tests/cli/helpers/writepoints.cpp), held at one of its writes and killed
// there with SIGKILL, and what a data folder holds before and after.
namespace WritePoints {

// The wall clock of every run: 16 Nov 2007, 18:30:00 UTC, so that the
// collections' decade, the backup dump's name, the reconciliation's and the
// audit trail's stamps are the same in every run.
inline QByteArray fixedTime()
{
    return QByteArray::number(QDateTime(QDate(2007, 11, 16), QTime(18, 30), Qt::UTC).toSecsSinceEpoch());
}

// The environment of a run: the shim watching `folder`, the clock stopped,
// and either every point logged to `log` or the run held at point `holdAt`
// (the point's line then goes to `notice`).
inline QProcessEnvironment environment(const QString& folder, const QString& log, int holdAt = 0,
                                       const QString& notice = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(WRITEPOINTS_SHIM));
    // A sanitizer build must be told that its runtime need not come first.
    const QString asan = env.value(QStringLiteral("ASAN_OPTIONS"));
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               asan + (asan.isEmpty() ? "" : ":") + QStringLiteral("verify_asan_link_order=0"));
    env.insert(QStringLiteral("TONVY_TEST_POINTS_UNDER"), QDir(folder).canonicalPath());
    env.insert(QStringLiteral("TONVY_TEST_FIXED_TIME"), QString::fromLatin1(fixedTime()));
    if (!log.isEmpty())
        env.insert(QStringLiteral("TONVY_TEST_POINTS_LOG"), log);
    if (holdAt > 0) {
        env.insert(QStringLiteral("TONVY_TEST_HOLD_AT"), QString::number(holdAt));
        env.insert(QStringLiteral("TONVY_TEST_HOLD_NOTICE"), notice);
    }
    return env;
}

// The points a run passed, as the shim logged them ("N call path").
inline QStringList readLog(const QString& log)
{
    QFile f(log);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// A point's line without the random part of temporary names, for a row's
// name: "12 rename BackupData/0011611uCheck.txt".
inline QString pointName(const QString& line)
{
    QString name = line;
    name.replace(QRegularExpression(QStringLiteral("#[0-9]+ \\(deleted\\)")), QStringLiteral("(unnamed)"));
    name.replace(QRegularExpression(QStringLiteral("\\.[A-Za-z0-9]{6}(?=$| )")), QStringLiteral(".XXXXXX"));
    return name;
}

// The rows of a kill test: one per point of a counted run, with the point's
// number ("at") and its name ("expected", compared with where the process
// was held, so that a run whose writes changed order fails).
inline void addPointRows(const QStringList& points)
{
    QTest::addColumn<int>("at");
    QTest::addColumn<QString>("expected");
    for (const QString& line : points) {
        const QString name = pointName(line);
        QTest::newRow(qPrintable(name)) << line.section(QLatin1Char(' '), 0, 0).toInt() << name;
    }
}

// Runs `process` (started by the caller) until it is held at its point (the
// notice file has the point's line), then kills it with SIGKILL; `turn` runs
// meanwhile (the simulated terminal answering). The line, or empty when the
// program ended without reaching the point.
inline QString killWhenHeld(QProcess& process, const QString& notice, const std::function<void()>& turn)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < scaledMs(30000)) {
        QFile f(notice);
        if (f.open(QIODevice::ReadOnly)) {
            const QByteArray line = f.readAll();
            if (line.endsWith('\n')) {
                ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
                process.waitForFinished(scaledMs(10000));
                return QString::fromUtf8(line).trimmed();
            }
        }
        if (process.state() == QProcess::NotRunning)
            return {};
        turn();
        process.waitForFinished(5);
    }
    process.kill();
    process.waitForFinished();
    return {};
}

// Every file under the folder by relative path, with its bytes; the
// database and its journal are looked at through SQLite instead.
inline QMap<QString, QByteArray> files(const QString& folder)
{
    QMap<QString, QByteArray> out;
    const QDir root(folder);
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = root.relativeFilePath(path);
        if (relative.startsWith(QLatin1String("HandHeldData.db")))
            continue;
        QFile f(path);
        out.insert(relative, f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>"));
    }
    return out;
}

// What a database file holds: every row of every table (the audit trail
// apart), and the audit trail; `check` is integrity_check's answer.
struct Rows
{
    QStringList rows;
    QStringList audit;
    QString check;
};

inline Rows rows(const QString& dbPath)
{
    Rows out;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("killpoints"));
        db.setDatabaseName(dbPath);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (!db.open()) {
            out.check = QStringLiteral("cannot open");
        } else {
            QSqlQuery q(db);
            if (q.exec(QStringLiteral("PRAGMA integrity_check")) && q.next())
                out.check = q.value(0).toString();
            QStringList tables;
            q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"));
            while (q.next())
                tables << q.value(0).toString();
            for (const QString& table : tables) {
                QSqlQuery t(db);
                t.exec(QStringLiteral("SELECT * FROM \"%1\" ORDER BY rowid").arg(table));
                while (t.next()) {
                    // The audit trail's own counter goes with its events.
                    if (table == QLatin1String("sqlite_sequence") &&
                        t.value(0).toString() == QLatin1String("AuditTrail"))
                        continue;
                    QStringList fields{table};
                    for (int i = 0; i < t.record().count(); ++i)
                        fields << t.value(i).toString();
                    (table == QLatin1String("AuditTrail") ? out.audit : out.rows) << fields.join(QLatin1Char('|'));
                }
            }
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("killpoints"));
    return out;
}

// Whether a rollback journal at path is one SQLite would roll back: there,
// not empty and with a first byte other than zero. A journal whose header was
// never completed (SQLite writes it zeroed and fills it in only once the
// journal is synced, before any page of the database changes) is ignored
// and reused by the next transaction.
inline bool hotJournal(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    const QByteArray first = f.read(1);
    return !first.isEmpty() && first.at(0) != 0;
}

// Makes `to` hold exactly what `from` holds (files and folders).
inline bool copyFolder(const QString& from, const QString& to)
{
    QDir(to).removeRecursively();
    if (!QDir().mkpath(to))
        return false;
    const QDir source(from);
    QDirIterator it(from, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = QDir(to).filePath(source.relativeFilePath(path));
        if (QFileInfo(path).isDir()) {
            if (!QDir().mkpath(target))
                return false;
        } else if (!QFile::copy(path, target)) {
            return false;
        }
    }
    return true;
}

// Starts the program once, as a clerk would after the kill: any command
// that opens the database rolls a hot journal back and writes the files a
// receive still owes before it does anything else.
inline QString startOnce(const QString& dataDir,
                         const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"),
            {QStringLiteral("--data-dir"), dataDir, QStringLiteral("settings"), QStringLiteral("show")});
    if (!p.waitForFinished(scaledMs(30000)))
        return QStringLiteral("the start did not end");
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return QStringLiteral("the start failed (%1): %2")
            .arg(p.exitCode())
            .arg(QString::fromLocal8Bit(p.readAllStandardError()));
    return {};
}

// The same start held at a write point (env from environment()) and killed
// there: the point's line, or empty when it ended first.
inline QString startKilled(const QString& dataDir, const QProcessEnvironment& env, const QString& notice)
{
    QFile::remove(notice);
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"),
            {QStringLiteral("--data-dir"), dataDir, QStringLiteral("settings"), QStringLiteral("show")});
    if (!p.waitForStarted())
        return {};
    return killWhenHeld(p, notice, [] {});
}

} // namespace WritePoints
