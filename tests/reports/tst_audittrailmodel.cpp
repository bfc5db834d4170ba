#include "base/Version.h"
#include "reports/AuditTrailModel.h"
#include "tests/support/TestContext.h"

#include <QtTest>

namespace {

// One event at a pinned time, through the clock the database writes with.
void recordAt(TestContext& t, const QDateTime& at, AuditTrail::Action action, const QString& details)
{
    t.clock.set(at);
    AuditTrail::record(t.db, action, details);
}

// Events on four days, two of them on the 16th, one with a comma and quotes.
void recordFourDays(TestContext& t)
{
    recordAt(t, QDateTime(QDate(2007, 11, 15), QTime(23, 59, 59)), AuditTrail::Action::Login,
             "failed login to the configuration");
    recordAt(t, QDateTime(QDate(2007, 11, 16), QTime(0, 0, 0)), AuditTrail::Action::Settings,
             "settings saved: bank name \"GRAMIN, BANK\"");
    recordAt(t, QDateTime(QDate(2007, 11, 16), QTime(18, 2, 11)), AuditTrail::Action::Receive,
             "agent 005, date 1611: 36 records received");
    recordAt(t, QDateTime(QDate(2007, 11, 17), QTime(9, 5, 10)), AuditTrail::Action::Download, "agent 005: 40 records");
    recordAt(t, QDateTime(QDate(2007, 11, 18), QTime(0, 0, 1)), AuditTrail::Action::Password,
             "terminal setup password changed");
}

// The events of recordFourDays() and a model loaded with the days given.
struct FourDays
{
    FourDays(const QDate& from, const QDate& to)
    {
        recordFourDays(t);
        loaded = model.load(t.db, from, to, &error);
    }
    TestContext t;
    AuditTrailModel model;
    bool loaded = false;
    QString error;
};

QStringList column(const AuditTrailModel& model, int c)
{
    QStringList values;
    for (int r = 0; r < model.rowCount(); ++r)
        values << model.data(model.index(r, c)).toString();
    return values;
}

} // namespace

class tst_AuditTrailModel : public QObject
{
    Q_OBJECT

private slots:
    void columnsAreTheCsvColumns();
    void range_data();
    void range();
    void cellsAreTheEventsOldestFirst();
    void csvIsTheCommandLinesCsv();
    void csvWriteFailureIsReported();
    void emptyRangeAndSummaryTexts();
    void storeErrorIsAMessageNotAnException();
};

void tst_AuditTrailModel::columnsAreTheCsvColumns()
{
    AuditTrailModel model;
    QCOMPARE(model.columnCount(), 5);
    QStringList heads;
    for (int c = 0; c < model.columnCount(); ++c)
        heads << model.headerData(c, Qt::Horizontal).toString();
    QCOMPARE(heads, QStringList({"Time", "User", "Action", "Details", "Version"}));
    QCOMPARE(AuditTrail::toCsv({}), QByteArray("Time,User,Action,Details,Version\r\n"));
    QCOMPARE(model.rowCount(), 0);
}

void tst_AuditTrailModel::range_data()
{
    QTest::addColumn<QDate>("from");
    QTest::addColumn<QDate>("to");
    QTest::addColumn<QStringList>("actions");

    QTest::newRow("one day, both its ends")
        << QDate(2007, 11, 16) << QDate(2007, 11, 16) << QStringList{"settings", "receive"};
    QTest::newRow("two days") << QDate(2007, 11, 16) << QDate(2007, 11, 17)
                              << QStringList{"settings", "receive", "download"};
    QTest::newRow("the last second of a day") << QDate(2007, 11, 15) << QDate(2007, 11, 15) << QStringList{"login"};
    QTest::newRow("all") << QDate(2007, 11, 1) << QDate(2007, 11, 30)
                         << QStringList{"login", "settings", "receive", "download", "password"};
    QTest::newRow("none") << QDate(2007, 11, 19) << QDate(2007, 11, 30) << QStringList{};
}

void tst_AuditTrailModel::range()
{
    QFETCH(QDate, from);
    QFETCH(QDate, to);
    QFETCH(QStringList, actions);
    FourDays d(from, to);
    TestContext& t = d.t;
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    QVERIFY(d.error.isEmpty());
    QCOMPARE(model.from(), from);
    QCOMPARE(model.to(), to);
    QCOMPARE(column(model, 2), actions);
    QCOMPARE(model.events(), AuditTrail::read(t.db, from, to));
}

