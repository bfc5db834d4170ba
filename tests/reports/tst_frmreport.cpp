#include "app/frmMain.h"
#include "reports/ReportRenderer.h"
#include "reports/frmReport.h"
#include "tests/reports/HistoryRows.h"
#include "tests/support/Controls.h"
#include "tests/support/FailingSync.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"
#include "widgets/ColourButton.h"
#include "widgets/ScreenRegistry.h"

#include <QApplication>
#include <QDateEdit>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPrinter>
#include <QProcess>
#include <QProgressBar>
#include <QRadioButton>
#include <QStandardPaths>
#include <QtTest>

namespace {

// The four controls the options show and hide.
QList<QWidget*> limitInputs(QWidget* form)
{
    return {control<QLineEdit>(form, "txtAgentID"), control<QLineEdit>(form, "txtAccountNo"),
            control<QLabel>(form, "lbAgentID"), control<QLabel>(form, "lbAccountNo")};
}

bool inputsShown(QWidget* form)
{
    for (QWidget* w : limitInputs(form)) {
        if (!w->isVisible())
            return false;
    }
    return true;
}

bool inputsHidden(QWidget* form)
{
    for (QWidget* w : limitInputs(form)) {
        if (w->isVisible())
            return false;
    }
    return true;
}

ReportPreview* openPreview(QWidget* form)
{
    for (ReportPreview* d : form->findChildren<ReportPreview*>(QStringLiteral("reportPreview"))) {
        if (d->isVisible())
            return d;
    }
    return nullptr;
}

// The previewed pages' text with every run of blanks folded to one.
QString previewText(ReportPreview* preview)
{
    if (!preview)
        return {};
    QStringList text;
    for (int i = 0; i < preview->pages().pageCount(); ++i)
        text << preview->pages().pageText(i);
    return text.join(' ').simplified();
}

int pdfPageCount(const QString& pdf)
{
    QProcess p;
    p.start(QStandardPaths::findExecutable("pdftotext"), {"-layout", pdf, "-"});
    if (!p.waitForFinished(scaledMs(60000)) || p.exitCode() != 0)
        return -1;
    QStringList pages = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\f'));
    if (!pages.isEmpty() && pages.last().trimmed().isEmpty())
        pages.removeLast();
    return static_cast<int>(pages.size());
}

// A month of collections: enough pages that saving them takes a while.
void addMonth(SharedDatabase& db, int rowsPerDay)
{
    SharedDatabase::Transaction transaction(db);
    for (int day = 1; day <= 30; ++day) {
        const QString date = QDate(2007, 11, day).toString(Qt::ISODate);
        for (int i = 0; i < rowsPerDay; ++i)
            addHistory(db, {QString("AG00000000000%1").arg(i % 10, 2, 10, QLatin1Char('0')), date,
                            QString::number(100000 + i), 1000.0, 10.0});
    }
    transaction.commit();
}

void fillSettings(TestContext& t)
{
    t.ctx->settings.BankName = QStringLiteral("Sahyadri Co-operative Bank");
    t.ctx->settings.BranchName = QStringLiteral("Kothrud 014");
}

} // namespace

class tst_frmReport : public QObject
{
    Q_OBJECT

private slots:
    void captionsAndNames();
    void startsWithDailySummaryAndInputsShown();
    void datePickersAtPinnedToday();
    void optionsByClickRepeatedly();
    void optionsByArrowKeysRepeatedly();
    void optionFocusAloneShowsOrHides();
    void enterMovesFocusToNextControl();
    void viewShowsPreviewOfTheChosenReport();
    void viewTwiceShowsCurrentDataBothTimes();
    void viewLimitsToAgentAndAccount();
    void viewAgentSummaryIgnoresHiddenInputs();
    void viewEmptyRangeShowsHeadersAndZeroGrandTotal();
    void fromAfterToIsRefused();
    void apostropheIsRefused();
    void exportWritesCsvToReportFolder();
    void exportFallsBackToDataFolderAndCanBeCancelled();
    void exitCloses();
    void menuShowsItModal();
    void viewAgentAsTypedOnTheSendScreen();
    void viewAllDigitIdentifiers_data();
    void viewAllDigitIdentifiers();
    void agentMatchingNoneIsRefused_data();
    void agentMatchingNoneIsRefused();
    void viewOfAMonthShowsItsFirstPageAtOnce();
    void savePdfFromThePreview();
    void savePdfOnADiskThatCannotSync();
    void printFromThePreview();
    void cancelWhilePagesAreMadeKeepsTheWindowResponsive();
};

