#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// A hex trace of every chunk in and out of the link, with a timestamp: what
// the IT person sends when a transfer fails.
class LinkTrace
{
public:
    // Opens (appends to) the file; returns false with a reason on failure.
    bool open(const QString& path, QString* error);
    bool isOpen() const { return m_file.isOpen(); }
    void note(const QString& text);
    void chunk(const char* direction, const QByteArray& bytes);

    static QString hex(const QByteArray& bytes);

private:
    QFile m_file;
};
