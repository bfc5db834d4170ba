#pragma once

#include <QByteArray>
#include <QList>

// Builds the terminal's 137-byte replies byte by byte, as the terminal lays
// them out, so tests feed the receive side exactly what it would get.
namespace ReplyBytes {

constexpr int ReplySize = 137;

// Puts text into a reply at a 1-based position.
inline void put(QByteArray& reply, int pos, const QByteArray& bytes)
{
    reply.replace(pos - 1, bytes.size(), bytes);
}

// Sets byte 137 so that bytes 10 to 137 add up to a multiple of 256.
inline QByteArray withCheckByte(QByteArray reply)
{
    int sum = 0;
    for (int i = 9; i < 136; ++i)
        sum += static_cast<unsigned char>(reply.at(i));
    reply[136] = static_cast<char>((256 - (sum & 255)) & 255);
    return reply;
}

inline QByteArray blankReply()
{
    QByteArray reply(ReplySize, '\0');
    put(reply, 1, QByteArray::fromHex("01FF10F055008200"));
    return reply;
}

// A transaction record: category (byte 10), scheme (11-15), account
// (16-30), the 9-byte entries from byte 70, and byte 133 as given.
inline QByteArray transactionRecord(const QByteArray& category, const QByteArray& scheme, const QByteArray& account,
                                    const QList<QByteArray>& entries, char countByte)
{
    QByteArray reply = blankReply();
    put(reply, 10, category.leftJustified(1, ' ', true));
    put(reply, 11, scheme.leftJustified(5, ' ', true));
    put(reply, 16, account.leftJustified(15, ' ', true));
    for (int j = 0; j < entries.size(); ++j)
        put(reply, 70 + 9 * j, entries.at(j));
    reply[132] = countByte;
    return withCheckByte(reply);
}

// Header record: records to follow (bytes 10-11), agent id (27-41).
inline QByteArray headerRecord(int records, const QByteArray& agentId)
{
    QByteArray reply = blankReply();
    reply[9] = static_cast<char>(records / 256);
    reply[10] = static_cast<char>(records % 256);
    put(reply, 27, agentId.leftJustified(15, ' ', true));
    return withCheckByte(reply);
}

// Summary record: agent (10-12), ddmm (13-16), transaction count (17-18),
// total amount as four packed-BCD bytes (19-22).
inline QByteArray summaryRecord(const QByteArray& agent, const QByteArray& ddmm, int transactions,
                                const QByteArray& totalBcd)
{
    QByteArray reply = blankReply();
    put(reply, 10, agent);
    put(reply, 13, ddmm);
    reply[16] = static_cast<char>(transactions / 256);
    reply[17] = static_cast<char>(transactions % 256);
    put(reply, 19, totalBcd);
    return withCheckByte(reply);
}

} // namespace ReplyBytes