void tst_AuditTrailModel::cellsAreTheEventsOldestFirst()
{
    FourDays d(QDate(2007, 11, 16), QDate(2007, 11, 17));
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(column(model, 0), QStringList({"2007-11-16T00:00:00", "2007-11-16T18:02:11", "2007-11-17T09:05:10"}));
    QCOMPARE(column(model, 1), QStringList(3, AuditTrail::osUser()));
    QCOMPARE(column(model, 3), QStringList({"settings saved: bank name \"GRAMIN, BANK\"",
                                            "agent 005, date 1611: 36 records received", "agent 005: 40 records"}));
    QCOMPARE(column(model, 4), QStringList(3, programVersion()));
    // The whole details in the tooltip too; nothing can be edited.
    const QModelIndex details = model.index(1, 3);
    QCOMPARE(model.data(details, Qt::ToolTipRole).toString(), QString("agent 005, date 1611: 36 records received"));
    QVERIFY(!(model.flags(details) & Qt::ItemIsEditable));
    QVERIFY(!model.setData(details, "changed"));
    QCOMPARE(model.headerData(0, Qt::Vertical).toInt(), 1);
    QVERIFY(!model.data(model.index(3, 0)).isValid());
}

void tst_AuditTrailModel::csvIsTheCommandLinesCsv()
{
    FourDays d(QDate(2007, 11, 16), QDate(2007, 11, 16));
    TestContext& t = d.t;
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    const QString path = t.path("audit.csv");
    QString error;
    QVERIFY(model.saveCsv(path, &error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray saved = f.readAll();
    f.close();
    QCOMPARE(saved, AuditTrail::toCsv(AuditTrail::read(t.db, QDate(2007, 11, 16), QDate(2007, 11, 16))));
    const QByteArray user = AuditTrail::osUser().toUtf8();
    const QByteArray version = programVersion().toUtf8();
    QCOMPARE(saved, "Time,User,Action,Details,Version\r\n"
                    "2007-11-16T00:00:00," +
                        user + ",settings,\"settings saved: bank name \"\"GRAMIN, BANK\"\"\"," + version + "\r\n" +
                        "2007-11-16T18:02:11," + user + ",receive,\"agent 005, date 1611: 36 records received\"," +
                        version + "\r\n");

    // Events recorded after the window was filled are not in its CSV: the
    // file is the table as shown.
    recordAt(t, QDateTime(QDate(2007, 11, 16), QTime(20, 0)), AuditTrail::Action::Send, "agent 006: sent");
    QVERIFY(model.saveCsv(path, &error));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), saved);
}

void tst_AuditTrailModel::csvWriteFailureIsReported()
{
    FourDays d(QDate(2007, 11, 16), QDate(2007, 11, 16));
    TestContext& t = d.t;
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    QString error;
    const QString path = t.path("missing-folder/audit.csv");
    QVERIFY(!model.saveCsv(path, &error));
    QVERIFY2(error.startsWith("Cannot write " + path + ": "), qPrintable(error));
    QVERIFY(!QFile::exists(path));
}

void tst_AuditTrailModel::emptyRangeAndSummaryTexts()
{
    QCOMPARE(AuditTrailModel::emptyRangeMessage(QDate(2007, 11, 19), QDate(2007, 11, 30)),
             QString("The audit trail has no events from 19-Nov-2007 to 30-Nov-2007."));
    QCOMPARE(AuditTrailModel::suggestedFileName(QDate(2007, 11, 1), QDate(2007, 11, 30)),
             QString("AuditTrail_20071101_20071130.csv"));

    FourDays d(QDate(2007, 11, 16), QDate(2007, 11, 17));
    TestContext& t = d.t;
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    QCOMPARE(model.summary(), QString("16-Nov-2007 to 17-Nov-2007: 3 events, oldest first"));
    QVERIFY(model.load(t.db, QDate(2007, 11, 18), QDate(2007, 11, 18)));
    QCOMPARE(model.summary(), QString("18-Nov-2007 to 18-Nov-2007: 1 event, oldest first"));
}

void tst_AuditTrailModel::storeErrorIsAMessageNotAnException()
{
    FourDays d(QDate(2007, 11, 16), QDate(2007, 11, 16));
    TestContext& t = d.t;
    AuditTrailModel& model = d.model;
    QVERIFY(d.loaded);
    QCOMPARE(model.rowCount(), 2);
    // A store that cannot be read: the table is gone from under the program.
    t.db.execute("DROP TABLE AuditTrail");
    QString error;
    bool ok = true;
    try {
        ok = model.load(t.db, QDate(2007, 11, 16), QDate(2007, 11, 16), &error);
    } catch (...) {
        QFAIL("load let an exception out");
    }
    QVERIFY(!ok);
    QVERIFY2(error.startsWith("The audit trail cannot be read: "), qPrintable(error));
    QCOMPARE(model.rowCount(), 0);
}

QTEST_MAIN(tst_AuditTrailModel)
#include "tst_audittrailmodel.moc"
