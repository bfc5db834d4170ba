#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// What every fuzz target shares: an application object (the sessions' timers
// need one, though no event loop ever runs), Qt's warnings kept off the
// fuzzer's output, and the check that stops the run on a broken promise.
namespace FuzzSupport {

inline void quietHandler(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtFatalMsg || type == QtCriticalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

inline void start()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    qInstallMessageHandler(quietHandler);
}

[[noreturn]] inline void broken(const char* file, int line, const char* what, const QString& detail)
{
    std::fprintf(stderr, "%s:%d: broken: %s\n", file, line, what);
    if (!detail.isEmpty())
        std::fprintf(stderr, "  %s\n", qPrintable(detail));
    std::abort();
}

inline QByteArray bytes(const std::uint8_t* data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

} // namespace FuzzSupport

// Each target's LLVMFuzzerInitialize.
#define TONVY_FUZZ_START()                                                                                             \
    extern "C" int LLVMFuzzerInitialize(int*, char***)                                                                 \
    {                                                                                                                  \
        FuzzSupport::start();                                                                                          \
        return 0;                                                                                                      \
    }

#define FUZZ_CHECK(cond)                                                                                               \
    do {                                                                                                               \
        if (!(cond))                                                                                                   \
            FuzzSupport::broken(__FILE__, __LINE__, #cond, QString());                                                 \
    } while (0)

#define FUZZ_CHECK_SAYS(cond, detail)                                                                                  \
    do {                                                                                                               \
        if (!(cond))                                                                                                   \
            FuzzSupport::broken(__FILE__, __LINE__, #cond, (detail));                                                  \
    } while (0)
