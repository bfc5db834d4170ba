#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/WritePoints.h"

#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>
#include <memory>

// 'tonvy-cli receive' killed with SIGKILL at every point where it writes:
// SQLite's journal, the database's pages, the commit (the journal's
// deletion), each file's temporary copy, its sync, its rename into place,
// the folders' syncs, the clearing of the owed-file marks, the day's copy of
// the database. The program is a real process, talking to the simulated
// terminal over a pseudo-terminal, held at the point by the write-point shim
// and killed there; then it is started once. Whatever the point, the
// database is sound and holds either exactly the rows it held before the
// receive or exactly those an uninterrupted receive leaves, and the bank's
// files agree with the rows: the old files with the old rows, and with the
// new rows the upload file, the check listing and the reconciliation byte
// for byte as the uninterrupted receive wrote them. The start that writes
// the files a killed receive owes is then killed the same way, at each of
// its own writes.
//
// The data folder already holds an earlier receive of the same agent and
// day (other collections), so that "old" has an upload file, a check listing
// and history of its own that a half-done receive could spoil.
class tst_CliKillReceive : public QObject
{
    Q_OBJECT

    struct State
    {
        WritePoints::Rows rows;
        QMap<QString, QByteArray> files;
    };

    QTemporaryDir m_root;
    QString m_data;   // the data folder, which is also the bank folder; the same path in every run
    QString m_before; // what it holds before the receive
    TerminalAccounts m_accounts;
    UploadRecords m_records; // the receive's collections
    State m_old;
    State m_new;
    QStringList m_points;
    QString m_owing;           // the data folder of a receive killed after its commit, all three files owed
    State m_completed;         // what the start makes of it
    QStringList m_startPoints; // the writes of that start

    State state() { return {WritePoints::rows(dbPath()), WritePoints::files(m_data)}; }

    QString dbPath() const { return QDir(m_data).filePath(SharedDatabase::fileName()); }

    UploadRecords recordsOf(quint32 seed)
    {
        const QList<Collection> collections = UploadRecords::generate(m_accounts, 5, QDate(2007, 11, 16), seed);
        UploadRecords records;
        QString error;
        if (!UploadRecords::build(m_accounts, collections, {}, &records, &error))
            qFatal("cannot build the terminal's records: %s", qPrintable(error));
        return records;
    }

