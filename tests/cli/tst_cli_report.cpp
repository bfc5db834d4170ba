#include "store/SharedDatabase.h"
#include "tests/reports/HistoryRows.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>

// Runs tonvy-cli report as a user would, on a database filled beforehand.
class tst_CliReport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void usageErrors_data();
    void usageErrors();
    void dateThatIsNoDay_data();
    void dateThatIsNoDay();
    void printsOnlyItsOwnLines_data();
    void printsOnlyItsOwnLines();
    void refusals_data();
    void refusals();
    void dailyCsv();
    void agentCsv();
    void dailyPdf();
    void datesDefaultToToday();
    void helpListsTheCommand();
    void agentAsTypedOnTheSendScreen();
    void allDigitIdentifiers_data();
    void allDigitIdentifiers();
    void agentMatchingNoneIsRefused_data();
    void agentMatchingNoneIsRefused();
    void numberOfTwoAgentsIsRefused();
    void sameLayoutWithOnlyAnUnrelatedFont();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment());
    QString pdfText(const QStringList& options, const QString& pdf);
    QString readAll(const QString& path);

    QString m_cli;
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_CliReport::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    // The PDF checks need pdftotext: without it they fail, not skip.
    QVERIFY2(!QStandardPaths::findExecutable("pdftotext").isEmpty(),
             "pdftotext is missing: install poppler-utils (scripts/setup does)");
}

QString tst_CliReport::pdfText(const QStringList& options, const QString& pdf)
{
    QProcess p;
    p.start(QStandardPaths::findExecutable("pdftotext"), options + QStringList{pdf, "-"});
    if (!p.waitForFinished(scaledMs(30000)) || p.exitCode() != 0)
        return {};
    return QString::fromUtf8(p.readAllStandardOutput());
}

void tst_CliReport::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), &error), qPrintable(error));
    db.execute(
        "INSERT INTO Path (SNo, BankName, BranchName) VALUES ('1', 'Sahyadri Co-operative Bank', 'Kothrud 014')");
    addHistory(db, {{"001", "2007-11-14", "10010", 2400.25, 0.70},
                    {"002", "2007-11-14", "20010", 800.00, 20.20},
                    {"001", "2007-11-15", "10010", 2450.25, 50.00},
                    {"001", "2007-11-20", "10010", 2500.25, 300.00}});
}

void tst_CliReport::cleanup()
{
    m_dir.reset();
}

tst_CliReport::Result tst_CliReport::run(const QStringList& args, const QProcessEnvironment& env)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(m_cli, QStringList{"--data-dir", m_dir->path()} + args);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(30000)))
        return {-1, {}, "timeout"};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

QString tst_CliReport::readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

void tst_CliReport::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("no kind") << QStringList{"report", "--output", "x.csv"};
    QTest::newRow("unknown kind") << QStringList{"report", "weekly", "--output", "x.csv"};
    QTest::newRow("two kinds") << QStringList{"report", "daily", "agent", "--output", "x.csv"};
    QTest::newRow("no output") << QStringList{"report", "daily"};
    QTest::newRow("other extension") << QStringList{"report", "daily", "--output", "x.txt"};
    QTest::newRow("no extension") << QStringList{"report", "daily", "--output", "x"};
    QTest::newRow("bad from") << QStringList{"report", "daily", "--from", "16-11-2007", "--output", "x.csv"};
    QTest::newRow("bad to") << QStringList{"report", "daily", "--to", "2007-02-30", "--output", "x.csv"};
    QTest::newRow("agent limit on agent report")
        << QStringList{"report", "agent", "--agent", "001", "--output", "x.csv"};
    QTest::newRow("account limit on agent report")
        << QStringList{"report", "agent", "--account", "1", "--output", "x.csv"};
}

void tst_CliReport::usageErrors()
{
    QFETCH(QStringList, args);
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args.at(i - 1) == "--output")
            args[i] = QDir(m_dir->path()).filePath(args.at(i));
    }
    const Result r = run(args);
    QCOMPARE(r.code, 2);
    QVERIFY(!r.err.isEmpty());
    QVERIFY(!QFile::exists(QDir(m_dir->path()).filePath("x.csv")));
}

