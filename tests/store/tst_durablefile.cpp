#include "base/DurableFile.h"
#include "tests/support/FailingSync.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>

// Files synced to the disk before they are renamed into place, their folder
// after, and a failed sync told like a failed write.
class tst_DurableFile : public QObject
{
    Q_OBJECT

private slots:
    void commitSyncsTheFileThenTheFolder();
    void failedFileSyncKeepsTheEarlierFile();
    void failedFolderSyncIsAFailure();
    void syncFileOfAPlainFile();
    void syncsTheFolderOfAFile();
    void missingFolderIsAFailure();
    void severalFilesAndEmptyPaths();
    void severalFoldersTellTheFirstFailure();
};

namespace {

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

ino_t inodeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

} // namespace

void tst_DurableFile::commitSyncsTheFileThenTheFolder()
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath("0051611u.txt");
    FailingSync syncs;
    QStringList seen; // the state at each sync
    syncs.onSync = [&](const FailingSync::Call& c) {
        seen << QStringLiteral("%1 %2").arg(c.folder ? "folder" : "file", QFile::exists(path) ? "named" : "unnamed");
    };
    QSaveFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write("line\r\n"), 6);
    QString error;
    QVERIFY2(DurableFile::commit(file, &error), qPrintable(error));
    QCOMPARE(readAll(path), QByteArray("line\r\n"));

    // Exactly two syncs: the file's bytes before it took its name, and the
    // folder once it had it; each of the very file and folder.
    QCOMPARE(seen, QStringList({"file unnamed", "folder named"}));
    QCOMPARE(syncs.calls.size(), 2);
    QCOMPARE(syncs.calls.at(0).inode, inodeOf(path));
    QCOMPARE(syncs.calls.at(1).inode, inodeOf(dir.path()));
    QCOMPARE(syncs.folderSyncs(QFileInfo(dir.path()).canonicalFilePath()), 1);
    QVERIFY(!syncs.calls.at(0).failed && !syncs.calls.at(1).failed);
}

void tst_DurableFile::failedFileSyncKeepsTheEarlierFile()
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath("0051611u.txt");
    {
        QFile earlier(path);
        QVERIFY(earlier.open(QIODevice::WriteOnly));
        earlier.write("yesterday\r\n");
    }
    FailingSync syncs(FailingSync::Fail::Files);
    QSaveFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("today\r\n");
    QString error;
    QVERIFY(!DurableFile::commit(file, &error));
    QVERIFY2(error.contains("could not be synced to the disk"), qPrintable(error));
    QVERIFY2(error.contains(QString::fromLocal8Bit(std::strerror(EIO))), qPrintable(error));
    // Not renamed: the earlier file stands, and no copy is left behind.
    QCOMPARE(readAll(path), QByteArray("yesterday\r\n"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"0051611u.txt"}));
    QCOMPARE(syncs.fileSyncs(), 1);
}

void tst_DurableFile::failedFolderSyncIsAFailure()
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath("report.csv");
    FailingSync syncs(FailingSync::Fail::Folders);
    QSaveFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("a,b\r\n");
    QString error;
    QVERIFY(!DurableFile::commit(file, &error));
    QVERIFY2(error.contains(QStringLiteral("the folder %1 could not be synced to the disk").arg(dir.path())),
             qPrintable(error));
    QVERIFY2(error.contains(QString::fromLocal8Bit(std::strerror(EIO))), qPrintable(error));
    QCOMPARE(syncs.calls.size(), 2);
    QVERIFY(syncs.calls.at(1).folder && syncs.calls.at(1).failed);

    // syncFolderOf alone says the same.
    error.clear();
    QVERIFY(!DurableFile::syncFolderOf(path, &error));
    QVERIFY2(error.contains("could not be synced"), qPrintable(error));
}

void tst_DurableFile::syncFileOfAPlainFile()
{
    QTemporaryDir dir;
    QFile file(QDir(dir.path()).filePath("trace.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("buffered");
    {
        FailingSync syncs;
        QVERIFY(DurableFile::syncFile(file));
        QCOMPARE(syncs.fileSyncs(), 1);
        QCOMPARE(syncs.calls.at(0).inode, inodeOf(file.fileName()));
    }
    // The buffer was flushed before the sync.
    QCOMPARE(readAll(file.fileName()), QByteArray("buffered"));
    FailingSync failing(FailingSync::Fail::Files);
    QString error;
    QVERIFY(!DurableFile::syncFile(file, &error));
    QVERIFY2(error.startsWith("it could not be synced to the disk ("), qPrintable(error));
}

void tst_DurableFile::syncsTheFolderOfAFile()
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath("0051611u.txt");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("line\r\n");
    f.close();
    FailingSync syncs;
    QVERIFY(DurableFile::syncFolderOf(path));
    // Named before it exists (the name a rename is about to take) works too.
    QVERIFY(DurableFile::syncFolderOf(QDir(dir.path()).filePath("not-yet.txt")));
    QCOMPARE(syncs.folderSyncs(QFileInfo(dir.path()).canonicalFilePath()), 2);
}

void tst_DurableFile::missingFolderIsAFailure()
{
    QTemporaryDir dir;
    QString error;
    QVERIFY(!DurableFile::syncFolderOf(QDir(dir.path()).filePath("gone/0051611u.txt"), &error));
    QVERIFY2(error.contains(QDir(dir.path()).filePath("gone")), qPrintable(error));
    QVERIFY2(error.contains("could not be opened"), qPrintable(error));
}

void tst_DurableFile::severalFilesAndEmptyPaths()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("bank"));
    QVERIFY(QDir(dir.path()).mkpath("BackupData"));
    FailingSync syncs;
    QVERIFY(DurableFile::syncFoldersOf({QString(), QDir(dir.path()).filePath("bank/0051611u.txt"),
                                        QDir(dir.path()).filePath("BackupData/0051611uCheck.txt"),
                                        QDir(dir.path()).filePath("BackupData/005_16_11_07.txt")}));
    // Each folder once.
    QCOMPARE(syncs.calls.size(), 2);
    QVERIFY(!DurableFile::syncFoldersOf({QDir(dir.path()).filePath("gone/a.txt")}));
    QVERIFY(DurableFile::syncFoldersOf({}));
}

void tst_DurableFile::severalFoldersTellTheFirstFailure()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("bank"));
    QVERIFY(QDir(dir.path()).mkpath("BackupData"));
    FailingSync syncs(FailingSync::Fail::Folders, "BackupData");
    QString error;
    QVERIFY(!DurableFile::syncFoldersOf(
        {QDir(dir.path()).filePath("bank/0051611u.txt"), QDir(dir.path()).filePath("BackupData/0051611uCheck.txt")},
        &error));
    QVERIFY2(error.contains(QDir(dir.path()).filePath("BackupData")), qPrintable(error));
    // The other folder was synced all the same.
    QCOMPARE(syncs.calls.size(), 2);
}

QTEST_GUILESS_MAIN(tst_DurableFile)
#include "tst_durablefile.moc"
