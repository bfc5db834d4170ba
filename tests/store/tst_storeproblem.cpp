#include "store/StoreProblem.h"

#include <QSqlError>
#include <QtTest>

// What SQLite reports, turned into the kind of trouble and the clerk's
// message.
class tst_StoreProblem : public QObject
{
    Q_OBJECT

private slots:
    void kindFromCode_data();
    void kindFromCode();
    void kindFromTextAlone_data();
    void kindFromTextAlone();
    void messageNamesTheFileAndWhatToDo_data();
    void messageNamesTheFileAndWhatToDo();
};

void tst_StoreProblem::kindFromCode_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<int>("kind");
    QTest::newRow("busy") << "5" << int(StoreError::Kind::InUse);
    QTest::newRow("locked") << "6" << int(StoreError::Kind::InUse);
    QTest::newRow("read-only") << "8" << int(StoreError::Kind::ReadOnly);
    QTest::newRow("corrupt") << "11" << int(StoreError::Kind::Damaged);
    QTest::newRow("full") << "13" << int(StoreError::Kind::DiskFull);
    QTest::newRow("not a database") << "26" << int(StoreError::Kind::NotOurs);
    QTest::newRow("extended busy (busy recovery)") << "261" << int(StoreError::Kind::InUse);
    QTest::newRow("constraint") << "19" << int(StoreError::Kind::Other);
    QTest::newRow("syntax") << "1" << int(StoreError::Kind::Other);
}

void tst_StoreProblem::kindFromCode()
{
    QFETCH(QString, code);
    QFETCH(int, kind);
    const QSqlError error("Unable to execute statement", "some words", QSqlError::StatementError, code);
    QCOMPARE(int(StoreProblem::kindOf(error)), kind);
}

void tst_StoreProblem::kindFromTextAlone_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("kind");
    QTest::newRow("malformed") << "database disk image is malformed" << int(StoreError::Kind::Damaged);
    QTest::newRow("locked") << "database is locked" << int(StoreError::Kind::InUse);
    QTest::newRow("full") << "database or disk is full" << int(StoreError::Kind::DiskFull);
    QTest::newRow("not a database") << "file is not a database" << int(StoreError::Kind::NotOurs);
    QTest::newRow("read-only") << "attempt to write a readonly database" << int(StoreError::Kind::ReadOnly);
    QTest::newRow("no such table") << "no such table: Foo" << int(StoreError::Kind::Other);
}

void tst_StoreProblem::kindFromTextAlone()
{
    QFETCH(QString, text);
    QFETCH(int, kind);
    QCOMPARE(int(StoreProblem::kindOf(QSqlError(QString(), text))), kind);
}

void tst_StoreProblem::messageNamesTheFileAndWhatToDo_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("advice");
    QTest::newRow("damaged") << int(StoreError::Kind::Damaged)
                             << "Nothing was written into it. Restore the backup copy of HandHeldData.db";
    QTest::newRow("not ours") << int(StoreError::Kind::NotOurs) << "It was left unchanged.";
    QTest::newRow("in use") << int(StoreError::Kind::InUse) << "Close the other program";
    QTest::newRow("disk full") << int(StoreError::Kind::DiskFull) << "Free some space on that disk and try again.";
    QTest::newRow("read-only") << int(StoreError::Kind::ReadOnly) << "Let this user write the file and its folder";
    QTest::newRow("other") << int(StoreError::Kind::Other) << "keep this message for support";
}

void tst_StoreProblem::messageNamesTheFileAndWhatToDo()
{
    QFETCH(int, kind);
    QFETCH(QString, advice);
    const QString file = "/srv/branch/HandHeldData.db";
    const QString text = StoreProblem::message(StoreError::Kind(kind), file, "SQLite's words");
    QVERIFY2(text.contains(file), qPrintable(text));
    QVERIFY2(text.contains(advice), qPrintable(text));
    QVERIFY2(text.contains("(SQLite's words)"), qPrintable(text));
}

QTEST_GUILESS_MAIN(tst_StoreProblem)
#include "tst_storeproblem.moc"
