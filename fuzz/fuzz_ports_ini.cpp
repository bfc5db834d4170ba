// ports.ini from any bytes: which device a Comm Port number means.
#include "fuzz/FuzzSupport.h"
#include "link/PortResolver.h"

#include <QBuffer>
#include <QTextStream>

TONVY_FUZZ_START()

namespace {

// The file's lines as a plain reading gives them; the first one that maps
// the number wins.
QString expectedDevice(const QByteArray& bytes, const QString& number)
{
    QByteArray copy = bytes;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream in(&buffer);
    const QStringList lines = in.readAll().split(QLatin1Char('\n'));
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || QStringLiteral("#;[").contains(line.front()))
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq > 0 && line.left(eq).trimmed() == number)
            return line.mid(eq + 1).trimmed();
    }
    return {};
}

QString lookUp(const QByteArray& bytes, const QString& number)
{
    QByteArray copy = bytes;
    QBuffer ini(&copy);
    ini.open(QIODevice::ReadOnly | QIODevice::Text);
    return PortResolver::fromIni(ini, number);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    QStringList numbers{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("10")};
    // The key of the first mapping line too, so that the fuzzer's own keys
    // are looked up.
    const qsizetype eq = bytes.indexOf('=');
    if (eq > 0) {
        const qsizetype start = bytes.lastIndexOf('\n', eq - 1) + 1;
        numbers << QString::fromUtf8(bytes.mid(start, eq - start)).trimmed();
    }
    for (const QString& number : numbers) {
        const QString device = lookUp(bytes, number);
        FUZZ_CHECK(device == device.trimmed());
        FUZZ_CHECK(!device.contains(QLatin1Char('\n')));
        FUZZ_CHECK_SAYS(device == expectedDevice(bytes, number),
                        QStringLiteral("number \"%1\": \"%2\", expected \"%3\"")
                            .arg(number, device, expectedDevice(bytes, number)));
        if (!device.isEmpty())
            FUZZ_CHECK(bytes.contains('='));

        // Without ports.ini the number alone names the device.
        const QString plain = PortResolver::resolve(number, QString(), QString());
        bool isNumber = false;
        const int n = number.toInt(&isNumber);
        if (isNumber && n >= 1)
            FUZZ_CHECK(plain == QStringLiteral("/dev/ttyS%1").arg(n - 1));
        else
            FUZZ_CHECK(plain.isEmpty());
        FUZZ_CHECK(PortResolver::resolve(number, QString(), QStringLiteral("/dev/pts/3")) ==
                   QStringLiteral("/dev/pts/3"));
    }
    return 0;
}
