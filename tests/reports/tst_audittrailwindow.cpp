#include "base/Version.h"
#include "reports/AuditTrailModel.h"
#include "reports/AuditTrailWindow.h"
#include "reports/frmReport.h"
#include "tests/support/Controls.h"
#include "tests/support/FailingSync.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QApplication>
#include <QDateEdit>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QRadioButton>
#include <QTableView>
#include <QtTest>

namespace {

void recordAt(TestContext& t, const QDateTime& at, AuditTrail::Action action, const QString& details)
{
    t.clock.set(at);
    AuditTrail::record(t.db, action, details);
}

// Events on the 14th, 15th, 16th and 17th; the screen opens on the 16th.
void recordDays(TestContext& t)
{
    recordAt(t, QDateTime(QDate(2007, 11, 14), QTime(9, 0)), AuditTrail::Action::Settings, "settings saved");
    recordAt(t, QDateTime(QDate(2007, 11, 15), QTime(9, 5, 10)), AuditTrail::Action::Download,
             "agent 005: download file 0051511d.txt stored, 40 records");
    recordAt(t, QDateTime(QDate(2007, 11, 15), QTime(18, 2, 11)), AuditTrail::Action::Receive,
             "agent 005, date 1511: 36 records received, total 1900.00");
    recordAt(t, QDateTime(QDate(2007, 11, 16), QTime(10, 15)), AuditTrail::Action::Login,
             "failed login to the configuration");
    recordAt(t, QDateTime(QDate(2007, 11, 17), QTime(8, 0)), AuditTrail::Action::Password,
             "software user password changed");
    t.clock.set(QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30)));
}

// The table's cells, row by row, each row's columns joined by " | ".
QStringList tableRows(QTableView* table)
{
    QStringList rows;
    QAbstractItemModel* m = table->model();
    for (int r = 0; r < m->rowCount(); ++r) {
        QStringList cells;
        for (int c = 0; c < m->columnCount(); ++c)
            cells << m->index(r, c).data().toString();
        rows << cells.join(" | ");
    }
    return rows;
}

QString row(const QString& time, const QString& action, const QString& details)
{
    return QStringList{time, AuditTrail::osUser(), action, details, programVersion()}.join(" | ");
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// What `tonvy-cli audit` writes for the same database and days.
QByteArray cliCsv(const TestContext& t, const QString& from, const QString& to)
{
    const QString out = t.path("cli.csv");
    QProcess p;
    p.start(qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli",
            {"--data-dir", t.dir.path(), "audit", "--from", from, "--to", to, "--output", out});
    if (!p.waitForFinished(60000) || p.exitCode() != 0)
        qWarning("tonvy-cli audit: %s", p.readAllStandardError().constData());
    return readFile(out);
}

// The report screen shown over a fresh data folder, with the events of
// recordDays() unless told otherwise.
struct Screen
{
    explicit Screen(bool withEvents = true)
    {
        if (withEvents)
            recordDays(t);
        w.show();
        w.activateWindow();
        shown = QTest::qWaitForWindowExposed(&w);
    }
    void chooseAudit(const QDate& from, const QDate& to)
    {
        QTest::mouseClick(control<QRadioButton>(&w, "OptAudit"), Qt::LeftButton);
        control<QDateEdit>(&w, "FromDTPicker")->setDate(from);
        control<QDateEdit>(&w, "ToDTPicker")->setDate(to);
    }
    AuditTrailWindow* view()
    {
        QTest::mouseClick(control<ColourButton>(&w, "cmdView"), Qt::LeftButton);
        return w.auditWindow();
    }
    AuditTrailWindow* viewAudit(const QDate& from, const QDate& to)
    {
        chooseAudit(from, to);
        return view();
    }

    // A report folder that exists, as chosen in DRIVE SELECTION.
    QString useReportFolder()
    {
        if (!QDir(t.dir.path()).mkpath("reports"))
            qFatal("cannot make the report folder");
        t.ctx->settings.ReportPath = t.path("reports");
        return t.ctx->settings.ReportPath;
    }

    TestContext t;
    frmReport w{*t.ctx};
    bool shown = false;
};

// Answers the file dialog with a given path and keeps what it suggested.
struct PathAnswer
{
    explicit PathAnswer(const QString& path) : answer(path) {}
    std::function<QString(QWidget*, const QString&)> chooser()
    {
        return [this](QWidget*, const QString& offered) {
            suggested = offered;
            return answer;
        };
    }
    QString answer;
    QString suggested;
};

} // namespace

