#pragma once

#include "link/LinkCodec.h"

#include <QByteArray>
#include <QList>
#include <QString>

// Version 2.1's "download complete" / UploadDone: one flag for the whole
// program. The send side sets it when its final acknowledgement arrives and
// the receive side when its last record is in; each screen clears it when it
// loads (and the receive side again when Receive is pressed). While it is
// set the send side's response time-out resends nothing, so a second send on
// the same screen after a finished send or receive waits in silence. That
// cross-over is why the flag is shared; the sessions' own decisions go by
// their phase.
class TransferCompletion
{
public:
    void markComplete() { m_complete = true; }
    void clear() { m_complete = false; }
    bool isComplete() const { return m_complete; }

private:
    bool m_complete = false;
};

// The link state the send and the receive side share, program-wide, as
// version 2.1 did: only one of them talks to the terminal at a time, but what
// one leaves behind (the record number, the completion, the counters) is what
// the other finds.
struct LinkState
{
    static constexpr int RecordsSize = 2501; // Records(0 To 2500)

    LinkCodec codec; // RecHi, RecLo, HexValue, CRCSum, CrcOk

    QString RecordNo;    // record requested / send counter, decimal text
    QByteArray RxBuffer; // bytes received since the last evaluation
    QByteArray TxFrame;  // frame last built and sent
    QList<QByteArray> Records = QList<QByteArray>(RecordsSize);
    int TimeoutCount = 0;  // response time-outs in a row (the send side's retry count)
    int CrcErrorCount = 0; // consecutive replies that failed the check
    TransferCompletion completion;

    // RecordNo set to `number`, its digits written over the text it holds:
    // the receive sets it for every request, and a new string each time
    // would be an allocation while the terminal waits.
    void setRecordNo(qint64 number);
};
