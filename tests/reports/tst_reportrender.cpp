#include "reports/ReportFonts.h"
#include "reports/ReportGeometry.h"
#include "reports/ReportPages.h"
#include "reports/ReportRenderer.h"
#include "tests/reports/HistoryRows.h"
#include "tests/support/FailingSync.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

namespace {

const ReportHeader header{"Sahyadri Co-operative Bank", "Kothrud 014", QDate(2007, 11, 16)};

QList<HistoryRow> sampleRows()
{
    return {
        {"001", "2007-11-14", "10020", 1500.50, 10.10}, {"002", "2007-11-14", "20010", 800.00, 20.20},
        {"001", "2007-11-14", "10010", 2400.25, 0.70},  {"001", "2007-11-15", "10010", 2450.25, 50.00},
        {"002", "2007-11-15", "20010", 900.00, 100.00}, {"001", "2007-11-20", "10010", 2500.25, 300.00},
    };
}

ReportLimits range(const QDate& from, const QDate& to, const QString& agent = {}, const QString& account = {})
{
    return ReportLimits{from, to, agent, account};
}

// Every page's text, as the preview and the printer paint it.
QString pagesText(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& h = header)
{
    const auto pages = ReportPages::make(db, kind, limits, h);
    QStringList text;
    for (int i = 0; i < pages->pageCount(); ++i)
        text << pages->pageText(i);
    return text.join('\n');
}

// Many rows in one transaction.
void addMany(SharedDatabase& db, const QList<HistoryRow>& rows)
{
    SharedDatabase::Transaction transaction(db);
    addHistory(db, rows);
    transaction.commit();
}

// Lines of text with runs of blanks folded to one, for matching table rows
// whatever the column spacing.
QStringList foldedLines(const QString& text)
{
    QStringList lines;
    for (const QString& line : text.split(QLatin1Char('\n')))
        lines << line.simplified();
    return lines;
}

} // namespace

class tst_ReportRender : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void formatAmount_data();
    void formatAmount();
    void formatDate();
    void dailyDocumentText();
    void dailyPdfHoldsEveryRowAndTotal();
    void dailyPdfLimitedToAgentAndAccount();
    void emptyRangeGivesHeadersAndZeroGrandTotal();
    void longReportRepeatsPageHeader();
    void agentPdf();
    void emptyAgentReportKeepsColumnHeads();
    void headerValuesShownAsTheyAre();
    void dailyCsvExact();
    void agentCsvExact();
    void csvQuotesWhenNeeded();
    void csvFileBytesExact();
    void unwritableFileFails();
    void diskThatCannotSyncFails();
    void longestValuesStayOnOneLine();
    void longestValuesAgentSummary();
    void longerThanAllowedIsCutNotWrapped();
    void datesAcrossPagesEveryRowOnce();
    void previewPagesMatchThePdf();
    void layoutIsFixedByTheEmbeddedFont();

private:
    // The PDF's text as pdftotext -layout gives it, pages split on form feeds.
    QStringList pdfPages(const QString& pdf);
    QString m_pdftotext;
};

void tst_ReportRender::initTestCase()
{
    // The PDF checks are the point of these tests: without the tool they
    // fail, they are not skipped.
    m_pdftotext = QStandardPaths::findExecutable("pdftotext");
    QVERIFY2(!m_pdftotext.isEmpty(), "pdftotext is missing: install poppler-utils (scripts/setup does)");
}

QStringList tst_ReportRender::pdfPages(const QString& pdf)
{
    QProcess p;
    p.start(m_pdftotext, {"-layout", pdf, "-"});
    if (!p.waitForFinished(scaledMs(30000)) || p.exitCode() != 0)
        return {};
    QStringList pages = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\f'));
    if (!pages.isEmpty() && pages.last().trimmed().isEmpty())
        pages.removeLast();
    return pages;
}