class tst_AuditTrailWindow : public QObject
{
    Q_OBJECT

private slots:
    void thirdOptionBesideTheTwo();
    void optionHidesAgentAndAccountByMouseAndKeys();
    void viewShowsExactlyTheEventsOfTheRange();
    void saveCsvIsTheCommandLinesCsv();
    void saveCsvCancelledOrFailing();
    void saveCsvSyncsOrSaysWhyNot();
    void emptyRangeIsAMessageNotAWindow();
    void fromAfterToIsRefused();
    void storeErrorIsAMessage();
    void viewAgainReplacesTheWindow();
    void enterPressesAndMovesOn();
    void exportCsvOnTheScreenWritesTheTrail();
    void theTwoReportsStillOpenTheirPreview();
};

void tst_AuditTrailWindow::thirdOptionBesideTheTwo()
{
    TestContext t;
    frmReport w(*t.ctx);
    auto* opt = control<QRadioButton>(&w, "OptAudit");
    QCOMPARE(opt->text(), QString("Audit Trail"));
    QCOMPARE(opt->parentWidget(), control<QRadioButton>(&w, "OptReport1")->parentWidget());
    QCOMPARE(opt->parentWidget()->objectName(), QString("Frame1"));
    QVERIFY(opt->autoExclusive());
    // The daily summary is still chosen at the start.
    QVERIFY(!opt->isChecked());
    QVERIFY(!w.auditChosen());
    QVERIFY(control<QRadioButton>(&w, "OptReport1")->isChecked());
}

void tst_AuditTrailWindow::optionHidesAgentAndAccountByMouseAndKeys()
{
    Screen s(false);
    QVERIFY(QTest::qWaitForWindowActive(&s.w));
    auto* opt1 = control<QRadioButton>(&s.w, "OptReport1");
    auto* opt2 = control<QRadioButton>(&s.w, "OptReport2");
    auto* audit = control<QRadioButton>(&s.w, "OptAudit");
    auto* agent = control<QLineEdit>(&s.w, "txtAgentID");
    auto* account = control<QLineEdit>(&s.w, "txtAccountNo");
    for (int i = 0; i < 3; ++i) {
        QTest::mouseClick(audit, Qt::LeftButton);
        QVERIFY(s.w.auditChosen());
        QVERIFY(!agent->isVisible() && !account->isVisible());
        QVERIFY(!control<QLabel>(&s.w, "lbAgentID")->isVisible());
        QVERIFY(!control<QLabel>(&s.w, "lbAccountNo")->isVisible());
        QTest::mouseClick(opt1, Qt::LeftButton);
        QVERIFY(!s.w.auditChosen());
        QVERIFY(agent->isVisible() && account->isVisible());
    }
    // By the arrow keys: Report1, Report2, Audit Trail and back.
    opt1->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), opt1);
    QTest::keyClick(opt1, Qt::Key_Right);
    QTRY_COMPARE(QApplication::focusWidget(), opt2);
    QTest::keyClick(opt2, Qt::Key_Right);
    QTRY_COMPARE(QApplication::focusWidget(), audit);
    QVERIFY(audit->isChecked());
    QVERIFY(!agent->isVisible());
    QTest::keyClick(audit, Qt::Key_Left);
    QTRY_COMPARE(QApplication::focusWidget(), opt2);
    QVERIFY(!agent->isVisible());
    QTest::keyClick(opt2, Qt::Key_Left);
    QTRY_COMPARE(QApplication::focusWidget(), opt1);
    QVERIFY(agent->isVisible());

    // The agent typed for the daily summary does not limit the trail.
    QTest::keyClicks(agent, "001");
    QTest::mouseClick(audit, Qt::LeftButton);
    QCOMPARE(s.w.limits().agentId, QString());
}

