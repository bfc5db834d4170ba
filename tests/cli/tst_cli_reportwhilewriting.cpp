#include "store/SharedDatabase.h"
#include "tests/reports/YearOfHistory.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

// 'tonvy-cli report' saving a year of collections while another program
// stores receives in the same database: the writer never waits for the
// report (only, at most, for one week of its snapshot), and the report shows
// each receive whole or not at all.
class tst_CliReportWhileWriting : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void writerCommitsWhileAYearIsSaved();
    void receivesCommittedMeanwhileAreWholeOrAbsent();

private:
    // One receive of the marker agent: its first and last day replaced
    // together. Returns how long the commit took, or -1 when it failed.
    qint64 receiveMarker(int n, QString* error);
    QProcess* startReport(const QString& output);

    QString m_cli;
    QTemporaryDir m_dir;
    QString m_db;
};

void tst_CliReportWhileWriting::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    m_db = m_dir.filePath(SharedDatabase::fileName());
    {
        SharedDatabase db;
        QString error;
        QVERIFY2(db.open(m_db, &error), qPrintable(error));
        // 2025: three agents of 200 accounts, one collection a day each
        // (219,000 rows, some 4,800 pages).
        QElapsedTimer built;
        built.start();
        QVERIFY(db.connection().transaction());
        QVERIFY2(addDaysOfHistory(db.connection(), QDate(2025, 1, 1), 365, 3, 200, &error), qPrintable(error));
        QVERIFY(db.connection().commit());
        qInfo("a year of history built in %lld ms", static_cast<long long>(built.elapsed()));
    }
    // The writer: another program's connection, waiting for a lock as long
    // as this program does.
    QSqlDatabase writer = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("writer"));
    writer.setDatabaseName(m_db);
    writer.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=3000"));
    QVERIFY(writer.open());
}

void tst_CliReportWhileWriting::cleanupTestCase()
{
    {
        QSqlDatabase writer = QSqlDatabase::database(QStringLiteral("writer"), false);
        if (writer.isValid())
            writer.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("writer"));
}

qint64 tst_CliReportWhileWriting::receiveMarker(int n, QString* error)
{
    QSqlDatabase writer = QSqlDatabase::database(QStringLiteral("writer"), false);
    QElapsedTimer took;
    took.start();
    QSqlQuery q(writer);
    bool ok = q.exec(QStringLiteral("BEGIN IMMEDIATE")) &&
              q.exec(QStringLiteral("DELETE FROM CollectionHistory WHERE AgentID = 'AG0000000000009'"));
    for (const char* day : {"2025-01-01", "2025-12-31"}) {
        if (!ok)
            break;
        ok = q.prepare(QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, "
                                      "ClosingPaise, CollectedPaise) VALUES ('AG0000000000009', ?, "
                                      "'999999999999999', 0, ?)"));
        q.addBindValue(QString::fromLatin1(day));
        q.addBindValue(n * 100);
        ok = ok && q.exec();
    }
    ok = ok && q.exec(QStringLiteral("COMMIT"));
    if (!ok) {
        *error = q.lastError().text();
        q.exec(QStringLiteral("ROLLBACK"));
        return -1;
    }
    return took.elapsed();
}

QProcess* tst_CliReportWhileWriting::startReport(const QString& output)
{
    auto* p = new QProcess(this);
    p->start(m_cli, {"--data-dir", m_dir.path(), "report", "daily", "--from", "2025-01-01", "--to", "2025-12-31",
                     "--output", output});
    p->closeWriteChannel();
    return p;
}

void tst_CliReportWhileWriting::writerCommitsWhileAYearIsSaved()
{
    const QString pdf = m_dir.filePath("year.pdf");
    QElapsedTimer report;
    report.start();
    QProcess* p = startReport(pdf);
    QVERIFY(p->waitForStarted());
    int commits = 0;
    qint64 slowest = 0;
    int n = 0;
    while (!p->waitForFinished(100)) {
        QString error;
        const qint64 took = receiveMarker(++n, &error);
        QVERIFY2(took >= 0, qPrintable(error));
        slowest = qMax(slowest, took);
        ++commits;
        QVERIFY2(report.elapsed() < scaledMs(240000), "the report did not end");
    }
    const qint64 reportMs = report.elapsed();
    const QString err = QString::fromLocal8Bit(p->readAllStandardError());
    QVERIFY2(p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0, qPrintable(err));
    qInfo("report %lld ms; %d commits meanwhile, the slowest %lld ms", static_cast<long long>(reportMs), commits,
          static_cast<long long>(slowest));
    // Longer than SQLite's 3-second wait: had the report held one read
    // transaction from its first page to its last, the writer would have
    // failed as "in use".
    QVERIFY2(reportMs > 3500, qPrintable(QString::number(reportMs)));
    // Every commit went through (none failed as "in use"); how long the
    // slowest took depends on the machine's load, so it is only reported.
    QVERIFY2(commits >= 10, qPrintable(QString::number(commits)));
    QFile file(pdf);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.read(5) == "%PDF-");
}

void tst_CliReportWhileWriting::receivesCommittedMeanwhileAreWholeOrAbsent()
{
    for (int round = 0; round < 2; ++round) {
        const QString csv = m_dir.filePath(QStringLiteral("year-%1.csv").arg(round));
        QProcess* p = startReport(csv);
        QVERIFY(p->waitForStarted());
        int n = 1000 * (round + 1);
        while (!p->waitForFinished(5)) {
            QString error;
            QVERIFY2(receiveMarker(++n, &error) >= 0, qPrintable(error));
        }
        QVERIFY2(p->exitCode() == 0, qPrintable(QString::fromLocal8Bit(p->readAllStandardError())));
        QFile file(csv);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        QVERIFY(text.count(QStringLiteral("\r\n")) > 219000);
        // The marker's first and last day come from the same receive.
        const QRegularExpression marker(QStringLiteral("^(2025-\\d\\d-\\d\\d),AG0000000000009,999999999999999,0.00,"
                                                       "([0-9.]+)\\r$"),
                                        QRegularExpression::MultilineOption);
        QStringList amounts;
        for (auto it = marker.globalMatch(text); it.hasNext();)
            amounts << it.next().captured(2);
        QVERIFY2(amounts.size() == 2 || amounts.isEmpty(), qPrintable(amounts.join(' ')));
        if (!amounts.isEmpty())
            QCOMPARE(amounts.at(0), amounts.at(1));
    }
}

QTEST_GUILESS_MAIN(tst_CliReportWhileWriting)
#include "tst_cli_reportwhilewriting.moc"