void tst_ReportRender::formatAmount_data()
{
    QTest::addColumn<qint64>("paise");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << qint64(0) << "0.00";
    QTest::newRow("paise only") << qint64(5) << "0.05";
    QTest::newRow("rupees") << qint64(12345) << "123.45";
    QTest::newRow("large") << qint64(123456789) << "1234567.89";
    QTest::newRow("negative") << qint64(-250) << "-2.50";
}

void tst_ReportRender::formatAmount()
{
    QFETCH(qint64, paise);
    QFETCH(QString, text);
    QCOMPARE(ReportFormat::formatAmount(Paise(paise)), text);
    QCOMPARE(ReportFormat::formatAmount(std::optional<Paise>()), QString());
}

void tst_ReportRender::formatDate()
{
    QCOMPARE(ReportFormat::formatDate(QString("2007-11-16")), QString("16/Nov/2007"));
    QCOMPARE(ReportFormat::formatDate(QString("2008-01-05")), QString("05/Jan/2008"));
    QCOMPARE(ReportFormat::formatDate(QDate(2007, 12, 31)), QString("31/Dec/2007"));
    QCOMPARE(ReportFormat::formatDate(QString("not a date")), QString("not a date"));
}

void tst_ReportRender::dailyDocumentText()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    const QString text = pagesText(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15)));
    // The captions exactly, their blanks included.
    QVERIFY(text.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(text.contains("Branch ID : Kothrud 014"));
    QVERIFY(text.contains("Date : 16/Nov/2007"));
    QCOMPARE(text.count("Group Total :   Rs."), 2);
    QCOMPARE(text.count("Grand Total :   Rs."), 1);
    QCOMPARE(text.count("AgentID"), 2);
    QCOMPARE(text.count("Collected Amount"), 2);
    QVERIFY(!text.contains("20/Nov/2007"));
}

void tst_ReportRender::dailyPdfHoldsEveryRowAndTotal()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    const QString pdf = t.path("daily.pdf");
    QString error;
    QVERIFY2(ReportRenderer::writePdf(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header,
                                      pdf, &error),
             qPrintable(error));

    const QStringList pages = pdfPages(pdf);
    QCOMPARE(pages.size(), 1);
    const QStringList lines = foldedLines(pages.first());
    const QString all = lines.join('\n');
    QVERIFY(all.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(all.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(all.contains("Branch ID : Kothrud 014"));
    QVERIFY(all.contains("Date : 16/Nov/2007"));
    QVERIFY(lines.contains("14/Nov/2007"));
    QVERIFY(lines.contains("15/Nov/2007"));
    QCOMPARE(lines.count("AgentID Account No Closing Amount Collected Amount"), 2);

    // Every row in range, in order, with the group totals after each date
    // and the grand total last.
    const QStringList expected = {
        "14/Nov/2007",
        "001 10010 2400.25 0.70",
        "001 10020 1500.50 10.10",
        "002 20010 800.00 20.20",
        "Group Total : Rs. 31.00",
        "15/Nov/2007",
        "001 10010 2450.25 50.00",
        "002 20010 900.00 100.00",
        "Group Total : Rs. 150.00",
        "Grand Total : Rs. 181.00",
    };
    qsizetype at = 0;
    for (const QString& line : expected) {
        const qsizetype found = lines.indexOf(line, at);
        QVERIFY2(found >= 0, qPrintable("missing or out of order: " + line + "\n" + all));
        at = found + 1;
    }
    QVERIFY(!all.contains("20/Nov/2007"));
    QVERIFY(!all.contains("2500.25"));
}

void tst_ReportRender::dailyPdfLimitedToAgentAndAccount()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    const QString pdf = t.path("agent001.pdf");
    QVERIFY(ReportRenderer::writePdf(
        t.db, ReportKind::Daily, range(QDate(2007, 11, 1), QDate(2007, 11, 30), "001", "10010"), header, pdf, nullptr));
    const QStringList lines = foldedLines(pdfPages(pdf).join('\n'));
    QVERIFY(lines.contains("001 10010 2400.25 0.70"));
    QVERIFY(lines.contains("001 10010 2450.25 50.00"));
    QVERIFY(lines.contains("001 10010 2500.25 300.00"));
    QVERIFY(!lines.join('\n').contains("10020"));
    QVERIFY(!lines.join('\n').contains("20010"));
    QCOMPARE(lines.count("Group Total : Rs. 0.70"), 1);
    QCOMPARE(lines.count("Group Total : Rs. 50.00"), 1);
    QCOMPARE(lines.count("Group Total : Rs. 300.00"), 1);
    QVERIFY(lines.contains("Grand Total : Rs. 350.70"));
}

