#pragma once

#include "link/LinkChannel.h"
#include "link/PortResolver.h"

#include <QSerialPort>

class LinkTrace;

// The serial line to the terminal: 19200 baud, no parity, 8 data bits, one
// stop bit, an input buffer of 1024 bytes. Closes itself on the first error
// after opening (a vanished device otherwise reports errors in a tight loop).
class SerialLink : public LinkChannel
{
    Q_OBJECT
public:
    explicit SerialLink(QObject* parent = nullptr);
    ~SerialLink() override;

    void setDevice(const QString& device) { setChoice(PortChoice::given(device)); }
    // The device and where it came from, which every message about the port names.
    void setChoice(const PortChoice& choice)
    {
        m_choice = choice;
        m_device = choice.device;
    }
    void setTrace(LinkTrace* trace) { m_trace = trace; }

    bool open(QString* error) override;
    void close() override;
    bool isOpen() const override;
    void write(const QByteArray& bytes) override;
    QByteArray readAll() override;
    QString deviceName() const override { return m_device; }

    // The message for a port that cannot be opened, with the usual remedy
    // and where the device came from.
    static QString openErrorText(const QString& device, QSerialPort::SerialPortError error, const QString& detail,
                                 const PortChoice& choice = {});
    // The message for a port that failed after it was opened.
    static QString lostText(const QString& device, const PortChoice& choice = {});

private:
    void onError(QSerialPort::SerialPortError error);

    QSerialPort m_port;
    QString m_device;
    PortChoice m_choice;
    LinkTrace* m_trace = nullptr;
};