void tst_frmReport::captionsAndNames()
{
    TestContext t;
    frmReport w(*t.ctx);
    QCOMPARE(w.objectName(), QString("frmReport"));
    QCOMPARE(w.windowTitle(), QString("Report"));
    QCOMPARE(control<QRadioButton>(&w, "OptReport1")->text(), QString("Report1"));
    QCOMPARE(control<QRadioButton>(&w, "OptReport2")->text(), QString("Report2"));
    QCOMPARE(control<QLabel>(&w, "lbFromDate")->text(), QString("From Date :"));
    QCOMPARE(control<QLabel>(&w, "lbToDate")->text(), QString("To Date :"));
    QCOMPARE(control<QLabel>(&w, "lbAgentID")->text(), QString("Agent ID :"));
    QCOMPARE(control<QLabel>(&w, "lbAccountNo")->text(), QString("Account No :"));
    QCOMPARE(control<ColourButton>(&w, "cmdView")->text(), QString("&View"));
    QCOMPARE(control<ColourButton>(&w, "cmdExit")->text(), QString("&Exit"));
    QCOMPARE(control<ColourButton>(&w, "cmdExport")->text().remove('&'), QString("Export CSV"));
    for (const char* name : {"FromDTPicker", "ToDTPicker"}) {
        auto* picker = control<QDateEdit>(&w, name);
        QVERIFY(picker->calendarPopup());
        QCOMPARE(picker->displayFormat(), QString("dd-MMM-yyyy"));
    }
}

void tst_frmReport::startsWithDailySummaryAndInputsShown()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QVERIFY(control<QRadioButton>(&w, "OptReport1")->isChecked());
    QVERIFY(!control<QRadioButton>(&w, "OptReport2")->isChecked());
    QCOMPARE(w.selectedKind(), ReportKind::Daily);
    QVERIFY(inputsShown(&w));
}

void tst_frmReport::datePickersAtPinnedToday()
{
    TestContext t;
    frmReport w(*t.ctx);
    QCOMPARE(control<QDateEdit>(&w, "FromDTPicker")->date(), QDate(2007, 11, 16));
    QCOMPARE(control<QDateEdit>(&w, "ToDTPicker")->date(), QDate(2007, 11, 16));
    QCOMPARE(control<QDateEdit>(&w, "FromDTPicker")->text(), QString("16-Nov-2007"));
    QCOMPARE(control<QDateEdit>(&w, "ToDTPicker")->text(), QString("16-Nov-2007"));

    // Another day at the next opening.
    t.clock.set(QDateTime(QDate(2008, 2, 29), QTime(9, 0)));
    frmReport again(*t.ctx);
    QCOMPARE(control<QDateEdit>(&again, "FromDTPicker")->text(), QString("29-Feb-2008"));
    QCOMPARE(control<QDateEdit>(&again, "ToDTPicker")->date(), QDate(2008, 2, 29));
}

void tst_frmReport::optionsByClickRepeatedly()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    auto* opt1 = control<QRadioButton>(&w, "OptReport1");
    auto* opt2 = control<QRadioButton>(&w, "OptReport2");
    for (int i = 0; i < 3; ++i) {
        QTest::mouseClick(opt2, Qt::LeftButton);
        QVERIFY(opt2->isChecked());
        QVERIFY(inputsHidden(&w));
        QCOMPARE(w.selectedKind(), ReportKind::Agent);
        QTest::mouseClick(opt1, Qt::LeftButton);
        QVERIFY(opt1->isChecked());
        QVERIFY(inputsShown(&w));
        QCOMPARE(w.selectedKind(), ReportKind::Daily);
    }
    // Clicking the option already chosen changes nothing.
    QTest::mouseClick(opt1, Qt::LeftButton);
    QVERIFY(inputsShown(&w));
}

void tst_frmReport::optionsByArrowKeysRepeatedly()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* opt1 = control<QRadioButton>(&w, "OptReport1");
    auto* opt2 = control<QRadioButton>(&w, "OptReport2");
    opt1->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), opt1);
    for (int i = 0; i < 3; ++i) {
        QTest::keyClick(opt1, Qt::Key_Right);
        QTRY_COMPARE(QApplication::focusWidget(), opt2);
        QVERIFY(opt2->isChecked());
        QVERIFY(inputsHidden(&w));
        QTest::keyClick(opt2, Qt::Key_Left);
        QTRY_COMPARE(QApplication::focusWidget(), opt1);
        QVERIFY(opt1->isChecked());
        QVERIFY(inputsShown(&w));
    }
    // Tabbing away and back onto the chosen option keeps its inputs.
    QTest::keyClick(opt1, Qt::Key_Right);
    QTRY_VERIFY(inputsHidden(&w));
    QTest::keyClick(opt2, Qt::Key_Tab);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(control<QDateEdit>(&w, "FromDTPicker")));
    QVERIFY(inputsHidden(&w));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
    QTRY_COMPARE(QApplication::focusWidget(), opt2);
    QVERIFY(inputsHidden(&w));
}