void tst_ReportRender::emptyRangeGivesHeadersAndZeroGrandTotal()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    const ReportLimits january = range(QDate(2008, 1, 1), QDate(2008, 1, 31));
    const QString text = pagesText(t.db, ReportKind::Daily, january);
    QVERIFY(text.contains("Grand Total :   Rs. 0.00"));
    QCOMPARE(ReportRenderer::csv(t.db, ReportKind::Daily, january),
             QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"));

    const QString pdf = t.path("empty.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, january, header, pdf, nullptr));
    const QStringList pages = pdfPages(pdf);
    QCOMPARE(pages.size(), 1);
    const QStringList lines = foldedLines(pages.first());
    const QString all = lines.join('\n');
    QVERIFY(all.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(all.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(all.contains("Branch ID : Kothrud 014"));
    QVERIFY(all.contains("Date : 16/Nov/2007"));
    QVERIFY(lines.contains("Grand Total : Rs. 0.00"));
    QVERIFY(!all.contains("Group Total"));
}

void tst_ReportRender::longReportRepeatsPageHeader()
{
    TestContext t;
    Paise expected = 0;
    for (int i = 0; i < 150; ++i) {
        addHistory(t.db, {"003", "2007-11-16", QString("3%1").arg(i, 4, 10, QLatin1Char('0')), 1000.0, 1.0 + i});
        expected += 100 * (1 + i);
    }
    const QString pdf = t.path("long.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), header,
                                     pdf, nullptr));
    const QStringList pages = pdfPages(pdf);
    QVERIFY2(pages.size() >= 3, qPrintable(QString::number(pages.size())));
    for (const QString& page : pages) {
        const QString folded = foldedLines(page).join('\n');
        QVERIFY(folded.contains("Bank Name : Sahyadri Co-operative Bank"));
        QVERIFY(folded.contains("Date : 16/Nov/2007"));
    }
    // The title is the report header: first page only.
    QVERIFY(pages.first().contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(!pages.last().contains("TONVY DAILY COLLECTION SUMMARY"));
    const QStringList lines = foldedLines(pages.join('\n'));
    for (int i = 0; i < 150; ++i)
        QVERIFY(lines.contains(QString("003 3%1 1000.00 %2.00").arg(i, 4, 10, QLatin1Char('0')).arg(i + 1)));
    QVERIFY(lines.contains("Group Total : Rs. " + ReportFormat::formatAmount(expected)));
    QVERIFY(lines.contains("Grand Total : Rs. " + ReportFormat::formatAmount(expected)));
}

void tst_ReportRender::agentPdf()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    QCOMPARE(ReportFormat::title(ReportKind::Agent), QString("TONVY AGENT COLLECTION SUMMARY"));
    const QString pdf = t.path("agent.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Agent, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header,
                                     pdf, nullptr));
    const QStringList lines = foldedLines(pdfPages(pdf).join('\n'));
    const QString all = lines.join('\n');
    QVERIFY(all.contains("TONVY AGENT COLLECTION SUMMARY"));
    QVERIFY(all.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(all.contains("Branch ID : Kothrud 014"));
    QVERIFY(all.contains("Date : 16/Nov/2007"));
    const QStringList expected = {"AgentID Collected Amount Date", "001 10.80 14/Nov/2007", "002 20.20 14/Nov/2007",
                                  "001 50.00 15/Nov/2007", "002 100.00 15/Nov/2007"};
    qsizetype at = 0;
    for (const QString& line : expected) {
        const qsizetype found = lines.indexOf(line, at);
        QVERIFY2(found >= 0, qPrintable("missing or out of order: " + line + "\n" + all));
        at = found + 1;
    }
    QVERIFY(!all.contains("20/Nov/2007"));
}

void tst_ReportRender::emptyAgentReportKeepsColumnHeads()
{
    TestContext t;
    const ReportLimits days = range(QDate(2007, 11, 14), QDate(2007, 11, 15));
    const QString text = pagesText(t.db, ReportKind::Agent, days);
    QVERIFY(text.contains("TONVY AGENT COLLECTION SUMMARY"));
    QVERIFY(text.contains("AgentID Collected Amount Date"));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QCOMPARE(ReportRenderer::csv(t.db, ReportKind::Agent, days), QString("AgentID,Collected Amount,Date\r\n"));
}

void tst_ReportRender::headerValuesShownAsTheyAre()
{
    TestContext t;
    const ReportHeader odd{"A & B <Bank>", "Main \"West\"", QDate(2007, 11, 16)};
    const QString text = pagesText(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), odd);
    QVERIFY(text.contains("Bank Name : A & B <Bank>"));
    QVERIFY(text.contains("Branch ID : Main \"West\""));
}

void tst_ReportRender::dailyCsvExact()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    addHistory(t.db, {"002", "2007-11-15", "20030", QVariant(), QVariant()});
    QCOMPARE(ReportRenderer::csv(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15))),
             QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                     "2007-11-14,001,10010,2400.25,0.70\r\n"
                     "2007-11-14,001,10020,1500.50,10.10\r\n"
                     "2007-11-14,002,20010,800.00,20.20\r\n"
                     "2007-11-15,001,10010,2450.25,50.00\r\n"
                     "2007-11-15,002,20010,900.00,100.00\r\n"
                     "2007-11-15,002,20030,,\r\n"));
}

