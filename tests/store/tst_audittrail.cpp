#include "base/Clock.h"
#include "base/Version.h"
#include "store/AuditTrail.h"
#include "store/PasswordStore.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

class tst_AuditTrail : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void recordCarriesTimeUserAndVersion();
    void actionNames_data();
    void actionNames();
    void updateAndDeleteAreRefused_data();
    void updateAndDeleteAreRefused();
    void readByDayRange_data();
    void readByDayRange();
    void csvQuotesWhatNeedsIt();
    void settingsAndFolderChangesRecorded();
    void passwordChangeNamesThePasswordNotItsValue();
    void olderDatabaseGetsTheTable();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<SharedDatabase> db;
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(9, 15, 0))};
};

void tst_AuditTrail::init()
{
    db = std::make_unique<SharedDatabase>();
    QString error;
    QFile::remove(m_dir.filePath("audit.db"));
    QVERIFY2(db->open(m_dir.filePath("audit.db"), &error), qPrintable(error));
    db->setClock(&clock);
}

void tst_AuditTrail::cleanup()
{
    db.reset();
}

void tst_AuditTrail::recordCarriesTimeUserAndVersion()
{
    AuditTrail::record(*db, AuditTrail::Action::Send, QStringLiteral("agent 005: 40 accounts sent"));
    const QList<AuditTrail::Event> events = AuditTrail::read(*db);
    QCOMPARE(events.size(), 1);
    QCOMPARE(events.first().time, QStringLiteral("2026-11-23T09:15:00"));
    QCOMPARE(events.first().action, QStringLiteral("send"));
    QCOMPARE(events.first().details, QStringLiteral("agent 005: 40 accounts sent"));
    QCOMPARE(events.first().version, programVersion());
    QCOMPARE(events.first().user, AuditTrail::osUser());
    QVERIFY(!events.first().user.isEmpty());
}

void tst_AuditTrail::actionNames_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("name");
    QTest::newRow("download") << int(AuditTrail::Action::Download) << "download";
    QTest::newRow("send") << int(AuditTrail::Action::Send) << "send";
    QTest::newRow("receive") << int(AuditTrail::Action::Receive) << "receive";
    QTest::newRow("settings") << int(AuditTrail::Action::Settings) << "settings";
    QTest::newRow("password") << int(AuditTrail::Action::Password) << "password";
    QTest::newRow("login") << int(AuditTrail::Action::Login) << "login";
}

void tst_AuditTrail::actionNames()
{
    QFETCH(int, action);
    QFETCH(QString, name);
    QCOMPARE(AuditTrail::actionName(static_cast<AuditTrail::Action>(action)), name);
}

void tst_AuditTrail::updateAndDeleteAreRefused_data()
{
    QTest::addColumn<QString>("sql");
    QTest::newRow("update details") << "UPDATE AuditTrail SET Details = 'nothing happened'";
    QTest::newRow("update time") << "UPDATE AuditTrail SET Time = '2000-01-01T00:00:00' WHERE Id = 1";
    QTest::newRow("delete one") << "DELETE FROM AuditTrail WHERE Id = 1";
    QTest::newRow("delete all") << "DELETE FROM AuditTrail";
}

void tst_AuditTrail::updateAndDeleteAreRefused()
{
    QFETCH(QString, sql);
    AuditTrail::record(*db, AuditTrail::Action::Receive, QStringLiteral("12 records received"));
    QVERIFY_THROWS_EXCEPTION(StoreError, db->execute(sql));
    const QList<AuditTrail::Event> events = AuditTrail::read(*db);
    QCOMPARE(events.size(), 1);
    QCOMPARE(events.first().details, QStringLiteral("12 records received"));
    QCOMPARE(events.first().time, QStringLiteral("2026-11-23T09:15:00"));
}

void tst_AuditTrail::readByDayRange_data()
{
    QTest::addColumn<QDate>("from");
    QTest::addColumn<QDate>("to");
    QTest::addColumn<QStringList>("details");
    QTest::newRow("all") << QDate() << QDate() << QStringList{"a", "b", "c", "d"};
    QTest::newRow("one day, both ends") << QDate(2026, 11, 2) << QDate(2026, 11, 2) << QStringList{"b", "c"};
    QTest::newRow("from only") << QDate(2026, 11, 3) << QDate() << QStringList{"d"};
    QTest::newRow("to only") << QDate() << QDate(2026, 11, 1) << QStringList{"a"};
    QTest::newRow("none in range") << QDate(2027, 1, 1) << QDate(2027, 1, 31) << QStringList{};
}