void tst_frmReport::optionFocusAloneShowsOrHides()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* opt1 = control<QRadioButton>(&w, "OptReport1");
    auto* opt2 = control<QRadioButton>(&w, "OptReport2");
    auto* to = control<QDateEdit>(&w, "ToDTPicker");
    for (int i = 0; i < 3; ++i) {
        // Chosen without a click: nothing changes until the option gets the focus.
        to->setFocus(Qt::TabFocusReason);
        opt2->setChecked(true);
        QVERIFY(inputsShown(&w));
        opt2->setFocus(Qt::BacktabFocusReason);
        QTRY_VERIFY(inputsHidden(&w));

        to->setFocus(Qt::TabFocusReason);
        opt1->setChecked(true);
        QVERIFY(inputsHidden(&w));
        opt1->setFocus(Qt::BacktabFocusReason);
        QTRY_VERIFY(inputsShown(&w));
    }
    // Focus on the option that is not chosen leaves the inputs as they are.
    to->setFocus(Qt::TabFocusReason);
    opt2->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), opt2);
    QVERIFY(opt1->isChecked());
    QVERIFY(inputsShown(&w));
}

void tst_frmReport::enterMovesFocusToNextControl()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* agent = control<QLineEdit>(&w, "txtAgentID");
    auto* account = control<QLineEdit>(&w, "txtAccountNo");
    auto* view = control<ColourButton>(&w, "cmdView");

    agent->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), agent);
    QTest::keyClicks(agent, "A1");
    QCOMPARE(agent->text(), QString("A1"));
    QTest::keyClick(agent, Qt::Key_Return);
    QTRY_COMPARE(QApplication::focusWidget(), account);
    QCOMPARE(agent->text(), QString("A1"));
    QTest::keyClicks(account, "42");
    QTest::keyClick(account, Qt::Key_Enter); // the keypad's Enter too
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(view));
    QCOMPARE(account->text(), QString("42"));
    // Enter moved the focus only: no report was opened.
    QVERIFY(!openPreview(&w));
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmReport::viewShowsPreviewOfTheChosenReport()
{
    TestContext t;
    fillSettings(t);
    addHistory(t.db, {{"001", "2007-11-16", "10010", 2400.25, 50.00}, {"002", "2007-11-16", "20010", 800.0, 20.5}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    QCOMPARE(preview->windowTitle(), QString("TONVY DAILY COLLECTION SUMMARY"));
    const QString text = previewText(preview);
    QVERIFY(text.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(text.contains("Branch ID : Kothrud 014"));
    QVERIFY(text.contains("Date : 16/Nov/2007"));
    QVERIFY(text.contains("001 10010 2400.25 50.00"));
    QVERIFY(text.contains("002 20010 800.00 20.50"));
    QVERIFY(text.contains("Group Total : Rs. 70.50"));
    QVERIFY(text.contains("Grand Total : Rs. 70.50"));
    // The preview really painted its page.
    QCOMPARE(preview->pages().pageCount(), 1);
    QTRY_VERIFY(preview->pageView()->pagesPainted() >= 1);
    QVERIFY(t.messenger.entries().isEmpty());
    preview->close();
}

void tst_frmReport::viewTwiceShowsCurrentDataBothTimes()
{
    TestContext t;
    fillSettings(t);
    addHistory(t.db, {"001", "2007-11-16", "10010", 100.0, 10.0});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    auto* view = control<ColourButton>(&w, "cmdView");

    QTest::mouseClick(view, Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    QPointer<ReportPreview> first = openPreview(&w);
    QVERIFY(previewText(first).contains("Grand Total : Rs. 10.00"));
    QVERIFY(!previewText(first).contains("20010"));
    first->close();
    QTRY_VERIFY(first.isNull());

    // New collections arrive between the two showings.
    addHistory(t.db, {"002", "2007-11-16", "20010", 200.0, 5.0});
    QTest::mouseClick(view, Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    QPointer<ReportPreview> second = openPreview(&w);
    QVERIFY(second != first);
    QVERIFY(previewText(second).contains("002 20010 200.00 5.00"));
    QVERIFY(previewText(second).contains("Grand Total : Rs. 15.00"));

    // The day received again replaces it; a View with the preview still open
    // replaces that preview with the current data.
    receiveDayAgain(t.db, "001", "2007-11-16", {{"001", "2007-11-16", "10010", 100.0, 30.0}});
    QTest::mouseClick(view, Qt::LeftButton);
    QTRY_VERIFY(second.isNull());
    QTRY_VERIFY(openPreview(&w));
    QCOMPARE(w.findChildren<ReportPreview*>("reportPreview").size(), 1);
    QVERIFY(previewText(openPreview(&w)).contains("001 10010 100.00 30.00"));
    QVERIFY(previewText(openPreview(&w)).contains("Grand Total : Rs. 35.00"));
    openPreview(&w)->close();
}

void tst_frmReport::viewLimitsToAgentAndAccount()
{
    TestContext t;
    addHistory(t.db, {{"001", "2007-11-14", "10010", 100.0, 1.0},
                      {"001", "2007-11-15", "10020", 100.0, 2.0},
                      {"002", "2007-11-15", "10010", 100.0, 4.0},
                      {"001", "2007-11-16", "10010", 100.0, 8.0},
                      {"001", "2007-11-17", "10010", 100.0, 16.0}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    control<QDateEdit>(&w, "FromDTPicker")->setDate(QDate(2007, 11, 14));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), "001");
    QTest::keyClicks(control<QLineEdit>(&w, "txtAccountNo"), "10010");
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    const QString text = previewText(openPreview(&w));
    QVERIFY(text.contains("14/Nov/2007"));
    QVERIFY(text.contains("16/Nov/2007"));
    QVERIFY(!text.contains("15/Nov/2007"));
    QVERIFY(!text.contains("17/Nov/2007"));
    QVERIFY(text.contains("Grand Total : Rs. 9.00"));
    openPreview(&w)->close();
}

void tst_frmReport::viewAgentSummaryIgnoresHiddenInputs()
{
    TestContext t;
    fillSettings(t);
    addHistory(t.db, {{"001", "2007-11-16", "10010", 100.0, 1.5},
                      {"001", "2007-11-16", "10020", 100.0, 2.0},
                      {"002", "2007-11-16", "20010", 100.0, 4.0}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), "001");
    QTest::mouseClick(control<QRadioButton>(&w, "OptReport2"), Qt::LeftButton);
    QCOMPARE(w.limits().agentId, QString());
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    QCOMPARE(openPreview(&w)->windowTitle(), QString("TONVY AGENT COLLECTION SUMMARY"));
    const QString text = previewText(openPreview(&w));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(text.contains("AgentID Collected Amount Date"));
    QVERIFY(text.contains("001 3.50 16/Nov/2007"));
    QVERIFY(text.contains("002 4.00 16/Nov/2007"));
    openPreview(&w)->close();
}

void tst_frmReport::viewEmptyRangeShowsHeadersAndZeroGrandTotal()
{
    TestContext t;
    fillSettings(t);
    addHistory(t.db, {"001", "2007-11-15", "10010", 100.0, 1.0});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    const QString text = previewText(openPreview(&w));
    QVERIFY(text.contains("TONVY DAILY COLLECTION SUMMARY"));
    QVERIFY(text.contains("Bank Name : Sahyadri Co-operative Bank"));
    QVERIFY(text.contains("Date : 16/Nov/2007"));
    QVERIFY(text.contains("Grand Total : Rs. 0.00"));
    QVERIFY(!text.contains("Group Total"));
    QCOMPARE(openPreview(&w)->pages().pageCount(), 1);
    QTRY_VERIFY(openPreview(&w)->pageView()->pagesPainted() >= 1);
    QVERIFY(t.messenger.entries().isEmpty());
    openPreview(&w)->close();
}

void tst_frmReport::fromAfterToIsRefused()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    control<QDateEdit>(&w, "FromDTPicker")->setDate(QDate(2007, 11, 17));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.messenger.last().contains("17-Nov-2007"));
    QVERIFY(t.messenger.last().contains("later than the To Date"));
    QVERIFY(!openPreview(&w));

    bool asked = false;
    w.setSavePathChooser([&](QWidget*, const QString&) {
        asked = true;
        return t.path("never.csv");
    });
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(t.messenger.entries().size(), 2);
    QVERIFY(!asked);
    QVERIFY(!QFile::exists(t.path("never.csv")));
}

void tst_frmReport::apostropheIsRefused()
{
    TestContext t;
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), "0'1");
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.messenger.last().contains("0'1"));
    QVERIFY(t.messenger.last().contains("apostrophe"));
    QVERIFY(!openPreview(&w));
}

