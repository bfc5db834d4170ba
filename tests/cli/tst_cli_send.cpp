#include "store/AuditTrail.h"
#include "store/SharedDatabase.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

// Runs "tonvy-cli send" as a user would: against the terminal simulator over
// a pseudo-terminal, and against a line nobody answers.
class tst_CliSend : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusals_data();
    void refusals();
    void fullDownloadAgainstTerminal();
    void terminalNotInDownloadMode();
    void givesUpWhenNobodyAnswers();
    void unansweredHeaderEndsWithCableMessage();
    void badDownloadFileTouchesNothing_data();
    void badDownloadFileTouchesNothing();
    void interruptedSend_data();
    void interruptedSend();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QStringList& args, int timeoutMs = 60000);
    // Starts the simulator; returns the device path its first line names.
    QString startTerminal(QProcess& terminal, const QStringList& extra = {},
                          const QString& state = QStringLiteral("terminal"));
    // Every BankData row of the agent, every column.
    QStringList bankData(const QString& agentId);
    // The accounts stored for the agent and every file of the bank folder.
    QStringList storedAndBankFiles();

    QString m_bin;
    QTemporaryDir m_dir;
    QString m_data;
    QString m_bank;
};

void tst_CliSend::initTestCase()
{
    m_bin = qEnvironmentVariable("TONVY_BIN_DIR");
    QVERIFY2(QFile::exists(m_bin + "/tonvy-cli"), qPrintable(m_bin));
    QVERIFY2(QFile::exists(m_bin + "/tonvy-terminal"), qPrintable(m_bin));
    m_data = m_dir.filePath("data");
    m_bank = m_dir.filePath("bank");
    QVERIFY(QDir().mkpath(m_data));
    QVERIFY(QDir().mkpath(m_bank));
    const Result r = run({"settings", "set", "--bank-name", "STATE BANK", "--branch-name", "MAIN ROAD", "--comm-port",
                          "1", "--font-size", "small", "--bank-info-path", m_bank});
    QCOMPARE(r.code, 0);

    QFile file(QDir(m_bank).filePath("0051611d.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QList<QByteArray> lines;
    for (const char* name : {"ZEENAT BANU", "ANIL SHARMA", "MEERA PILLAI"}) {
        AccountLine a = AccountLine::numbered(static_cast<int>(lines.size()) + 1);
        a.name = QString::fromLatin1(name);
        lines << a.bytes();
    }
    file.write(joinLines(lines));
}

tst_CliSend::Result tst_CliSend::run(const QStringList& args, int timeoutMs)
{
    QProcess p;
    p.start(m_bin + "/tonvy-cli", QStringList{"--data-dir", m_data} + args);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(timeoutMs))) {
        p.kill();
        p.waitForFinished();
        return {-1, {}, "timeout"};
    }
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

namespace {

// Everything the program wrote to the line, read from the other end.
QByteArray drain(int master)
{
    QByteArray line;
    ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
    char buf[4096];
    for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;)
        line.append(buf, n);
    return line;
}

} // namespace

QString tst_CliSend::startTerminal(QProcess& terminal, const QStringList& extra, const QString& state)
{
    QDir().mkpath(m_dir.filePath(state));
    terminal.start(m_bin + "/tonvy-terminal", QStringList{"--state", m_dir.filePath(state)} + extra);
    if (!terminal.waitForStarted(10000))
        return {};
    while (!terminal.canReadLine()) {
        if (!terminal.waitForReadyRead(10000))
            return {};
    }
    // The first line names the device, e.g. "Terminal ready on /dev/pts/3".
    const QString first = QString::fromLocal8Bit(terminal.readLine()).trimmed();
    const qsizetype at = first.indexOf(QLatin1String("/dev/"));
    return at < 0 ? first : first.mid(at).section(QLatin1Char(' '), 0, 0);
}

