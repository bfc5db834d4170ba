#include "link/UploadSession.h"
#include "store/StoreError.h"
#include "tests/support/TestContext.h"
#include "tests/upload/ReplyBytes.h"
#include "tests/upload/UploadTestSetup.h"
#include "upload/RestoreStore.h"

#include <QFile>
#include <QSqlQuery>
#include <QTimer>

using RestoreStore::Entry;

namespace {

// Account keys as the terminal sends them (15-character account number).
const QByteArray acct1 = "000000000000101";
const QByteArray acct2 = "000000000000102";
const QByteArray acct3 = "000000000000103";

QByteArray entryBytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

struct Row
{
    QString sno, accountNo, amount, dateTime, txn, branch, category, scheme, customer, name, balance, agreed, lastTxn,
        agentId, datewise, bankSoft;
};

} // namespace

class tst_RestoreStore : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void decodeAmount_data();
    void decodeAmount();
    void decodeDateTime_data();
    void decodeDateTime();
    void decodeTransactionNumber_data();
    void decodeTransactionNumber();
    void entryProblem_data();
    void entryProblem();
    void formatFixed_data();
    void formatFixed();
    void expandMyDate_data();
    void expandMyDate();

    void countThreeGivesEntriesFromBytes70_79_88();
    void countOfTwentyListsNextAccountWithoutAmount();
    void countOfTwentyOnLastRecordReadsBeyondTheAnnounced();
    void balanceAndAgreedAmountKeptInFixedPatterns();
    void missingAccountStoredWithWhatTheListsHeld();
    void uploadReplacesEveryEarlierRowOfTheAgent();
    void receivingTwiceLeavesOnlyTheSecond();
    void historySameDayReplacedOtherDaysKept();
    void historyKeepsTheSummarysAgentNumber();
    void historyYearFromOneDigit_data();
    void historyYearFromOneDigit();
    void failedStoreChangesNothing();
    void apostropheAgentRefused();
    void recordBeyondReplyArrayReported();
    void moreThanTenThousandEntriesReported();
    void shortRecordReported();
    void damagedEntryRefused_data();
    void damagedEntryRefused();
    void entryNotPackedDecimalFoundByFuzzing();
    void backupWrittenBeforeDecoding();
    void yieldsOnceAtTransaction394();

private:
    void addAccount(const QByteArray& account, const QString& name, const QString& balance, const QString& agreed,
                    const QString& myDate);
    void setRecords(const QList<QByteArray>& transactionRecords);
    QList<Row> rows(const QString& agentId) const;
    bool receive(int transactions, int amount);
    int count(const QString& sql, const QVariantList& values = {}) const;

    std::unique_ptr<TestContext> t;
    UploadSummary summary;
};

void tst_RestoreStore::init()
{
    t = std::make_unique<TestContext>();
    summary = prepareUploadContext(*t);
}

void tst_RestoreStore::cleanup()
{
    t.reset();
}

void tst_RestoreStore::addAccount(const QByteArray& account, const QString& name, const QString& balance,
                                  const QString& agreed, const QString& myDate)
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, OpeningDate, SNo, Txndate, FileName, CustomerCode, BranchID, "
                                 "AgentID, MyDate, BankSoftACNumber) "
                                 "VALUES ('S', 'DD001', ?, ?, ?, ?, '010107', '1', '151107', 'x', 'C00001', "
                                 "'BR0000000000001', ?, ?, ?)"),
                  {QString::fromLatin1(account), name, balance, agreed, agent, myDate,
                   QStringLiteral("BS") + QString::fromLatin1(account.right(3))});
}

void tst_RestoreStore::setRecords(const QList<QByteArray>& transactionRecords)
{
    t->ctx->link.Records[0] = ReplyBytes::headerRecord(static_cast<int>(transactionRecords.size()), agent.toLatin1());
    t->ctx->link.Records[1] = ReplyBytes::summaryRecord("005", "1611", 0, QByteArray(4, '\0'));
    for (int i = 0; i < transactionRecords.size(); ++i)
        t->ctx->link.Records[i + 2] = transactionRecords.at(i);
    summary.TotalRecords = static_cast<int>(transactionRecords.size());
}

// Runs RestoreData with the summary's totals set to what the terminal would
// announce for the uploaded rows, and expects the upload to be confirmed.
bool tst_RestoreStore::receive(int transactions, int amount)
{
    summary.TotalTransactions = transactions;
    summary.TotalAmountDigits = QStringLiteral("%1").arg(amount, 8, 10, QLatin1Char('0'));
    t->messenger.clear();
    const bool ok = RestoreStore::RestoreData(*t->ctx, summary);
    if (t->messenger.texts() != QStringList{QStringLiteral("Upload Completed Successfully")})
        qWarning("messages: %s", qPrintable(t->messenger.texts().join(QLatin1String(" / "))));
    return ok && t->messenger.texts() == QStringList{QStringLiteral("Upload Completed Successfully")};
}

