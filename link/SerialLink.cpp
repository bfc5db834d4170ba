#include "SerialLink.h"

#include "LinkTrace.h"

SerialLink::SerialLink(QObject* parent) : LinkChannel(parent)
{
    connect(&m_port, &QSerialPort::readyRead, this, &LinkChannel::dataArrived);
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialLink::onError);
}

SerialLink::~SerialLink()
{
    close();
}

QString SerialLink::openErrorText(const QString& device, QSerialPort::SerialPortError error,
                                  const QString& detail)
{
    if (device.isEmpty())
        return QStringLiteral("No serial port is configured. Choose the Comm Port in CONFIGURE "
                              "(or give the device with --port).");
    switch (error) {
    case QSerialPort::DeviceNotFoundError:
        return QStringLiteral("The serial port %1 does not exist (%2). Check that the terminal's cable or "
                              "USB adapter is plugged in and that the Comm Port chosen in CONFIGURE, or "
                              "ports.ini, names the right device.")
            .arg(device, detail);
    case QSerialPort::PermissionError:
        return QStringLiteral("The serial port %1 cannot be opened: permission denied or the port is busy "
                              "(%2). Close any other program using it; on Linux the user must be in the "
                              "'dialout' group (log in again after adding it).")
            .arg(device, detail);
    case QSerialPort::OpenError:
        return QStringLiteral("The serial port %1 is already open (%2).").arg(device, detail);
    default:
        return QStringLiteral("The serial port %1 cannot be opened: %2").arg(device, detail);
    }
}

bool SerialLink::open(QString* error)
{
    close();
    m_port.setPortName(m_device);
    m_port.setReadBufferSize(1024);
    if (m_device.isEmpty() || !m_port.open(QIODevice::ReadWrite)) {
        const QSerialPort::SerialPortError code = m_device.isEmpty() ? QSerialPort::DeviceNotFoundError
                                                                     : m_port.error();
        const QString text = openErrorText(m_device, code, m_port.errorString());
        if (error)
            *error = text;
        if (m_trace)
            m_trace->note(text);
        m_port.clearError();
        return false;
    }
    const bool ok = m_port.setBaudRate(QSerialPort::Baud19200) && m_port.setParity(QSerialPort::NoParity)
                    && m_port.setDataBits(QSerialPort::Data8) && m_port.setStopBits(QSerialPort::OneStop)
                    && m_port.setFlowControl(QSerialPort::NoFlowControl);
    if (!ok) {
        const QString text = QStringLiteral("The serial port %1 does not accept 19200,n,8,1: %2")
                                 .arg(m_device, m_port.errorString());
        m_port.close();
        if (error)
            *error = text;
        return false;
    }
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
    m_port.write(bytes);
}

QByteArray SerialLink::readAll()
{
    const QByteArray bytes = m_port.readAll();
    if (m_trace)
        m_trace->chunk("IN ", bytes);
    return bytes;
}

void SerialLink::onError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_port.isOpen())
        return;
    const QString text = QStringLiteral("The serial port %1 failed: %2").arg(m_device, m_port.errorString());
    if (m_trace)
        m_trace->note(text);
    m_port.clearError();
    m_port.close();
    emit failed(text);
}
