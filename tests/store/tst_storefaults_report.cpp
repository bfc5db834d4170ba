#include "reports/AuditTrailWindow.h"
#include "reports/ReportPreview.h"
#include "reports/frmReport.h"
#include "store/AuditTrail.h"
#include "tests/reports/HistoryRows.h"
#include "tests/store/ScreenFaults.h"
#include "tests/support/Controls.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"
#include "widgets/ColourButton.h"

#include <QDateEdit>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QRadioButton>
#include <QTableView>
#include <QtTest>
#include <memory>

using ScreenFaults::Away;
using ScreenFaults::press;
using ScreenFaults::saysWhatToDo;
// The report only reads: every fault but a full disk.
using ReadFault = ScreenFaults::Fault;

namespace {

void addReadFaultRows()
{
    QTest::addColumn<int>("fault");
    QTest::newRow("locked by another process") << int(ReadFault::Locked);
    QTest::newRow("page damaged") << int(ReadFault::Damaged);
    QTest::newRow("deleted") << int(ReadFault::Deleted);
    QTest::newRow("renamed") << int(ReadFault::Renamed);
    QTest::newRow("overwritten with random bytes") << int(ReadFault::Overwritten);
    QTest::newRow("replaced by another program's file") << int(ReadFault::Replaced);
    QTest::newRow("truncated") << int(ReadFault::Truncated);
}

// Puts the fault in place; a lock lasts as long as holder.
bool apply(ReadFault fault, const QString& file, std::unique_ptr<StoreFaults::LockHolder>& holder,
           const QStringList& damaged = {QStringLiteral("CollectionHistory"), QStringLiteral("CollectionHistoryDay"),
                                         QStringLiteral("CollectionHistoryByDate")})
{
    switch (fault) {
    case ReadFault::Locked:
        holder = std::make_unique<StoreFaults::LockHolder>();
        return holder->start(file, "exclusive");
    case ReadFault::Damaged:
        return ScreenFaults::damageWhileOpen(file, damaged);
    case ReadFault::Deleted:
        return ScreenFaults::makeGoAway(Away::Deleted, file);
    case ReadFault::Renamed:
        return ScreenFaults::makeGoAway(Away::Renamed, file);
    case ReadFault::Overwritten:
        return ScreenFaults::makeGoAway(Away::OverwrittenWithGarbage, file);
    case ReadFault::Replaced:
        return ScreenFaults::makeGoAway(Away::ReplacedByAnotherFile, file);
    case ReadFault::Truncated:
        return ScreenFaults::makeGoAway(Away::Truncated, file);
    case ReadFault::DiskFull:
        break; // a report writes nothing into the database
    }
    return false;
}

} // namespace

// REPORT on a database in trouble: View, Export CSV, the preview's Save PDF
// and the audit window's View, each after the database was locked by
// another process, damaged, or went away while the screen was open, ends in
// a message that says what to do; nothing half written is left under the
// chosen name, nothing is written into the database, and the screen (and an
// open preview) stays usable. The report files on a full disk say so.
class tst_StoreFaultsReport : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void viewUnderAFault_data() { addReadFaultRows(); }
    void viewUnderAFault();
    void exportUnderAFault_data() { addReadFaultRows(); }
    void exportUnderAFault();
    void savePdfFromAnOpenPreviewUnderAFault_data() { addReadFaultRows(); }
    void savePdfFromAnOpenPreviewUnderAFault();
    void auditTrailViewUnderAFault_data() { addReadFaultRows(); }
    void auditTrailViewUnderAFault();
    void reportFilesOnAFullDisk();

private:
    ReportPreview* openPreviewByKeyboard();

    std::unique_ptr<TestContext> t;
    std::unique_ptr<frmReport> m_form;
    QString m_file;
    QString m_chosen;
};

void tst_StoreFaultsReport::init()
{
    t = std::make_unique<TestContext>();
    QVERIFY(QDir(t->dir.path()).mkpath("reports"));
    t->ctx->settings.ReportPath = t->path("reports");
    addHistory(t->db, {{"001", "2007-11-16", "10010", 2400.25, 50.00}, {"002", "2007-11-16", "20010", 800.0, 20.5}});
    AuditTrail::record(t->db, t->clock.now(), AuditTrail::Action::Settings, "bank name changed");
    m_file = t->db.filePath();
    m_chosen = t->path("reports/chosen.out");
    m_form = std::make_unique<frmReport>(*t->ctx);
    m_form->setSavePathChooser([this](QWidget*, const QString&) { return m_chosen; });
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
}