void tst_AuditTrail::readByDayRange()
{
    QFETCH(QDate, from);
    QFETCH(QDate, to);
    QFETCH(QStringList, details);
    AuditTrail::record(*db, QDateTime(QDate(2026, 11, 1), QTime(23, 59, 59)), AuditTrail::Action::Send, "a");
    AuditTrail::record(*db, QDateTime(QDate(2026, 11, 2), QTime(0, 0, 0)), AuditTrail::Action::Send, "b");
    AuditTrail::record(*db, QDateTime(QDate(2026, 11, 2), QTime(23, 59, 59)), AuditTrail::Action::Send, "c");
    AuditTrail::record(*db, QDateTime(QDate(2026, 11, 3), QTime(0, 0, 0)), AuditTrail::Action::Send, "d");
    QStringList got;
    for (const AuditTrail::Event& e : AuditTrail::read(*db, from, to))
        got << e.details;
    QCOMPARE(got, details);
}

void tst_AuditTrail::csvQuotesWhatNeedsIt()
{
    AuditTrail::Event e;
    e.time = QStringLiteral("2026-11-23T09:15:00");
    e.user = QStringLiteral("clerk");
    e.action = QStringLiteral("settings");
    e.details = QStringLiteral("bank name \"Gramin, Branch\"");
    e.version = QStringLiteral("2.1");
    QCOMPARE(AuditTrail::toCsv({e}), QByteArray("Time,User,Action,Details,Version\r\n"
                                                "2026-11-23T09:15:00,clerk,settings,\"bank name \"\"Gramin, "
                                                "Branch\"\"\",2.1\r\n"));
    QCOMPARE(AuditTrail::toCsv({}), QByteArray("Time,User,Action,Details,Version\r\n"));
}

void tst_AuditTrail::settingsAndFolderChangesRecorded()
{
    SettingsChange change;
    change.bankName = QStringLiteral("GRAMIN BANK");
    change.commPort = QStringLiteral("3");
    SettingsStore::save(*db, change);
    SettingsChange folder;
    folder.bankInfoPath = QStringLiteral("/srv/bank");
    SettingsStore::save(*db, folder);
    const QList<AuditTrail::Event> events = AuditTrail::read(*db);
    QCOMPARE(events.size(), 2);
    QCOMPARE(events.at(0).action, QStringLiteral("settings"));
    QCOMPARE(events.at(0).details, QStringLiteral("settings created: bank name \"GRAMIN BANK\", Comm Port \"3\""));
    QCOMPARE(events.at(1).details, QStringLiteral("settings saved: bank-information folder \"/srv/bank\""));
}

void tst_AuditTrail::passwordChangeNamesThePasswordNotItsValue()
{
    PasswordStore::setPassword(*db, PasswordKind::Admin, QStringLiteral("Sekrit42"));
    PasswordStore::setPassword(*db, PasswordKind::Setup, QStringLiteral("9876"));
    const QList<AuditTrail::Event> events = AuditTrail::read(*db);
    QCOMPARE(events.size(), 2);
    QCOMPARE(events.at(0).action, QStringLiteral("password"));
    QCOMPARE(events.at(0).details, QStringLiteral("software admin password changed"));
    QCOMPARE(events.at(1).details, QStringLiteral("terminal setup password changed"));
    const QByteArray csv = AuditTrail::toCsv(events);
    QVERIFY(!csv.contains("ekrit42"));
    QVERIFY(!csv.contains("9876"));
}

void tst_AuditTrail::olderDatabaseGetsTheTable()
{
    // A database from before the audit trail is brought up to date.
    db.reset();
    {
        SharedDatabase older;
        QString error;
        QVERIFY(older.open(m_dir.filePath("older.db"), &error));
        older.execute(QStringLiteral("DROP TABLE AuditTrail"));
        older.execute(QStringLiteral("PRAGMA user_version = 2"));
    }
    SharedDatabase again;
    QString error;
    QVERIFY2(again.open(m_dir.filePath("older.db"), &error), qPrintable(error));
    AuditTrail::record(again, AuditTrail::Action::Login, QStringLiteral("failed login to the configuration"));
    QCOMPARE(AuditTrail::read(again).size(), 1);
    QVERIFY_THROWS_EXCEPTION(StoreError, again.execute(QStringLiteral("DELETE FROM AuditTrail")));
    init();
}

QTEST_GUILESS_MAIN(tst_AuditTrail)
#include "tst_audittrail.moc"