void tst_ReportRender::agentCsvExact()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    QCOMPARE(ReportRenderer::csv(t.db, ReportKind::Agent, range(QDate(2007, 11, 14), QDate(2007, 11, 20))),
             QString("AgentID,Collected Amount,Date\r\n"
                     "001,10.80,2007-11-14\r\n"
                     "002,20.20,2007-11-14\r\n"
                     "001,50.00,2007-11-15\r\n"
                     "002,100.00,2007-11-15\r\n"
                     "001,300.00,2007-11-20\r\n"));
}

void tst_ReportRender::csvQuotesWhenNeeded()
{
    DailySummary s;
    DailyGroup g;
    g.date = "2007-11-16";
    g.rows.append(DailyRow{"A,1", "say \"hi\"", Paise(100), Paise(250)});
    g.total = 250;
    s.groups.append(g);
    s.grandTotal = 250;
    QCOMPARE(ReportRenderer::dailyCsv(s), QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                                  "2007-11-16,\"A,1\",\"say \"\"hi\"\"\",1.00,2.50\r\n"));
}

void tst_ReportRender::csvFileBytesExact()
{
    TestContext t;
    addHistory(t.db, {"001", "2007-11-16", "10010", 99.5, 12.25});
    const QString path = t.path("out.csv");
    QString error;
    QVERIFY2(ReportRenderer::writeCsv(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), path,
                                      &error),
             qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                     "2007-11-16,001,10010,99.50,12.25\r\n"));
}

