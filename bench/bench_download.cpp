// Downloads over a pseudo-terminal against the simulated terminal:
// 2000 accounts at full speed (total time and the PC's turnaround per frame:
// acknowledgement in to next frame out), then 200 accounts with the
// terminal's bytes paced as on the 19200-baud cable (total time against the
// time the line itself needs for the bytes exchanged).

#include "base/Clock.h"
#include "bench/Median.h"
#include "bench/SampleDownload.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"
#include "link/SerialLink.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/Pty.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <vector>

namespace {

// The serial link with a stopwatch on its reads and writes.
class TimedLink : public SerialLink
{
public:
    explicit TimedLink(const QElapsedTimer& clock) : m_clock(clock) {}

    QByteArray readAll() override
    {
        QByteArray bytes = SerialLink::readAll();
        if (!bytes.isEmpty())
            m_lastRead = m_clock.nsecsElapsed();
        return bytes;
    }
    void write(const QByteArray& bytes) override
    {
        if (!bytes.isEmpty() && m_lastRead >= 0)
            turnarounds.append(m_clock.nsecsElapsed() - m_lastRead);
        m_lastRead = -1;
        SerialLink::write(bytes);
    }

    QList<qint64> turnarounds; // nanoseconds from a read to the write it led to

private:
    const QElapsedTimer& m_clock;
    qint64 m_lastRead = -1;
};

struct Result
{
    bool ok = false;
    double seconds = 0;
    double medianTurnaroundUs = 0; // PC: acknowledgement read to next frame handed to the port
    double medianCycleUs = 0;      // terminal: one account frame in to the next, its answer between
    qint64 lineBytes = 0;
};

Result runDownload(int accounts, int baud)
{
    Result result;
    QString error;
    Pty pty;
    if (!pty.open(&error)) {
        std::fprintf(stderr, "cannot open a pseudo-terminal: %s\n", qPrintable(error));
        return result;
    }
    pty.setBaud(baud);
    DownloadTerminal terminal(&pty);
    terminal.setLineBaud(baud);
    terminal.attach();
    QElapsedTimer stopwatch;
    QList<qint64> frameTimes;
    QObject::connect(&terminal, &DownloadTerminal::accountReceived,
                     [&frameTimes, &stopwatch] { frameTimes.append(stopwatch.nsecsElapsed()); });

    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(9, 0))};
    LinkPort port;
    const QString device = pty.devicePath();
    port.setDeviceLookup([device] { return PortChoice::given(device); });
    TimedLink* link = nullptr;
    port.setChannelFactory([&stopwatch, &link] {
        auto timed = std::make_unique<TimedLink>(stopwatch);
        link = timed.get();
        return timed;
    });

    DownloadSession session(port, clock);
    QObject::connect(&session, &DownloadSession::message,
                     [](const SessionMessage& m) { std::printf("  message: %s\n", qPrintable(m.text)); });
    session.Form_Load();
    const DownloadJob job = sampleDownloadJob(accounts);

    QEventLoop loop;
    QObject::connect(&session, &DownloadSession::completed, &loop, [&] {
        result.ok = true;
        loop.quit();
    });
    QObject::connect(&session, &DownloadSession::stopped, &loop, &QEventLoop::quit);
    QTimer::singleShot(600000, &loop, &QEventLoop::quit);

    stopwatch.start();
    session.prepareSend();
    session.FirstProtocol(job);
    loop.exec();
    result.seconds = static_cast<double>(stopwatch.nsecsElapsed()) / 1e9;
    session.closePort();

    if (terminal.state().accounts.size() != accounts) {
        std::fprintf(stderr, "the terminal kept %lld accounts of %d\n",
                     static_cast<long long>(terminal.state().accounts.size()), accounts);
        result.ok = false;
    }
    result.lineBytes = terminal.bytesIn() + terminal.bytesOut();
    if (link) {
        std::vector<double> turnaroundsUs;
        for (qint64 ns : link->turnarounds)
            turnaroundsUs.push_back(static_cast<double>(ns) / 1000.0);
        result.medianTurnaroundUs = medianOf(turnaroundsUs);
    }
    std::vector<double> cyclesUs;
    for (qsizetype i = 1; i < frameTimes.size(); ++i)
        cyclesUs.push_back(static_cast<double>(frameTimes.at(i) - frameTimes.at(i - 1)) / 1000.0);
    result.medianCycleUs = medianOf(cyclesUs);
    return result;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);

    std::printf("2000 accounts, full speed:\n");
    const Result fast = runDownload(2000, 0);
    if (!fast.ok)
        return 1;
    std::printf("  total time: %.3f s\n", fast.seconds);
    std::printf("  PC turnaround per frame (acknowledgement in to next frame out), median: %.1f us\n",
                fast.medianTurnaroundUs);
    std::printf("  round trip seen by the terminal (one frame in to the next, both pty transits), median: %.1f us\n",
                fast.medianCycleUs);

    std::printf("200 accounts, terminal paced at 19200 baud:\n");
    const Result paced = runDownload(200, 19200);
    if (!paced.ok)
        return 1;
    const double lineSeconds = static_cast<double>(paced.lineBytes) * 10.0 / 19200.0;
    std::printf("  total time: %.3f s\n", paced.seconds);
    std::printf("  line time for %lld bytes: %.3f s\n", static_cast<long long>(paced.lineBytes), lineSeconds);
    std::printf("  ratio total / line time: %.2f\n", paced.seconds / lineSeconds);
    return 0;
}
