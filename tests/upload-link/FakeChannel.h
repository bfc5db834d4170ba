#pragma once

#include "LinkChannel.h"

#include <QByteArray>
#include <QList>

// A link the test talks through: every frame written is kept, bytes fed in
// wait until the session reads them, and each feed raises the receive event.
class FakeChannel : public LinkChannel
{
    Q_OBJECT
public:
    using LinkChannel::LinkChannel;

    bool open(QString*) override
    {
        m_open = true;
        return true;
    }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    void write(const QByteArray& bytes) override
    {
        if (!bytes.isEmpty())
            written.append(bytes);
    }
    QByteArray readAll() override
    {
        ++reads;
        QByteArray out;
        out.swap(pending);
        return out;
    }
    QString deviceName() const override { return QStringLiteral("fake"); }

    void feed(const QByteArray& bytes)
    {
        pending.append(bytes);
        emit dataArrived();
    }
    QByteArray lastWritten() const { return written.isEmpty() ? QByteArray() : written.last(); }

    QList<QByteArray> written;
    QByteArray pending;
    int reads = 0;

private:
    bool m_open = false;
};
