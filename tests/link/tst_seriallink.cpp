// The serial line: what its messages say, and that it empties its input when
// opened. Real ports are pseudo-terminals here.

#include "link/SerialLink.h"
#include "terminal/Pty.h"
#include "tests/support/TestTiming.h"

#include <QSignalSpy>
#include <QtTest>

class tst_SerialLink : public QObject
{
    Q_OBJECT
private slots:
    void openErrorTexts_data();
    void openErrorTexts();
    void openErrorTextsNameTheOrigin_data();
    void openErrorTextsNameTheOrigin();
    void unreadablePortsIniLineIsTheMessage();
    void missingDevice();
    void busyDevice();
    void inputEmptiedOnOpen();
    void lostLineReportedOnce();
    void keptRepliesHoldOnlyTheirBytes();
};

void tst_SerialLink::openErrorTexts_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QStringList>("says");
    QTest::newRow("missing") << "/dev/ttyUSB7" << int(QSerialPort::DeviceNotFoundError) << "No such file or directory"
                             << QStringList{"/dev/ttyUSB7", "does not exist", "CONFIGURE"};
    QTest::newRow("permission") << "/nonexistent/ttyS9" << int(QSerialPort::PermissionError) << "Permission denied"
                                << QStringList{"/nonexistent/ttyS9", "Permission denied", "'dialout' group",
                                               "/usr/share/doc/tonvy/docs/installing.md"};
    QTest::newRow("locked") << "/dev/ttyS0" << int(QSerialPort::PermissionError)
                            << "Permission error while locking the device"
                            << QStringList{"/dev/ttyS0", "is busy", "another program"};
    QTest::newRow("already open") << "/dev/ttyS1" << int(QSerialPort::OpenError) << "Device is already open"
                                  << QStringList{"/dev/ttyS1", "is busy"};
    QTest::newRow("not a serial line") << "/dev/pts/0" << int(QSerialPort::UnsupportedOperationError)
                                       << "Inappropriate ioctl for device"
                                       << QStringList{"/dev/pts/0", "cannot be used as a serial line",
                                                      "Inappropriate ioctl for device"};
    QTest::newRow("none configured") << "" << int(QSerialPort::DeviceNotFoundError) << ""
                                     << QStringList{"No serial port is configured", "CONFIGURE"};
}

void tst_SerialLink::openErrorTexts()
{
    QFETCH(QString, device);
    QFETCH(int, error);
    QFETCH(QString, detail);
    QFETCH(QStringList, says);
    const QString text = SerialLink::openErrorText(device, static_cast<QSerialPort::SerialPortError>(error), detail);
    for (const QString& part : says)
        QVERIFY2(text.contains(part), qPrintable(text));
}

// A message about the port says where its device came from, and what to
// correct is that origin, not the Comm Port of CONFIGURE.
void tst_SerialLink::openErrorTextsNameTheOrigin_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("expected");
    const int missing = int(QSerialPort::DeviceNotFoundError);
    QTest::newRow("--port missing")
        << int(PortChoice::Source::Option) << missing
        << "The serial port /dev/ttyUSB7 (given with --port) does not exist. Check that the terminal's cable or USB "
           "adapter is plugged in, and that --port names the terminal's device.";
    QTest::newRow("ports.ini missing")
        << int(PortChoice::Source::PortsIni) << missing
        << "The serial port /dev/ttyUSB7 (from line 3 of /srv/tonvy/ports.ini) does not exist. Check that the "
           "terminal's cable or USB adapter is plugged in, and that line 3 of /srv/tonvy/ports.ini names the "
           "terminal's device.";
    QTest::newRow("Comm Port missing")
        << int(PortChoice::Source::CommPort) << missing
        << "The serial port /dev/ttyUSB7 (Comm Port 2 of the settings) does not exist. Check that the terminal's "
           "cable or USB adapter is plugged in, and that the Comm Port chosen in CONFIGURE is the terminal's (or map "
           "Comm Port 2 to the terminal's device in ports.ini).";
    QTest::newRow("--port not a serial line")
        << int(PortChoice::Source::Option) << int(QSerialPort::UnsupportedOperationError)
        << "The serial port /dev/ttyUSB7 (given with --port) cannot be used as a serial line (Inappropriate ioctl "
           "for device). Check that --port names the terminal's device.";
    QTest::newRow("--port permission")
        << int(PortChoice::Source::Option) << int(QSerialPort::PermissionError)
        << "Permission denied on the serial port /dev/ttyUSB7 (given with --port). The user must be in the "
           "'dialout' group: ask the administrator to add the user, then log out and in again (see "
           "docs/installing.md, installed as /usr/share/doc/tonvy/docs/installing.md).";
}

