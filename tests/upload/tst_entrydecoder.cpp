// The decoder on its own: bytes in, entries out, no database, no port.

#include "link/LinkState.h"
#include "link/UploadSession.h"
#include "upload/EntryDecoder.h"

#include "ReplyBytes.h"

#include <QTest>

using RestoreStore::Entry;

namespace {

// One entry: amount 3 packed bytes, day, month/year, hour, minute, number.
QByteArray entry(const char* hex)
{
    return QByteArray::fromHex(hex);
}

// Replies 0 and 1 (not read by the decoder) and the transaction records.
QList<QByteArray> replies(const QList<QByteArray>& transactions)
{
    QList<QByteArray> out(LinkState::RecordsSize);
    out[0] = ReplyBytes::headerRecord(int(transactions.size()), "AG001");
    out[1] = ReplyBytes::summaryRecord("001", "1611", 0, QByteArray(4, '\0'));
    for (int i = 0; i < transactions.size(); ++i)
        out[i + 2] = transactions.at(i);
    return out;
}

UploadSummary summaryOf(int records)
{
    UploadSummary s;
    s.TotalRecords = records;
    s.BankAgentId = QStringLiteral("AG001          ");
    return s;
}

} // namespace

class TestEntryDecoder : public QObject
{
    Q_OBJECT
private slots:
    void entryFields()
    {
        const QByteArray e = entry("001250"
                                   "16"
                                   "17"
                                   "09"
                                   "30"
                                   "0102");
        QCOMPARE(EntryDecoder::entryProblem(e), QString());
        QCOMPARE(EntryDecoder::decodeAmount(e.mid(0, 3)), QStringLiteral("0001250.00"));
        QCOMPARE(EntryDecoder::decodeDateTime(e.mid(3, 4)), QStringLiteral("16/01/2007 09:30"));
        QCOMPARE(EntryDecoder::decodeTransactionNumber(e.mid(7, 2)), QStringLiteral("0258"));
    }

    void nibbleAboveNineCountsAsItIs()
    {
        // A damaged amount byte still decodes the way version 2.1 read it.
        QCOMPARE(EntryDecoder::decodeAmount(QByteArray::fromHex("A50000")), QStringLiteral("1050000.00"));
        QCOMPARE(EntryDecoder::entryProblem(entry("A50000"
                                                  "16"
                                                  "17"
                                                  "09"
                                                  "30"
                                                  "0102")),
                 QStringLiteral("the amount is not packed decimal"));
    }