QList<Row> tst_RestoreStore::rows(const QString& agentId) const
{
    QSqlQuery q(t->db.connection());
    q.prepare(QStringLiteral("SELECT SNo, AccountNo, Amtcollected, DateTime, TransactionNumber, BranchID, "
                             "CategoryCode, SchemeCode, CustomerCode, AccountName, BalanceAmount, AgreedAmount, "
                             "LastTxndate, AgentID, DatewiseTxn, BankSoftACNumber FROM RestoreData "
                             "WHERE AgentID = ? ORDER BY CAST(SNo AS INTEGER)"));
    q.addBindValue(agentId);
    if (!q.exec())
        qFatal("query failed");
    QList<Row> out;
    while (q.next()) {
        Row r;
        QString* fields[] = {&r.sno,      &r.accountNo, &r.amount,   &r.dateTime, &r.txn,     &r.branch,
                             &r.category, &r.scheme,    &r.customer, &r.name,     &r.balance, &r.agreed,
                             &r.lastTxn,  &r.agentId,   &r.datewise, &r.bankSoft};
        for (int i = 0; i < 16; ++i)
            *fields[i] = q.value(i).toString();
        out << r;
    }
    return out;
}

int tst_RestoreStore::count(const QString& sql, const QVariantList& values) const
{
    QSqlQuery q(t->db.connection());
    q.prepare(sql);
    for (const QVariant& v : values)
        q.addBindValue(v);
    if (!q.exec() || !q.next())
        qFatal("count failed");
    return q.value(0).toInt();
}

void tst_RestoreStore::decodeAmount_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("zero") << entryBytes("000000") << "0000000.00";
    QTest::newRow("1234") << entryBytes("001234") << "0001234.00";
    QTest::newRow("largest") << entryBytes("999999") << "0999999.00";
    QTest::newRow("each byte two digits") << entryBytes("010203") << "0010203.00";
}

void tst_RestoreStore::decodeAmount()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(RestoreStore::decodeAmount(bytes), expected);
}

void tst_RestoreStore::decodeDateTime_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("5 March 2007 14:30") << entryBytes("05371430") << "05/03/2007 14:30";
    // High nibble month, low nibble year digit: 0x73 is July of 2003.
    QTest::newRow("nibble order") << entryBytes("01730000") << "01/07/2003 00:00";
    QTest::newRow("December is nibble C") << entryBytes("31C92359") << "31/12/2009 23:59";
    QTest::newRow("16 November 2007") << entryBytes("16B70905") << "16/11/2007 09:05";
}

void tst_RestoreStore::decodeDateTime()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(RestoreStore::decodeDateTime(bytes), expected);
}

void tst_RestoreStore::decodeTransactionNumber_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("1") << entryBytes("0001") << "0001";
    QTest::newRow("high byte first") << entryBytes("018A") << "0394";
    QTest::newRow("9999") << entryBytes("270F") << "9999";
    QTest::newRow("five digits") << entryBytes("7530") << "30000";
}

void tst_RestoreStore::decodeTransactionNumber()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    QCOMPARE(RestoreStore::decodeTransactionNumber(bytes), expected);
}

void tst_RestoreStore::entryProblem_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem"); // part of it; "" for a readable entry
    QTest::newRow("16 November 2007") << entryBytes("000005 16B7 0900 0001") << "";
    QTest::newRow("December, largest amount") << entryBytes("999999 31C9 2359 7FFF") << "";
    QTest::newRow("amount nibble A") << entryBytes("00000A 16B7 0900 0001") << "the amount is not packed decimal";
    QTest::newRow("amount byte FF") << entryBytes("FF0005 16B7 0900 0001") << "the amount is not packed decimal";
    QTest::newRow("day D0") << entryBytes("000005 D0B7 0900 0001") << "the day or time is not packed decimal";
    QTest::newRow("hour CF") << entryBytes("000005 16B7 CF00 0001") << "the day or time is not packed decimal";
    QTest::newRow("minute CB") << entryBytes("000005 16B7 09CB 0001") << "the day or time is not packed decimal";
    QTest::newRow("month 0") << entryBytes("000005 1607 0900 0001") << "the month is 0, not 1 to 12";
    QTest::newRow("month 13") << entryBytes("000005 16D7 0900 0001") << "the month is 13, not 1 to 12";
    QTest::newRow("year nibble A") << entryBytes("000005 16BA 0900 0001") << "the year digit is not a digit";
    QTest::newRow("transaction 32768") << entryBytes("000005 16B7 0900 8000") << "past 32767";
    QTest::newRow("eight bytes") << entryBytes("000005 16B7 0900 00") << "8 bytes long";
}

