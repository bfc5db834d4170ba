#include "tests/download/DownloadFileMaker.h"
#include "tests/support/WritePoints.h"

#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>

// 'tonvy-cli send' killed with SIGKILL at every point where it writes: the
// download file's accounts go into BankData, with their audit event, in one
// transaction before the send starts, and the send's end goes to the audit
// trail. The program is a real process sending to the terminal simulator (a
// process of its own), held at the point by the write-point shim and killed
// there; then it is started once. Whatever the point, the database is sound
// and holds either exactly the accounts it held before (an earlier download
// of the same agent and day) or exactly those an uninterrupted send leaves,
// never some of each, and the download's audit event is there exactly when
// its accounts are.
class tst_CliKillSend : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QString m_data;   // the data folder, with the bank folder in it; the same path in every run
    QString m_before; // what it holds before the send
    WritePoints::Rows m_old;
    WritePoints::Rows m_new;
    QMap<QString, QByteArray> m_files;
    QStringList m_points;
    int m_terminals = 0;

    QString dbPath() const { return QDir(m_data).filePath(QStringLiteral("HandHeldData.db")); }

    void writeDownloadFile(const QStringList& names)
    {
        QList<QByteArray> lines;
        for (const QString& name : names) {
            AccountLine a = AccountLine::numbered(static_cast<int>(lines.size()) + 1);
            a.name = name;
            lines << a.bytes();
        }
        QFile file(QDir(m_data).filePath(QStringLiteral("bank/0051611d.txt")));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(joinLines(lines));
    }

    // The send of agent 5's file of 16/11 to a fresh simulated terminal,
    // under the shim; held at point holdAt (and killed there) when it is
    // given. The exit code, or the held point's line for a held run.
    QString send(const QString& log, int holdAt = 0)
    {
        QProcess terminal;
        const QString state = m_root.filePath(QStringLiteral("terminal-%1").arg(++m_terminals));
        QDir().mkpath(state);
        terminal.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-terminal"),
                       {QStringLiteral("--state"), state});
        if (!terminal.waitForStarted(scaledMs(10000)))
            return QStringLiteral("no terminal");
        while (!terminal.canReadLine()) {
            if (!terminal.waitForReadyRead(scaledMs(10000)))
                return QStringLiteral("the terminal said nothing");
        }
        // "Terminal ready on /dev/pts/3"
        const QString first = QString::fromLocal8Bit(terminal.readLine()).trimmed();
        const QString device = first.mid(first.indexOf(QLatin1String("/dev/"))).section(QLatin1Char(' '), 0, 0);

        const QString notice = m_root.filePath(QStringLiteral("held.txt"));
        QFile::remove(notice);
        QProcess p;
        p.setProcessEnvironment(WritePoints::environment(m_data, log, holdAt, notice));
        p.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"),
                {QStringLiteral("--data-dir"), m_data, QStringLiteral("--port"), device, QStringLiteral("send"),
                 QStringLiteral("--agent"), QStringLiteral("5"), QStringLiteral("--date"), QStringLiteral("1611"),
                 QStringLiteral("--give-up-after"), QStringLiteral("30")});
        QString outcome;
        if (!p.waitForStarted())
            outcome = QStringLiteral("not started");
        else if (holdAt > 0)
            outcome = WritePoints::killWhenHeld(p, notice, [] {});
        else if (!p.waitForFinished(scaledMs(60000)))
            outcome = QStringLiteral("did not end");
        else
            outcome = QStringLiteral("exit %1 %2")
                          .arg(p.exitCode())
                          .arg(QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError()));
        terminal.terminate();
        terminal.waitForFinished(scaledMs(5000));
        return outcome;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        // Canonical: the shim compares it with the paths the kernel gives.
        m_data = QDir(m_root.path()).canonicalPath() + QStringLiteral("/data");
        m_before = m_root.filePath(QStringLiteral("before"));
        QVERIFY(QDir().mkpath(QDir(m_data).filePath(QStringLiteral("bank"))));
        QProcess settings;
        settings.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"),
                       {QStringLiteral("--data-dir"), m_data, QStringLiteral("settings"), QStringLiteral("set"),
                        QStringLiteral("--bank-name"), QStringLiteral("STATE BANK"), QStringLiteral("--branch-name"),
                        QStringLiteral("MAIN ROAD"), QStringLiteral("--comm-port"), QStringLiteral("1"),
                        QStringLiteral("--font-size"), QStringLiteral("small"), QStringLiteral("--bank-info-path"),
                        QDir(m_data).filePath(QStringLiteral("bank"))});
        QVERIFY(settings.waitForFinished(scaledMs(30000)));
        QCOMPARE(settings.exitCode(), 0);

        // The agent's download of the day before: two accounts.
        writeDownloadFile({QStringLiteral("ZEENAT BANU"), QStringLiteral("ANIL SHARMA")});
        QString done = send({});
        QVERIFY2(done.startsWith(QLatin1String("exit 0")), qPrintable(done));
        m_old = WritePoints::rows(dbPath());

        // Today's file of the same name: three accounts, other names.
        writeDownloadFile({QStringLiteral("MEERA PILLAI"), QStringLiteral("RAVI TEJA"), QStringLiteral("ASHA RANI")});
        QVERIFY(WritePoints::copyFolder(m_data, m_before));
        m_files = WritePoints::files(m_data);

        const QString log = m_root.filePath(QStringLiteral("points.txt"));
        done = send(log);
        QVERIFY2(done.startsWith(QLatin1String("exit 0")), qPrintable(done));
        m_new = WritePoints::rows(dbPath());
        m_points = WritePoints::readLog(log);
        qInfo("%lld write points in an uninterrupted send", static_cast<long long>(m_points.size()));
        // The shim sees the commits.
        QVERIFY(std::any_of(m_points.cbegin(), m_points.cend(), [](const QString& line) {
            return line.endsWith(QLatin1String(" unlink HandHeldData.db-journal"));
        }));

        QCOMPARE(m_new.check, QStringLiteral("ok"));
        QVERIFY(m_new.rows != m_old.rows);
        // The download's event with its accounts, and the send's end.
        QCOMPARE(m_new.audit.size(), m_old.audit.size() + 2);
        QVERIFY(m_new.audit.at(m_old.audit.size()).contains(QLatin1String("|download|")));
        QVERIFY(m_new.audit.last().contains(QLatin1String("|send|")));
        // A send writes no file of its own.
        QCOMPARE(WritePoints::files(m_data), m_files);
    }

    void killedAtEveryWritePoint_data() { WritePoints::addPointRows(m_points); }

    void killedAtEveryWritePoint()
    {
        QFETCH(int, at);
        QFETCH(QString, expected);
        QVERIFY(WritePoints::copyFolder(m_before, m_data));
        const QString held = send({}, at);
        QCOMPARE(WritePoints::pointName(held), expected);

        const QString started = WritePoints::startOnce(m_data);
        QVERIFY2(started.isEmpty(), qPrintable(started));
        QVERIFY(!WritePoints::hotJournal(dbPath() + QStringLiteral("-journal")));
        const WritePoints::Rows after = WritePoints::rows(dbPath());
        QCOMPARE(after.check, QStringLiteral("ok"));
        QCOMPARE(WritePoints::files(m_data), m_files);

        if (after.rows == m_old.rows) {
            qInfo("the old accounts");
            QCOMPARE(after.audit, m_old.audit);
            return;
        }
        QCOMPARE(after.rows, m_new.rows);
        // The download's event went in with the accounts; the send's end
        // only when the send got that far.
        qInfo(after.audit.size() == m_new.audit.size() ? "the new accounts, the send's end recorded"
                                                       : "the new accounts");
        if (after.audit.size() == m_new.audit.size())
            QCOMPARE(after.audit, m_new.audit);
        else
            QCOMPARE(after.audit, m_new.audit.mid(0, m_new.audit.size() - 1));
    }
};

QTEST_GUILESS_MAIN(tst_CliKillSend)
#include "tst_cli_killsend.moc"