// A date in the right shape that is not in the calendar is named with the
// reason; one in another shape keeps the message about the shape.
void tst_CliReport::dateThatIsNoDay_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("err");
    QTest::newRow("31 November") << QStringList{"--from", "2026-11-31"}
                                 << "--from 2026-11-31 names no real day: November 2026 has 30 days.";
    QTest::newRow("30 February") << QStringList{"--to", "2007-02-30"}
                                 << "--to 2007-02-30 names no real day: February 2007 has 28 days.";
    QTest::newRow("month 13") << QStringList{"--from", "2026-13-01"}
                              << "--from 2026-13-01 names no real day: there is no month 13, months run from 01 "
                                 "to 12.";
    QTest::newRow("day first") << QStringList{"--from", "16-11-2007"} << "--from takes a date as YYYY-MM-DD.";
}

void tst_CliReport::dateThatIsNoDay()
{
    QFETCH(QStringList, args);
    QFETCH(QString, err);
    const QString output = QDir(m_dir->path()).filePath("x.csv");
    const Result r = run(QStringList{"report", "daily"} + args + QStringList{"--output", output});
    QCOMPARE(r.code, 2);
    QCOMPARE(r.err, err + "\nTry 'tonvy-cli --help'.\n");
    QCOMPARE(r.out, QString());
    QVERIFY(!QFile::exists(output));
}

// Whatever the runtime folder of the environment (none under cron or a
// service, another user's under sudo, one anybody may enter), the command
// prints its own line and nothing from Qt.
void tst_CliReport::printsOnlyItsOwnLines_data()
{
    QTest::addColumn<QString>("runtime"); // "unset", "open" (mode 0755) or "missing"
    QTest::addColumn<QString>("output");
    QTest::newRow("unset, PDF") << "unset"
                                << "daily.pdf";
    QTest::newRow("unset, CSV") << "unset"
                                << "daily.csv";
    QTest::newRow("mode 0755") << "open"
                               << "daily.pdf";
    QTest::newRow("a folder that is not there") << "missing"
                                                << "daily.pdf";
}

void tst_CliReport::printsOnlyItsOwnLines()
{
    QFETCH(QString, runtime);
    QFETCH(QString, output);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("XDG_RUNTIME_DIR");
    const QString folder = QDir(m_dir->path()).filePath("runtime");
    if (runtime == "open") {
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                  QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                                  QFile::ExeOther));
        env.insert("XDG_RUNTIME_DIR", folder);
    } else if (runtime == "missing") {
        env.insert("XDG_RUNTIME_DIR", folder);
    }
    const QString out = QDir(m_dir->path()).filePath(output);
    const Result r = run({"report", "daily", "--from", "2007-11-14", "--to", "2007-11-15", "--output", out}, env);
    QCOMPARE(r.code, 0);
    QCOMPARE(r.err, QString());
    QCOMPARE(r.out, "Report saved in " + QDir::toNativeSeparators(out) + "\n");
}

void tst_CliReport::refusals_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");
    QTest::newRow("from after to") << QStringList{"--from", "2007-11-16", "--to", "2007-11-15"}
                                   << "later than the To Date";
    QTest::newRow("apostrophe in agent") << QStringList{"--agent", "0'1"} << "apostrophe";
    QTest::newRow("apostrophe in account") << QStringList{"--account", "10'10"} << "apostrophe";
}

void tst_CliReport::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    const QString out = QDir(m_dir->path()).filePath("r.csv");
    const Result r = run(QStringList{"report", "daily"} + args + QStringList{"--output", out});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(message), qPrintable(r.err));
    QVERIFY(!QFile::exists(out));
}

void tst_CliReport::dailyCsv()
{
    const QString out = QDir(m_dir->path()).filePath("daily.csv");
    const Result r = run({"report", "daily", "--from", "2007-11-14", "--to", "2007-11-15", "--output", out});
    QCOMPARE(r.code, 0);
    QCOMPARE(readAll(out), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                   "2007-11-14,001,10010,2400.25,0.70\r\n"
                                   "2007-11-14,002,20010,800.00,20.20\r\n"
                                   "2007-11-15,001,10010,2450.25,50.00\r\n"));

    const Result limited = run({"report", "daily", "--from", "2007-11-01", "--to", "2007-11-30", "--agent", "001",
                                "--account", "10010", "--output", out});
    QCOMPARE(limited.code, 0);
    QCOMPARE(readAll(out), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                   "2007-11-14,001,10010,2400.25,0.70\r\n"
                                   "2007-11-15,001,10010,2450.25,50.00\r\n"
                                   "2007-11-20,001,10010,2500.25,300.00\r\n"));
}