void tst_frmReport::exportWritesCsvToReportFolder()
{
    TestContext t;
    QVERIFY(QDir(t.dir.path()).mkpath("reports"));
    t.ctx->settings.ReportPath = t.path("reports");
    addHistory(t.db, {{"001", "2007-11-16", "10010", 2400.25, 50.0}, {"002", "2007-11-16", "20010", 800.0, 20.5}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QString suggested;
    const QString chosen = t.path("reports/chosen.csv");
    w.setSavePathChooser([&](QWidget*, const QString& s) {
        suggested = s;
        return chosen;
    });
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(suggested, QDir(t.path("reports")).filePath("DailyCollection_20071116_20071116.csv"));
    QFile f(chosen);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"
                                     "2007-11-16,001,10010,2400.25,50.00\r\n"
                                     "2007-11-16,002,20010,800.00,20.50\r\n"));
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Information);
    QVERIFY(t.messenger.last().contains(QDir::toNativeSeparators(chosen)));

    // The agent summary, with data added since: read afresh.
    addHistory(t.db, {"002", "2007-11-16", "20020", 10.0, 1.0});
    QTest::mouseClick(control<QRadioButton>(&w, "OptReport2"), Qt::LeftButton);
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(suggested, QDir(t.path("reports")).filePath("AgentCollection_20071116_20071116.csv"));
    QFile g(chosen);
    QVERIFY(g.open(QIODevice::ReadOnly));
    QCOMPARE(g.readAll(), QByteArray("AgentID,Collected Amount,Date\r\n"
                                     "001,50.00,2007-11-16\r\n"
                                     "002,21.50,2007-11-16\r\n"));
}

