#pragma once

#include <QByteArray>

// Reading what the terminal answers to a download frame: a function over
// the bytes only, no port, no timers. The session reads a buffer once it
// holds a whole answer (DownloadFrames::AnswerSize bytes or more).
namespace DownloadAnswers {

struct Answer
{
    bool notInDownloadMode = false; // "CLOS" or "BACK": the terminal is in another mode
    bool acknowledged = false;      // "AACK" somewhere in the buffer
    // The record number carried by the two bytes in front of "AACK"; -1 when
    // "AACK" is missing or stands at position 1 or 2 (no number before it).
    int recordNumber = -1;
    bool negative = false; // "NACK": the same frame is asked for again
};

// When the terminal is not in download mode nothing else is read. A record
// number with a high byte of 0x80 or more is an Overflow
// (LinkError), as version 2.1's conversion failed on it.
Answer read(const QByteArray& buffer);

} // namespace DownloadAnswers