void tst_CliReport::agentCsv()
{
    const QString out = QDir(m_dir->path()).filePath("AGENT.CSV");
    const Result r = run({"report", "agent", "--from", "2007-11-14", "--to", "2007-11-20", "--output", out});
    QCOMPARE(r.code, 0);
    QCOMPARE(readAll(out), QString("AgentID,Collected Amount,Date\r\n"
                                   "001,0.70,2007-11-14\r\n"
                                   "002,20.20,2007-11-14\r\n"
                                   "001,50.00,2007-11-15\r\n"
                                   "001,300.00,2007-11-20\r\n"));
}

void tst_CliReport::dailyPdf()
{
    const QString pdftotext = QStandardPaths::findExecutable("pdftotext");
    const QString out = QDir(m_dir->path()).filePath("daily.pdf");
    const Result r = run({"report", "daily", "--from", "2007-11-14", "--to", "2007-11-15", "--output", out});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains(QDir::toNativeSeparators(out)));
    QProcess p;
    p.start(pdftotext, {"-layout", out, "-"});
    QVERIFY(p.waitForFinished(scaledMs(30000)));
    QStringList lines;
    for (const QString& line : QString::fromUtf8(p.readAllStandardOutput()).split('\n'))
        lines << line.simplified();
    const QString all = lines.join('\n');
    QVERIFY(all.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(all.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(all.contains("Branch ID : Kothrud 014"));
    // The date of printing is today's.
    QVERIFY(all.contains("Date : " + QLocale::c().toString(QDate::currentDate(), "dd/MMM/yyyy")));
    QVERIFY(lines.contains("001 10010 2400.25 0.70"));
    QVERIFY(lines.contains("002 20010 800.00 20.20"));
    QVERIFY(lines.contains("001 10010 2450.25 50.00"));
    QVERIFY(lines.contains("Group Total : Rs. 20.90"));
    QVERIFY(lines.contains("Group Total : Rs. 50.00"));
    QVERIFY(lines.contains("Grand Total : Rs. 70.90"));
}

void tst_CliReport::datesDefaultToToday()
{
    const QString today = QDate::currentDate().toString(Qt::ISODate);
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        addHistory(db, {"007", today, "70070", 10.0, 7.0});
    }
    const QString out = QDir(m_dir->path()).filePath("today.csv");
    const Result r = run({"report", "daily", "--output", out});
    QCOMPARE(r.code, 0);
    QCOMPARE(readAll(out), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n" + today +
                                   ",007,70070,10.00,7.00\r\n"));
}

void tst_CliReport::helpListsTheCommand()
{
    const Result r = run({"--help"});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains("report daily|agent"));
}

void tst_CliReport::agentAsTypedOnTheSendScreen()
{
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        addHistory(db, {{"AG0000000000007", "2007-11-14", "70010", 10.0, 7.0, "007"},
                        {"AG0000000000017", "2007-11-14", "70020", 10.0, 1.0, "017"}});
    }
    const QString out = QDir(m_dir->path()).filePath("seven.csv");
    for (const QString& typed : {QString("7"), QString("007"), QString("AG0000000000007")}) {
        const Result r =
            run({"report", "daily", "--from", "2007-11-14", "--to", "2007-11-14", "--agent", typed, "--output", out});
        QCOMPARE(r.code, 0);
        QCOMPARE(readAll(out), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                       "2007-11-14,AG0000000000007,70010,10.00,7.00\r\n"));
    }
}

namespace {

// Agents as real banks number them: all digits, two pairs ending alike,
// padded to 15 characters as the terminal's header gives them, each with the
// terminal's agent number.
const QList<HistoryRow> digitAgents = {
    {"0417000005     ", "2007-11-16", "101", 1000.0, 10.0, "005"},
    {"0417000005     ", "2007-11-16", "102", 1000.0, 20.0, "005"},
    {"0417000015     ", "2007-11-16", "151", 2000.0, 100.0, "015"},
    {"0517000005     ", "2007-11-16", "501", 3000.0, 1000.0, "050"},
};

} // namespace

