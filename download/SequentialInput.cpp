#include "download/SequentialInput.h"

#include <QIODevice>

bool SequentialInput::atEnd() const
{
    return peek() < 0;
}

int SequentialInput::peek() const
{
    char c = 0;
    if (m_device.peek(&c, 1) != 1)
        return -1;
    return static_cast<unsigned char>(c);
}

int SequentialInput::get()
{
    char c = 0;
    if (!m_device.getChar(&c))
        return -1;
    return static_cast<unsigned char>(c);
}

void SequentialInput::skipLineEnd()
{
    const int c = peek();
    if (c == '\r') {
        get();
        if (peek() == '\n')
            get();
        ++m_lineEnds;
    } else if (c == '\n') {
        get();
        ++m_lineEnds;
    }
}

QString SequentialInput::lineInput()
{
    QByteArray bytes;
    for (int c = peek(); c >= 0 && !isLineEnd(c); c = peek())
        bytes.append(static_cast<char>(get()));
    skipLineEnd();
    return QString::fromLatin1(bytes);
}

bool SequentialInput::listInput(QString* item)
{
    if (atEnd())
        return false;

    while (isBlank(peek()))
        get();

    QByteArray bytes;
    int c = peek();
    if (c < 0) {
        // Only blanks were left: an empty last item.
    } else if (isLineEnd(c)) {
        skipLineEnd();
    } else if (c == ',') {
        get();
    } else if (c == '"') {
        get();
        for (c = peek(); c >= 0 && c != '"' && !isLineEnd(c); c = peek())
            bytes.append(static_cast<char>(get()));
        if (c == '"')
            get();
        // Whatever stands between the closing quote and the delimiter is not
        // part of the item.
        for (c = peek(); c >= 0 && c != ',' && !isLineEnd(c); c = peek())
            get();
        if (c == ',')
            get();
        else
            skipLineEnd();
    } else {
        for (c = peek(); c >= 0 && c != ',' && !isLineEnd(c); c = peek())
            bytes.append(static_cast<char>(get()));
        if (c == ',')
            get();
        else
            skipLineEnd();
        while (!bytes.isEmpty() && isBlank(static_cast<unsigned char>(bytes.back())))
            bytes.chop(1);
    }
    if (item)
        *item = QString::fromLatin1(bytes);
    return true;
}
