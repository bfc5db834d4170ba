#pragma once

#include "FakeChannel.h"

#include <QTimer>

// A terminal in download mode that acknowledges every frame with the frame's
// own record number (bytes 8 and 9; the header and "OVER" carry 00 00), or
// one that answers every frame with a fixed reply.
class FakeTerminal : public FakeChannel
{
    Q_OBJECT
public:
    void write(const QByteArray& bytes) override
    {
        FakeChannel::write(bytes);
        if (bytes.isEmpty() || silent)
            return;
        QByteArray answer = fixedReply;
        if (answer.isEmpty()) {
            answer = QByteArray(8, '\0') + bytes.mid(7, 2) + QByteArray("AACK");
        }
        QTimer::singleShot(0, this, [this, answer] {
            if (isOpen())
                feed(answer);
        });
    }

    bool silent = false;
    QByteArray fixedReply;
};