void tst_ReportRender::unwritableFileFails()
{
    TestContext t;
    const ReportLimits day = range(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QString error;
    const QString missing = t.path("no/such/folder/report.pdf");
    QVERIFY(!ReportRenderer::writePdf(t.db, ReportKind::Daily, day, header, missing, &error));
    QVERIFY(error.contains(missing));
    error.clear();
    QVERIFY(!ReportRenderer::writeCsv(t.db, ReportKind::Daily, day, t.path("no/such/folder/report.csv"), &error));
    QVERIFY(error.contains("report.csv"));
    QVERIFY(!QFile::exists(missing));
}

void tst_ReportRender::diskThatCannotSyncFails()
{
    TestContext t;
    const ReportLimits day = range(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QString error;
    const QString pdf = t.path("report.pdf");
    const QString csv = t.path("report.csv");
    {
        FailingSync syncs(FailingSync::Fail::Files);
        QVERIFY(!ReportRenderer::writePdf(t.db, ReportKind::Daily, day, header, pdf, &error));
        QVERIFY2(error.startsWith(ReportRenderer::cannotWrite(pdf, "it could not be synced to the disk (")),
                 qPrintable(error));
        QVERIFY(!ReportRenderer::writeCsv(t.db, ReportKind::Daily, day, csv, &error));
        QVERIFY2(error.startsWith(ReportRenderer::cannotWrite(csv, "it could not be synced to the disk (")),
                 qPrintable(error));
        QVERIFY(!QFile::exists(pdf));
        QVERIFY(!QFile::exists(csv));
    }
    {
        FailingSync syncs(FailingSync::Fail::Folders);
        QVERIFY(!ReportRenderer::writeCsv(t.db, ReportKind::Daily, day, csv, &error));
        QVERIFY2(error.contains("could not be synced"), qPrintable(error));
    }
    // A healthy disk: each file and its folder synced.
    FailingSync syncs;
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, day, header, pdf, &error));
    QVERIFY(ReportRenderer::writeCsv(t.db, ReportKind::Daily, day, csv, &error));
    QCOMPARE(syncs.folderSyncs(QFileInfo(t.dir.path()).canonicalFilePath()), 2);
    QCOMPARE(syncs.fileSyncs(), 2);
}

namespace {

const QString bank48 = QString(48, QLatin1Char('W'));
const QString branch22 = QString(22, QLatin1Char('W'));
const ReportHeader longest{bank48, branch22, QDate(2007, 11, 16)};

} // namespace

void tst_ReportRender::longestValuesStayOnOneLine()
{
    TestContext t;
    QList<HistoryRow> rows;
    // The widest identifier the terminal can carry, the real kind, the
    // longest account number and the largest amounts.
    for (int i = 0; i < 60; ++i) {
        rows.append({QString(15, QLatin1Char('W')), "2007-11-16", "999999999999999", 9999999999.99, 99999.99});
        rows.append({"AG0000000000001", "2007-11-16", "888888888888888", 9999999999.99, 99999.99});
    }
    addMany(t.db, rows);
    const QString pdf = t.path("longest.pdf");
    QString error;
    QVERIFY2(ReportRenderer::writePdf(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), longest,
                                      pdf, &error),
             qPrintable(error));
    const QStringList pages = pdfPages(pdf);
    QVERIFY(pages.size() >= 2);
    int rowLines = 0;
    for (const QString& page : pages) {
        const QStringList lines = foldedLines(page);
        // The page header: each caption with its whole value on one line.
        QVERIFY2(lines.contains("Bank Name : " + bank48), qPrintable(page));
        QVERIFY2(lines.contains("Branch ID : " + branch22 + " Date : 16/Nov/2007"), qPrintable(page));
        QVERIFY(lines.contains("AgentID Account No Closing Amount Collected Amount"));
        rowLines +=
            static_cast<int>(lines.count(QString(15, QLatin1Char('W')) + " 999999999999999 9999999999.99 99999.99"));
        rowLines += static_cast<int>(lines.count("AG0000000000001 888888888888888 9999999999.99 99999.99"));
    }
    QCOMPARE(rowLines, 120);
    const QStringList all = foldedLines(pages.join('\n'));
    QVERIFY(all.contains("Group Total : Rs. 11999998.80"));
    QVERIFY(all.contains("Grand Total : Rs. 11999998.80"));
}

