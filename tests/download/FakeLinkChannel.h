#pragma once

#include "LinkChannel.h"

#include <QList>

// A link that keeps what is written and hands over whatever the test puts in.
class FakeLinkChannel : public LinkChannel
{
    Q_OBJECT
public:
    bool open(QString* error) override
    {
        if (refuseOpen) {
            if (error)
                *error = QStringLiteral("Cannot open fake: refused by the test.");
            return false;
        }
        m_open = true;
        ++opens;
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
        const QByteArray out = m_incoming;
        m_incoming.clear();
        return out;
    }
    QString deviceName() const override { return QStringLiteral("fake"); }

    void reply(const QByteArray& bytes)
    {
        m_incoming += bytes;
        emit dataArrived();
    }

    QList<QByteArray> written;
    int opens = 0;
    bool refuseOpen = false;

private:
    bool m_open = false;
    QByteArray m_incoming;
};