void tst_RestoreStore::entryProblem()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);
    const QString said = RestoreStore::entryProblem(bytes);
    if (problem.isEmpty())
        QCOMPARE(said, QString());
    else
        QVERIFY2(said.contains(problem), qPrintable(said));
}

void tst_RestoreStore::formatFixed_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("digits");
    QTest::addColumn<QString>("expected");
    QTest::newRow("balance 1234.5") << "1234.5" << 10 << "0000001234.50";
    QTest::newRow("agreed 50") << "50" << 5 << "00050.00";
    QTest::newRow("file width balance") << "00001234" << 10 << "0000001234.00";
    QTest::newRow("rounded to two places") << "12.345" << 5 << "00012.35";
    QTest::newRow("negative") << "-5" << 10 << "-0000000005.00";
    QTest::newRow("empty stays empty") << "" << 10 << "";
    QTest::newRow("text kept") << "n/a" << 5 << "n/a";
    // Read as numbers, but with no digits: kept, not padded to "00000inf".
    QTest::newRow("inf kept") << "inf" << 7 << "inf";
    QTest::newRow("-inf kept") << " -inf" << 7 << " -inf";
    QTest::newRow("nan kept") << "nan" << 10 << "nan";
}

void tst_RestoreStore::formatFixed()
{
    QFETCH(QString, value);
    QFETCH(int, digits);
    QFETCH(QString, expected);
    QCOMPARE(RestoreStore::formatFixed(value, digits), expected);
}

void tst_RestoreStore::expandMyDate_data()
{
    QTest::addColumn<QString>("myDate");
    QTest::addColumn<QString>("expected");
    QTest::newRow("ddmmyy") << "161107"
                            << "16/11/2007";
    QTest::newRow("empty") << ""
                           << "//20";
}

void tst_RestoreStore::expandMyDate()
{
    QFETCH(QString, myDate);
    QFETCH(QString, expected);
    QCOMPARE(RestoreStore::expandMyDate(myDate), expected);
}

void tst_RestoreStore::countThreeGivesEntriesFromBytes70_79_88()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("151107"));
    // A fourth entry at byte 97 must not be read: the count says three.
    const QByteArray record =
        ReplyBytes::transactionRecord("S", "DD001", acct1,
                                      {entryBytes("000010 15B7 0900 0001"), entryBytes("000020 16B7 1000 0002"),
                                       entryBytes("000030 16B7 1100 0003"), entryBytes("000040 16B7 1200 0004")},
                                      '\x03');
    QCOMPARE(static_cast<unsigned char>(record.at(132)), 0x03);
    setRecords({record});

    QList<Entry> entries;
    QString error;
    QVERIFY2(RestoreStore::decodeTransactions(*t->ctx, summary, &entries, &error), qPrintable(error));
    QCOMPARE(entries.size(), 3);
    QCOMPARE(entries.at(0).amount, QStringLiteral("0000010.00"));
    QCOMPARE(entries.at(0).dateTime, QStringLiteral("15/11/2007 09:00"));
    QCOMPARE(entries.at(0).transactionNumber, QStringLiteral("0001"));
    QCOMPARE(entries.at(1).amount, QStringLiteral("0000020.00"));
    QCOMPARE(entries.at(1).dateTime, QStringLiteral("16/11/2007 10:00"));
    QCOMPARE(entries.at(1).transactionNumber, QStringLiteral("0002"));
    QCOMPARE(entries.at(2).amount, QStringLiteral("0000030.00"));
    QCOMPARE(entries.at(2).dateTime, QStringLiteral("16/11/2007 11:00"));
    QCOMPARE(entries.at(2).transactionNumber, QStringLiteral("0003"));
    for (const Entry& e : entries) {
        QCOMPARE(e.accountNo, QString::fromLatin1(acct1));
        QCOMPARE(e.schemeCode, QStringLiteral("DD001"));
        QCOMPARE(e.categoryCode, QStringLiteral("S"));
        QCOMPARE(e.accountName, QStringLiteral("ONE"));
    }
}

