#pragma once

#include "link/LinkCodec.h"

#include <QByteArray>
#include <QList>
#include <QString>

// The link state the send and the receive side share, program-wide, as
// version 2.1 did: only one of them talks to the terminal at a time, but what
// one leaves behind (the record number, the completion flag, the counters)
// is what the other finds.
struct LinkState
{
    static constexpr int RecordsSize = 2501; // Records(0 To 2500)

    LinkCodec codec;          // RecHi, RecLo, HexValue, CRCSum, CrcOk

    QString RecordNo;         // record requested / send counter, decimal text
    QByteArray RxBuffer;      // bytes received since the last evaluation
    QByteArray TxFrame;       // frame last built and sent
    QList<QByteArray> Records = QList<QByteArray>(RecordsSize);
    int TimeoutCount = 0;     // response time-outs in a row (the send side's retry count)
    int CrcErrorCount = 0;    // consecutive replies that failed the check
    // Set when a transfer has finished; while set, the response time-out
    // does nothing. The send side calls it "download complete".
    bool UploadDone = false;
    bool HeaderDecoded = false;
};