    // One receive of `records` under the shim; held at point holdAt (and
    // killed there) when it is given. The exit code, or the held point's
    // line for a held run.
    QString receive(const UploadRecords& records, const QString& log, int holdAt = 0)
    {
        Pty pty;
        QString error;
        if (!pty.open(&error))
            return error;
        UploadTerminal terminal(&pty);
        terminal.attach();
        terminal.setRecords(records);
        const QString notice = m_root.filePath(QStringLiteral("held.txt"));
        QFile::remove(notice);
        QProcess p;
        p.setProcessEnvironment(WritePoints::environment(m_data, log, holdAt, notice));
        p.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"),
                {QStringLiteral("--data-dir"), m_data, QStringLiteral("--port"), pty.devicePath(),
                 QStringLiteral("receive")});
        if (!p.waitForStarted())
            return QStringLiteral("not started");
        const auto turn = [] { QCoreApplication::processEvents(QEventLoop::AllEvents, 5); };
        if (holdAt > 0)
            return WritePoints::killWhenHeld(p, notice, turn);
        QElapsedTimer clock;
        clock.start();
        while (p.state() != QProcess::NotRunning && clock.elapsed() < scaledMs(30000)) {
            turn();
            p.waitForFinished(5);
        }
        return QStringLiteral("exit %1 %2").arg(p.exitCode()).arg(QString::fromLocal8Bit(p.readAllStandardError()));
    }

    // A file no reader takes for a finished one: not under the name of any
    // file of the receive (.txt) or of a copy of the database (.db).
    static bool looksUnfinished(const QString& name)
    {
        return !name.endsWith(QLatin1String(".txt")) && !name.endsWith(QLatin1String(".db"));
    }

    static bool isDailyCopy(const QString& name)
    {
        return name == QLatin1String("BackupData/HandHeldData-2007-11-16.db");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        // Canonical: the shim compares it with the paths the kernel gives.
        m_data = QDir(m_root.path()).canonicalPath() + QStringLiteral("/data");
        m_before = m_root.filePath(QStringLiteral("before"));
        QVERIFY(QDir().mkpath(m_data));
        m_accounts = UploadRecords::sampleAccounts(3, QDate(2007, 11, 16));
        {
            SharedDatabase db;
            QString error;
            QVERIFY2(db.open(dbPath(), &error), qPrintable(error));
            SettingsChange change;
            change.bankInfoPath = m_data;
            change.commPort = QStringLiteral("1");
            SettingsStore::save(db, change);
            for (const TerminalAccount& a : m_accounts.accounts)
                db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, "
                                          "BalAmount, AgreedAmount, AgentID, BranchID, MyDate) "
                                          "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                           {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), a.balance.toInt(),
                            a.agreedAmount.toInt(), m_accounts.agentId, m_accounts.branchId, a.lastTxnDate});
        }
        // The earlier receive of the day; its copy of the database goes, so
        // that the receive under test makes the day's copy too.
        QString done = receive(recordsOf(7), {});
        QVERIFY2(done.startsWith(QLatin1String("exit 0")), qPrintable(done));
        for (const QString& name : WritePoints::files(m_data).keys()) {
            if (isDailyCopy(name))
                QVERIFY(QFile::remove(QDir(m_data).filePath(name)));
        }
        QVERIFY(WritePoints::copyFolder(m_data, m_before));
        m_old = state();

        // The receive uninterrupted: what it leaves, and its write points.
        m_records = recordsOf(11);
        const QString log = m_root.filePath(QStringLiteral("points.txt"));
        done = receive(m_records, log);
        QVERIFY2(done.startsWith(QLatin1String("exit 0")), qPrintable(done));
        m_new = state();
        m_points = WritePoints::readLog(log);
        qInfo("%lld write points in an uninterrupted receive", static_cast<long long>(m_points.size()));
        // The shim sees the commit and each file go into place.
        const auto passes = [this](const QString& pattern) {
            const QRegularExpression re(QStringLiteral("^[0-9]+ ") + pattern + QLatin1Char('$'));
            return std::any_of(m_points.cbegin(), m_points.cend(),
                               [&](const QString& line) { return re.match(line).hasMatch(); });
        };
        QVERIFY(passes(QStringLiteral("unlink HandHeldData\\.db-journal")));
        for (const QString& name : {QStringLiteral("0011611u\\.txt"), QStringLiteral("BackupData/0011611uCheck\\.txt"),
                                    QStringLiteral("BackupData/001_16_11_07_2Reconciliation\\.txt"),
                                    QStringLiteral("BackupData/HandHeldData-2007-11-16\\.db")})
            QVERIFY2(passes(QStringLiteral("(link|rename) ") + name + QStringLiteral("( from .*)?")), qPrintable(name));

        QCOMPARE(m_new.rows.check, QStringLiteral("ok"));
        QVERIFY(m_new.rows.rows != m_old.rows.rows);
        QCOMPARE(m_new.rows.audit.size(), m_old.rows.audit.size() + 1);
        for (const QString& name : {QStringLiteral("0011611u.txt"), QStringLiteral("BackupData/0011611uCheck.txt")}) {
            QVERIFY2(m_old.files.contains(name) && m_new.files.contains(name), qPrintable(name));
            QVERIFY2(m_old.files.value(name) != m_new.files.value(name), qPrintable(name));
        }
        QVERIFY(m_new.files.contains(QStringLiteral("BackupData/001_16_11_07_2Reconciliation.txt")));
        QVERIFY(m_new.files.contains(QStringLiteral("BackupData/HandHeldData-2007-11-16.db")));

        // A receive killed after its commit, before its first file went
        // into place; then the start that writes the files it owes, and
        // that start's own write points.
        const auto firstLink = std::find_if(m_points.cbegin(), m_points.cend(), [](const QString& line) {
            return line.section(QLatin1Char(' '), 1) == QLatin1String("link 0011611u.txt");
        });
        QVERIFY(firstLink != m_points.cend());
        QVERIFY(WritePoints::copyFolder(m_before, m_data));
        QVERIFY(!receive(m_records, {}, firstLink->section(QLatin1Char(' '), 0, 0).toInt()).isEmpty());
        m_owing = m_root.filePath(QStringLiteral("owing"));
        QVERIFY(WritePoints::copyFolder(m_data, m_owing));
        const QString startLog = m_root.filePath(QStringLiteral("start-points.txt"));
        const QString started = WritePoints::startOnce(m_data, WritePoints::environment(m_data, startLog));
        QVERIFY2(started.isEmpty(), qPrintable(started));
        m_completed = state();
        m_startPoints = WritePoints::readLog(startLog);
        qInfo("%lld write points in the start that writes the owed files",
              static_cast<long long>(m_startPoints.size()));
        QCOMPARE(m_completed.rows.rows, m_new.rows.rows);
        QCOMPARE(m_completed.rows.audit.size(), m_new.rows.audit.size() + 1);
        for (const QString& name : {QStringLiteral("0011611u.txt"), QStringLiteral("BackupData/0011611uCheck.txt"),
                                    QStringLiteral("BackupData/001_16_11_07_2Reconciliation.txt")})
            QVERIFY2(m_completed.files.value(name) == m_new.files.value(name), qPrintable(name));
    }

    void killedAtEveryWritePoint_data() { WritePoints::addPointRows(m_points); }

    void killedAtEveryWritePoint()
    {
        QFETCH(int, at);
        QFETCH(QString, expected);
        QVERIFY(WritePoints::copyFolder(m_before, m_data));
        const QString held = receive(m_records, {}, at);
        QCOMPARE(WritePoints::pointName(held), expected);

        const QString started = WritePoints::startOnce(m_data);
        QVERIFY2(started.isEmpty(), qPrintable(started));
        // The start rolled back whatever journal was hot; one left is one
        // SQLite ignores (its header never completed).
        QVERIFY(!WritePoints::hotJournal(dbPath() + QStringLiteral("-journal")));
        const State after = state();
        QCOMPARE(after.rows.check, QStringLiteral("ok"));

        const bool isOld = after.rows.rows == m_old.rows.rows;
        QStringList leftOver;
        for (const QString& name : after.files.keys()) {
            if (!m_old.files.contains(name) && !m_new.files.contains(name))
                leftOver << name;
        }
        qInfo("%s%s",
              isOld                                               ? "the old rows and files"
              : after.rows.audit.size() > m_new.rows.audit.size() ? "the new rows; the start wrote the owed files"
                                                                  : "the new rows and files",
              leftOver.isEmpty() ? ""
                                 : qPrintable(QStringLiteral("; left over: ") + leftOver.join(QStringLiteral(", "))));
        if (isOld) {
            // Nothing of the receive but the dump of the terminal's replies,
            // which it writes first on purpose, whole or not at all.
            QCOMPARE(after.rows.audit, m_old.rows.audit);
            for (auto it = m_old.files.cbegin(); it != m_old.files.cend(); ++it)
                QVERIFY2(after.files.value(it.key()) == it.value(), qPrintable(it.key()));
            for (auto it = after.files.cbegin(); it != after.files.cend(); ++it) {
                if (m_old.files.contains(it.key()))
                    continue;
                if (it.key() == QLatin1String("BackupData/001_16_11_07_2.txt"))
                    QVERIFY(it.value() == m_new.files.value(it.key()));
                else
                    QVERIFY2(looksUnfinished(it.key()), qPrintable(it.key()));
            }
            return;
        }
        QCOMPARE(after.rows.rows, m_new.rows.rows);
        // The receive's own event went in with the rows; a start that wrote
        // owed files adds one saying so.
        QVERIFY(after.rows.audit.mid(0, m_new.rows.audit.size()) == m_new.rows.audit);
        QVERIFY(after.rows.audit.size() <= m_new.rows.audit.size() + 1);
        if (after.rows.audit.size() > m_new.rows.audit.size())
            QVERIFY2(after.rows.audit.last().contains(QLatin1String("files completed after an interrupted receive")),
                     qPrintable(after.rows.audit.last()));
        for (auto it = m_new.files.cbegin(); it != m_new.files.cend(); ++it) {
            if (isDailyCopy(it.key()))
                continue;
            QVERIFY2(after.files.contains(it.key()), qPrintable(it.key()));
            QVERIFY2(after.files.value(it.key()) == it.value(), qPrintable(it.key()));
        }
        for (auto it = after.files.cbegin(); it != after.files.cend(); ++it) {
            if (isDailyCopy(it.key())) {
                // Named only once checked: a sound copy of the new rows.
                const WritePoints::Rows copy = WritePoints::rows(QDir(m_data).filePath(it.key()));
                QCOMPARE(copy.check, QStringLiteral("ok"));
                QVERIFY(copy.rows == m_new.rows.rows);
            } else if (!m_new.files.contains(it.key())) {
                QVERIFY2(looksUnfinished(it.key()), qPrintable(it.key()));
            }
        }
        const bool partLeft = std::any_of(after.files.keyBegin(), after.files.keyEnd(), [](const QString& name) {
            return name.startsWith(QLatin1String("BackupData/HandHeldData-2007-11-16.db.part"));
        });
        if (partLeft) {
            // The day's copy was cut off: the next receive of the day makes
            // it, over whatever part of it (and of its journal) was left.
            const QString done = receive(m_records, {});
            QVERIFY2(done.startsWith(QLatin1String("exit 0")), qPrintable(done));
            const QMap<QString, QByteArray> again = WritePoints::files(m_data);
            QVERIFY(again.contains(QStringLiteral("BackupData/HandHeldData-2007-11-16.db")));
            for (const QString& name : again.keys())
                QVERIFY2(!name.contains(QLatin1String(".part")), qPrintable(name));
            QCOMPARE(
                WritePoints::rows(QDir(m_data).filePath(QStringLiteral("BackupData/HandHeldData-2007-11-16.db"))).check,
                QStringLiteral("ok"));
        }
    }

    // The start that writes the owed files, killed in its turn at each of
    // its writes, then started again: still the new rows, and the three
    // files byte for byte, whichever of them the first start had written.
    void startKilledAtEveryWritePoint_data() { WritePoints::addPointRows(m_startPoints); }

    void startKilledAtEveryWritePoint()
    {
        QFETCH(int, at);
        QFETCH(QString, expected);
        QVERIFY(WritePoints::copyFolder(m_owing, m_data));
        const QString notice = m_root.filePath(QStringLiteral("held.txt"));
        const QString held = WritePoints::startKilled(m_data, WritePoints::environment(m_data, {}, at, notice), notice);
        QCOMPARE(WritePoints::pointName(held), expected);

        const QString started = WritePoints::startOnce(m_data);
        QVERIFY2(started.isEmpty(), qPrintable(started));
        QVERIFY(!WritePoints::hotJournal(dbPath() + QStringLiteral("-journal")));
        const State after = state();
        QCOMPARE(after.rows.check, QStringLiteral("ok"));
        QCOMPARE(after.rows.rows, m_new.rows.rows);
        // One event for each start that wrote files.
        QVERIFY(after.rows.audit.mid(0, m_new.rows.audit.size()) == m_new.rows.audit);
        QVERIFY(after.rows.audit.size() <= m_new.rows.audit.size() + 2);
        const QStringList completions = after.rows.audit.mid(m_new.rows.audit.size());
        for (const QString& event : completions)
            QVERIFY2(event.contains(QLatin1String("files completed after an interrupted receive")), qPrintable(event));
        // Every file a start wrote is named in the audit trail with its
        // hash, whichever start wrote it. (The marks were once removed file
        // by file before the event: a start killed from the first removal to
        // the event left the upload file, or all three, never named.)
        const QString folder = m_data + QLatin1Char('/');
        for (const QString& written :
             {QStringLiteral("upload file ") + folder + QStringLiteral("0011611u.txt"),
              QStringLiteral("check listing ") + folder + QStringLiteral("BackupData/0011611uCheck.txt"),
              QStringLiteral("reconciliation ") + folder +
                  QStringLiteral("BackupData/001_16_11_07_2Reconciliation.txt")}) {
            const bool named = std::any_of(completions.cbegin(), completions.cend(),
                                           [&](const QString& event) { return event.contains(written); });
            QVERIFY2(named, qPrintable(written + QStringLiteral(" is not in the audit trail: ") +
                                       completions.join(QStringLiteral(" / "))));
        }
        for (auto it = m_completed.files.cbegin(); it != m_completed.files.cend(); ++it)
            QVERIFY2(after.files.value(it.key()) == it.value(), qPrintable(it.key()));
        for (const QString& name : after.files.keys()) {
            if (!m_completed.files.contains(name))
                QVERIFY2(looksUnfinished(name), qPrintable(name));
        }
    }
};

QTEST_GUILESS_MAIN(tst_CliKillReceive)
#include "tst_cli_killreceive.moc"
