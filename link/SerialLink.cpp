#include "link/SerialLink.h"

#include "link/LinkTrace.h"

#include <QFileInfo>

#include <algorithm>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

SerialLink::SerialLink(QObject* parent) : LinkChannel(parent)
{
    connect(&m_port, &QSerialPort::readyRead, this, &LinkChannel::dataArrived);
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialLink::onError);
}

SerialLink::~SerialLink()
{
    close();
}

namespace {

// Another program (or another copy of this one) has the port: Qt reports a
// lock it could not take, or the system says the device is busy.
bool looksBusy(const QString& device, const QString& detail)
{
    if (detail.contains(QLatin1String("lock"), Qt::CaseInsensitive) ||
        detail.contains(QLatin1String("busy"), Qt::CaseInsensitive))
        return true;
    const QFileInfo info(device);
    return info.exists() && info.isReadable() && info.isWritable();
}

} // namespace

namespace {

// The device with where it came from: "/dev/ttyS0 (Comm Port 1 of the settings)".
QString named(const QString& device, const PortChoice& choice)
{
    const QString origin = choice.origin();
    return origin.isEmpty() ? device : QStringLiteral("%1 (%2)").arg(device, origin);
}

} // namespace

QString SerialLink::openErrorText(const QString& device, QSerialPort::SerialPortError error, const QString& detail,
                                  const PortChoice& choice)
{
    if (device.isEmpty()) {
        if (!choice.problem.isEmpty())
            return choice.problem;
        return QStringLiteral("No serial port is configured. Choose the Comm Port in CONFIGURE "
                              "(or give the device with --port).");
    }
    switch (error) {
    case QSerialPort::DeviceNotFoundError:
        return QStringLiteral("The serial port %1 does not exist. Check that the terminal's cable or USB adapter "
                              "is plugged in, and that %2.")
            .arg(named(device, choice), choice.remedy());
    case QSerialPort::PermissionError:
        if (looksBusy(device, detail))
            return QStringLiteral("The serial port %1 is busy: another program is using it. Close that program "
                                  "(or the other Send or Receive screen) and try again.")
                .arg(named(device, choice));
        return QStringLiteral("Permission denied on the serial port %1. The user must be in the 'dialout' group: "
                              "ask the administrator to add the user, then log out and in again (see "
                              "docs/installing.md, installed as /usr/share/doc/tonvy/docs/installing.md).")
            .arg(named(device, choice));
    case QSerialPort::OpenError:
        return QStringLiteral("The serial port %1 is busy: it is already open. Close the other Send or Receive "
                              "screen and try again.")
            .arg(named(device, choice));
    default:
        return QStringLiteral("The serial port %1 cannot be used as a serial line (%2). Check that %3.")
            .arg(named(device, choice), detail, choice.remedy());
    }
}

QString SerialLink::lostText(const QString& device, const PortChoice& choice)
{
    return QStringLiteral("The connection to the terminal on %1 was lost: the cable was pulled or the device went "
                          "away. Check the cable and press the button again.")
        .arg(named(device, choice));
}

bool SerialLink::open(QString* error)
{
    close();
    m_port.setPortName(m_device);
    m_port.setReadBufferSize(1024);
    if (m_device.isEmpty() || !m_port.open(QIODevice::ReadWrite)) {
        const QSerialPort::SerialPortError code =
            m_device.isEmpty() ? QSerialPort::DeviceNotFoundError : m_port.error();
        const QString text = openErrorText(m_device, code, m_port.errorString(), m_choice);
        if (error)
            *error = text;
        if (m_trace)
            m_trace->note(text);
        m_port.clearError();
        return false;
    }
    const bool ok = m_port.setBaudRate(QSerialPort::Baud19200) && m_port.setParity(QSerialPort::NoParity) &&
                    m_port.setDataBits(QSerialPort::Data8) && m_port.setStopBits(QSerialPort::OneStop) &&
                    m_port.setFlowControl(QSerialPort::NoFlowControl);
    if (!ok) {
        const QString text =
            openErrorText(m_device, QSerialPort::UnsupportedOperationError, m_port.errorString(), m_choice);
        m_port.close();
        if (error)
            *error = text;
        return false;
    }
    // Bytes that reached the line before this open (answers to an earlier
    // session, a terminal's chatter) must never be taken for a reply.
    m_port.clear(QSerialPort::Input);
    if (m_trace)
        m_trace->note(QStringLiteral("opened %1 at 19200,n,8,1").arg(m_device));
    return true;
}

void SerialLink::close()
{
    if (m_port.isOpen()) {
        m_port.close();
        if (m_trace)
            m_trace->note(QStringLiteral("closed %1").arg(m_device));
    }
}

bool SerialLink::isOpen() const
{
    return m_port.isOpen();
}

void SerialLink::write(const QByteArray& bytes)
{
    if (!m_port.isOpen() || bytes.isEmpty())
        return;
    if (m_trace)
        m_trace->chunk("OUT", bytes);
    qsizetype written = 0;
#ifdef Q_OS_UNIX
    // QSerialPort keeps what is written in its buffer and writes it when the
    // event loop next sees the line ready, which costs a wake-up and a whole
    // turn of the loop for every request. With nothing queued before it, the
    // frame goes straight onto the line; what the line does not take now
    // (it is full) follows through QSerialPort as before. The bytes and
    // their order are the same.
    if (m_port.bytesToWrite() == 0) {
        const ssize_t n = ::write(m_port.handle(), bytes.constData(), static_cast<size_t>(bytes.size()));
        if (n > 0)
            written = n;
    }
#endif
    if (written < bytes.size()) {
        m_port.write(bytes.constData() + written, bytes.size() - written);
        m_port.flush();
    }
}

QByteArray SerialLink::readAll()
{
    // What is buffered is copied into an array of its own size. Asked for
    // exactly what it holds, the port would hand over its whole read chunk
    // (32 KB) instead, and allocate a fresh one for the next reply: a
    // receive keeps every reply, so its memory would grow by 32 KB a reply,
    // each fresh page a fault. Only a full buffer (the port's
    // notifications then paused) goes through readAll(), which starts them
    // again.
    const qint64 available = m_port.bytesAvailable();
    QByteArray bytes;
    if (available > 0 && available < m_port.readBufferSize()) {
        bytes.resize(available);
        bytes.resize(std::max<qint64>(m_port.read(bytes.data(), available), 0));
    } else {
        bytes = m_port.readAll();
    }
    if (m_trace)
        m_trace->chunk("IN ", bytes);
    return bytes;
}

void SerialLink::onError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_port.isOpen())
        return;
    const bool lost = error == QSerialPort::ResourceError || error == QSerialPort::ReadError ||
                      error == QSerialPort::WriteError || error == QSerialPort::TimeoutError;
    const QString text =
        lost ? lostText(m_device, m_choice) : openErrorText(m_device, error, m_port.errorString(), m_choice);
    if (m_trace)
        m_trace->note(QStringLiteral("%1 (%2)").arg(text, m_port.errorString()));
    m_port.clearError();
    m_port.close();
    emit failed(text);
}