void tst_frmReport::exportFallsBackToDataFolderAndCanBeCancelled()
{
    TestContext t;
    t.ctx->settings.ReportPath = t.path("missing-folder");
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QString suggested;
    w.setSavePathChooser([&](QWidget*, const QString& s) {
        suggested = s;
        return QString();
    });
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(suggested, QDir(t.dir.path()).filePath("DailyCollection_20071116_20071116.csv"));
    QVERIFY(!QFile::exists(suggested));
    QVERIFY(t.messenger.entries().isEmpty());

    // A file that cannot be written is reported.
    w.setSavePathChooser([&](QWidget*, const QString&) { return t.path("missing-folder/x.csv"); });
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.messenger.last().contains("x.csv"));
}

void tst_frmReport::exitCloses()
{
    TestContext t;
    QPointer<frmReport> w = new frmReport(*t.ctx);
    w->setAttribute(Qt::WA_DeleteOnClose);
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w));
    QTest::mouseClick(control<ColourButton>(w, "cmdExit"), Qt::LeftButton);
    QTRY_VERIFY(w.isNull());
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmReport::menuShowsItModal()
{
    TestContext t;
    ScreenRegistry screens;
    screens.add(Screen::Report, [](AppContext& ctx) -> QWidget* { return new frmReport(ctx); });
    frmMain menu(*t.ctx, screens);
    menu.show();
    QVERIFY(QTest::qWaitForWindowExposed(&menu));
    QTest::mouseClick(control<ColourButton>(&menu, "cmdReport"), Qt::LeftButton);
    QPointer<QWidget> report = menu.openScreen(Screen::Report);
    QVERIFY(report);
    QCOMPARE(report->objectName(), QString("frmReport"));
    QTRY_VERIFY(report->isVisible());
    QCOMPARE(report->windowModality(), Qt::ApplicationModal);
    QCOMPARE(QApplication::activeModalWidget(), report.data());
    QTest::mouseClick(control<ColourButton>(report, "cmdExit"), Qt::LeftButton);
    QTRY_VERIFY(report.isNull());
    QVERIFY(!QApplication::activeModalWidget());
}

void tst_frmReport::viewAgentAsTypedOnTheSendScreen()
{
    TestContext t;
    addHistory(t.db, {{"AG0000000000001", "2007-11-16", "10010", 100.0, 1.0, "001"},
                      {"AG0000000000002", "2007-11-16", "20010", 100.0, 2.0, "002"}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), "1");
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    const QString text = previewText(openPreview(&w));
    QVERIFY(text.contains("AG0000000000001 10010 100.00 1.00"));
    QVERIFY(!text.contains("20010"));
    QVERIFY(text.contains("Grand Total : Rs. 1.00"));
    openPreview(&w)->close();
}