void tst_CliReport::allDigitIdentifiers_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("rows"); // CSV lines after the heads
    QTest::addColumn<QString>("grandTotal");

    const QStringList a5 = {"2007-11-16,0417000005     ,101,1000.00,10.00",
                            "2007-11-16,0417000005     ,102,1000.00,20.00"};
    const QStringList a15 = {"2007-11-16,0417000015     ,151,2000.00,100.00"};
    const QStringList b5 = {"2007-11-16,0517000005     ,501,3000.00,1000.00"};
    QTest::newRow("5") << "5" << a5 << "30.00";
    QTest::newRow("005") << "005" << a5 << "30.00";
    QTest::newRow("full id") << "0417000005" << a5 << "30.00";
    QTest::newRow("15") << "15" << a15 << "100.00";
    QTest::newRow("015") << "015" << a15 << "100.00";
    QTest::newRow("full id ending in 15") << "0417000015" << a15 << "100.00";
    QTest::newRow("50") << "50" << b5 << "1000.00";
    QTest::newRow("other full id ending in 5") << "0517000005" << b5 << "1000.00";
    QTest::newRow("every agent") << "" << a5 + a15 + b5 << "1130.00";
}

void tst_CliReport::allDigitIdentifiers()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, rows);
    QFETCH(QString, grandTotal);
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        addHistory(db, digitAgents);
    }
    QStringList limits{"report", "daily", "--from", "2007-11-16", "--to", "2007-11-16"};
    if (!typed.isEmpty())
        limits << "--agent" << typed;

    const QString csv = QDir(m_dir->path()).filePath("agent.csv");
    const Result r = run(limits + QStringList{"--output", csv});
    QVERIFY2(r.code == 0, qPrintable(r.err));
    QCOMPARE(readAll(csv), "Date,AgentID,Account No,Closing Amount,Collected Amount\r\n" + rows.join("\r\n") + "\r\n");

    // The printed report: the same rows and their Grand Total.
    const QString pdf = QDir(m_dir->path()).filePath("agent.pdf");
    const Result p = run(limits + QStringList{"--output", pdf});
    QVERIFY2(p.code == 0, qPrintable(p.err));
    QStringList lines;
    for (const QString& line : pdfText({"-layout"}, pdf).split('\n'))
        lines << line.simplified();
    for (const QString& row : rows) {
        const QStringList f = row.split(',');
        QVERIFY2(lines.contains(QStringList{f[1].trimmed(), f[2], f[3], f[4]}.join(' ')), qPrintable(row));
    }
    int printedRows = 0;
    for (const QString& line : lines)
        printedRows += line.startsWith("0417000") || line.startsWith("0517000") ? 1 : 0;
    QCOMPARE(printedRows, rows.size());
    QVERIFY2(lines.contains("Grand Total : Rs. " + grandTotal), qPrintable(lines.join('\n')));
}

void tst_CliReport::agentMatchingNoneIsRefused_data()
{
    QTest::addColumn<QString>("typed");
    QTest::newRow("common ending") << "17000005";
    QTest::newRow("id without its leading zero") << "417000005";
    QTest::newRow("nobody's number") << "7";
    QTest::newRow("nobody's id") << "0417000006";
}

void tst_CliReport::agentMatchingNoneIsRefused()
{
    QFETCH(QString, typed);
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        addHistory(db, digitAgents);
    }
    // Neither an empty report nor another agent's: a message, exit 1, no file.
    for (const char* file : {"none.csv", "none.pdf"}) {
        const QString out = QDir(m_dir->path()).filePath(file);
        const Result r =
            run({"report", "daily", "--from", "2007-11-16", "--to", "2007-11-16", "--agent", typed, "--output", out});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("Agent ID \"" + typed + "\" matches no agent of the stored collections."),
                 qPrintable(r.err));
        QVERIFY(!QFile::exists(out));
    }
}

