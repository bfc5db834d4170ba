#pragma once

#include "LinkChannel.h"

#include <QList>

// A link whose writes are recorded and whose input the test feeds.
class FakeChannel : public LinkChannel
{
    Q_OBJECT
public:
    using LinkChannel::LinkChannel;

    bool open(QString* error) override
    {
        ++opens;
        if (!openError.isEmpty()) {
            if (error)
                *error = openError;
            return false;
        }
        m_open = true;
        return true;
    }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    void write(const QByteArray& bytes) override
    {
        ++writeCalls;
        if (!bytes.isEmpty())
            written.append(bytes);
    }
    QByteArray readAll() override
    {
        QByteArray out;
        out.swap(m_incoming);
        return out;
    }
    QString deviceName() const override { return QStringLiteral("fake"); }

    // Bytes from the terminal, then the receive event.
    void feed(const QByteArray& bytes)
    {
        m_incoming += bytes;
        emit dataArrived();
    }
    void fail(const QString& message) { emit failed(message); }

    QString openError;
    int opens = 0;
    int writeCalls = 0;
    QList<QByteArray> written; // non-empty writes in order

private:
    bool m_open = false;
    QByteArray m_incoming;
};