void tst_RestoreStore::countOfTwentyListsNextAccountWithoutAmount()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("151107"));
    addAccount(acct2, QStringLiteral("TWO"), QStringLiteral("200"), QStringLiteral("20"), QStringLiteral("151107"));
    addAccount(acct3, QStringLiteral("THREE"), QStringLiteral("300"), QStringLiteral("30"), QStringLiteral("151107"));
    // Record 2 (acct2) says 20: acct3's record follows, listed once without
    // an amount and then read for its own single entry.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entryBytes("000099 16B7 0900 0099")}, '\x20'),
                ReplyBytes::transactionRecord("S", "DD001", acct3, {entryBytes("000007 16B7 0930 0002")}, '\x01')});

    QList<Entry> entries;
    QString error;
    QVERIFY2(RestoreStore::decodeTransactions(*t->ctx, summary, &entries, &error), qPrintable(error));
    QCOMPARE(entries.size(), 3);
    QCOMPARE(entries.at(0).accountNo, QString::fromLatin1(acct1));
    QCOMPARE(entries.at(0).amount, QStringLiteral("0000005.00"));
    QCOMPARE(entries.at(1).accountNo, QString::fromLatin1(acct3));
    QCOMPARE(entries.at(1).accountName, QStringLiteral("THREE"));
    QCOMPARE(entries.at(1).amount, QString());
    QCOMPARE(entries.at(1).dateTime, QString());
    QCOMPARE(entries.at(1).transactionNumber, QString());
    QCOMPARE(entries.at(2).accountNo, QString::fromLatin1(acct3));
    QCOMPARE(entries.at(2).amount, QStringLiteral("0000007.00"));
    QCOMPARE(entries.at(2).transactionNumber, QStringLiteral("0002"));

    // Stored as such: the account-only row keeps an empty amount.
    QVERIFY(receive(2, 12));
    const QList<Row> stored = rows(agent);
    QCOMPARE(stored.size(), 3);
    QCOMPARE(stored.at(1).accountNo, QString::fromLatin1(acct3));
    QCOMPARE(stored.at(1).amount, QString());
    // Empty text, not NULL: the upload file's "AmtCollected <> ''" leaves it out.
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE Amtcollected = ''")), 1);
}

void tst_RestoreStore::countOfTwentyOnLastRecordReadsBeyondTheAnnounced()
{
    // The last announced record says 20: the account is taken from the
    // record after it, which was never received, and the decoding ends.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {}, '\x20')});
    QList<Entry> entries;
    QString error;
    QVERIFY2(RestoreStore::decodeTransactions(*t->ctx, summary, &entries, &error), qPrintable(error));
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.at(1).accountNo, QString());
    QCOMPARE(entries.at(1).amount, QString());
}

void tst_RestoreStore::balanceAndAgreedAmountKeptInFixedPatterns()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("1234.5"), QStringLiteral("50"), QStringLiteral("161107"));
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000050 16B7 0900 0001")}, '\x01')});
    QVERIFY(receive(1, 50));

    const QList<Row> stored = rows(agent);
    QCOMPARE(stored.size(), 1);
    const Row& r = stored.first();
    QCOMPARE(r.sno, QStringLiteral("1"));
    QCOMPARE(r.accountNo, QString::fromLatin1(acct1));
    QCOMPARE(r.amount, QStringLiteral("0000050.00"));
    QCOMPARE(r.dateTime, QStringLiteral("16/11/2007 09:00"));
    QCOMPARE(r.txn, QStringLiteral("0001"));
    QCOMPARE(r.branch, QStringLiteral("BR0000000000001"));
    QCOMPARE(r.category, QStringLiteral("S"));
    QCOMPARE(r.scheme, QStringLiteral("DD001"));
    QCOMPARE(r.customer, QStringLiteral("C00001"));
    QCOMPARE(r.name, QStringLiteral("ONE"));
    QCOMPARE(r.balance, QStringLiteral("0000001234.50"));
    QCOMPARE(r.agreed, QStringLiteral("00050.00"));
    QCOMPARE(r.lastTxn, QStringLiteral("16/11/2007"));
    QCOMPARE(r.agentId, agent);
    QCOMPARE(r.datewise, QStringLiteral("0000050.00"));
    QCOMPARE(r.bankSoft, QStringLiteral("BS101"));
}

