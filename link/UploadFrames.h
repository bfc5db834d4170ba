#pragma once

#include <QByteArray>
#include <QByteArrayView>

// The frames the PC sends in an upload, built without any state, and the
// parts of a reply the PC reads to tell one reply from another.
namespace UploadFrames {

constexpr int ReplySize = 137;
// Bytes 1 to 9 of a reply are a head the PC gives no meaning to: replies are
// compared on bytes 10 to 137 (the record and its check byte).
constexpr int ContentStart = 9;
constexpr int ContentSize = ReplySize - ContentStart;

// Record request: 01 FF 10 F0 'U' 00 03, the record number high and low, and
// a last byte that is always zero (not a check byte of the two before it).
QByteArray request(int recordNo);
// The same from the two bytes checkbin2R leaves behind.
QByteArray request(int recHi, int recLo);
// A request frame made to ask for another record, in place; false (and
// the frame untouched) when it is no request frame.
bool renumberRequest(QByteArray& frame, int recHi, int recLo);
// End frame: 01 FF 10 F0 'U' 00 07 00 00 "OVER" C4.
QByteArray end();

// The record number a request frame asks for, -1 for any other frame.
int requestedRecord(const QByteArray& frame);

// Bytes 10 to 137 of a complete reply (the first 137 bytes of a longer
// buffer); empty when fewer than 137 bytes are given.
QByteArray content(const QByteArray& reply);
// The same bytes seen in place, for comparing and looking up without a copy.
QByteArrayView contentView(const QByteArray& reply);

// A summary record (reply to request 1) that can be one: its agent (bytes 10
// to 12) is three digits and its date (bytes 13 to 16, ddmm) a real day and
// month. A transaction record in its place reads as neither.
bool plausibleSummary(const QByteArray& reply);

// A transaction record whose account number (bytes 16 to 30) is all blanks
// or zero bytes: what the terminal answers for a record beyond its last. A
// reply shorter than 137 bytes names no account either.
bool namesNoAccount(const QByteArray& reply);

} // namespace UploadFrames
