#include "link/LinkCodec.h"
#include "link/UploadFrames.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

TerminalAccounts twoAccounts()
{
    TerminalAccounts s;
    s.branchId = QStringLiteral("BRANCH-17      ");
    s.agentId = QStringLiteral("AGENT-005      ");
    s.agentDateKey = QStringLiteral("0051611");
    TerminalAccount a;
    a.categoryCode = QStringLiteral("2");
    a.schemeCode = QStringLiteral("RD010");
    a.accountNumber = QStringLiteral("000000000012345");
    a.name = QStringLiteral("MEENA PATIL");
    a.agreedAmount = QStringLiteral("000050");
    s.accounts << a;
    a.accountNumber = QStringLiteral("000000000067890");
    a.name = QStringLiteral("JOHN MATHEW");
    s.accounts << a;
    return s;
}

int at(const QByteArray& reply, int position)
{
    return static_cast<unsigned char>(reply.at(position - 1));
}

bool checkOk(const QByteArray& reply)
{
    LinkCodec codec;
    codec.CheckCRC(reply);
    return codec.CrcOk;
}

} // namespace

class tst_UploadRecords : public QObject
{
    Q_OBJECT

private slots:
    void scriptParses()
    {
        const QByteArray script = "# account amount date time number\n"
                                  "000000000012345  150  05/03/2007 14:30  7\n"
                                  "\n"
                                  "000000000067890  20   05/03/07   09:05\n";
        QList<Collection> list;
        QString error;
        QVERIFY2(UploadRecords::parseScript(script, &list, &error), qPrintable(error));
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0).amount, 150);
        QCOMPARE(list.at(0).when, QDateTime(QDate(2007, 3, 5), QTime(14, 30)));
        QCOMPARE(list.at(0).transactionNumber, 7);
        QCOMPARE(list.at(1).when.date(), QDate(2007, 3, 5));
        QCOMPARE(list.at(1).transactionNumber, 8);
    }

    void scriptErrorsNameTheLine_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("start");
        QTest::newRow("fields") << QByteArray("1 2 3\n") << "line 1:";
        QTest::newRow("amount") << QByteArray("\nA 1.5 05/03/2007 14:30\n") << "line 2: amount";
        QTest::newRow("date") << QByteArray("A 10 2007-03-05 14:30\n") << "line 1: date";
        QTest::newRow("time") << QByteArray("A 10 05/03/2007 25:30\n") << "line 1: time";
        QTest::newRow("number") << QByteArray("A 10 05/03/2007 10:30 40000\n") << "line 1: transaction";
    }
    void scriptErrorsNameTheLine()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, start);
        QList<Collection> list;
        QString error;
        QVERIFY(!UploadRecords::parseScript(script, &list, &error));
        QVERIFY2(error.startsWith(start), qPrintable(error));
    }

    void recordsCarryTheLayout()
    {
        QList<Collection> list;
        QString error;
        QVERIFY(UploadRecords::parseScript("000000000012345 150 05/03/2007 14:30 394\n"
                                           "000000000067890 1234 06/11/2007 09:05 395\n"
                                           "000000000012345 50 05/03/2007 15:00 396\n",
                                           &list, &error));
        UploadRecords r;
        QVERIFY2(UploadRecords::build(twoAccounts(), list, {}, &r, &error), qPrintable(error));
        QCOMPARE(r.recordCount(), 2);
        QCOMPARE(r.transactionCount, 3);
        QCOMPARE(r.totalAmount, 1434);

        const QByteArray header = r.reply(0);
        QCOMPARE(header.size(), 137);
        QVERIFY(checkOk(header));
        QCOMPARE(at(header, 10) * 256 + at(header, 11), 2);
        QCOMPARE(header.mid(26, 15), QByteArray("AGENT-005      "));

        const QByteArray summary = r.reply(1);
        QVERIFY(checkOk(summary));
        QCOMPARE(summary.mid(9, 7), QByteArray("0051611"));
        QCOMPARE(at(summary, 17) * 256 + at(summary, 18), 3);
        QCOMPARE(summary.mid(18, 4), QByteArray("\x00\x00\x14\x34", 4));

        const QByteArray first = r.reply(2);
        QVERIFY(checkOk(first));
        QCOMPARE(first.left(9), QByteArray("\x01\xFF\x10\xF0U\x00\x82\x00\x02", 9));
        QCOMPARE(first.mid(9, 1), QByteArray("2"));
        QCOMPARE(first.mid(10, 5), QByteArray("RD010"));
        QCOMPARE(first.mid(15, 15), QByteArray("000000000012345"));
        QCOMPARE(at(first, 133), 0x02);
        // Entry 0: 150 rupees, day 5, month 3 high / year digit 7 low,
        // 14:30, transaction 394.
        QCOMPARE(first.mid(69, 9), QByteArray("\x00\x01\x50\x05\x37\x14\x30\x01\x8A", 9));
        QCOMPARE(first.mid(78, 3), QByteArray("\x00\x00\x50", 3));
        const QByteArray second = r.reply(3);
        QCOMPARE(at(second, 133), 0x01);
        QCOMPARE(second.mid(72, 2), QByteArray("\x06\xB7", 2));

        // Beyond the records: an empty record with a good check byte.
        const QByteArray beyond = r.reply(9);
        QVERIFY(checkOk(beyond));
        QCOMPARE(at(beyond, 133), 0);
    }

    void moreThanSevenEntriesSpillIntoTheNextRecord()
    {
        TerminalAccounts accounts = twoAccounts();
        QList<Collection> list;
        for (int i = 0; i < 9; ++i)
            list << Collection{QStringLiteral("000000000067890"), 10, QDateTime(QDate(2007, 11, 16), QTime(10, i)),
                               i + 1};
        UploadRecords r;
        QString error;
        QVERIFY(UploadRecords::build(accounts, list, {}, &r, &error));
        QCOMPARE(r.recordCount(), 2);
        QCOMPARE(at(r.reply(2), 133), 0x07);
        QCOMPARE(at(r.reply(3), 133), 0x02);
    }

    void optionsAnnounceAndMismatch()
    {
        UploadRecords::Options o;
        o.announce = 2400;
        o.summaryMismatch = true;
        UploadRecords r;
        QString error;
        const QList<Collection> list = {
            {QStringLiteral("000000000012345"), 99, QDateTime(QDate(2007, 11, 16), QTime(9, 0)), 1}};
        QVERIFY(UploadRecords::build(twoAccounts(), list, o, &r, &error));
        QCOMPARE(at(r.reply(0), 10) * 256 + at(r.reply(0), 11), 2400);
        QCOMPARE(r.reply(1).mid(18, 4), QByteArray("\x00\x00\x01\x00", 4));
    }

    void unknownAccountIsRefused()
    {
        UploadRecords r;
        QString error;
        const QList<Collection> list = {{QStringLiteral("999"), 10, QDateTime(QDate(2007, 11, 16), QTime(9, 0)), 1}};
        QVERIFY(!UploadRecords::build(twoAccounts(), list, {}, &r, &error));
        QVERIFY(error.contains(QStringLiteral("999")));
    }

    void generatedDayIsConsistentAndRepeatable()
    {
        const QDate day(2007, 11, 16);
        const TerminalAccounts accounts = UploadRecords::sampleAccounts(30, day);
        const QList<Collection> a = UploadRecords::generate(accounts, 45, day, 7);
        const QList<Collection> b = UploadRecords::generate(accounts, 45, day, 7);
        QCOMPARE(a.size(), 45);
        qint64 total = 0;
        for (int i = 0; i < a.size(); ++i) {
            QCOMPARE(a.at(i).amount, b.at(i).amount);
            QCOMPARE(a.at(i).when.date(), day);
            QVERIFY(a.at(i).amount > 0);
            total += a.at(i).amount;
        }
        UploadRecords r;
        QString error;
        QVERIFY(UploadRecords::build(accounts, a, {}, &r, &error));
        QCOMPARE(r.transactionCount, 45);
        QCOMPARE(r.totalAmount, total);
        QCOMPARE(r.summary.mid(3, 4), QByteArray("1611"));
    }

    void frameLength()
    {
        const QByteArray request = UploadFrames::request(1, 0);
        QCOMPARE(UploadTerminal::frameLength(request), 10);
        QCOMPARE(UploadTerminal::frameLength(request.left(6)), 0);
        QCOMPARE(UploadTerminal::frameLength(UploadFrames::end()), 14);
        QCOMPARE(UploadTerminal::frameLength("\x02xyz"), -1);
        QVERIFY(UploadTerminal::isUploadFrame(request));
        // A damaged length byte is not a frame head to wait on.
        QByteArray damaged = request;
        damaged[5] = '\x40';
        QCOMPARE(UploadTerminal::frameLength(damaged), -1);
        damaged = request;
        damaged[6] = '\x05';
        QCOMPARE(UploadTerminal::frameLength(damaged), -1);
    }

    // Line noise that hits a request's length or cuts it short must not
    // leave the terminal waiting for bytes that never come: the next good
    // request is answered.
    void terminalSurvivesDamagedRequests_data()
    {
        QTest::addColumn<QByteArray>("damaged");
        QByteArray highLength = UploadFrames::request(0, 2);
        highLength[5] = '\xE3';
        QByteArray longer = UploadFrames::request(0, 2);
        longer[6] = '\x09';
        QTest::newRow("length of 58,000 bytes") << highLength;
        QTest::newRow("length of 9 bytes") << longer;
        QTest::newRow("request cut short") << UploadFrames::request(0, 2).left(8);
    }
    void terminalSurvivesDamagedRequests()
    {
        QFETCH(QByteArray, damaged);
        Pty pty;
        QString error;
        QVERIFY2(pty.open(&error), qPrintable(error));
        UploadTerminal terminal(&pty);
        UploadRecords r;
        const QList<Collection> list = {
            {QStringLiteral("000000000012345"), 99, QDateTime(QDate(2007, 11, 16), QTime(9, 0)), 1}};
        QVERIFY(UploadRecords::build(twoAccounts(), list, {}, &r, &error));
        terminal.setRecords(r);
        terminal.receive(damaged);
        terminal.receive(UploadFrames::request(0, 1));
        QCOMPARE(terminal.requests(), (QList<int>{1}));
        QCOMPARE(terminal.repliesSent(), 1);
    }

    void terminalAnswersRequestsAndCountsOver()
    {
        Pty pty;
        QString error;
        QVERIFY2(pty.open(&error), qPrintable(error));
        UploadTerminal terminal(&pty);
        UploadRecords r;
        const QList<Collection> list = {
            {QStringLiteral("000000000012345"), 99, QDateTime(QDate(2007, 11, 16), QTime(9, 0)), 1}};
        QVERIFY(UploadRecords::build(twoAccounts(), list, {}, &r, &error));
        terminal.setRecords(r);
        terminal.faults().corruptNext = 1;
        QSignalSpy replies(&terminal, &UploadTerminal::replySent);
        QSignalSpy over(&terminal, &UploadTerminal::overReceived);
        // A request split across reads, noise before the next one, the end frame.
        const QByteArray request = UploadFrames::request(0, 2);
        terminal.receive(request.left(4));
        QCOMPARE(replies.count(), 0);
        terminal.receive(request.mid(4) + QByteArray("\x7F\x7F") + UploadFrames::request(0, 1));
        terminal.receive(UploadFrames::end());
        QCOMPARE(terminal.requests(), (QList<int>{2, 1}));
        QCOMPARE(replies.at(0).at(1).toString(), QStringLiteral("corrupted"));
        QCOMPARE(replies.at(1).at(1).toString(), QString());
        QCOMPARE(over.count(), 1);
        QCOMPARE(terminal.overCount(), 1);
    }

    void terminalLeavesUploadModeAfterOver_data()
    {
        QTest::addColumn<bool>("stay");
        QTest::newRow("default") << false;
        QTest::newRow("--stay-in-upload") << true;
    }
    void terminalLeavesUploadModeAfterOver()
    {
        QFETCH(bool, stay);
        Pty pty;
        QString error;
        QVERIFY2(pty.open(&error), qPrintable(error));
        UploadTerminal terminal(&pty);
        UploadRecords r;
        QVERIFY(UploadRecords::build(twoAccounts(), {}, {}, &r, &error));
        terminal.setRecords(r);
        terminal.setStayInUpload(stay);
        QSignalSpy replies(&terminal, &UploadTerminal::replySent);
        terminal.receive(UploadFrames::request(2));
        terminal.receive(UploadFrames::end());
        QCOMPARE(terminal.inUploadMode(), stay);
        // The PC's idle resend of the last request.
        terminal.receive(UploadFrames::request(2));
        QCOMPARE(replies.last().at(1).toString(), stay ? QString() : QStringLiteral("not in upload mode"));
        QCOMPARE(terminal.repliesSent(), stay ? 2 : 1);
        // A header request starts the next upload.
        terminal.receive(UploadFrames::request(0));
        QVERIFY(terminal.inUploadMode());
        QCOMPARE(replies.last().at(1).toString(), QString());
    }

    void terminalFaultsForMatching()
    {
        Pty pty;
        QString error;
        QVERIFY2(pty.open(&error), qPrintable(error));
        UploadTerminal terminal(&pty);
        UploadRecords r;
        QVERIFY(UploadRecords::build(twoAccounts(), {}, {}, &r, &error));
        terminal.setRecords(r);
        terminal.faults().misreadRecord = 3;
        terminal.faults().misreadAs = 2;
        terminal.faults().delayRecord = 4;
        terminal.faults().delayMs = 50;
        QSignalSpy replies(&terminal, &UploadTerminal::replySent);
        terminal.receive(UploadFrames::request(3));
        terminal.receive(UploadFrames::request(3));
        QCOMPARE(terminal.requests(), (QList<int>{2, 3}));
        terminal.receive(UploadFrames::request(4));
        QCOMPARE(replies.last().at(1).toString(), QStringLiteral("held back"));
        terminal.receive(UploadFrames::request(4));
        QCOMPARE(replies.last().at(1).toString(), QString());
    }
};

QTEST_GUILESS_MAIN(tst_UploadRecords)
#include "tst_uploadrecords.moc"