namespace {

// Agents as real banks number them: all digits, two pairs ending alike,
// padded as the terminal's header gives them, each with the terminal's
// agent number.
void addDigitAgents(SharedDatabase& db)
{
    addHistory(db, {{"0417000005     ", "2007-11-16", "101", 1000.0, 10.0, "005"},
                    {"0417000005     ", "2007-11-16", "102", 1000.0, 20.0, "005"},
                    {"0417000015     ", "2007-11-16", "151", 2000.0, 100.0, "015"},
                    {"0517000005     ", "2007-11-16", "501", 3000.0, 1000.0, "050"}});
}

const QStringList digitAgentIds = {"0417000005", "0417000015", "0517000005"};

} // namespace

void tst_frmReport::viewAllDigitIdentifiers_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("agent"); // the one agent shown
    QTest::addColumn<QStringList>("rows");
    QTest::addColumn<QString>("grandTotal");

    const QStringList a5 = {"0417000005 101 1000.00 10.00", "0417000005 102 1000.00 20.00"};
    const QStringList a15 = {"0417000015 151 2000.00 100.00"};
    const QStringList b5 = {"0517000005 501 3000.00 1000.00"};
    QTest::newRow("5") << "5"
                       << "0417000005" << a5 << "30.00";
    QTest::newRow("005") << "005"
                         << "0417000005" << a5 << "30.00";
    QTest::newRow("full id") << "0417000005"
                             << "0417000005" << a5 << "30.00";
    QTest::newRow("15") << "15"
                        << "0417000015" << a15 << "100.00";
    QTest::newRow("015") << "015"
                         << "0417000015" << a15 << "100.00";
    QTest::newRow("full id ending in 15") << "0417000015"
                                          << "0417000015" << a15 << "100.00";
    QTest::newRow("50") << "50"
                        << "0517000005" << b5 << "1000.00";
    QTest::newRow("other full id ending in 5") << "0517000005"
                                               << "0517000005" << b5 << "1000.00";
}

void tst_frmReport::viewAllDigitIdentifiers()
{
    QFETCH(QString, typed);
    QFETCH(QString, agent);
    QFETCH(QStringList, rows);
    QFETCH(QString, grandTotal);

    TestContext t;
    addDigitAgents(t.db);
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), typed);
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    const QString text = previewText(openPreview(&w));
    for (const QString& row : rows)
        QVERIFY2(text.contains(row), qPrintable(text));
    QCOMPARE(openPreview(&w)->pages().rowCount(), rows.size());
    for (const QString& other : digitAgentIds) {
        if (other != agent)
            QVERIFY2(!text.contains(other), qPrintable(other));
    }
    QVERIFY2(text.contains("Group Total : Rs. " + grandTotal), qPrintable(text));
    QVERIFY2(text.contains("Grand Total : Rs. " + grandTotal), qPrintable(text));
    QVERIFY(t.messenger.entries().isEmpty());
    openPreview(&w)->close();
}

void tst_frmReport::agentMatchingNoneIsRefused_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("message");
    QTest::newRow("common ending") << "17000005"
                                   << "Agent ID \"17000005\" matches no agent of the stored collections.";
    QTest::newRow("id without its leading zero")
        << "417000005"
        << "Agent ID \"417000005\" matches no agent of the stored collections.";
    QTest::newRow("nobody's number") << "7"
                                     << "Agent ID \"7\" matches no agent of the stored collections.";
    QTest::newRow("number of two agents") << "5"
                                          << "Agent ID \"5\" is the number of more than one agent of the stored "
                                             "collections (0417000005, 0417000099).";
}

