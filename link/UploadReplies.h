#pragma once

#include <QByteArray>
#include <QString>
#include <array>
#include <cstdint>

// The receive screen's own values that the upload protocol fills and the
// restore store and file writers read.
struct UploadSummary
{
    int TotalRecords = 5000;          // announced by the header record
    int TotalTransactions = 0;        // from the summary record (TotalTransact)
    QString AgentId;                  // 3 characters from the summary (Label4)
    QString CollectionDate;           // ddmm from the summary (Label6)
    QString TotalAmountDigits;        // 8 digits from the summary
    QString BankAgentId;              // 15 characters from the header record
    QString UploadBaseName;           // summary bytes 10 to 16: agent and ddmm
    std::array<char, 6> ClockBytes{}; // made by SendRTC

    // txtTotalAmount: the digits as a number, formatted "0.00".
    QString totalAmountText() const;
};

// Reading the terminal's replies: functions over the bytes only, no port,
// no timers, no database. A value that cannot be read throws LinkError (the
// session stops the receive with its message). Positions count from 1
// within the whole reply, head included.
namespace UploadReplies {

// Characters at 1-based positions of a reply, as Latin-1 text.
QString field(const QByteArray& reply, int position, int count);
// The byte at a 1-based position; a reply too short for it is
// SubscriptOutOfRange.
std::uint8_t byteAt(const QByteArray& reply, int position);

// The header record (reply to request 0): the announced record count
// (bytes 10 and 11, high first; above 32767 is an Overflow, the screen's
// field being a 16-bit signed value) and the bank's agent identifier (bytes
// 27 to 41). Fills TotalRecords and BankAgentId.
void decodeHeader(const QByteArray& header, UploadSummary& summary);

// The summary record (reply to request 1): agent (10 to 12), ddmm (13 to
// 16), the transaction count (17 and 18, high first) and the total amount
// (19 to 22, packed decimal, eight digits). Fields are filled in that order,
// so a value that fails leaves the ones before it set.
void decodeSummary(const QByteArray& summary, UploadSummary& into);

} // namespace UploadReplies
