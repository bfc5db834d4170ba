#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// The byte pipe to the terminal as the protocol sessions see it. The real
// one is a serial port; tests may put anything behind it.
class LinkChannel : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // (Re)opens the pipe. On failure returns false with a message that says
    // which device and why.
    virtual bool open(QString* error) = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // Writes the whole frame in one call (an empty frame writes nothing).
    virtual void write(const QByteArray& bytes) = 0;
    // Everything received and not yet read.
    virtual QByteArray readAll() = 0;
    // What this channel talks to, for messages ("/dev/ttyS0").
    virtual QString deviceName() const = 0;

signals:
    // Bytes are waiting (version 2.1's receive event).
    void dataArrived();
    // The device failed after it was opened (cable pulled, adapter gone).
    void failed(const QString& message);
};
