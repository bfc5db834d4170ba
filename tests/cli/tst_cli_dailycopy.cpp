#include "store/DailyCopy.h"
#include "tests/support/CliReceiveFixture.h"
#include "tests/support/DatabaseFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QtTest>

// The copy of the database the first stored receive of the day leaves in
// BackupData, through 'tonvy-cli receive' against the simulated terminal:
// made once a day, checked, the seven newest kept; a copy that cannot be
// made is said and the receive still succeeds.
class tst_CliDailyCopy : public QObject, protected CliReceiveFixture
{
    Q_OBJECT

    QString dailyFolder() const { return DatabaseCopy::dailyFolder(t->dir.path()); }
    QString today() const { return QDate::currentDate().toString(Qt::ISODate); }

    static QByteArray hashOf(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256)
                                           : QByteArray();
    }

    static bool writeFile(const QString& path, const QByteArray& bytes)
    {
        QFile f(path);
        return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
    }

    static int collectionsIn(const QString& path)
    {
        bool ok = false;
        const int n = DatabaseFile::scalar(path, QStringLiteral("SELECT count(*) FROM RestoreData")).toInt(&ok);
        return ok ? n : -1;
    }

private slots:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void firstReceiveOfTheDayLeavesACheckedCopy()
    {
        prepare();
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        const QString copy = DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate());
        QVERIFY2(QFile::exists(copy), qPrintable(r.out + r.err));
        QCOMPARE(DatabaseCopy::problemWith(copy), QString());
        // Made after the receive was stored: it holds the collections.
        QCOMPARE(collectionsIn(copy), records.transactionCount);
        QVERIFY(!r.err.contains(QStringLiteral("copy of the database could not be made")));

        // A second receive the same day leaves that copy as it is.
        const QByteArray first = hashOf(copy);
        const QDateTime made = QFileInfo(copy).lastModified();
        terminal->setRecords(records);
        const Result again = receive({});
        QVERIFY2(again.exitCode == 0, qPrintable(again.out + again.err));
        QCOMPARE(hashOf(copy), first);
        QCOMPARE(QFileInfo(copy).lastModified(), made);
        QCOMPARE(QDir(dailyFolder()).entryList({QStringLiteral("HandHeldData-*.db")}, QDir::Files).size(), 1);
    }

    void theSevenNewestAreKept()
    {
        prepare();
        // Eight copies of earlier days, as earlier receives left them, and a
        // file of the folder's that is not a copy.
        QVERIFY(QDir().mkpath(dailyFolder()));
        QStringList older;
        for (int d = 1; d <= 8; ++d) {
            const QString path = DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate().addDays(-3 * d));
            QVERIFY(QFile::copy(t->db.filePath(), path));
            older << QFileInfo(path).fileName();
        }
        const QString other = QDir(dailyFolder()).filePath(QStringLiteral("0011611uCheck.txt"));
        QVERIFY(writeFile(other, "listing"));

        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QStringList expected = older.mid(0, 6);
        expected << QStringLiteral("HandHeldData-%1.db").arg(today());
        expected.sort();
        QStringList kept = QDir(dailyFolder()).entryList({QStringLiteral("HandHeldData-*.db")}, QDir::Files);
        kept.sort();
        QCOMPARE(kept, expected);
        QVERIFY(QFile::exists(other));
    }

    void aPartLeftByACutOffCopyIsRemoved()
    {
        prepare();
        // The program was killed while yesterday's copy was being written.
        QVERIFY(QDir().mkpath(dailyFolder()));
        const QString part =
            DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate().addDays(-1)) + QStringLiteral(".part");
        QVERIFY(writeFile(part, "SQLite format 3"));

        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY(!QFile::exists(part));
        QCOMPARE(QDir(dailyFolder()).entryList({QStringLiteral("HandHeldData-*")}, QDir::Files),
                 QStringList{QStringLiteral("HandHeldData-%1.db").arg(today())});
    }

    void aCopyThatFailsDoesNotFailTheReceive()
    {
        prepare();
        // Today's copy cannot be made: a folder stands where it would go.
        QVERIFY(QDir().mkpath(DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate()) + QStringLiteral(".part")));
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY(r.out.contains(QStringLiteral("Upload Completed Successfully\n")));
        QVERIFY2(r.err.contains(QStringLiteral(
                     "The collections were stored, but the day's copy of the database could not be made.")),
                 qPrintable(r.err));
        QVERIFY2(r.err.contains(DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate())), qPrintable(r.err));
        QVERIFY2(r.err.contains(QStringLiteral("tonvy-cli --data-dir %1 backup").arg(t->dir.path())),
                 qPrintable(r.err));
        QVERIFY(!QFile::exists(DatabaseCopy::dailyPath(t->dir.path(), QDate::currentDate())));
    }
};

QTEST_GUILESS_MAIN(tst_CliDailyCopy)
#include "tst_cli_dailycopy.moc"