void tst_RestoreStore::missingAccountStoredWithWhatTheListsHeld()
{
    addAccount(acct2, QStringLiteral("TWO"), QStringLiteral("200"), QStringLiteral("20"), QStringLiteral("161107"));
    // acct1 and acct3 are not in BankData.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000011 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entryBytes("000022 16B7 0901 0002")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct3, {entryBytes("000033 16B7 0902 0003")}, '\x01')});
    QList<Entry> entries;
    QString error;
    QVERIFY2(RestoreStore::decodeTransactions(*t->ctx, summary, &entries, &error), qPrintable(error));
    QCOMPARE(entries.size(), 3);
    // The first list entry starts out with the header's agent id.
    QCOMPARE(entries.at(0).agentId, agent);
    QCOMPARE(entries.at(0).accountName, QString());
    QCOMPARE(entries.at(0).balance, QString());
    QCOMPARE(entries.at(0).amount, QStringLiteral("0000011.00"));
    QVERIFY(!entries.at(0).inBankData);
    QCOMPARE(entries.at(1).accountName, QStringLiteral("TWO"));
    QVERIFY(entries.at(1).inBankData);
    QCOMPARE(entries.at(2).agentId, QString());
    QCOMPARE(entries.at(2).branchId, QString());
    QCOMPARE(entries.at(2).amount, QStringLiteral("0000033.00"));

    // Refused: collections for accounts that were not downloaded.
    summary.TotalTransactions = 2;
    summary.TotalAmountDigits = QStringLiteral("00000033");
    RestoreStore::ReceiveOutcome refused = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(refused.result, RestoreStore::ReceiveOutcome::Result::Refused);
    QVERIFY(refused.mayAccept);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
    QVERIFY(refused.reconciliation.contains(
        QStringLiteral("Left out of the upload file: account 000000000000103, amount 33.00 (the account is not among "
                       "the agent's downloaded accounts)")));

    // Accepted by the clerk: stored as version 2.1 stored it.
    summary.UploadBaseName = QStringLiteral("0051611");
    const RestoreStore::ReceiveOutcome accepted = RestoreStore::processReceive(*t->ctx, summary, true);
    QCOMPARE(accepted.result, RestoreStore::ReceiveOutcome::Result::Accepted);
    QVERIFY(!accepted.succeeded());
    QCOMPARE(
        count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = ?"), {QString::fromLatin1(acct1)}), 1);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = ? AND AgentID = ''"),
                   {QString::fromLatin1(acct3)}),
             1);
}

void tst_RestoreStore::uploadReplacesEveryEarlierRowOfTheAgent()
{
    const QString insert = QStringLiteral("INSERT INTO RestoreData (SNo, AccountNo, Amtcollected, DateTime, AgentID) "
                                          "VALUES ('1', ?, '0000001.00', ?, ?)");
    t->db.execute(insert, {QStringLiteral("OLD1"), QStringLiteral("01/01/2006 10:00"), agent});
    t->db.execute(insert, {QStringLiteral("OLD2"), QStringLiteral("16/11/2007 08:00"), agent});
    t->db.execute(insert, {QStringLiteral("OTHER"), QStringLiteral("16/11/2007 08:00"), QStringLiteral("AG9")});

    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01')});
    QVERIFY(receive(1, 5));

    const QList<Row> stored = rows(agent);
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.first().accountNo, QString::fromLatin1(acct1));
    QCOMPARE(rows(QStringLiteral("AG9")).size(), 1);
}

void tst_RestoreStore::receivingTwiceLeavesOnlyTheSecond()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    addAccount(acct2, QStringLiteral("TWO"), QStringLiteral("200"), QStringLiteral("20"), QStringLiteral("161107"));
    setRecords({ReplyBytes::transactionRecord(
        "S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001"), entryBytes("000006 16B7 0901 0002")}, '\x02')});
    QVERIFY(receive(2, 11));
    QCOMPARE(rows(agent).size(), 2);

    summary.UploadBaseName = QStringLiteral("0051611");
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct2, {entryBytes("000009 16B7 1000 0007")}, '\x01')});
    QVERIFY(receive(1, 9));
    const QList<Row> stored = rows(agent);
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.first().accountNo, QString::fromLatin1(acct2));
    QCOMPARE(stored.first().amount, QStringLiteral("0000009.00"));
    QCOMPARE(stored.first().sno, QStringLiteral("1"));
}