void tst_ReportRender::longestValuesAgentSummary()
{
    TestContext t;
    QList<HistoryRow> rows;
    for (int day = 1; day <= 28; ++day) {
        const QString date = QDate(2007, 2, day).toString(Qt::ISODate);
        for (int i = 0; i < 4; ++i)
            rows.append({QString(14, QLatin1Char('W')) + QString::number(i), date, "1", 1.0, 99999.99});
    }
    addMany(t.db, rows);
    const QString pdf = t.path("agent-longest.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Agent, range(QDate(2007, 2, 1), QDate(2007, 2, 28)), longest,
                                     pdf, nullptr));
    const QStringList pages = pdfPages(pdf);
    QVERIFY(pages.size() >= 2);
    int rowLines = 0;
    for (const QString& page : pages) {
        const QStringList lines = foldedLines(page);
        QVERIFY(lines.contains("Bank Name : " + bank48));
        QVERIFY(lines.contains("Branch ID : " + branch22 + " Date : 16/Nov/2007"));
        // This report's column heads belong to its page header.
        QVERIFY(lines.contains("AgentID Collected Amount Date"));
        for (const QString& line : lines) {
            if (line.startsWith(QString(14, QLatin1Char('W'))))
                ++rowLines;
        }
    }
    QCOMPARE(rowLines, 28 * 4);
    QVERIFY(foldedLines(pages.join('\n')).contains("WWWWWWWWWWWWWW3 99999.99 28/Feb/2007"));
}

void tst_ReportRender::longerThanAllowedIsCutNotWrapped()
{
    TestContext t;
    addHistory(t.db, {QString(20, QLatin1Char('W')), "2007-11-16", "1234567890123456789", 1.0, 2.0});
    const ReportHeader tooLong{QString(60, QLatin1Char('W')), QString(30, QLatin1Char('W')), QDate(2007, 11, 16)};
    const QString pdf = t.path("cut.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), tooLong,
                                     pdf, nullptr));
    const QStringList lines = foldedLines(pdfPages(pdf).join('\n'));
    bool bankLine = false;
    for (const QString& line : lines)
        bankLine = bankLine || (line.startsWith("Bank Name : WWW") && line.endsWith("..."));
    QVERIFY2(bankLine, qPrintable(lines.join('\n')));
    bool row = false;
    for (const QString& line : lines)
        row = row || (line.startsWith("WWW") && line.endsWith(" 1.00 2.00") && line.contains("..."));
    QVERIFY2(row, qPrintable(lines.join('\n')));
}

