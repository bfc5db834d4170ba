#pragma once

#include <QString>

class QIODevice;

// Reads a text file the way version 2.1's reader did: whole lines
// ("line input") and single comma-delimited items ("list input") taken from
// the same position, one byte per character (Latin-1). A line ends at CR,
// LF or CR LF; files copied from Windows and from Unix read alike.
class SequentialInput
{
public:
    explicit SequentialInput(QIODevice& device) : m_device(device) {}

    bool atEnd() const;

    // The rest of the current line without its end; the line end is consumed.
    QString lineInput();

    // One item of a comma-delimited list: blanks before it are skipped; a
    // comma or a line end right away gives an empty item; an item in double
    // quotes runs to the closing quote (the rest up to the next delimiter is
    // skipped); any other item runs to the next comma or line end and loses
    // its trailing blanks. The delimiter is consumed. Returns false, reading
    // nothing, when the file is already at its end ("input past end of file").
    bool listInput(QString* item);

    // The number (from 1) of the line the next character stands on.
    int lineNumber() const { return m_lineEnds + 1; }

private:
    int peek() const;   // next byte, or -1 at the end
    int get();          // next byte consumed, or -1 at the end
    void skipLineEnd(); // consumes CR, LF or CR LF when one is next
    static bool isLineEnd(int c) { return c == '\r' || c == '\n'; }
    static bool isBlank(int c) { return c == ' ' || c == '\t'; }

    QIODevice& m_device;
    int m_lineEnds = 0;
};