void tst_CliSend::refusals_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("no agent") << QStringList{"send", "--date", "1611"} << 1 << "Enter Agent ID";
    QTest::newRow("no date") << QStringList{"send", "--agent", "5"} << 1 << "Enter Date";
    QTest::newRow("date of five") << QStringList{"send", "--agent", "5", "--date", "16112"} << 1 << "Enter Date";
    QTest::newRow("three-digit date, no such file")
        << QStringList{"send", "--agent", "5", "--date", "161"} << 1 << "File does not exist!";
    QTest::newRow("letters in agent") << QStringList{"send", "--agent", "5a", "--date", "1611"} << 2
                                      << "--agent takes digits only.";
    QTest::newRow("30 February") << QStringList{"send", "--agent", "5", "--date", "3002"} << 2
                                 << "--date 3002 names no real day: February has at most 29 days.\n";
    QTest::newRow("month 13") << QStringList{"send", "--agent", "5", "--date", "0113"} << 2
                              << "--date 0113 names no real day: there is no month 13, months run from 01 to 12.\n";
    QTest::newRow("8 in transactions") << QStringList{"send", "--agent", "5", "--date", "1611", "--transactions", "8"}
                                       << 2 << "--transactions takes the digits 0 to 7 only.";
    // The header holds one digit: two would make a frame the terminal cannot read.
    QTest::newRow("two digits in transactions")
        << QStringList{"send", "--agent", "5", "--date", "1611", "--transactions", "12"} << 1
        << "The number of transactions has 2 digits; the terminal takes one digit (0 to 7).";
}

void tst_CliSend::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, message);
    const Result r = run(args);
    QCOMPARE(r.code, code);
    QVERIFY2((r.out + r.err).contains(message), qPrintable(r.out + r.err));
    QVERIFY(!r.out.contains("Record Sent"));
}

void tst_CliSend::fullDownloadAgainstTerminal()
{
    QProcess terminal;
    const QString device = startTerminal(terminal);
    QVERIFY2(device.startsWith("/dev/"), qPrintable(device));

    const Result r = run({"--port", device, "send", "--agent", "5", "--date", "1611", "--give-up-after", "60"});
    terminal.terminate();
    terminal.waitForFinished(scaledMs(5000));
    const QString terminalSaid = QString::fromLocal8Bit(terminal.readAllStandardOutput());
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    QVERIFY(r.out.contains("Record Sent : 1 / 3\n"));
    QVERIFY(r.out.contains("Record Sent : 3 / 3\n"));
    QVERIFY(r.out.contains("Download Completed Successfully"));
    QVERIFY2(terminalSaid.contains("3 accounts"), qPrintable(terminalSaid));
}

void tst_CliSend::terminalNotInDownloadMode()
{
    QProcess terminal;
    const QString device = startTerminal(terminal, {"--not-download-mode", "clos"});
    QVERIFY2(device.startsWith("/dev/"), qPrintable(device));
    const Result r = run({"--port", device, "send", "--agent", "5", "--date", "1611", "--give-up-after", "30"});
    terminal.terminate();
    terminal.waitForFinished(scaledMs(5000));
    QCOMPARE(r.code, 1);
    QVERIFY(r.out.contains("Please goto Download Mode in the HandHeld Terminal and then Send Data!"));
}

void tst_CliSend::givesUpWhenNobodyAnswers()
{
    // A pseudo-terminal whose other end stays open and silent.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    const QString device = QString::fromLocal8Bit(ptsname(master));

    const Result r = run({"--port", device, "send", "--agent", "5", "--date", "1611", "--give-up-after", "2"});
    ::close(master);
    QCOMPARE(r.code, 3);
    QVERIFY(r.err.contains("Gave up after 2 seconds"));
    QVERIFY(!r.out.contains("Download Completed"));
}

void tst_CliSend::unansweredHeaderEndsWithCableMessage()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    const QString device = QString::fromLocal8Bit(ptsname(master));

    const Result r = run({"--port", device, "send", "--agent", "5", "--date", "1611", "--give-up-after", "20"});
    const QByteArray line = drain(master);
    ::close(master);
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Please Check the Communication Cable"), qPrintable(r.err));
    // The header, once: 137 bytes starting 01 FF 10 F0 'D', and nothing after it.
    QCOMPARE(line.size(), 137);
    QVERIFY(line.startsWith(QByteArray("\x01\xFF\x10\xF0"
                                       "D")));
}

QStringList tst_CliSend::bankData(const QString& agentId)
{
    QStringList rows;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("peek"));
        db.setDatabaseName(QDir(m_data).filePath("HandHeldData.db"));
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery q(db);
            q.prepare(QStringLiteral("SELECT * FROM BankData WHERE AgentID = ? ORDER BY ACNumber"));
            q.addBindValue(agentId);
            q.exec();
            while (q.next()) {
                QStringList row;
                for (int i = 0; i < q.record().count(); ++i)
                    row << q.value(i).toString();
                rows << row.join(QLatin1Char('|'));
            }
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("peek"));
    return rows;
}

