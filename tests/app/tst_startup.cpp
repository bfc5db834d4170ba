#include "base/PathUtil.h"
#include "base/Version.h"
#include "core/Startup.h"
#include "link/PortResolver.h"
#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"
#include "tests/support/RecordingMessenger.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class tst_Startup : public QObject
{
    Q_OBJECT

private slots:
    void createsDataFolderAndDatabase();
    void unopenableDatabaseIsReported();
    void pathJoin_data();
    void pathJoin();
    void portMapping_data();
    void portMapping();
    void portOrigin_data();
    void portOrigin();
    void unreadablePortsIniLine_data();
    void unreadablePortsIniLine();
    void desktopHelpWithoutDisplay_data();
    void desktopHelpWithoutDisplay();
};

void tst_Startup::createsDataFolderAndDatabase()
{
    QTemporaryDir dir;
    const QString data = dir.filePath("new/data");
    SharedDatabase db;
    RecordingMessenger m;
    QVERIFY(Startup::openDatabase(db, data, m));
    QVERIFY(QFile::exists(data + "/HandHeldData.db"));
    QVERIFY(m.entries().isEmpty());
    // The initial software passwords are not kept in plain text, and still work.
    SharedRecordset& rs = db.openSharedRecordset("select * from Password");
    QVERIFY(rs.text("admin") != QStringLiteral("admin"));
    QVERIFY(rs.text("user") != QStringLiteral("user"));
    QCOMPARE(rs.text("setup"), QStringLiteral("1234"));
    QVERIFY(PasswordStore::load(db).admin.matches("admin"));
}

void tst_Startup::unopenableDatabaseIsReported()
{
    QTemporaryDir dir;
    QFile bad(dir.filePath("HandHeldData.db"));
    QVERIFY(bad.open(QIODevice::WriteOnly));
    bad.write("this is not a database, it is a text file that someone saved over it\n");
    bad.write(QByteArray(2048, 'z'));
    bad.close();
    SharedDatabase db;
    RecordingMessenger m;
    QVERIFY(!Startup::openDatabase(db, dir.path(), m));
    QCOMPARE(m.entries().size(), 1);
    QCOMPARE(m.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(m.last().contains(dir.filePath("HandHeldData.db")), qPrintable(m.last()));
    QVERIFY2(m.last().contains("not a database"), qPrintable(m.last()));
}

void tst_Startup::pathJoin_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("expected");
    QTest::newRow("windows without separator") << "C:\\Bank"
                                               << "C:\\Bank\\0051611d.txt";
    QTest::newRow("windows with separator") << "C:\\Bank\\"
                                            << "C:\\Bank\\0051611d.txt";
    QTest::newRow("unix without separator") << "/srv/bank"
                                            << "/srv/bank/0051611d.txt";
    QTest::newRow("unix with separator") << "/srv/bank/"
                                         << "/srv/bank/0051611d.txt";
}

void tst_Startup::pathJoin()
{
    QFETCH(QString, folder);
    QFETCH(QString, expected);
    QCOMPARE(PathUtil::join(folder, "0051611d.txt"), expected);
}

void tst_Startup::portMapping_data()
{
    QTest::addColumn<QString>("commPort");
    QTest::addColumn<QString>("ini");
    QTest::addColumn<QString>("override");
    QTest::addColumn<QString>("expected");
    QTest::newRow("COM1") << "1"
                          << ""
                          << ""
                          << "/dev/ttyS0";
    QTest::newRow("COM10") << "10"
                           << ""
                           << ""
                           << "/dev/ttyS9";
    QTest::newRow("ini maps") << "2"
                              << "1=/dev/ttyUSB0\n2 = /dev/ttyUSB1\n"
                              << ""
                              << "/dev/ttyUSB1";
    QTest::newRow("ini without entry") << "3"
                                       << "1=/dev/ttyUSB0\n"
                                       << ""
                                       << "/dev/ttyS2";
    QTest::newRow("override wins") << "1"
                                   << "1=/dev/ttyUSB0\n"
                                   << "/dev/pts/7"
                                   << "/dev/pts/7";
    QTest::newRow("no port") << ""
                             << ""
                             << ""
                             << "";
}