void tst_CliReport::numberOfTwoAgentsIsRefused()
{
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        addHistory(db, digitAgents);
        // The terminal number 005 later went to another agent.
        addHistory(db, {"0417000099     ", "2007-11-17", "991", 500.0, 5.0, "005"});
    }
    const QString out = QDir(m_dir->path()).filePath("five.csv");
    const Result r =
        run({"report", "daily", "--from", "2007-11-16", "--to", "2007-11-17", "--agent", "5", "--output", out});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Agent ID \"5\" is the number of more than one agent of the stored collections "
                            "(0417000005, 0417000099). Type the bank's full agent identifier instead."),
             qPrintable(r.err));
    QVERIFY(!QFile::exists(out));

    const Result full = run(
        {"report", "daily", "--from", "2007-11-16", "--to", "2007-11-17", "--agent", "0417000099", "--output", out});
    QCOMPARE(full.code, 0);
    QCOMPARE(readAll(out), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                   "2007-11-17,0417000099     ,991,500.00,5.00\r\n"));
}

void tst_CliReport::sameLayoutWithOnlyAnUnrelatedFont()
{
    // A machine whose only font is an unrelated one: a font configuration
    // that lists one folder holding DejaVu Sans Mono (when this machine has
    // it) or nothing at all.
    const QString fontDir = QDir(m_dir->path()).filePath("onefont");
    QVERIFY(QDir().mkpath(fontDir));
    const QString mono = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";
    if (QFile::exists(mono))
        QVERIFY(QFile::copy(mono, QDir(fontDir).filePath("DejaVuSansMono.ttf")));
    const QString conf = QDir(m_dir->path()).filePath("fonts.conf");
    {
        QFile f(conf);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QString("<?xml version=\"1.0\"?>\n<!DOCTYPE fontconfig SYSTEM \"fonts.dtd\">\n<fontconfig>\n"
                        "  <dir>%1</dir>\n  <cachedir>%2</cachedir>\n</fontconfig>\n")
                    .arg(fontDir, QDir(m_dir->path()).filePath("fontcache"))
                    .toUtf8());
    }
    {
        SharedDatabase db;
        QVERIFY(db.open(QDir(m_dir->path()).filePath(SharedDatabase::fileName()), nullptr));
        db.execute("UPDATE Path SET BankName = ?, BranchName = ?",
                   {"Shree Sahyadri Urban Co-operative Bank Ltd Pune", "Kothrud West Extension"});
        addHistory(db, {{"AG0000000000001", "2007-11-16", "123456789012345", 9999999999.99, 99999.99},
                        {"WWWWWWWWWWWWWWW", "2007-11-16", "999999999999999", 0.5, 0.25}});
    }
    QProcessEnvironment restricted = QProcessEnvironment::systemEnvironment();
    restricted.insert("FONTCONFIG_FILE", conf);
    const QStringList args = {"report", "daily", "--from", "2007-11-14", "--to", "2007-11-16", "--output"};
    const QString here = QDir(m_dir->path()).filePath("here.pdf");
    const QString there = QDir(m_dir->path()).filePath("there.pdf");
    QCOMPARE(run(args + QStringList{here}).code, 0);
    const Result r = run(args + QStringList{there}, restricted);
    QCOMPARE(r.code, 0);

    // Every word at the same place on both.
    auto boxes = [this](const QString& pdf) {
        QStringList lines = pdfText({"-bbox"}, pdf).split('\n');
        lines.erase(
            std::remove_if(lines.begin(), lines.end(), [](const QString& l) { return l.contains("CreationDate"); }),
            lines.end());
        return lines;
    };
    const QStringList hereBoxes = boxes(here);
    QVERIFY(hereBoxes.size() > 20);
    QCOMPARE(boxes(there), hereBoxes);

    QStringList lines;
    for (const QString& line : pdfText({"-layout"}, there).split('\n'))
        lines << line.simplified();
    const QString today = QLocale::c().toString(QDate::currentDate(), "dd/MMM/yyyy");
    QVERIFY2(lines.contains("Bank Name : Shree Sahyadri Urban Co-operative Bank Ltd Pune"),
             qPrintable(lines.join('\n')));
    QVERIFY(lines.contains("Branch ID : Kothrud West Extension Date : " + today));
    QVERIFY(lines.contains("AG0000000000001 123456789012345 9999999999.99 99999.99"));
    QVERIFY(lines.contains("WWWWWWWWWWWWWWW 999999999999999 0.50 0.25"));
    // With the rows of the 14th and 15th made for every test.
    QVERIFY(lines.contains("Group Total : Rs. 100000.24"));
    QVERIFY(lines.contains("Grand Total : Rs. 100071.14"));
}

QTEST_GUILESS_MAIN(tst_CliReport)
#include "tst_cli_report.moc"