void tst_AuditTrailWindow::viewShowsExactlyTheEventsOfTheRange()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    QPointer<AuditTrailWindow> window = s.viewAudit(QDate(2007, 11, 15), QDate(2007, 11, 16));
    QVERIFY(window);
    QTRY_VERIFY(window->isVisible());
    QCOMPARE(window->objectName(), QString("auditTrailWindow"));
    QCOMPARE(window->windowTitle(), QString("Audit Trail"));
    QCOMPARE(control<QLabel>(window, "lblRange")->text(),
             QString("15-Nov-2007 to 16-Nov-2007: 3 events, oldest first"));

    auto* table = control<QTableView>(window, "grdAudit");
    QStringList heads;
    for (int c = 0; c < table->model()->columnCount(); ++c)
        heads << table->model()->headerData(c, Qt::Horizontal).toString();
    QCOMPARE(heads, QStringList({"Time", "User", "Action", "Details", "Version"}));
    QCOMPARE(
        tableRows(table),
        QStringList({row("2007-11-15T09:05:10", "download", "agent 005: download file 0051511d.txt stored, 40 records"),
                     row("2007-11-15T18:02:11", "receive", "agent 005, date 1511: 36 records received, total 1900.00"),
                     row("2007-11-16T10:15:00", "login", "failed login to the configuration")}));
    // Read-only.
    QCOMPARE(table->editTriggers(), QAbstractItemView::NoEditTriggers);
    QVERIFY(!(table->model()->flags(table->model()->index(0, 3)) & Qt::ItemIsEditable));
    QVERIFY(t.messenger.entries().isEmpty());

    QTest::mouseClick(control<ColourButton>(window, "cmdClose"), Qt::LeftButton);
    QTRY_VERIFY(window.isNull());
}

void tst_AuditTrailWindow::saveCsvIsTheCommandLinesCsv()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    const QString reports = s.useReportFolder();
    // A detail with a comma and quotes, to be quoted in the file.
    recordAt(t, QDateTime(QDate(2007, 11, 15), QTime(20, 0)), AuditTrail::Action::Settings,
             "settings saved: bank name \"GRAMIN, BANK\"");
    AuditTrailWindow* window = s.viewAudit(QDate(2007, 11, 15), QDate(2007, 11, 16));
    QVERIFY(window);
    PathAnswer dialog(t.path("reports/trail.csv"));
    const QString& chosen = dialog.answer;
    window->setSavePathChooser(dialog.chooser());
    QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
    QCOMPARE(dialog.suggested, QDir(reports).filePath("AuditTrail_20071115_20071116.csv"));
    const QByteArray saved = readFile(chosen);
    QCOMPARE(saved, AuditTrail::toCsv(AuditTrail::read(t.db, QDate(2007, 11, 15), QDate(2007, 11, 16))));
    QCOMPARE(saved, cliCsv(t, "2007-11-15", "2007-11-16"));
    QCOMPARE(saved.count("\r\n"), 5); // the header and four events
    QVERIFY(saved.contains(",\"settings saved: bank name \"\"GRAMIN, BANK\"\"\","));
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(t.messenger.last(), QString("Audit trail saved in %1").arg(QDir::toNativeSeparators(chosen)));
    window->close();
}

void tst_AuditTrailWindow::saveCsvCancelledOrFailing()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    AuditTrailWindow* window = s.viewAudit(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QVERIFY(window);
    // The report folder does not exist: the data folder is suggested.
    PathAnswer cancelled{QString()};
    window->setSavePathChooser(cancelled.chooser());
    QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
    QCOMPARE(cancelled.suggested, QDir(t.dir.path()).filePath("AuditTrail_20071116_20071116.csv"));
    QVERIFY(!QFile::exists(cancelled.suggested));
    QVERIFY(t.messenger.entries().isEmpty());

    window->setSavePathChooser([&](QWidget*, const QString&) { return t.path("missing-folder/x.csv"); });
    QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.messenger.last().startsWith("Cannot write " + t.path("missing-folder/x.csv")));
    QVERIFY(window->isVisible());
    window->close();
}

