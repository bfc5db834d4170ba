#include "base/DurableFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

// Syncing the folder of a file renamed into place.
class tst_DurableFile : public QObject
{
    Q_OBJECT

private slots:
    void syncsTheFolderOfAFile();
    void missingFolderIsAFailure();
    void severalFilesAndEmptyPaths();
};

void tst_DurableFile::syncsTheFolderOfAFile()
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath("0051611u.txt");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("line\r\n");
    f.close();
    QVERIFY(DurableFile::syncFolderOf(path));
    // Named before it exists (the name a rename is about to take) works too.
    QVERIFY(DurableFile::syncFolderOf(QDir(dir.path()).filePath("not-yet.txt")));
}

void tst_DurableFile::missingFolderIsAFailure()
{
    QTemporaryDir dir;
    QVERIFY(!DurableFile::syncFolderOf(QDir(dir.path()).filePath("gone/0051611u.txt")));
}

void tst_DurableFile::severalFilesAndEmptyPaths()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("bank"));
    QVERIFY(QDir(dir.path()).mkpath("BackupData"));
    QVERIFY(DurableFile::syncFoldersOf({QString(), QDir(dir.path()).filePath("bank/0051611u.txt"),
                                        QDir(dir.path()).filePath("BackupData/0051611uCheck.txt")}));
    QVERIFY(!DurableFile::syncFoldersOf({QDir(dir.path()).filePath("gone/a.txt")}));
    QVERIFY(DurableFile::syncFoldersOf({}));
}

QTEST_GUILESS_MAIN(tst_DurableFile)
#include "tst_durablefile.moc"
