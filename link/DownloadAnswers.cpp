#include "link/DownloadAnswers.h"

#include "link/LinkCodec.h"

namespace DownloadAnswers {

Answer read(const QByteArray& buffer)
{
    Answer answer;
    answer.notInDownloadMode = buffer.contains("CLOS") || buffer.contains("BACK");
    if (answer.notInDownloadMode)
        return answer;                           // nothing more is read from it
    const qsizetype at = buffer.indexOf("AACK"); // 0-based
    answer.acknowledged = at >= 0;
    if (at >= 2) {
        LinkCodec codec;
        codec.HEX_DECIMAL(static_cast<std::uint8_t>(buffer.at(at - 2)), static_cast<std::uint8_t>(buffer.at(at - 1)));
        answer.recordNumber = codec.HexValue;
    }
    answer.negative = buffer.contains("NACK");
    return answer;
}

} // namespace DownloadAnswers