void tst_CliSend::badDownloadFileTouchesNothing_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("detail");
    AccountLine good = AccountLine::numbered(1);
    good.agent = QStringLiteral("AG0007");
    AccountLine letter = AccountLine::numbered(2);
    letter.agent = good.agent;
    letter.balance = QStringLiteral("00012X45");
    QTest::newRow("letter in a balance")
        << joinLines({good.bytes(), letter.bytes()}) << "Error in DATA FORMAT"
        << "0070101d.txt, line 2: the balance amount (columns 95-102) \"00012X45\" is not a number.";
    QTest::newRow("a line cut short") << joinLines({good.bytes(), good.bytes().left(90), good.bytes()})
                                      << "Error in DATA FORMAT"
                                      << "0070101d.txt, line 2: the record is 90 characters long";
    QTest::newRow("an empty file") << QByteArray() << "0070101d.txt holds no accounts."
                                   << "the terminal keeps the accounts it has";
    QTest::newRow("a line that ends before the agreed amount")
        << joinLines({good.bytes().left(101), good.bytes()}) << "Error in DATA FORMAT"
        << "0070101d.txt, line 1: the agreed amount (columns 106-110) \"\" is missing";
}

void tst_CliSend::badDownloadFileTouchesNothing()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(QString, detail);
    const QString agentId = AccountLine::field(QStringLiteral("AG0007"), 15);
    const QString path = QDir(m_bank).filePath("0070101d.txt");

    // The agent's accounts of the day before are on the terminal.
    QProcess terminal;
    const QString state =
        QStringLiteral("terminal-%1").arg(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('-'));
    const QString device = startTerminal(terminal, {}, state);
    QVERIFY2(device.startsWith("/dev/"), qPrintable(device));
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QList<QByteArray> lines;
        for (int n = 1; n <= 3; ++n) {
            AccountLine a = AccountLine::numbered(n);
            a.agent = QStringLiteral("AG0007");
            lines << a.bytes();
        }
        file.write(joinLines(lines));
    }
    Result r = run({"--port", device, "send", "--agent", "7", "--date", "0101", "--give-up-after", "60"});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    const QStringList stored = bankData(agentId);
    QCOMPARE(stored.size(), 3);
    QFile stateFile(QDir(m_dir.filePath(state)).filePath("terminal-state.txt"));
    QVERIFY(stateFile.open(QIODevice::ReadOnly));
    const QByteArray held = stateFile.readAll();
    stateFile.close();
    QVERIFY(held.contains("HOLDER 00003"));

    // Today's file is bad: the send is refused before the port is touched.
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
    }
    r = run({"--port", device, "send", "--agent", "7", "--date", "0101", "--give-up-after", "30"});
    terminal.terminate();
    terminal.waitForFinished(scaledMs(5000));
    QCOMPARE(r.code, 1);
    // The message, then its detail on the next line; "Error in DATA FORMAT"
    // is a plain message (standard output), the others are refusals.
    const QStringList said = (r.out + r.err).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(said.size(), 2);
    QVERIFY2(said.at(0).endsWith(message), qPrintable(r.out + r.err));
    QVERIFY2(said.at(1).contains(detail), qPrintable(r.out + r.err));
    QVERIFY2((said.at(0) + said.at(1)).contains(path), qPrintable(r.out + r.err));
    QVERIFY(!r.out.contains("Record Sent"));
    QCOMPARE(bankData(agentId), stored);
    QVERIFY(stateFile.open(QIODevice::ReadOnly));
    QCOMPARE(stateFile.readAll(), held);

    // And on a line nobody answers: not one byte goes out.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    r = run({"--port", QString::fromLocal8Bit(ptsname(master)), "send", "--agent", "7", "--date", "0101",
             "--give-up-after", "5"});
    const QByteArray line = drain(master);
    ::close(master);
    QCOMPARE(r.code, 1);
    QCOMPARE(line, QByteArray());
    QCOMPARE(bankData(agentId), stored);
}