void tst_Startup::portMapping()
{
    QFETCH(QString, commPort);
    QFETCH(QString, ini);
    QFETCH(QString, override);
    QFETCH(QString, expected);
    QTemporaryDir dir;
    if (!ini.isEmpty()) {
        QFile f(dir.filePath("ports.ini"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("# serial devices by Comm Port number\n" + ini.toUtf8());
    }
    QCOMPARE(PortResolver::resolve(commPort, dir.path(), override), expected);
}

void tst_Startup::portOrigin_data()
{
    QTest::addColumn<QString>("commPort");
    QTest::addColumn<QString>("ini");
    QTest::addColumn<QString>("override");
    QTest::addColumn<QString>("origin");
    QTest::addColumn<QString>("described");
    QTest::newRow("the Comm Port's own device") << "1"
                                                << ""
                                                << ""
                                                << "Comm Port 1 of the settings"
                                                << "/dev/ttyS0";
    QTest::newRow("ports.ini") << "2"
                               << "1=/dev/ttyUSB0\n2 = /dev/ttyUSB1\n"
                               << ""
                               << "from line 3 of %1"
                               << "/dev/ttyUSB1 (ports.ini line 3)";
    QTest::newRow("--port") << "1"
                            << "1=/dev/ttyUSB0\n"
                            << "/dev/pts/7"
                            << "given with --port"
                            << "/dev/pts/7 (given with --port)";
    QTest::newRow("no Comm Port") << ""
                                  << ""
                                  << ""
                                  << ""
                                  << "none";
}

void tst_Startup::portOrigin()
{
    QFETCH(QString, commPort);
    QFETCH(QString, ini);
    QFETCH(QString, override);
    QFETCH(QString, origin);
    QFETCH(QString, described);
    QTemporaryDir dir;
    if (!ini.isEmpty()) {
        QFile f(dir.filePath("ports.ini"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("# serial devices by Comm Port number\n" + ini.toUtf8());
    }
    const PortChoice c = PortResolver::choose(commPort, dir.path(), override);
    QCOMPARE(c.origin(), origin.arg(dir.filePath("ports.ini")));
    QCOMPARE(c.describe(), described);
    QVERIFY(c.problem.isEmpty());
}

// A line that cannot be read might be the one meant for the Comm Port: no
// device is chosen, and the problem names the file, the line and what is
// wrong with it. --port does not read ports.ini at all.
void tst_Startup::unreadablePortsIniLine_data()
{
    QTest::addColumn<QString>("commPort");
    QTest::addColumn<QString>("ini");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("why");
    QTest::newRow("no equals sign") << "1"
                                    << "1 /dev/ttyUSB0\n"
                                    << 2 << "has no \"=\"";
    QTest::newRow("colon instead") << "1"
                                   << "2=/dev/ttyACM0\n1: /dev/ttyUSB0\n"
                                   << 3 << "has no \"=\"";
    QTest::newRow("name for a number") << "1"
                                       << "COM1=/dev/ttyUSB0\n"
                                       << 2 << "does not start with a Comm Port number from 1 to 10";
    QTest::newRow("port 11") << "1"
                             << "11=/dev/ttyUSB0\n"
                             << 2 << "does not start with a Comm Port number from 1 to 10";
    QTest::newRow("no device") << "1"
                               << "1=\n"
                               << 2 << "names no device";
    QTest::newRow("mapped twice") << "1"
                                  << "1=/dev/ttyUSB0\n\n1=/dev/ttyUSB1\n"
                                  << 4 << "maps Comm Port 1 again (line 2 maps it already)";
    QTest::newRow("another port's line") << "3"
                                         << "1=/dev/ttyUSB0\n2\n"
                                         << 3 << "has no \"=\"";
}

void tst_Startup::unreadablePortsIniLine()
{
    QFETCH(QString, commPort);
    QFETCH(QString, ini);
    QFETCH(int, line);
    QFETCH(QString, why);
    QTemporaryDir dir;
    QFile f(dir.filePath("ports.ini"));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("# serial devices by Comm Port number\n" + ini.toUtf8());
    f.close();

    const PortChoice c = PortResolver::choose(commPort, dir.path(), {});
    QCOMPARE(c.device, QString());
    QCOMPARE(c.iniLine, line);
    QVERIFY2(c.problem.startsWith(QStringLiteral("Line %1 of %2 cannot be read: ").arg(line).arg(f.fileName())),
             qPrintable(c.problem));
    QVERIFY2(c.problem.contains(why), qPrintable(c.problem));
    QVERIFY2(c.problem.endsWith("until then the terminal's port is not opened."), qPrintable(c.problem));
    QCOMPARE(c.describe(), QStringLiteral("none (ports.ini line %1 cannot be read)").arg(line));

    const PortChoice given = PortResolver::choose(commPort, dir.path(), "/dev/pts/7");
    QCOMPARE(given.device, QStringLiteral("/dev/pts/7"));
    QVERIFY(given.problem.isEmpty());
}

// The desktop program answers --help and --version where no display can be
// opened (an ssh session, a script): printed, exit 0, nothing on standard error.
void tst_Startup::desktopHelpWithoutDisplay_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("--help") << "--help";
    QTest::newRow("-h") << "-h";
    QTest::newRow("--version") << "--version";
}

void tst_Startup::desktopHelpWithoutDisplay()
{
    QFETCH(QString, option);
    const QString tonvy = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy";
    QVERIFY2(QFile::exists(tonvy), qPrintable(tonvy));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_RUNTIME_DIR"})
        env.remove(name);
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(tonvy, {option});
    QVERIFY(p.waitForFinished(30000));
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    QCOMPARE(err, QString());
    if (option == "--version") {
        QCOMPARE(out, QStringLiteral("tonvy %1\n").arg(programVersion()));
    } else {
        QVERIFY2(out.startsWith("Usage: " + tonvy + " [options]\nTonvy Hand-Held Interface Software\n"),
                 qPrintable(out));
        for (const QString& line : {QStringLiteral("  --data-dir <DIR>"), QStringLiteral("  --port <DEVICE>"),
                                    QStringLiteral("  --trace <FILE>")})
            QVERIFY2(out.contains("\n" + line), qPrintable(out));
    }
}

QTEST_GUILESS_MAIN(tst_Startup)
#include "tst_startup.moc"
