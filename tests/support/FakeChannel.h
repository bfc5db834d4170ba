#pragma once

#include "link/LinkChannel.h"

#include <QByteArray>
#include <QList>
#include <QString>

// A link the test talks through: every frame written is kept, bytes fed in
// wait until the session reads them, and each feed raises the receive event.
class FakeChannel : public LinkChannel
{
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
        ++reads;
        QByteArray out;
        out.swap(pending);
        return out;
    }
    QString deviceName() const override { return QStringLiteral("fake"); }

    // Bytes from the terminal, then the receive event.
    void feed(const QByteArray& bytes)
    {
        pending += bytes;
        emit dataArrived();
    }
    void fail(const QString& message) { emit failed(message); }
    QByteArray lastWritten() const { return written.isEmpty() ? QByteArray() : written.last(); }

    QString openError; // when set, open() fails with it
    int opens = 0;
    int writeCalls = 0; // empty writes included
    int reads = 0;
    QList<QByteArray> written; // non-empty writes in order
    QByteArray pending;        // fed, not yet read

private:
    bool m_open = false;
};