    void formatFixed_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("expected");
        // Whole numbers take the short way; the rest go through a double.
        QTest::newRow("zero") << "0" << 10 << "0000000000.00";
        QTest::newRow("leading zeros") << "0001037" << 10 << "0000001037.00";
        QTest::newRow("all zeros") << "0000" << 5 << "00000.00";
        QTest::newRow("wider than the pattern") << "123456789012345" << 5 << "123456789012345.00";
        QTest::newRow("sixteen digits") << "0000000000001037" << 5 << "01037.00";
        QTest::newRow("decimals") << "12.5" << 5 << "00012.50";
        QTest::newRow("blanks around") << " 85 " << 5 << "00085.00";
        QTest::newRow("negative") << "-7" << 5 << "-00007.00";
        QTest::newRow("not a number") << "12A" << 5 << "12A";
        QTest::newRow("empty") << "" << 5 << "";
    }

    void formatFixed()
    {
        QFETCH(QString, value);
        QFETCH(int, digits);
        QFETCH(QString, expected);
        QCOMPARE(EntryDecoder::formatFixed(value, digits), expected);
    }

    void collectionDayTakesTheLatestYearEndingInTheDigit()
    {
        QCOMPARE(EntryDecoder::collectionDay(QStringLiteral("31/12/2006 18:00"), QDate(2027, 1, 2)),
                 QStringLiteral("2026-12-31"));
        QCOMPARE(EntryDecoder::collectionDay(QStringLiteral("16/11/2007 09:00"), QDate(2007, 11, 16)),
                 QStringLiteral("2007-11-16"));
    }

    void recordWithThreeEntriesGivesThreeWithTheRecordsKeys()
    {
        const QList<QByteArray> entries = {entry("000100"
                                                 "16"
                                                 "B7"
                                                 "09"
                                                 "00"
                                                 "0001"),
                                           entry("000200"
                                                 "16"
                                                 "B7"
                                                 "09"
                                                 "05"
                                                 "0002"),
                                           entry("000300"
                                                 "16"
                                                 "B7"
                                                 "09"
                                                 "10"
                                                 "0003")};
        const QList<QByteArray> records =
            replies({ReplyBytes::transactionRecord("1", "DD001", "000000000100001", entries, char(0x03))});
        QList<Entry> decoded;
        QString error;
        QVERIFY2(EntryDecoder::decodeRecords(records, summaryOf(1), &decoded, &error), qPrintable(error));
        QCOMPARE(decoded.size(), 3);
        for (const Entry& e : decoded) {
            QCOMPARE(e.accountNo, QStringLiteral("000000000100001"));
            QCOMPARE(e.schemeCode, QStringLiteral("DD001"));
            QCOMPARE(e.categoryCode, QStringLiteral("1"));
            QVERIFY(!e.inBankData);
        }
        QCOMPARE(decoded.at(0).amount, QStringLiteral("0000100.00"));
        QCOMPARE(decoded.at(2).amount, QStringLiteral("0000300.00"));
        QCOMPARE(decoded.at(1).dateTime, QStringLiteral("16/11/2007 09:05"));
        QCOMPARE(decoded.at(2).transactionNumber, QStringLiteral("0003"));
        // Only the first entry carries the header's agent, as version 2.1's
        // lists started out.
        QCOMPARE(decoded.at(0).agentId, QStringLiteral("AG001          "));
        QCOMPARE(decoded.at(1).agentId, QString());
    }

    void accountOnlyCountListsTheNextAccountWithoutAmount()
    {
        const QList<QByteArray> records =
            replies({ReplyBytes::transactionRecord("1", "DD001", "000000000100001", {}, char(0x20)),
                     ReplyBytes::transactionRecord("1", "DD001", "000000000100002", {}, char(0x00))});
        QList<Entry> decoded;
        QString error;
        QVERIFY2(EntryDecoder::decodeRecords(records, summaryOf(2), &decoded, &error), qPrintable(error));
        QCOMPARE(decoded.size(), 1);
        QCOMPARE(decoded.at(0).accountNo, QStringLiteral("000000000100002"));
        QCOMPARE(decoded.at(0).amount, QString());
    }

    void damagedEntryRefusedWithWhere()
    {
        const QList<QByteArray> records = replies({ReplyBytes::transactionRecord("1", "DD001", "000000000100001",
                                                                                 {entry("000100"
                                                                                        "16"
                                                                                        "D7"
                                                                                        "09"
                                                                                        "00"
                                                                                        "0001")},
                                                                                 char(0x01))});
        QList<Entry> decoded;
        QString error;
        QVERIFY(!EntryDecoder::decodeRecords(records, summaryOf(1), &decoded, &error));
        QCOMPARE(error, QStringLiteral("Record 2, entry 1 (00 01 00 16 D7 09 00 00 01): the month is 13, not 1 to "
                                       "12; the record is damaged."));
    }

    void apostropheInAKeyRefused()
    {
        const QList<QByteArray> records = replies({ReplyBytes::transactionRecord("1", "DD001", "0000000001000'1",
                                                                                 {entry("000100"
                                                                                        "16"
                                                                                        "B7"
                                                                                        "09"
                                                                                        "00"
                                                                                        "0001")},
                                                                                 char(0x01))});
        QList<Entry> decoded;
        QString error;
        QVERIFY(!EntryDecoder::decodeRecords(records, summaryOf(1), &decoded, &error));
        QVERIFY2(error.contains(QStringLiteral("account number")), qPrintable(error));
    }

    void shortRecordRefused()
    {
        QList<QByteArray> records = replies({});
        records[2] = QByteArray(100, '\0');
        QList<Entry> decoded;
        QString error;
        QVERIFY(!EntryDecoder::decodeRecords(records, summaryOf(1), &decoded, &error));
        QCOMPARE(error, QStringLiteral("Record 2 holds 100 bytes, too few for its number of entries (byte 133)."));
    }
};

QTEST_GUILESS_MAIN(TestEntryDecoder)
#include "tst_entrydecoder.moc"