void tst_ReportRender::datesAcrossPagesEveryRowOnce()
{
    TestContext t;
    QList<HistoryRow> rows;
    Paise grand = 0;
    for (int day = 10; day <= 14; ++day) {
        for (int i = 0; i < 37; ++i) {
            rows.append({QString("%1").arg(i % 3 + 1, 3, 10, QLatin1Char('0')),
                         QDate(2007, 11, day).toString(Qt::ISODate),
                         QString("5%1%2").arg(day).arg(i, 3, 10, QLatin1Char('0')), 500.0, 1.25 + i});
            grand += 125 + 100 * i;
        }
    }
    addMany(t.db, rows);
    const ReportLimits limits = range(QDate(2007, 11, 10), QDate(2007, 11, 14));
    const QString pdf = t.path("days.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, limits, header, pdf, nullptr));
    const QStringList pages = pdfPages(pdf);
    QVERIFY(pages.size() >= 4);
    for (int i = 0; i < pages.size(); ++i)
        QVERIFY(foldedLines(pages[i]).contains(QString("Page %1 of %2").arg(i + 1).arg(pages.size())));
    const QStringList lines = foldedLines(pages.join('\n'));
    for (const HistoryRow& r : rows) {
        const QString line =
            QString("%1 %2 500.00 %3")
                .arg(r.agentId, r.accountNo, ReportFormat::formatAmount(*ReportData::toPaise(r.collectedAmt)));
        QCOMPARE(lines.count(line), 1);
    }
    // A date that runs on to the next page carries its heading there again.
    QVERIFY(lines.join('\n').contains("(continued)"));
    QCOMPARE(lines.count("Grand Total : Rs. " + ReportFormat::formatAmount(grand)), 1);
    QCOMPARE(static_cast<int>(lines.filter("Group Total : Rs.").size()), 5);
}

void tst_ReportRender::previewPagesMatchThePdf()
{
    // The preview reads each page's rows on its own; the PDF reads them all
    // in one pass. Both must give the same pages.
    TestContext t;
    QList<HistoryRow> rows;
    for (int day = 1; day <= 3; ++day)
        for (int i = 0; i < 70; ++i)
            rows.append({QString::number(i % 4 + 1), QDate(2007, 11, day).toString(Qt::ISODate),
                         QString::number(70000 + i), 10.0 * i, 0.5 * i});
    addMany(t.db, rows);
    const ReportLimits limits = range(QDate(2007, 11, 1), QDate(2007, 11, 3));
    const QString pdf = t.path("same.pdf");
    QVERIFY(ReportRenderer::writePdf(t.db, ReportKind::Daily, limits, header, pdf, nullptr));
    const QStringList pdfText = pdfPages(pdf);
    const auto pages = ReportPages::make(t.db, ReportKind::Daily, limits, header);
    QCOMPARE(pages->pageCount(), pdfText.size());
    QCOMPARE(pages->rowCount(), 210);
    for (int i = 0; i < pages->pageCount(); ++i) {
        QStringList painted;
        for (const QString& line : pages->pageText(i))
            painted << line.simplified();
        QStringList printed = foldedLines(pdfText[i]);
        printed.removeAll(QString());
        QCOMPARE(painted, printed);
    }
}

void tst_ReportRender::layoutIsFixedByTheEmbeddedFont()
{
    QVERIFY(ReportFonts::ensureLoaded());
    QCOMPARE(ReportFonts::family(), QString("DejaVu Sans"));
    // DejaVu Sans's own advances: the digits are all as wide as each other.
    for (char c = '0'; c <= '9'; ++c)
        QCOMPARE(ReportFonts::width(QString(QLatin1Char(c)), 10, false), ReportFonts::widestDigit(10, false));
    const ReportGeometry& g = ReportGeometry::get();
    QCOMPARE(g.bodySize, 10.0);
    // Every column is wide enough for its longest value and heads, and the
    // columns stay inside the margins.
    QVERIFY(g.dailyW[0] >= 15 * ReportFonts::widestChar(g.bodySize, false));
    QVERIFY(g.dailyW[1] >= ReportFonts::width("999999999999999", g.bodySize, false));
    QVERIFY(g.dailyW[2] >= ReportFonts::width("-9999999999.99", g.bodySize, false));
    QVERIFY(g.dailyW[3] >= ReportFonts::width("-999999999999999.99", g.bodySize, false));
    QVERIFY(g.dailyX[3] + g.dailyW[3] <= g.pageWidth - g.margin + 0.01);
    QVERIFY(g.agentX[2] + g.agentW[2] <= g.pageWidth - g.margin + 0.01);
    QVERIFY(g.bankValueX + 48 * ReportFonts::widestChar(g.headerSize, true) <= g.pageWidth - g.margin + 0.01);
    QVERIFY(g.branchValueX + g.branchValueW <= g.dateLabelX);
}

QTEST_MAIN(tst_ReportRender)
#include "tst_reportrender.moc"
