#include "cli/ConsoleMessenger.h"

#include <cstdio>

namespace {
void print(FILE* stream, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}
} // namespace

void ConsoleMessenger::show(const QString& text, Icon icon, const QString&, const QString& detail)
{
    FILE* stream = icon == Icon::Critical ? stderr : stdout;
    print(stream, text);
    if (!detail.isEmpty())
        print(stream, detail);
}

bool ConsoleMessenger::askOkCancel(const QString& text, Icon icon, const QString&)
{
    const bool ok = m_answer ? m_answer(text) : false;
    print(icon == Icon::Critical ? stderr : stdout, text);
    print(stdout, ok ? QStringLiteral("> OK") : QStringLiteral("> Cancel"));
    return ok;
}

void ConsoleMessenger::line(const QString& text)
{
    print(stdout, text);
}