void tst_RestoreStore::historySameDayReplacedOtherDaysKept()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("1234.5"), QStringLiteral("10"), QStringLiteral("161107"));
    addAccount(acct2, QStringLiteral("TWO"), QStringLiteral("200"), QStringLiteral("20"), QStringLiteral("161107"));
    // First receive: the 15th and the 16th, plus an account-only row.
    setRecords(
        {ReplyBytes::transactionRecord(
             "S", "DD001", acct1, {entryBytes("000005 15B7 0900 0001"), entryBytes("000006 16B7 0901 0002")}, '\x02'),
         ReplyBytes::transactionRecord("S", "DD001", acct2, {}, '\x20'),
         ReplyBytes::transactionRecord("S", "DD001", acct2, {}, '\x00')});
    QVERIFY(receive(2, 11));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM CollectionHistory")), 2);

    // Second receive of the 16th only.
    t->clock.set(QDateTime(QDate(2007, 11, 16), QTime(18, 0, 0)));
    summary.UploadBaseName = QStringLiteral("0051611");
    setRecords({ReplyBytes::transactionRecord(
        "S", "DD001", acct2, {entryBytes("000007 16B7 1700 0003"), entryBytes("000008 16B7 1701 0004")}, '\x02')});
    QVERIFY(receive(2, 15));

    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM CollectionHistory")), 3);
    QSqlQuery q(t->db.connection());
    QVERIFY(q.exec(QStringLiteral("SELECT AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise, DateTime, "
                                  "TransactionNumber, ReceivedAt FROM CollectionHistory "
                                  "ORDER BY CollectionDate, TransactionNumber")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toString(), agent);
    QCOMPARE(q.value(1).toString(), QStringLiteral("2007-11-15"));
    QCOMPARE(q.value(2).toString(), QString::fromLatin1(acct1));
    // Amounts are kept in whole paise.
    QCOMPARE(q.value(3).toLongLong(), 123450);
    QCOMPARE(q.value(4).toLongLong(), 500);
    QCOMPARE(q.value(5).toString(), QStringLiteral("15/11/2007 09:00"));
    QCOMPARE(q.value(6).toString(), QStringLiteral("0001"));
    QCOMPARE(q.value(7).toString(), QStringLiteral("2007-11-16T10:20:30"));
    QVERIFY(q.next());
    QCOMPARE(q.value(1).toString(), QStringLiteral("2007-11-16"));
    QCOMPARE(q.value(4).toLongLong(), 700);
    QCOMPARE(q.value(7).toString(), QStringLiteral("2007-11-16T18:00:00"));
    QVERIFY(q.next());
    QCOMPARE(q.value(4).toLongLong(), 800);
    QVERIFY(!q.next());
}

void tst_RestoreStore::historyKeepsTheSummarysAgentNumber()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    setRecords({ReplyBytes::transactionRecord(
        "S", "DD001", acct1, {entryBytes("000005 15B7 0900 0001"), entryBytes("000006 16B7 0901 0002")}, '\x02')});
    QVERIFY(receive(2, 11));
    auto numbers = [this]() {
        QSqlQuery q(t->db.connection());
        q.prepare(QStringLiteral("SELECT AgentID, AgentNo, CollectionDate FROM CollectionHistory WHERE AgentID = ? "
                                 "ORDER BY CollectionDate"));
        q.addBindValue(agent);
        QStringList got;
        if (q.exec()) {
            while (q.next())
                got << q.value(0).toString() + "/" + q.value(1).toString() + "/" + q.value(2).toString();
        }
        return got;
    };
    // The bank's identifier from the header, the terminal's number from the
    // summary record, side by side in every row.
    QCOMPARE(numbers(), QStringList({agent + "/005/2007-11-15", agent + "/005/2007-11-16"}));

    // The number is the one each receive's summary carries.
    t->clock.set(QDateTime(QDate(2007, 11, 16), QTime(18, 0, 0)));
    summary.UploadBaseName = QStringLiteral("0151611");
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000007 16B7 1700 0003")}, '\x01')});
    t->ctx->link.Records[1] = ReplyBytes::summaryRecord("015", "1611", 0, QByteArray(4, '\0'));
    QVERIFY(receive(1, 7));
    QCOMPARE(numbers(), QStringList({agent + "/005/2007-11-15", agent + "/015/2007-11-16"}));
}

void tst_RestoreStore::failedStoreChangesNothing()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000005");
    const QString insert = QStringLiteral("INSERT INTO RestoreData (SNo, AccountNo, Amtcollected, AgentID) "
                                          "VALUES ('1', 'OLD', '0000001.00', ?)");
    t->db.execute(insert, {agent});
    // The history insert fails after the RestoreData rows were replaced.
    t->db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON CollectionHistory "
                                 "BEGIN SELECT RAISE(ABORT, 'disk full'); END"));
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01')});

    QList<Entry> entries;
    QString error;
    QVERIFY(RestoreStore::decodeTransactions(*t->ctx, summary, &entries, &error));
    QVERIFY_THROWS_EXCEPTION(StoreError,
                             RestoreStore::StoreRestoreData(*t->ctx, agent, QStringLiteral("005"), entries));
    const QList<Row> stored = rows(agent);
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.first().accountNo, QStringLiteral("OLD"));

    // Through RestoreData: reported, no upload file written from old rows.
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QVERIFY(t->messenger.last().contains(QStringLiteral("disk full")));
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(!QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
    QCOMPARE(rows(agent).first().accountNo, QStringLiteral("OLD"));
}

