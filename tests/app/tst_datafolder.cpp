#include "core/DataFolder.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Which data folder a program uses without --data-dir: beside itself in the
// build folder, the user's own folder once installed. The installed case is
// tried with a copy of tonvy-cli outside the build folder, so nothing needs
// installing.
class tst_DataFolder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void buildTreeKeepsDataBesideTheProgram();
    void installedUsesTheUsersFolder();
    void usersFolderFollowsXdgDataHome();
    void theBuildMarksItsOwnPrograms();
    void copiedOutOfTheBuildTheProgramUsesTheUsersFolder();
    void copiedWithTheMarkerTheProgramKeepsItsData();

private:
    struct Run
    {
        int code = -1;
        QString out;
        QString err;
    };
    Run runCli(const QString& program, const QStringList& args, const QString& home);
    QString copyCli(const QString& toDir, bool withMarker);

    QByteArray m_home;
    QByteArray m_xdgDataHome;
    bool m_hadXdgDataHome = false;
};

void tst_DataFolder::initTestCase()
{
    m_home = qgetenv("HOME");
    m_hadXdgDataHome = qEnvironmentVariableIsSet("XDG_DATA_HOME");
    m_xdgDataHome = qgetenv("XDG_DATA_HOME");
}

void tst_DataFolder::cleanup()
{
    qputenv("HOME", m_home);
    if (m_hadXdgDataHome)
        qputenv("XDG_DATA_HOME", m_xdgDataHome);
    else
        qunsetenv("XDG_DATA_HOME");
}

void tst_DataFolder::buildTreeKeepsDataBesideTheProgram()
{
    QTemporaryDir bin;
    QFile marker(bin.filePath(DataFolder::buildTreeMarker()));
    QVERIFY(marker.open(QIODevice::WriteOnly));
    marker.close();
    QVERIFY(DataFolder::isBuildTree(bin.path()));
    QCOMPARE(DataFolder::defaultFor(bin.path()), bin.path());
}

void tst_DataFolder::installedUsesTheUsersFolder()
{
    QTemporaryDir home;
    QTemporaryDir bin;
    qputenv("HOME", home.path().toLocal8Bit());
    qunsetenv("XDG_DATA_HOME");
    QVERIFY(!DataFolder::isBuildTree(bin.path()));
    QCOMPARE(DataFolder::defaultFor(bin.path()), home.path() + "/.local/share/tonvy");
    // A folder named like the marker is not the marker.
    QVERIFY(QDir(bin.path()).mkdir(DataFolder::buildTreeMarker()));
    QCOMPARE(DataFolder::defaultFor(bin.path()), home.path() + "/.local/share/tonvy");
}

void tst_DataFolder::usersFolderFollowsXdgDataHome()
{
    QTemporaryDir xdg;
    qputenv("XDG_DATA_HOME", xdg.path().toLocal8Bit());
    QCOMPARE(DataFolder::userFolder(), xdg.path() + "/tonvy");
}

void tst_DataFolder::theBuildMarksItsOwnPrograms()
{
    const QString bin = qEnvironmentVariable("TONVY_BIN_DIR");
    QVERIFY2(QFile::exists(bin + "/tonvy-cli"), qPrintable(bin));
    QVERIFY(DataFolder::isBuildTree(bin));
}

QString tst_DataFolder::copyCli(const QString& toDir, bool withMarker)
{
    const QString bin = qEnvironmentVariable("TONVY_BIN_DIR");
    const QString copy = QDir(toDir).filePath("tonvy-cli");
    if (!QFile::copy(bin + "/tonvy-cli", copy))
        return {};
    if (withMarker &&
        !QFile::copy(bin + "/" + DataFolder::buildTreeMarker(), QDir(toDir).filePath(DataFolder::buildTreeMarker())))
        return {};
    return copy;
}

tst_DataFolder::Run tst_DataFolder::runCli(const QString& program, const QStringList& args, const QString& home)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home);
    env.remove("XDG_DATA_HOME");
    p.setProcessEnvironment(env);
    p.start(program, args);
    p.closeWriteChannel();
    Run r;
    if (!p.waitForFinished(scaledMs(30000)))
        return r;
    r.code = p.exitCode();
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

void tst_DataFolder::copiedOutOfTheBuildTheProgramUsesTheUsersFolder()
{
    QTemporaryDir root;
    const QString bin = root.filePath("usr/bin");
    const QString home = root.filePath("home/clerk");
    QVERIFY(QDir().mkpath(bin));
    QVERIFY(QDir().mkpath(home));
    const QString cli = copyCli(bin, false);
    QVERIFY(!cli.isEmpty());

    const Run set = runCli(cli, {"settings", "set", "--bank-name", "Coastal Bank", "--comm-port", "2"}, home);
    QVERIFY2(set.code == 0, qPrintable(set.err));
    const Run show = runCli(cli, {"settings", "show"}, home);
    QVERIFY2(show.code == 0, qPrintable(show.err));
    const QString data = home + "/.local/share/tonvy";
    QVERIFY2(show.out.split('\n').contains("Data Folder: " + data), qPrintable(show.out));
    QVERIFY(QFile::exists(data + "/HandHeldData.db"));
    // Nothing was written beside the program.
    QCOMPARE(QDir(bin).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList{"tonvy-cli"});
}

void tst_DataFolder::copiedWithTheMarkerTheProgramKeepsItsData()
{
    QTemporaryDir root;
    const QString bin = root.filePath("build/bin");
    const QString home = root.filePath("home/clerk");
    QVERIFY(QDir().mkpath(bin));
    QVERIFY(QDir().mkpath(home));
    const QString cli = copyCli(bin, true);
    QVERIFY(!cli.isEmpty());

    const Run set = runCli(cli, {"settings", "set", "--bank-name", "Coastal Bank", "--comm-port", "2"}, home);
    QVERIFY2(set.code == 0, qPrintable(set.err));
    const Run show = runCli(cli, {"settings", "show"}, home);
    QVERIFY2(show.out.split('\n').contains("Data Folder: " + bin), qPrintable(show.out));
    QVERIFY(QFile::exists(bin + "/HandHeldData.db"));
    QVERIFY(!QFile::exists(home + "/.local/share/tonvy"));
}

QTEST_GUILESS_MAIN(tst_DataFolder)
#include "tst_datafolder.moc"