void tst_SerialLink::openErrorTextsNameTheOrigin()
{
    QFETCH(int, source);
    QFETCH(int, error);
    QFETCH(QString, expected);
    PortChoice choice;
    choice.device = "/dev/ttyUSB7";
    choice.source = static_cast<PortChoice::Source>(source);
    choice.commPort = "2";
    choice.iniFile = "/srv/tonvy/ports.ini";
    choice.iniLine = 3;
    QCOMPARE(SerialLink::openErrorText(choice.device, static_cast<QSerialPort::SerialPortError>(error),
                                       "Inappropriate ioctl for device", choice),
             expected);
}

// A ports.ini line that cannot be read keeps the port shut: the message is
// the problem with its file and line, never another device's.
void tst_SerialLink::unreadablePortsIniLineIsTheMessage()
{
    PortChoice choice;
    choice.source = PortChoice::Source::None;
    choice.problem = "Line 2 of /srv/tonvy/ports.ini cannot be read: ...";
    SerialLink link;
    link.setChoice(choice);
    QString error;
    QVERIFY(!link.open(&error));
    QCOMPARE(error, choice.problem);
    QVERIFY(!link.isOpen());
}

void tst_SerialLink::missingDevice()
{
    QTemporaryDir dir;
    SerialLink link;
    const QString device = QDir(dir.path()).filePath(QStringLiteral("ttyNothing"));
    link.setDevice(device);
    QString error;
    QVERIFY(!link.open(&error));
    QVERIFY2(error.contains(device) && error.contains(QStringLiteral("does not exist")), qPrintable(error));
}

void tst_SerialLink::busyDevice()
{
    Pty pty;
    QString error;
    QVERIFY(pty.open(&error));
    SerialLink first;
    first.setDevice(pty.devicePath());
    QVERIFY2(first.open(&error), qPrintable(error));
    SerialLink second;
    second.setDevice(pty.devicePath());
    QVERIFY(!second.open(&error));
    QVERIFY2(error.contains(pty.devicePath()) && error.contains(QStringLiteral("busy")), qPrintable(error));
}

void tst_SerialLink::inputEmptiedOnOpen()
{
    Pty pty;
    QString error;
    QVERIFY(pty.open(&error));
    pty.write("answers of an earlier exchange");
    QTest::qWait(50);
    SerialLink link;
    link.setDevice(pty.devicePath());
    QVERIFY2(link.open(&error), qPrintable(error));
    QTest::qWait(100);
    QVERIFY(link.readAll().isEmpty());
    QSignalSpy arrived(&link, &LinkChannel::dataArrived);
    pty.write("fresh");
    QTRY_VERIFY(!arrived.isEmpty());
    QCOMPARE(link.readAll(), QByteArray("fresh"));
}

void tst_SerialLink::keptRepliesHoldOnlyTheirBytes()
{
    // A receive keeps every reply it reads. A reply that held the port's
    // whole read chunk would keep 32 KB, and the port would allocate a
    // fresh chunk for every reply.
    Pty pty;
    QString error;
    QVERIFY(pty.open(&error));
    SerialLink link;
    link.setDevice(pty.devicePath());
    QVERIFY2(link.open(&error), qPrintable(error));
    QList<QByteArray> kept;
    for (int i = 0; i < 20; ++i) {
        QSignalSpy arrived(&link, &LinkChannel::dataArrived);
        const QByteArray reply(137, static_cast<char>('A' + i));
        pty.write(reply);
        QByteArray got;
        QTRY_VERIFY((got += link.readAll()).size() >= reply.size());
        QCOMPARE(got, reply);
        kept.append(got);
    }
    for (const QByteArray& reply : std::as_const(kept))
        QVERIFY2(reply.capacity() < 512, qPrintable(QStringLiteral("capacity %1").arg(reply.capacity())));
}

void tst_SerialLink::lostLineReportedOnce()
{
    auto pty = std::make_unique<Pty>();
    QString error;
    QVERIFY(pty->open(&error));
    const QString device = pty->devicePath();
    SerialLink link;
    link.setDevice(device);
    QVERIFY2(link.open(&error), qPrintable(error));
    QSignalSpy failed(&link, &LinkChannel::failed);
    pty.reset(); // the other end goes away
    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, scaledMs(5000));
    QTest::qWait(200);
    QCOMPARE(failed.count(), 1);
    QVERIFY(!link.isOpen());
    const QString text = failed.first().first().toString();
    QVERIFY2(text.contains(device) && text.contains(QStringLiteral("was lost")), qPrintable(text));
}

QTEST_GUILESS_MAIN(tst_SerialLink)
#include "tst_seriallink.moc"
