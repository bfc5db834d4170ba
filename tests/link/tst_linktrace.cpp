#include "link/LinkTrace.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

// The trace carries the terminal passwords: readable by its owner only.
class tst_LinkTrace : public QObject
{
    Q_OBJECT

private slots:
    void newTraceIsOwnerOnly();
    void existingTraceMadeOwnerOnly();
};

void tst_LinkTrace::newTraceIsOwnerOnly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("trace.txt"));
    LinkTrace trace;
    QString error;
    QVERIFY2(trace.open(path, &error), qPrintable(error));
    trace.chunk("->", QByteArray("\x01\xFF\x10\xF0", 4));
    QCOMPARE(QFile::permissions(path) & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
             QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QVERIFY(QFile(path).size() > 0);
}

void tst_LinkTrace::existingTraceMadeOwnerOnly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("old-trace.txt"));
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("earlier session\n");
    }
    QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                                            QFileDevice::ReadOther));
    LinkTrace trace;
    QString error;
    QVERIFY2(trace.open(path, &error), qPrintable(error));
    trace.note(QStringLiteral("receive"));
    const QFile::Permissions p = QFile::permissions(path);
    QVERIFY(!p.testFlag(QFileDevice::ReadGroup));
    QVERIFY(!p.testFlag(QFileDevice::ReadOther));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QVERIFY(f.readAll().startsWith("earlier session\n"));
}

QTEST_GUILESS_MAIN(tst_LinkTrace)
#include "tst_linktrace.moc"