void tst_AuditTrailWindow::saveCsvSyncsOrSaysWhyNot()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    const QString reports = s.useReportFolder();
    const QString folder = QFileInfo(reports).canonicalFilePath();
    AuditTrailWindow* window = s.viewAudit(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QVERIFY(window);
    const QString chosen = QDir(reports).filePath("trail.csv");
    window->setSavePathChooser([&](QWidget*, const QString&) { return chosen; });
    {
        // Saved: the file and then the report folder synced to the disk.
        FailingSync syncs;
        QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
        QCOMPARE(t.messenger.last(), QString("Audit trail saved in %1").arg(QDir::toNativeSeparators(chosen)));
        QCOMPARE(syncs.fileSyncs(), 1);
        QCOMPARE(syncs.folderSyncs(folder), 1);
    }
    QVERIFY(QFile::remove(chosen));
    {
        // A disk that cannot keep the file: not saved, and said so.
        FailingSync syncs(FailingSync::Fail::Files);
        QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
        QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
        QVERIFY2(t.messenger.last().startsWith("Cannot write " + chosen + ": it could not be synced to the disk ("),
                 qPrintable(t.messenger.last()));
        QVERIFY(!QFile::exists(chosen));
    }
    {
        // Nor the folder's entry for it.
        FailingSync syncs(FailingSync::Fail::Folders);
        QTest::mouseClick(control<ColourButton>(window, "cmdSaveCsv"), Qt::LeftButton);
        QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
        QVERIFY2(t.messenger.last().contains("the folder " + reports + " could not be synced to the disk"),
                 qPrintable(t.messenger.last()));
    }
    window->close();

    // The report screen's own export goes the same way.
    s.chooseAudit(QDate(2007, 11, 14), QDate(2007, 11, 15));
    s.w.setSavePathChooser([&](QWidget*, const QString&) { return chosen; });
    FailingSync syncs(FailingSync::Fail::Files);
    QTest::mouseClick(control<ColourButton>(&s.w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t.messenger.last().contains("could not be synced to the disk"), qPrintable(t.messenger.last()));
}

void tst_AuditTrailWindow::emptyRangeIsAMessageNotAWindow()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    s.chooseAudit(QDate(2007, 11, 18), QDate(2007, 11, 30));
    QVERIFY(!s.view());
    QVERIFY(s.w.findChildren<AuditTrailWindow*>().isEmpty());
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(t.messenger.last(), QString("The audit trail has no events from 18-Nov-2007 to 30-Nov-2007."));

    // A database without any event at all: the same.
    Screen empty(false);
    QTest::mouseClick(control<QRadioButton>(&empty.w, "OptAudit"), Qt::LeftButton);
    QVERIFY(!empty.view());
    QCOMPARE(empty.t.messenger.last(), QString("The audit trail has no events from 16-Nov-2007 to 16-Nov-2007."));
}

void tst_AuditTrailWindow::fromAfterToIsRefused()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    s.chooseAudit(QDate(2007, 11, 17), QDate(2007, 11, 15));
    QVERIFY(!s.view());
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.messenger.last().contains("later than the To Date"));
    bool asked = false;
    s.w.setSavePathChooser([&](QWidget*, const QString&) {
        asked = true;
        return t.path("never.csv");
    });
    QTest::mouseClick(control<ColourButton>(&s.w, "cmdExport"), Qt::LeftButton);
    QVERIFY(!asked);
    QCOMPARE(t.messenger.entries().size(), 2);
}

void tst_AuditTrailWindow::storeErrorIsAMessage()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    s.chooseAudit(QDate(2007, 11, 15), QDate(2007, 11, 16));
    t.db.execute("DROP TABLE AuditTrail");
    QVERIFY(!s.view());
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t.messenger.last().startsWith("The audit trail cannot be read: "), qPrintable(t.messenger.last()));
    bool asked = false;
    s.w.setSavePathChooser([&](QWidget*, const QString&) {
        asked = true;
        return t.path("never.csv");
    });
    QTest::mouseClick(control<ColourButton>(&s.w, "cmdExport"), Qt::LeftButton);
    QVERIFY(!asked);
    QVERIFY(t.messenger.last().startsWith("The audit trail cannot be read: "));
    QVERIFY(s.w.isVisible());
}

void tst_AuditTrailWindow::viewAgainReplacesTheWindow()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    QPointer<AuditTrailWindow> first = s.viewAudit(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QVERIFY(first);
    QCOMPARE(first->model().rowCount(), 1);

    // Read afresh: an event written since shows at the next View, in place
    // of the window still open.
    recordAt(t, QDateTime(QDate(2007, 11, 16), QTime(11, 0)), AuditTrail::Action::Send, "agent 005: sent");
    QPointer<AuditTrailWindow> second = s.view();
    QVERIFY(second);
    QVERIFY(second != first);
    QTRY_VERIFY(first.isNull());
    QCOMPARE(s.w.findChildren<AuditTrailWindow*>().size(), 1);
    QCOMPARE(tableRows(control<QTableView>(second, "grdAudit")).last(),
             row("2007-11-16T11:00:00", "send", "agent 005: sent"));
    second->close();
}