QStringList tst_CliSend::storedAndBankFiles()
{
    QStringList state;
    {
        SharedDatabase db;
        QString error;
        if (!db.open(QDir(m_data).filePath(SharedDatabase::fileName()), &error))
            return {error};
        QSqlQuery q(db.connection());
        q.exec("SELECT * FROM BankData ORDER BY ACNumber");
        while (q.next()) {
            QStringList fields;
            for (int i = 0; i < q.record().count(); ++i)
                fields << q.value(i).toString();
            state << fields.join('|');
        }
    }
    QDirIterator it(m_bank, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile f(path);
        state << path + ": " + (f.open(QIODevice::ReadOnly) ? f.readAll().toHex() : QByteArray("<unreadable>"));
    }
    state.sort();
    return state;
}

// Ctrl+C or SIGTERM in the middle of a send ends it as Exit on the screen:
// nothing more is sent, the port is closed; the command says so on standard
// error, writes the send's end to the audit trail and exits with 128 + the
// signal. The cable is pulled after the terminal took the header and two
// accounts, so that the send is still under way when the signal comes.
void tst_CliSend::interruptedSend_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("by");
    QTest::newRow("Ctrl+C") << int(SIGINT) << 130 << "Ctrl+C (SIGINT)";
    QTest::newRow("SIGTERM") << int(SIGTERM) << 143 << "SIGTERM";
}

void tst_CliSend::interruptedSend()
{
    QFETCH(int, signal);
    QFETCH(int, code);
    QFETCH(QString, by);
    {
        // The accounts as a send stores them, before anything is interrupted.
        QProcess plain;
        const QString device = startTerminal(plain);
        QVERIFY2(device.startsWith("/dev/"), qPrintable(device));
        const Result full = run({"--port", device, "send", "--agent", "5", "--date", "1611"});
        plain.terminate();
        plain.waitForFinished(scaledMs(5000));
        QVERIFY2(full.code == 0, qPrintable(full.out + full.err));
    }
    const QStringList before = storedAndBankFiles();
    QVERIFY(!before.isEmpty());

    QProcess terminal;
    const QString device = startTerminal(terminal, {"--drop-after-frames", "3:60000"});
    QVERIFY2(device.startsWith("/dev/"), qPrintable(device));

    QProcess p;
    p.start(m_bin + "/tonvy-cli", {"--data-dir", m_data, "--port", device, "send", "--agent", "5", "--date", "1611"});
    QVERIFY(p.waitForStarted());
    QString out;
    QElapsedTimer clock;
    clock.start();
    while (!out.contains("Record Sent : 1 / 3\n") && clock.elapsed() < scaledMs(20000)) {
        p.waitForReadyRead(50);
        out += QString::fromLocal8Bit(p.readAllStandardOutput());
    }
    QVERIFY2(out.contains("Record Sent : 1 / 3\n"), qPrintable(out));
    ::kill(static_cast<pid_t>(p.processId()), signal);
    QVERIFY(p.waitForFinished(scaledMs(10000)));
    out += QString::fromLocal8Bit(p.readAllStandardOutput());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    terminal.terminate();
    terminal.waitForFinished(scaledMs(5000));

    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), code);
    const QRegularExpression said(
        QStringLiteral("^Stopped by %1: the send to the terminal ended after ([12]) of 3 accounts; the terminal does "
                       "not hold the whole download\\.\nPut the terminal in download mode again and run the send "
                       "again\\.\n$")
            .arg(QRegularExpression::escape(by)));
    const QRegularExpressionMatch m = said.match(err);
    QVERIFY2(m.hasMatch(), qPrintable(err));
    QVERIFY(!out.contains("Download Completed"));
    QCOMPARE(storedAndBankFiles(), before);

    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(QDir(m_data).filePath(SharedDatabase::fileName()), &error), qPrintable(error));
    const QList<AuditTrail::Event> events = AuditTrail::read(db);
    QVERIFY(!events.isEmpty());
    QCOMPARE(events.last().action, QStringLiteral("send"));
    QVERIFY2(events.last().details.endsWith(
                 QStringLiteral(": stopped by %1 on the command line after %2 of 3 accounts acknowledged")
                     .arg(by, m.captured(1))),
             qPrintable(events.last().details));
}

QTEST_GUILESS_MAIN(tst_CliSend)
#include "tst_cli_send.moc"
