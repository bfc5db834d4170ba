#include "link/LinkTrace.h"

#include <QDateTime>

bool LinkTrace::open(const QString& path, QString* error)
{
    // The trace carries the terminal passwords (they travel in the download
    // header): readable by its owner only, whether new or appended to.
    const QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text, ownerOnly) ||
        !m_file.setPermissions(ownerOnly)) {
        if (error)
            *error = QStringLiteral("Cannot write the trace file %1: %2").arg(path, m_file.errorString());
        m_file.close();
        return false;
    }
    return true;
}

QString LinkTrace::hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

void LinkTrace::note(const QString& text)
{
    if (!m_file.isOpen())
        return;
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    m_file.write((stamp + QStringLiteral(" -- ") + text + QLatin1Char('\n')).toUtf8());
    m_file.flush();
}

void LinkTrace::chunk(const char* direction, const QByteArray& bytes)
{
    if (!m_file.isOpen() || bytes.isEmpty())
        return;
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    m_file.write(QStringLiteral("%1 %2 %3 | %4\n")
                     .arg(stamp, QLatin1String(direction))
                     .arg(bytes.size(), 4)
                     .arg(hex(bytes))
                     .toUtf8());
    m_file.flush();
}