void tst_StoreFaultsReport::cleanup()
{
    m_form.reset();
    t.reset();
}

ReportPreview* tst_StoreFaultsReport::openPreviewByKeyboard()
{
    press(m_form.get(), "cmdView");
    return m_form->preview();
}

void tst_StoreFaultsReport::viewUnderAFault()
{
    QFETCH(int, fault);
    std::unique_ptr<StoreFaults::LockHolder> holder;
    QVERIFY(apply(ReadFault(fault), m_file, holder));
    const ScreenFaults::Untouched untouched(m_file);
    QVERIFY(!openPreviewByKeyboard());
    CHECK_REFUSED_ONCE(t->messenger, ReadFault(fault), m_file);
    CHECK_UNTOUCHED(untouched);
    QVERIFY(m_form->isVisible());
    if (ReadFault(fault) == ReadFault::Locked) {
        // The other program has let go: the same View shows the report.
        holder.reset();
        t->messenger.clear();
        QVERIFY(openPreviewByKeyboard());
        QVERIFY(t->messenger.entries().isEmpty());
        m_form->preview()->close();
    }
}

void tst_StoreFaultsReport::exportUnderAFault()
{
    QFETCH(int, fault);
    std::unique_ptr<StoreFaults::LockHolder> holder;
    QVERIFY(apply(ReadFault(fault), m_file, holder));
    const ScreenFaults::Untouched untouched(m_file);
    press(m_form.get(), "cmdExport");
    CHECK_REFUSED_ONCE(t->messenger, ReadFault(fault), m_file);
    QVERIFY(!QFile::exists(m_chosen));
    CHECK_UNTOUCHED(untouched);
    QVERIFY(m_form->isVisible());
    if (ReadFault(fault) == ReadFault::Locked) {
        holder.reset();
        t->messenger.clear();
        press(m_form.get(), "cmdExport");
        QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Information);
        QVERIFY(QFile::exists(m_chosen));
    }
}

void tst_StoreFaultsReport::savePdfFromAnOpenPreviewUnderAFault()
{
    QFETCH(int, fault);
    ReportPreview* preview = openPreviewByKeyboard();
    QVERIFY(preview);
    preview->setSavePathChooser([this](QWidget*, const QString&) { return m_chosen; });
    std::unique_ptr<StoreFaults::LockHolder> holder;
    QVERIFY(apply(ReadFault(fault), m_file, holder));
    const ScreenFaults::Untouched untouched(m_file);
    auto* status = control<QLabel>(preview, "lblStatus");
    press(preview, "cmdSavePdf");
    QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
    // Said on the preview's status line: the steps of a save run from a
    // timer and open no box.
    QVERIFY2(saysWhatToDo(ReadFault(fault), status->text(), m_file), qPrintable(status->text()));
    QVERIFY(t->messenger.entries().isEmpty());
    QVERIFY(!QFile::exists(m_chosen));
    CHECK_UNTOUCHED(untouched);
    // The preview stays usable: its pages scroll, Save PDF is offered again.
    QVERIFY(preview->isVisible());
    QVERIFY(control<ColourButton>(preview, "cmdSavePdf")->isEnabled());
    preview->pageView()->showPage(0);
    if (ReadFault(fault) == ReadFault::Locked) {
        holder.reset();
        press(preview, "cmdSavePdf");
        QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
        QCOMPARE(status->text(), QString("Report saved in %1").arg(QDir::toNativeSeparators(m_chosen)));
    }
    preview->close();
}

