#include "HistoryRows.h"
#include "ReportRenderer.h"
#include "TestContext.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTextDocument>
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
    void headerValuesAreEscaped();
    void dailyCsvExact();
    void agentCsvExact();
    void csvQuotesWhenNeeded();
    void csvFileBytesExact();
    void unwritableFileFails();

private:
    // The PDF's text as pdftotext -layout gives it, pages split on form feeds.
    QStringList pdfPages(const QString& pdf);
    QString m_pdftotext;
};

void tst_ReportRender::initTestCase()
{
    m_pdftotext = QStandardPaths::findExecutable("pdftotext");
}

QStringList tst_ReportRender::pdfPages(const QString& pdf)
{
    QProcess p;
    p.start(m_pdftotext, {"-layout", pdf, "-"});
    if (!p.waitForFinished(30000) || p.exitCode() != 0)
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
    QCOMPARE(ReportRenderer::formatAmount(Paise(paise)), text);
    QCOMPARE(ReportRenderer::formatAmount(std::optional<Paise>()), QString());
}

void tst_ReportRender::formatDate()
{
    QCOMPARE(ReportRenderer::formatDate(QString("2007-11-16")), QString("16/Nov/2007"));
    QCOMPARE(ReportRenderer::formatDate(QString("2008-01-05")), QString("05/Jan/2008"));
    QCOMPARE(ReportRenderer::formatDate(QDate(2007, 12, 31)), QString("31/Dec/2007"));
    QCOMPARE(ReportRenderer::formatDate(QString("not a date")), QString("not a date"));
}

void tst_ReportRender::dailyDocumentText()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header);
    QTextDocument doc;
    ReportRenderer::setUp(&doc, r.html);
    const QString text = doc.toPlainText();
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
    if (m_pdftotext.isEmpty())
        QSKIP("pdftotext is not installed");
    TestContext t;
    addHistory(t.db, sampleRows());
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header);
    const QString pdf = t.path("daily.pdf");
    QString error;
    QVERIFY2(ReportRenderer::writePdf(r, pdf, &error), qPrintable(error));

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
    if (m_pdftotext.isEmpty())
        QSKIP("pdftotext is not installed");
    TestContext t;
    addHistory(t.db, sampleRows());
    const RenderedReport r = ReportRenderer::render(
        t.db, ReportKind::Daily, range(QDate(2007, 11, 1), QDate(2007, 11, 30), "001", "10010"), header);
    const QString pdf = t.path("agent001.pdf");
    QVERIFY(ReportRenderer::writePdf(r, pdf, nullptr));
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
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2008, 1, 1), QDate(2008, 1, 31)), header);
    QTextDocument doc;
    ReportRenderer::setUp(&doc, r.html);
    QVERIFY(doc.toPlainText().contains("Grand Total :   Rs.\t0.00") ||
            doc.toPlainText().contains("Grand Total :   Rs.\n0.00"));
    QCOMPARE(r.csv, QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"));

    if (m_pdftotext.isEmpty())
        QSKIP("pdftotext is not installed");
    const QString pdf = t.path("empty.pdf");
    QVERIFY(ReportRenderer::writePdf(r, pdf, nullptr));
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
    if (m_pdftotext.isEmpty())
        QSKIP("pdftotext is not installed");
    TestContext t;
    Paise expected = 0;
    for (int i = 0; i < 150; ++i) {
        addHistory(t.db, {"003", "2007-11-16", QString("3%1").arg(i, 4, 10, QLatin1Char('0')), 1000.0, 1.0 + i});
        expected += 100 * (1 + i);
    }
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), header);
    const QString pdf = t.path("long.pdf");
    QVERIFY(ReportRenderer::writePdf(r, pdf, nullptr));
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
    QVERIFY(lines.contains("Group Total : Rs. " + ReportRenderer::formatAmount(expected)));
    QVERIFY(lines.contains("Grand Total : Rs. " + ReportRenderer::formatAmount(expected)));
}

void tst_ReportRender::agentPdf()
{
    if (m_pdftotext.isEmpty())
        QSKIP("pdftotext is not installed");
    TestContext t;
    addHistory(t.db, sampleRows());
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Agent, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header);
    QCOMPARE(r.title, QString("TONVY AGENT COLLECTION SUMMARY"));
    const QString pdf = t.path("agent.pdf");
    QVERIFY(ReportRenderer::writePdf(r, pdf, nullptr));
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
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Agent, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header);
    QTextDocument doc;
    ReportRenderer::setUp(&doc, r.html);
    const QString text = doc.toPlainText();
    QVERIFY(text.contains("TONVY AGENT COLLECTION SUMMARY"));
    QVERIFY(text.contains("AgentID"));
    QVERIFY(text.contains("Collected Amount"));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QCOMPARE(r.csv, QString("AgentID,Collected Amount,Date\r\n"));
}

void tst_ReportRender::headerValuesAreEscaped()
{
    const ReportHeader odd{"A & B <Bank>", "Main \"West\"", QDate(2007, 11, 16)};
    QTextDocument doc;
    ReportRenderer::setUp(&doc, ReportRenderer::dailyHtml(DailySummary{}, odd));
    QVERIFY(doc.toPlainText().contains("Bank Name : A & B <Bank>"));
    QVERIFY(doc.toPlainText().contains("Branch ID : Main \"West\""));
}

void tst_ReportRender::dailyCsvExact()
{
    TestContext t;
    addHistory(t.db, sampleRows());
    addHistory(t.db, {"002", "2007-11-15", "20030", QVariant(), QVariant()});
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 14), QDate(2007, 11, 15)), header);
    QCOMPARE(r.csv, QString("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
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
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Agent, range(QDate(2007, 11, 14), QDate(2007, 11, 20)), header);
    QCOMPARE(r.csv, QString("AgentID,Collected Amount,Date\r\n"
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
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), header);
    const QString path = t.path("out.csv");
    QString error;
    QVERIFY2(ReportRenderer::writeCsv(r, path, &error), qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                     "2007-11-16,001,10010,99.50,12.25\r\n"));
}

void tst_ReportRender::unwritableFileFails()
{
    TestContext t;
    const RenderedReport r =
        ReportRenderer::render(t.db, ReportKind::Daily, range(QDate(2007, 11, 16), QDate(2007, 11, 16)), header);
    QString error;
    const QString missing = t.path("no/such/folder/report.pdf");
    QVERIFY(!ReportRenderer::writePdf(r, missing, &error));
    QVERIFY(error.contains(missing));
    error.clear();
    QVERIFY(!ReportRenderer::writeCsv(r, t.path("no/such/folder/report.csv"), &error));
    QVERIFY(error.contains("report.csv"));
    QVERIFY(!QFile::exists(missing));
}

QTEST_MAIN(tst_ReportRender)
#include "tst_reportrender.moc"