void tst_RestoreStore::apostropheAgentRefused()
{
    summary.BankAgentId = QStringLiteral("AG'5");
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01')});
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t->messenger.last().contains(QStringLiteral("apostrophe")));
    QVERIFY(t->messenger.last().contains(QStringLiteral("AG'5")));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM CollectionHistory")), 0);
}

void tst_RestoreStore::recordBeyondReplyArrayReported()
{
    setRecords({});
    summary.TotalRecords = 2500; // would need record 2501
    for (int i = 2; i <= 2500; ++i)
        t->ctx->link.Records[i] = ReplyBytes::transactionRecord("S", "DD001", acct1, {}, '\x00');
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t->messenger.last().contains(QStringLiteral("Record 2501 is beyond")), qPrintable(t->messenger.last()));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
}

void tst_RestoreStore::moreThanTenThousandEntriesReported()
{
    // 1429 records of seven entries each: 10003 transactions.
    QList<QByteArray> entries;
    for (int j = 0; j < 7; ++j)
        entries << entryBytes("000001 16B7 0900 0001");
    const QByteArray record = ReplyBytes::transactionRecord("S", "DD001", acct1, entries, '\x07');
    QList<QByteArray> records(1429, record);
    setRecords(records);
    QList<Entry> decoded;
    QString error;
    QVERIFY(!RestoreStore::decodeTransactions(*t->ctx, summary, &decoded, &error));
    QVERIFY2(error.contains(QStringLiteral("more than 10000 transactions")), qPrintable(error));

    // 10,000 exactly still fit.
    setRecords(records.mid(0, 1428) << ReplyBytes::transactionRecord("S", "DD001", acct1, entries.mid(0, 4), '\x04'));
    QVERIFY2(RestoreStore::decodeTransactions(*t->ctx, summary, &decoded, &error), qPrintable(error));
    QCOMPARE(decoded.size(), 10000);
}

void tst_RestoreStore::shortRecordReported()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001")}, '\x01')});
    summary.TotalRecords = 2; // record 3 never arrived
    t->ctx->link.Records[3].clear();
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QVERIFY2(t->messenger.last().contains(QStringLiteral("Record 3 holds 0 bytes")), qPrintable(t->messenger.last()));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
}

void tst_RestoreStore::damagedEntryRefused_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("said");
    // Version 2.1 stored these as "00000A5.00" and "165/11/2007 09:00" and
    // sent them on in the upload file, out of its columns.
    QTest::newRow("amount") << ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("00000A 16B7 0900 0001")},
                                                             '\x01')
                            << "Record 2, entry 1 (00 00 0A 16 B7 09 00 00 01): the amount is not packed decimal; "
                               "the record is damaged.";
    QTest::newRow("second entry's day")
        << ReplyBytes::transactionRecord(
               "S", "DD001", acct1, {entryBytes("000005 16B7 0900 0001"), entryBytes("000005 FFB7 0900 0002")}, '\x02')
        << "Record 2, entry 2 (00 00 05 FF B7 09 00 00 02): the day or time is not packed decimal";
    QTest::newRow("number of entries") << ReplyBytes::transactionRecord("S", "DD001", acct1, {}, '\x1A')
                                       << "Record 2 holds its number of entries (byte 133) as 1A, which is not a "
                                          "packed decimal number";
}

void tst_RestoreStore::damagedEntryRefused()
{
    // An entry the terminal cannot have sent ends the receive with a
    // message; nothing is stored.
    QFETCH(QByteArray, record);
    QFETCH(QString, said);
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    setRecords({record});
    QList<RestoreStore::Entry> entries;
    QString error;
    QVERIFY(!RestoreStore::decodeRecords(t->ctx->link.Records, summary, &entries, &error));
    QVERIFY2(error.contains(said), qPrintable(error));
    QVERIFY(!receive(1, 5));
    QVERIFY2(t->messenger.last().contains(said), qPrintable(t->messenger.last()));
    QVERIFY2(t->messenger.last().contains(QStringLiteral("Nothing was replaced.")), qPrintable(t->messenger.last()));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
}