void tst_StoreFaultsReport::auditTrailViewUnderAFault()
{
    QFETCH(int, fault);
    auto* audit = control<QRadioButton>(m_form.get(), "OptAudit");
    audit->setFocus();
    audit->click();
    QVERIFY(m_form->auditChosen());
    std::unique_ptr<StoreFaults::LockHolder> holder;
    QVERIFY(apply(ReadFault(fault), m_file, holder, {"AuditTrail"}));
    const ScreenFaults::Untouched untouched(m_file);
    press(m_form.get(), "cmdView");
    QVERIFY(!m_form->auditWindow());
    CHECK_REFUSED_ONCE(t->messenger, ReadFault(fault), m_file);
    CHECK_UNTOUCHED(untouched);
    // Export CSV of the audit trail reads it too.
    t->messenger.clear();
    press(m_form.get(), "cmdExport");
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(saysWhatToDo(ReadFault(fault), t->messenger.last(), m_file), qPrintable(t->messenger.last()));
    QVERIFY(!QFile::exists(m_chosen));
    QCOMPARE(QFile::exists(m_file), untouched.existed());
    if (ReadFault(fault) == ReadFault::Locked) {
        holder.reset();
        t->messenger.clear();
        press(m_form.get(), "cmdView");
        QVERIFY(m_form->auditWindow());
        QVERIFY(control<QTableView>(m_form->auditWindow(), "grdAudit")->model()->rowCount() >= 1);
        m_form->auditWindow()->close();
    }
}

namespace {

// The disk of the reports folder fills up (the shim, told which files).
class FullReportDisk : public ScreenFaults::FullDisk
{
public:
    explicit FullReportDisk(const QString& folder) : FullDisk(0)
    {
        qputenv("TONVY_TEST_DISK_FULL_MATCH", QFile::encodeName(folder));
    }
    ~FullReportDisk() { qunsetenv("TONVY_TEST_DISK_FULL_MATCH"); }
};

} // namespace

void tst_StoreFaultsReport::reportFilesOnAFullDisk()
{
    if (!ScreenFaults::shimLoaded())
        QSKIP("needs the disk-full shim preloaded (ctest sets LD_PRELOAD)");
    const QByteArray before = StoreFaults::hashOf(m_file);
    const QString folder = t->path("reports");
    auto checkSaid = [&](const QString& said) {
        QVERIFY2(said.contains(m_chosen), qPrintable(said));
        QVERIFY2(said.contains("No space left on device"), qPrintable(said));
        QVERIFY(!QFile::exists(m_chosen));
    };

    // The preview's Save PDF.
    ReportPreview* preview = openPreviewByKeyboard();
    QVERIFY(preview);
    preview->setSavePathChooser([this](QWidget*, const QString&) { return m_chosen; });
    {
        FullReportDisk full(folder);
        press(preview, "cmdSavePdf");
        QTRY_VERIFY_WITH_TIMEOUT(!preview->isWriting(), scaledMs(30000));
    }
    const QString status = control<QLabel>(preview, "lblStatus")->text();
    checkSaid(status);
    QVERIFY2(status.contains("Free some space on that disk"), qPrintable(status));
    QVERIFY(t->messenger.entries().isEmpty());
    preview->close();

    // Export CSV of the collections.
    {
        FullReportDisk full(folder);
        press(m_form.get(), "cmdExport");
    }
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    checkSaid(t->messenger.last());
    QVERIFY2(t->messenger.last().contains("Free some space on that disk"), qPrintable(t->messenger.last()));

    // The audit window's Save CSV, and the audit trail's Export CSV.
    auto* audit = control<QRadioButton>(m_form.get(), "OptAudit");
    audit->setFocus();
    audit->click();
    press(m_form.get(), "cmdView");
    AuditTrailWindow* window = m_form->auditWindow();
    QVERIFY(window);
    window->setSavePathChooser([this](QWidget*, const QString&) { return m_chosen; });
    t->messenger.clear();
    {
        FullReportDisk full(folder);
        press(window, "cmdSaveCsv");
    }
    QCOMPARE(t->messenger.entries().size(), 1);
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    checkSaid(t->messenger.last());
    QVERIFY2(t->messenger.last().contains("Free some space on that disk"), qPrintable(t->messenger.last()));
    QVERIFY(window->isVisible());
    window->close();
    t->messenger.clear();
    {
        FullReportDisk full(folder);
        press(m_form.get(), "cmdExport");
    }
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    checkSaid(t->messenger.last());

    // Space freed: the same screen saves, and the database was never touched.
    t->messenger.clear();
    press(m_form.get(), "cmdExport");
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Information);
    QVERIFY(QFile::exists(m_chosen));
    QCOMPARE(StoreFaults::hashOf(m_file), before);
}

QTEST_MAIN(tst_StoreFaultsReport)
#include "tst_storefaults_report.moc"