void tst_frmReport::agentMatchingNoneIsRefused()
{
    QFETCH(QString, typed);
    QFETCH(QString, message);

    TestContext t;
    addDigitAgents(t.db);
    // The terminal number 005 later went to another agent.
    addHistory(t.db, {"0417000099     ", "2007-11-17", "991", 500.0, 5.0, "005"});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), typed);
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    // Said so, rather than an empty report or another agent's.
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t.messenger.last().contains(message), qPrintable(t.messenger.last()));
    QVERIFY(!openPreview(&w));

    bool asked = false;
    w.setSavePathChooser([&](QWidget*, const QString&) {
        asked = true;
        return t.path("never.csv");
    });
    QTest::mouseClick(control<ColourButton>(&w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(t.messenger.entries().size(), 2);
    QVERIFY(!asked);
    QVERIFY(!QFile::exists(t.path("never.csv")));

    // The screen stays usable: the full identifier finds the agent.
    control<QLineEdit>(&w, "txtAgentID")->clear();
    QTest::keyClicks(control<QLineEdit>(&w, "txtAgentID"), "0417000099");
    control<QDateEdit>(&w, "ToDTPicker")->setDate(QDate(2007, 11, 17));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    QVERIFY(previewText(openPreview(&w)).contains("0417000099 991 500.00 5.00"));
    QVERIFY(previewText(openPreview(&w)).contains("Grand Total : Rs. 5.00"));
    QCOMPARE(t.messenger.entries().size(), 2);
    openPreview(&w)->close();
}

void tst_frmReport::viewOfAMonthShowsItsFirstPageAtOnce()
{
    TestContext t;
    addMonth(t.db, 200);
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    control<QDateEdit>(&w, "FromDTPicker")->setDate(QDate(2007, 11, 1));
    control<QDateEdit>(&w, "ToDTPicker")->setDate(QDate(2007, 11, 30));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    QVERIFY(preview->pages().pageCount() > 100);
    QCOMPARE(preview->pages().rowCount(), 30 * 200);
    // Only what is in view is painted, not the whole month.
    QTRY_VERIFY(preview->pageView()->pagesPainted() >= 1);
    QVERIFY(preview->pageView()->pagesPainted() <= 3);
    QCOMPARE(control<QLabel>(preview, "lblPage")->text(), QString("Page 1 of %1").arg(preview->pages().pageCount()));
    // Scrolling far on paints that page when it comes into view.
    preview->pageView()->showPage(90);
    QTRY_COMPARE(preview->pageView()->currentPage(), 90);
    QTRY_COMPARE(control<QLabel>(preview, "lblPage")->text(),
                 QString("Page 91 of %1").arg(preview->pages().pageCount()));
    const QStringList page = preview->pages().pageText(90);
    QVERIFY(page.join('\n').contains("Page 91 of"));
    preview->close();
}

void tst_frmReport::savePdfFromThePreview()
{
    TestContext t;
    fillSettings(t);
    QVERIFY(QDir(t.dir.path()).mkpath("reports"));
    t.ctx->settings.ReportPath = t.path("reports");
    addMonth(t.db, 60);
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    control<QDateEdit>(&w, "FromDTPicker")->setDate(QDate(2007, 11, 1));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    QString suggested;
    const QString chosen = t.path("reports/month.pdf");
    preview->setSavePathChooser([&](QWidget*, const QString& s) {
        suggested = s;
        return chosen;
    });
    QTest::mouseClick(control<ColourButton>(preview, "cmdSavePdf"), Qt::LeftButton);
    QCOMPARE(suggested, QDir(t.path("reports")).filePath("DailyCollection_20071101_20071116.pdf"));
    QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(60000));
    QCOMPARE(control<QLabel>(preview, "lblStatus")->text(),
             QString("Report saved in %1").arg(QDir::toNativeSeparators(chosen)));
    QCOMPARE(pdfPageCount(chosen), preview->pages().pageCount());
    // Nothing was shown in a message box from the steps of the save.
    QVERIFY(t.messenger.entries().isEmpty());
    preview->close();
}