void tst_RestoreStore::entryNotPackedDecimalFoundByFuzzing()
{
    // The input fuzz_restore_decode stopped on: replies from byte 0 cut
    // every 137 bytes, one of whose entries decoded to "165/01/2000 150:55".
    QFile file(QStringLiteral(FUZZ_CORPUS "/fuzz_restore_decode/crash-3adb52ba-entry-not-packed-decimal.bin"));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    const QByteArray bytes = file.readAll();
    QList<QByteArray> records(2);
    for (qsizetype at = 0; at < bytes.size(); at += 137)
        records << bytes.mid(at, 137);
    UploadSummary s;
    s.BankAgentId = agent;
    s.TotalRecords = static_cast<int>(records.size()) - 2;
    QList<RestoreStore::Entry> entries;
    QString error;
    QVERIFY(!RestoreStore::decodeRecords(records, s, &entries, &error));
    QVERIFY2(error.startsWith(QStringLiteral("Record 3, entry 1 (00 00 00 00 00 00 00 00 00): the month is 0")),
             qPrintable(error));
    QVERIFY2(error.endsWith(QStringLiteral("the record is damaged.")), qPrintable(error));
    // The entry it stopped on (a reply's head where an entry belongs: day
    // FF, hour F0) is refused too.
    QCOMPARE(RestoreStore::entryProblem(QByteArray::fromHex("000001 FF10 F055 0082")),
             QStringLiteral("the day or time is not packed decimal"));
    QCOMPARE(RestoreStore::decodeDateTime(QByteArray::fromHex("FF10F055")), QStringLiteral("165/01/2000 150:55"));
}

void tst_RestoreStore::backupWrittenBeforeDecoding()
{
    setRecords({});
    summary.TotalRecords = 1;
    t->ctx->link.Records[2].clear();
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    // The decoding failed, yet the replies are in the backup.
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/005_16_11_07.txt"))));
}

void tst_RestoreStore::yieldsOnceAtTransaction394()
{
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    bool ran = false;
    int rowsWhenRun = -1;
    auto arm = [&] {
        ran = false;
        QTimer::singleShot(0, this, [&] {
            ran = true;
            rowsWhenRun = count(QStringLiteral("SELECT count(*) FROM RestoreData"));
        });
    };

    // Without transaction 394 nothing else runs during the restore.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entryBytes("000005 16B7 0900 0189")}, '\x01')});
    arm();
    QVERIFY(receive(1, 5));
    QVERIFY(!ran);
    QTRY_VERIFY(ran);

    // With it, the message loop runs while decoding, before the rows change.
    summary.UploadBaseName = QStringLiteral("0051611");
    setRecords({ReplyBytes::transactionRecord(
        "S", "DD001", acct1, {entryBytes("000005 16B7 0900 018A"), entryBytes("000006 16B7 0901 018B")}, '\x02')});
    arm();
    QVERIFY(receive(2, 11));
    QVERIFY(ran);
    QCOMPARE(rowsWhenRun, 1);
    QCOMPARE(rows(agent).size(), 2);
}

QTEST_GUILESS_MAIN(tst_RestoreStore)
void tst_RestoreStore::historyYearFromOneDigit_data()
{
    QTest::addColumn<QDate>("receivedOn");
    QTest::addColumn<QString>("dayMonthYear"); // day byte, month/year-digit byte
    QTest::addColumn<QString>("dateTime");
    QTest::addColumn<QString>("collectionDate");
    QTest::newRow("same year") << QDate(2026, 11, 22) << "16B6"
                               << "16/11/2006 09:00"
                               << "2026-11-16";
    QTest::newRow("last year, received in January") << QDate(2027, 1, 2) << "31C6"
                                                    << "31/12/2006 09:00"
                                                    << "2026-12-31";
    QTest::newRow("digit ahead of the receive year") << QDate(2026, 3, 1) << "0117"
                                                     << "01/01/2007 09:00"
                                                     << "2017-01-01";
    QTest::newRow("2007") << QDate(2007, 11, 16) << "16B7"
                          << "16/11/2007 09:00"
                          << "2007-11-16";
}

void tst_RestoreStore::historyYearFromOneDigit()
{
    QFETCH(QDate, receivedOn);
    QFETCH(QString, dayMonthYear);
    QFETCH(QString, dateTime);
    QFETCH(QString, collectionDate);
    addAccount(acct1, QStringLiteral("ONE"), QStringLiteral("100"), QStringLiteral("10"), QStringLiteral("161107"));
    t->clock.set(QDateTime(receivedOn, QTime(18, 0, 0)));
    setRecords({ReplyBytes::transactionRecord(
        "S", "DD001", acct1,
        {entryBytes(QStringLiteral("000005 %1 0900 0001").arg(dayMonthYear).toLatin1().constData())}, '\x01')});
    QVERIFY(receive(1, 5));
    QSqlQuery q(t->db.connection());
    QVERIFY(q.exec(QStringLiteral("SELECT CollectionDate, DateTime FROM CollectionHistory")));
    QVERIFY(q.next());
    // The stored text keeps the terminal's own form; only the history's day
    // gets its decade from the receive.
    QCOMPARE(q.value(1).toString(), dateTime);
    QCOMPARE(q.value(0).toString(), collectionDate);
}

#include "tst_restorestore.moc"
