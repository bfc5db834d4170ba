#include "link/DownloadFrames.h"

#include <QFile>
#include <QtTest>

// The download's number formatting and record frame on values no download
// file of today's reader gives, but a database an older version filled may.
class tst_DownloadFrames : public QObject
{
    Q_OBJECT

private slots:
    void formatDigits_data();
    void formatDigits();
    void numberPast2p63FoundByFuzzing();
};

void tst_DownloadFrames::formatDigits_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("expected");
    QTest::newRow("padded") << "12345" << 10 << "0000012345";
    QTest::newRow("rounded half away from zero") << "2.5" << 2 << "03";
    QTest::newRow("negative") << "-7.5" << 6 << "-000008";
    QTest::newRow("not a number") << "9e" << 2 << "9e";
    QTest::newRow("infinite") << "1e400" << 2 << "1e400";
    QTest::newRow("largest 64-bit") << "9223372036854775807" << 2 << "9223372036854775808";
    // Past 2^63 there is no 64-bit integer to round to; the digits come
    // out as they are.
    QTest::newRow("past 2^63") << "1e19" << 2 << "10000000000000000000";
    QTest::newRow("past -2^63") << "-1e19" << 2 << "-10000000000000000000";
}

void tst_DownloadFrames::formatDigits()
{
    QFETCH(QString, text);
    QFETCH(int, width);
    QFETCH(QString, expected);
    QCOMPARE(DownloadFrames::formatDigits(text, width), expected);
}

void tst_DownloadFrames::numberPast2p63FoundByFuzzing()
{
    // The input fuzz_download_frames stopped on (negating the 64-bit integer
    // a number past 2^63 was rounded to): an account's fields a line.
    QFile file(QStringLiteral(FUZZ_CORPUS "/fuzz_download_frames/crash-3256f5f0-number-past-2p63.txt"));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    const QList<QByteArray> lines = file.readAll().split('\n');
    QVERIFY(!lines.isEmpty());
    const QString number = QString::fromLatin1(lines.first());
    QCOMPARE(number.size(), 31);
    // A double holds its first 15 digits or so; all 31 come out.
    const QString digits = DownloadFrames::formatDigits(number, 10);
    QCOMPARE(digits.size(), 31);
    QVERIFY2(digits.startsWith(number.left(15)), qPrintable(digits));
    for (const QChar c : digits)
        QVERIFY2(c.isDigit(), qPrintable(digits));

    // As an account's balance the frame is still made, the check byte over
    // its payload; the send stops with a message only where a pair of its
    // digits cannot be packed.
    DownloadAccount account;
    account.categoryCode = QStringLiteral("1");
    account.schemeCode = QStringLiteral("DDS01");
    account.acNumber = QStringLiteral("000000000000101");
    account.acName = QStringLiteral("RAMESH KUMAR");
    account.balAmount = number;
    account.agreedAmount = QStringLiteral("00100");
    LinkCodec codec;
    const QByteArray frame = DownloadFrames::record(account, 1, codec);
    QCOMPARE(frame.size(), 137);
    int sum = 0;
    for (qsizetype i = 9; i < frame.size(); ++i)
        sum += static_cast<unsigned char>(frame.at(i));
    QCOMPARE(sum & 0xFF, 0);
}

QTEST_GUILESS_MAIN(tst_DownloadFrames)
#include "tst_downloadframes.moc"