void tst_frmReport::savePdfOnADiskThatCannotSync()
{
    TestContext t;
    fillSettings(t);
    QVERIFY(QDir(t.dir.path()).mkpath("reports"));
    addHistory(t.db, {{"001", "2007-11-16", "10010", 2400.25, 50.00}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    const QString chosen = t.path("reports/day.pdf");
    preview->setSavePathChooser([&](QWidget*, const QString&) { return chosen; });
    auto* status = control<QLabel>(preview, "lblStatus");
    {
        // Saved: the file and then its folder synced to the disk.
        FailingSync syncs;
        QTest::mouseClick(control<ColourButton>(preview, "cmdSavePdf"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
        QCOMPARE(status->text(), QString("Report saved in %1").arg(QDir::toNativeSeparators(chosen)));
        QCOMPARE(syncs.fileSyncs(), 1);
        QCOMPARE(syncs.folderSyncs(QFileInfo(t.path("reports")).canonicalFilePath()), 1);
    }
    auto readFile = [](const QString& path) {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    const QByteArray saved = readFile(chosen);
    {
        // The disk cannot keep the new file: the earlier one stays.
        FailingSync syncs(FailingSync::Fail::Files);
        QTest::mouseClick(control<ColourButton>(preview, "cmdSavePdf"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
        QVERIFY2(status->text().startsWith(ReportRenderer::cannotWrite(QDir::toNativeSeparators(chosen),
                                                                       "it could not be synced to the disk (")),
                 qPrintable(status->text()));
        QCOMPARE(readFile(chosen), saved);
    }
    {
        FailingSync syncs(FailingSync::Fail::Folders);
        QTest::mouseClick(control<ColourButton>(preview, "cmdSavePdf"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
        QVERIFY2(status->text().contains("could not be synced to the disk"), qPrintable(status->text()));
    }
    QVERIFY(t.messenger.entries().isEmpty());
    preview->close();
}

void tst_frmReport::printFromThePreview()
{
    TestContext t;
    fillSettings(t);
    addHistory(t.db, {{"001", "2007-11-16", "10010", 2400.25, 50.00}, {"002", "2007-11-16", "20010", 800.0, 20.5}});
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    // No printer here: the print dialog's choice is a PDF file.
    const QString printed = t.path("printed.pdf");
    preview->setPrinterChooser([&](QWidget*, QPrinter* printer) {
        printer->setOutputFormat(QPrinter::PdfFormat);
        printer->setOutputFileName(printed);
        return true;
    });
    QTest::mouseClick(control<ColourButton>(preview, "cmdPrint"), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
    QCOMPARE(control<QLabel>(preview, "lblStatus")->text(), QString("Report sent to the printer."));
    QCOMPARE(pdfPageCount(printed), 1);

    // Cancelling the print dialog prints nothing.
    const QString never = t.path("never.pdf");
    preview->setPrinterChooser([&](QWidget*, QPrinter* printer) {
        printer->setOutputFormat(QPrinter::PdfFormat);
        printer->setOutputFileName(never);
        return false;
    });
    QTest::mouseClick(control<ColourButton>(preview, "cmdPrint"), Qt::LeftButton);
    QVERIFY(!preview->isWriting());
    QVERIFY(!QFile::exists(never));
    preview->close();
}

void tst_frmReport::cancelWhilePagesAreMadeKeepsTheWindowResponsive()
{
    TestContext t;
    addMonth(t.db, 900);
    frmReport w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    control<QDateEdit>(&w, "FromDTPicker")->setDate(QDate(2007, 11, 1));
    control<QDateEdit>(&w, "ToDTPicker")->setDate(QDate(2007, 11, 30));
    QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
    QTRY_VERIFY(openPreview(&w));
    ReportPreview* preview = openPreview(&w);
    const QString chosen = t.path("month.pdf");
    preview->setSavePathChooser([&](QWidget*, const QString&) { return chosen; });

    // A clock ticking on the window's event loop: it keeps ticking while the
    // pages are made.
    QElapsedTimer clock;
    clock.start();
    qint64 lastTick = 0;
    qint64 longestGap = 0;
    int ticks = 0;
    QTimer ticker;
    ticker.setInterval(10);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longestGap = qMax(longestGap, clock.elapsed() - lastTick);
        lastTick = clock.elapsed();
        ++ticks;
    });

    QTest::mouseClick(control<ColourButton>(preview, "cmdSavePdf"), Qt::LeftButton);
    QVERIFY(preview->isWriting());
    auto* progress = control<QProgressBar>(preview, "progressBar");
    auto* cancel = control<ColourButton>(preview, "cmdCancel");
    QTRY_VERIFY(cancel->isVisible());
    QCOMPARE(progress->maximum(), preview->pages().pageCount());
    lastTick = clock.elapsed();
    ticker.start();
    // The window answers while the pages are being made.
    QTRY_VERIFY(ticks >= 5 || !preview->isWriting());
    QVERIFY2(preview->isWriting(), "the month was saved before Cancel could be clicked");
    QVERIFY(progress->value() > 0);
    QVERIFY2(longestGap < scaledMs(1000), qPrintable(QString::number(longestGap)));
    const int made = progress->value();
    QVERIFY(made < progress->maximum());

    QTest::mouseClick(cancel, Qt::LeftButton);
    QVERIFY(!preview->isWriting());
    QTRY_VERIFY(!cancel->isVisible());
    QCOMPARE(control<QLabel>(preview, "lblStatus")->text(), QString("Cancelled: nothing was saved or printed."));
    // No file, and no half file, under the chosen name.
    QVERIFY(!QFile::exists(chosen));
    QVERIFY(QDir(t.dir.path()).entryList({"month.pdf*"}).isEmpty());
    QVERIFY(control<ColourButton>(preview, "cmdSavePdf")->isEnabled());
    // The screen behind still works.
    QTest::mouseClick(control<QRadioButton>(&w, "OptReport2"), Qt::LeftButton);
    QVERIFY(inputsHidden(&w));
    ticker.stop();
    preview->close();
}

QTEST_MAIN(tst_frmReport)
#include "tst_frmreport.moc"
