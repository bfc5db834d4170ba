// Line input and list input over any bytes, in the three ways the download
// reader mixes them.
#include "download/SequentialInput.h"
#include "fuzz/FuzzSupport.h"

#include <QBuffer>

TONVY_FUZZ_START()

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

// The lines of the bytes with CR, LF and CR LF alike as line ends; a last
// line without an end counts, an empty one after the last end does not.
QList<QByteArray> expectedLines(const QByteArray& bytes)
{
    QByteArray text = bytes;
    text.replace("\r\n", "\n");
    text.replace('\r', '\n');
    QList<QByteArray> lines = text.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

int lineEnds(const QByteArray& bytes)
{
    QByteArray text = bytes;
    text.replace("\r\n", "\n");
    return static_cast<int>(text.count('\n') + text.count('\r'));
}

void checkListItem(const QByteArray& bytes, qint64 before, const QString& item)
{
    FUZZ_CHECK(!item.contains(QLatin1Char('\r')) && !item.contains(QLatin1Char('\n')));
    qint64 at = before;
    while (at < bytes.size() && isBlank(bytes.at(at)))
        ++at;
    const bool quoted = at < bytes.size() && bytes.at(at) == '"';
    if (quoted) {
        FUZZ_CHECK(!item.contains(QLatin1Char('"')));
        return;
    }
    // An item not in quotes runs to the next comma and loses its blanks.
    FUZZ_CHECK(!item.contains(QLatin1Char(',')));
    if (!item.isEmpty()) {
        FUZZ_CHECK(!isBlank(item.front().toLatin1()) && !isBlank(item.back().toLatin1()));
        FUZZ_CHECK(QByteArray(bytes.constData() + at, bytes.size() - at).startsWith(item.toLatin1()));
    }
}

// mode 0: lines only; 1: list items only; 2: a line, then two items, as a
// record split over lines is read.
void readAll(const QByteArray& source, int mode)
{
    QByteArray bytes = source;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    SequentialInput in(buffer);
    QList<QByteArray> lines;
    for (int step = 0; !in.atEnd(); ++step) {
        const qint64 before = buffer.pos();
        const int lineBefore = in.lineNumber();
        if (mode == 0 || (mode == 2 && step % 3 == 0)) {
            const QString line = in.lineInput();
            FUZZ_CHECK(!line.contains(QLatin1Char('\r')) && !line.contains(QLatin1Char('\n')));
            FUZZ_CHECK(line.toLatin1() == bytes.mid(before, line.size()));
            const bool ended = before + line.size() < bytes.size();
            FUZZ_CHECK(in.lineNumber() == lineBefore + (ended ? 1 : 0));
            lines << line.toLatin1();
        } else {
            QString item;
            FUZZ_CHECK(in.listInput(&item));
            checkListItem(bytes, before, item);
            FUZZ_CHECK(in.lineNumber() >= lineBefore && in.lineNumber() <= lineBefore + 1);
        }
        // Every call takes something while anything is left.
        FUZZ_CHECK(buffer.pos() > before);
        FUZZ_CHECK(buffer.pos() <= bytes.size());
    }
    QString item;
    FUZZ_CHECK(!in.listInput(&item));
    FUZZ_CHECK(in.lineInput().isEmpty());
    FUZZ_CHECK(in.lineNumber() == lineEnds(bytes) + 1);
    if (mode == 0)
        FUZZ_CHECK(lines == expectedLines(bytes));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    for (int mode = 0; mode < 3; ++mode)
        readAll(bytes, mode);
    return 0;
}
