#include "link/LinkState.h"

#include <charconv>

void LinkState::setRecordNo(qint64 number)
{
    char digits[24];
    const std::to_chars_result written = std::to_chars(digits, digits + sizeof digits, number);
    const qsizetype length = written.ptr - digits;
    // A string of its own with room enough keeps its buffer.
    RecordNo.resize(length);
    QChar* out = RecordNo.data();
    for (qsizetype i = 0; i < length; ++i)
        out[i] = QLatin1Char(digits[i]);
}
