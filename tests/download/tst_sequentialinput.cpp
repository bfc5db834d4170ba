#include "download/SequentialInput.h"

#include <QBuffer>
#include <QtTest>

// Line input and list input from one position, as the download file reader
// uses them to put split records back together.
class tst_SequentialInput : public QObject
{
    Q_OBJECT
private slots:
    void reads_data();
    void reads();
    void latin1OneBytePerCharacter();
    void lineNumberCountsEveryLineEnd();
};

void tst_SequentialInput::reads_data()
{
    // ops: L = line input, I = list input; "<end>" stands for a list input
    // refused at the end of the file.
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("ops");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("lines end in CR LF") << QByteArray("ab\r\ncd\r\n") << "LL" << QStringList{"ab", "cd"};
    QTest::newRow("lines end in LF") << QByteArray("ab\ncd\n") << "LL" << QStringList{"ab", "cd"};
    QTest::newRow("lines end in CR") << QByteArray("ab\rcd") << "LL" << QStringList{"ab", "cd"};
    QTest::newRow("line keeps blanks and commas") << QByteArray("  a, b  \r\n") << "L" << QStringList{"  a, b  "};
    QTest::newRow("items split at commas")
        << QByteArray("one,two\r\nthree\r\n") << "III" << QStringList{"one", "two", "three"};
    QTest::newRow("leading blanks skipped, trailing dropped")
        << QByteArray("   one  ,\ttwo\t\r\n") << "II" << QStringList{"one", "two"};
    QTest::newRow("inner blanks kept") << QByteArray("RAMA  DEVI,x\r\n") << "II" << QStringList{"RAMA  DEVI", "x"};
    QTest::newRow("quoted item keeps comma and blanks")
        << QByteArray("\" a,b \"junk,next\r\n") << "II" << QStringList{" a,b ", "next"};
    QTest::newRow("comma right away is an empty item") << QByteArray(",x\r\n") << "II" << QStringList{"", "x"};
    QTest::newRow("blank line is an empty item") << QByteArray("\r\nx\r\n") << "II" << QStringList{"", "x"};
    QTest::newRow("comma at line end, then blank item")
        << QByteArray("a,\r\nb\r\n") << "III" << QStringList{"a", "", "b"};
    QTest::newRow("line input takes the rest after an item")
        << QByteArray("first,rest of, line\r\nnext\r\n") << "ILL" << QStringList{"first", "rest of, line", "next"};
    QTest::newRow("last item without line end") << QByteArray("a,b") << "II" << QStringList{"a", "b"};
    QTest::newRow("list input past the end") << QByteArray("a\r\n") << "II" << QStringList{"a", "<end>"};
    QTest::newRow("empty file") << QByteArray() << "I" << QStringList{"<end>"};
}

void tst_SequentialInput::reads()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, ops);
    QFETCH(QStringList, expected);

    QBuffer buffer(&content);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    SequentialInput in(buffer);
    QStringList got;
    for (const QChar op : ops) {
        if (op == QLatin1Char('L')) {
            got << in.lineInput();
        } else {
            QString item;
            got << (in.listInput(&item) ? item : QStringLiteral("<end>"));
        }
    }
    QCOMPARE(got, expected);
    QVERIFY(in.atEnd());
}

void tst_SequentialInput::latin1OneBytePerCharacter()
{
    QByteArray content("JOS\xc9 \xd1"
                       "A\xff,\xe9\r\n");
    QBuffer buffer(&content);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    SequentialInput in(buffer);
    QString item;
    QVERIFY(in.listInput(&item));
    QCOMPARE(item, QString::fromLatin1("JOS\xc9 \xd1"
                                       "A\xff"));
    QCOMPARE(item.size(), 8);
    QCOMPARE(in.lineInput(), QString(QChar(0xe9)));
}

void tst_SequentialInput::lineNumberCountsEveryLineEnd()
{
    QByteArray content("a\r\nb,c\nd\re\r\n");
    QBuffer buffer(&content);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    SequentialInput in(buffer);
    QCOMPARE(in.lineNumber(), 1);
    in.lineInput();
    QCOMPARE(in.lineNumber(), 2);
    QString item;
    in.listInput(&item); // "b": the comma ends it, the line goes on
    QCOMPARE(in.lineNumber(), 2);
    in.listInput(&item); // "c" and its LF
    QCOMPARE(in.lineNumber(), 3);
    in.lineInput(); // "d" and its CR
    QCOMPARE(in.lineNumber(), 4);
    in.lineInput(); // "e" and its CR LF, counted once
    QCOMPARE(in.lineNumber(), 5);
    QVERIFY(in.atEnd());
}

QTEST_GUILESS_MAIN(tst_SequentialInput)
#include "tst_sequentialinput.moc"