void tst_AuditTrailWindow::enterPressesAndMovesOn()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(QTest::qWaitForWindowActive(&s.w));
    s.chooseAudit(QDate(2007, 11, 15), QDate(2007, 11, 15));
    auto* view = control<ColourButton>(&s.w, "cmdView");
    view->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(view));
    QTest::keyClick(view, Qt::Key_Return);
    QTRY_VERIFY(s.w.auditWindow());
    AuditTrailWindow* window = s.w.auditWindow();
    QCOMPARE(window->model().rowCount(), 2);
    window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(window));

    // Enter in the table moves on to Save CSV, and Enter there saves.
    auto* table = control<QTableView>(window, "grdAudit");
    auto* save = control<ColourButton>(window, "cmdSaveCsv");
    table->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(table));
    QTest::keyClick(table, Qt::Key_Return);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(save));
    QVERIFY(t.messenger.entries().isEmpty());
    const QString chosen = t.path("by-keys.csv");
    window->setSavePathChooser([&](QWidget*, const QString&) { return chosen; });
    QTest::keyClick(save, Qt::Key_Enter);
    QTRY_VERIFY(QFile::exists(chosen));
    QCOMPARE(readFile(chosen), AuditTrail::toCsv(AuditTrail::read(t.db, QDate(2007, 11, 15), QDate(2007, 11, 15))));

    // Enter on Close closes the window.
    QPointer<AuditTrailWindow> guard = window;
    auto* close = control<ColourButton>(window, "cmdClose");
    close->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(close));
    QTest::keyClick(close, Qt::Key_Return);
    QTRY_VERIFY(guard.isNull());
}

void tst_AuditTrailWindow::exportCsvOnTheScreenWritesTheTrail()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    const QString reports = s.useReportFolder();
    s.chooseAudit(QDate(2007, 11, 14), QDate(2007, 11, 15));
    PathAnswer dialog(t.path("reports/export.csv"));
    const QString& chosen = dialog.answer;
    s.w.setSavePathChooser(dialog.chooser());
    QTest::mouseClick(control<ColourButton>(&s.w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(dialog.suggested, QDir(reports).filePath("AuditTrail_20071114_20071115.csv"));
    QCOMPARE(readFile(chosen), cliCsv(t, "2007-11-14", "2007-11-15"));
    QCOMPARE(readFile(chosen).count("\r\n"), 4);
    QCOMPARE(t.messenger.last(), QString("Audit trail saved in %1").arg(QDir::toNativeSeparators(chosen)));
    QVERIFY(!s.w.auditWindow());

    // A range without events exports the header row only, as the command line does.
    s.chooseAudit(QDate(2007, 11, 20), QDate(2007, 11, 21));
    QTest::mouseClick(control<ColourButton>(&s.w, "cmdExport"), Qt::LeftButton);
    QCOMPARE(readFile(chosen), QByteArray("Time,User,Action,Details,Version\r\n"));
}

void tst_AuditTrailWindow::theTwoReportsStillOpenTheirPreview()
{
    Screen s;
    TestContext& t = s.t;
    QVERIFY(s.shown);
    QPointer<AuditTrailWindow> audit = s.viewAudit(QDate(2007, 11, 16), QDate(2007, 11, 16));
    QVERIFY(audit);
    for (const char* option : {"OptReport1", "OptReport2"}) {
        QTest::mouseClick(control<QRadioButton>(&s.w, option), Qt::LeftButton);
        QTest::mouseClick(control<ColourButton>(&s.w, "cmdView"), Qt::LeftButton);
        QTRY_VERIFY(s.w.preview());
        QCOMPARE(s.w.preview()->objectName(), QString("reportPreview"));
        s.w.preview()->close();
    }
    // The audit window is left as it was.
    QVERIFY(audit);
    QCOMPARE(s.w.findChildren<AuditTrailWindow*>().size(), 1);
    QVERIFY(t.messenger.entries().isEmpty());
    audit->close();
}

QTEST_MAIN(tst_AuditTrailWindow)
#include "tst_audittrailwindow.moc"
