// The PC's turnaround as the terminal sees it, on one pseudo-terminal: from
// the moment the terminal has written its reply to the moment the PC's next
// frame is complete on the line. Measured in the same run, over the same kind
// of pseudo-terminal, for three PC sides:
// - the program: the upload and the download session over the serial port,
//   as the screens run them;
// - the Qt floor: QSerialPort on Qt's event loop answering each reply from
//   readyRead with the next premade frame, written straight to the line, with
//   no session logic (what any program on this event loop pays);
// - a minimal loop: blocking reads and writes, the frames made beforehand.
// The terminal's side is a plain C++ loop on the master end, in its own
// thread, timing all three alike.
//
// Receive: the terminal answers record requests with 137-byte replies; the
// PC's turnaround per reply is reply written -> next request in. Send: the
// terminal answers each 137-byte account frame with a 14-byte
// acknowledgement; the turnaround is acknowledgement written -> next frame in.
// Printed per reply at 500, 1000, 2000 and 2500 records: the three
// turnarounds, the program's and the floor's ratio to the loop, and the
// processor time of each side per reply (less disturbed by other work on
// the machine than the wall-clock turnaround).

#include "base/Clock.h"
#include "bench/Median.h"
#include "bench/SampleDownload.h"
#include "link/DownloadFrames.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "terminal/UploadRecords.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSerialPort>
#include <QTimer>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr int WaitMs = 10000; // a frame not complete after this: the run failed

// A raw pseudo-terminal pair. The slave is kept open here as well, so that
// the master does not see a hang-up between the program's opens.
struct PtyPair
{
    int master = -1;
    int slaveKeep = -1;
    QString slavePath;

    bool open()
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            return false;
        slavePath = QString::fromLocal8Bit(ptsname(master));
        slaveKeep = ::open(ptsname(master), O_RDWR | O_NOCTTY);
        if (slaveKeep < 0)
            return false;
        makeRaw(slaveKeep);
        makeRaw(master);
        return true;
    }
    static void makeRaw(int fd)
    {
        termios t{};
        tcgetattr(fd, &t);
        cfmakeraw(&t);
        tcsetattr(fd, TCSANOW, &t);
    }
    ~PtyPair()
    {
        if (slaveKeep >= 0)
            ::close(slaveKeep);
        if (master >= 0)
            ::close(master);
    }
};

bool writeAll(int fd, const QByteArray& bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

// Reads until `buffer` holds at least `size` bytes; false on a time-out.
bool readAtLeast(int fd, QByteArray& buffer, qsizetype size)
{
    char chunk[512];
    while (buffer.size() < size) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, WaitMs) <= 0)
            return false;
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0)
            return false;
        buffer.append(chunk, n);
    }
    return true;
}

// Length of the frame at the start of the buffer (seven head bytes and the
// count in byte 7), or 0 while the head is not in.
qsizetype frameLength(const QByteArray& buffer)
{
    if (buffer.size() < 7)
        return 0;
    return 7 + static_cast<unsigned char>(buffer.at(6));
}

// Takes one whole frame off the front of the buffer.
bool nextFrame(int fd, QByteArray& buffer, QByteArray* frame)
{
    if (!readAtLeast(fd, buffer, 7))
        return false;
    const qsizetype size = frameLength(buffer);
    if (!readAtLeast(fd, buffer, size))
        return false;
    *frame = buffer.left(size);
    buffer.remove(0, size);
    return true;
}

double microsSince(SteadyClock::time_point t)
{
    return std::chrono::duration<double, std::micro>(SteadyClock::now() - t).count();
}

struct Timing
{
    bool ok = false;
    std::vector<double> turnUs; // one per reply
    double cpuUs = 0;           // processor time of the PC's side, all of it
    double cpuPerReply() const { return turnUs.empty() ? 0 : cpuUs / static_cast<double>(turnUs.size()); }
    double mean() const
    {
        double sum = 0;
        for (double t : turnUs)
            sum += t;
        return turnUs.empty() ? 0 : sum / static_cast<double>(turnUs.size());
    }
    double median() const { return medianOf(turnUs); }
};

// The terminal in upload mode: answers every record request with its reply,
// and times the PC from each reply of record 2 on to the next frame.
void uploadTerminal(int master, const UploadRecords& records, Timing* out)
{
    QByteArray buffer;
    QByteArray frame;
    SteadyClock::time_point sent;
    bool timing = false;
    while (nextFrame(master, buffer, &frame)) {
        if (timing)
            out->turnUs.push_back(microsSince(sent));
        if (frame == UploadFrames::end()) {
            out->ok = true;
            return;
        }
        const int n = UploadFrames::requestedRecord(frame);
        if (n < 0)
            return;
        const QByteArray reply = records.reply(n);
        if (!writeAll(master, reply))
            return;
        sent = SteadyClock::now();
        timing = n >= 2;
    }
}

// The terminal in download mode: acknowledges every frame with its number,
// and times the PC from each account frame's acknowledgement to the next.
void downloadTerminal(int master, Timing* out)
{
    QByteArray buffer;
    QByteArray frame;
    SteadyClock::time_point sent;
    bool timing = false;
    while (nextFrame(master, buffer, &frame)) {
        if (timing)
            out->turnUs.push_back(microsSince(sent));
        const int number = static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
        QByteArray ack = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                           "D\x00\x07");
        ack += static_cast<char>((number >> 8) & 0xFF);
        ack += static_cast<char>(number & 0xFF);
        ack += "AACK";
        int sum = 0;
        for (qsizetype i = 7; i < ack.size(); ++i)
            sum += static_cast<unsigned char>(ack.at(i));
        ack += static_cast<char>((-sum) & 0xFF);
        if (!writeAll(master, ack))
            return;
        sent = SteadyClock::now();
        const bool end = frame.mid(9, 4) == "OVER";
        if (end) {
            out->ok = true;
            return;
        }
        timing = number >= 2; // the header's answer waits for the 10 ms tick
    }
}

// The slave side with no program logic: each frame of `frames` written after
// the answer to the one before has fully arrived.
bool minimalLoop(const QString& slavePath, const QList<QByteArray>& frames, qsizetype answerSize)
{
    const int fd = ::open(slavePath.toLocal8Bit().constData(), O_RDWR | O_NOCTTY);
    if (fd < 0)
        return false;
    PtyPair::makeRaw(fd);
    QByteArray buffer;
    bool ok = true;
    for (qsizetype i = 0; ok && i < frames.size(); ++i) {
        ok = writeAll(fd, frames.at(i));
        if (ok && i + 1 < frames.size()) {
            ok = readAtLeast(fd, buffer, answerSize);
            buffer.remove(0, answerSize);
        }
    }
    // The terminal's answer to the end frame (send) is read before closing.
    if (ok && answerSize == DownloadFrames::AnswerSize)
        ok = readAtLeast(fd, buffer, answerSize);
    ::close(fd);
    return ok;
}

// The least any program on Qt's event loop can do: the port opened and set
// up as the program does, and each answer taken from readyRead and answered
// with the next premade frame, written straight to the line. No session
// logic, no checks.
bool qtFloor(const QString& slavePath, const QList<QByteArray>& frames, qsizetype answerSize)
{
    QSerialPort port(slavePath);
    port.setReadBufferSize(1024);
    if (!port.open(QIODevice::ReadWrite))
        return false;
    port.setBaudRate(QSerialPort::Baud19200);
    port.setFlowControl(QSerialPort::NoFlowControl);
    QEventLoop loop;
    QByteArray buffer;
    qsizetype next = 0;
    bool ok = true;
    auto send = [&] {
        const QByteArray& frame = frames.at(next++);
        ok = ok && ::write(port.handle(), frame.constData(), static_cast<size_t>(frame.size())) == frame.size();
    };
    // The terminal answers the send's end frame too: waited for, as the
    // loop does.
    const bool lastAnswered = answerSize == DownloadFrames::AnswerSize;
    QObject::connect(&port, &QSerialPort::readyRead, &loop, [&] {
        buffer += port.read(port.bytesAvailable());
        if (buffer.size() < answerSize)
            return;
        buffer.remove(0, answerSize);
        if (next == frames.size()) {
            loop.quit();
            return;
        }
        send();
        if (next == frames.size() && !lastAnswered)
            loop.quit();
    });
    QTimer::singleShot(600000, &loop, [&] {
        ok = false;
        loop.quit();
    });
    send();
    loop.exec();
    return ok;
}

// Runs `slave` on this thread while the terminal runs on the master end.
Timing measure(const std::function<void(int master, Timing*)>& terminal,
               const std::function<bool(const QString&)>& slave)
{
    Timing timing;
    PtyPair pty;
    if (!pty.open())
        return timing;
    std::thread peer(terminal, pty.master, &timing);
    timespec before{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    const bool ok = slave(pty.slavePath);
    timespec after{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    peer.join();
    timing.cpuUs = static_cast<double>(after.tv_sec - before.tv_sec) * 1e6 +
                   static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e3;
    timing.ok = timing.ok && ok;
    return timing;
}

bool runUploadSession(const QString& device)
{
    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(18, 30))};
    LinkPort port;
    port.setDeviceLookup([device] { return PortChoice::given(device); });
    UploadSession session(port, clock);
    bool done = false;
    QEventLoop loop;
    QObject::connect(&session, &UploadSession::finished, &loop, [&] {
        done = true;
        // The end frame is written from the event loop: closing the port at
        // once could lose it.
        QTimer::singleShot(200, &loop, &QEventLoop::quit);
    });
    QObject::connect(&session, &UploadSession::stopped, &loop, &QEventLoop::quit);
    QObject::connect(&session, &UploadSession::message,
                     [](const SessionMessage& m) { std::printf("  message: %s\n", qPrintable(m.text)); });
    QTimer::singleShot(600000, &loop, &QEventLoop::quit);
    if (!session.Form_Load())
        return false;
    session.cmdSend_Click();
    loop.exec();
    session.closePort();
    return done;
}

bool runDownloadSession(const QString& device, const DownloadJob& job)
{
    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(9, 0))};
    LinkPort port;
    port.setDeviceLookup([device] { return PortChoice::given(device); });
    DownloadSession session(port, clock);
    bool done = false;
    QEventLoop loop;
    QObject::connect(&session, &DownloadSession::completed, &loop, [&] {
        done = true;
        loop.quit();
    });
    QObject::connect(&session, &DownloadSession::stopped, &loop, &QEventLoop::quit);
    QObject::connect(&session, &DownloadSession::message, [](const SessionMessage& m) {
        if (m.icon != SessionMessage::Icon::Information) // not the completion
            std::printf("  message: %s\n", qPrintable(m.text));
    });
    QTimer::singleShot(600000, &loop, &QEventLoop::quit);
    session.Form_Load();
    session.prepareSend();
    session.FirstProtocol(job);
    loop.exec();
    session.closePort();
    return done;
}

// The machine is shared and its scheduler places the two threads anew for
// every run, which alone moves a run's median by half. So the program, the
// Qt floor and the loop take turns (which goes first changing from round to
// round), each round's program and floor are set
// against the loop of the same round, and the ratios printed are the median
// of those rounds; the turnarounds are the median of the rounds' medians.
int Rounds = 9;

// The three sides of one round, each round starting with the next one: the
// first run of a round is slower (the threads are placed anew), and it must
// not always fall to the same side.
std::array<Timing, 3> inTurn(int round, const std::function<Timing()>& program, const std::function<Timing()>& floor,
                             const std::function<Timing()>& minimal)
{
    const std::array<const std::function<Timing()>*, 3> sides{&program, &floor, &minimal};
    std::array<Timing, 3> timings;
    for (int i = 0; i < 3; ++i) {
        const int side = (round + i) % 3;
        timings[static_cast<std::size_t>(side)] = (*sides[static_cast<std::size_t>(side)])();
    }
    return timings;
}

struct Row
{
    int records = 0;
    std::vector<double> program, floor, minimal;          // each round's median turnaround
    std::vector<double> ratio, floorRatio;                // program / loop, floor / loop, per round
    std::vector<double> programCpu, floorCpu, minimalCpu; // the PC side's processor time per reply
    std::array<std::vector<double>, 3> every;             // every reply's turnaround of all rounds, per side

    void add(const Timing& p, const Timing& f, const Timing& m)
    {
        every[0].insert(every[0].end(), p.turnUs.begin(), p.turnUs.end());
        every[1].insert(every[1].end(), f.turnUs.begin(), f.turnUs.end());
        every[2].insert(every[2].end(), m.turnUs.begin(), m.turnUs.end());
        program.push_back(p.median());
        floor.push_back(f.median());
        minimal.push_back(m.median());
        ratio.push_back(p.median() / m.median());
        floorRatio.push_back(f.median() / m.median());
        programCpu.push_back(p.cpuPerReply());
        floorCpu.push_back(f.cpuPerReply());
        minimalCpu.push_back(m.cpuPerReply());
    }
    double programMedian() const { return medianOf(program); }
};

void printHead()
{
    std::printf("%-8s %5s  %8s  %8s  %8s  %7s  %7s  %8s  %9s  %8s\n", "side", "recs", "program", "qt.floor", "loop",
                "ratio", "floor", "prog.cpu", "floor.cpu", "loop.cpu");
}

void printRow(const char* side, const Row& row, const char* note)
{
    std::printf("%-8s %5d  %8.1f  %8.1f  %8.1f  %6.2fx  %6.2fx  %8.1f  %9.1f  %8.1f%s\n", side, row.records,
                medianOf(row.program), medianOf(row.floor), medianOf(row.minimal), medianOf(row.ratio),
                medianOf(row.floorRatio), medianOf(row.programCpu), medianOf(row.floorCpu), medianOf(row.minimalCpu),
                note);
    std::fflush(stdout);
}

double change(double from, double to)
{
    return from > 0 ? (to - from) * 100.0 / from : 0;
}

void printFlatness(const char* side, const QList<Row>& rows)
{
    const Row& a = rows.first();
    const Row& b = rows.last();
    const double cpuA = medianOf(a.programCpu);
    const double cpuB = medianOf(b.programCpu);
    std::printf("%s, %d -> %d records: turnaround %+.0f %%, the program's processor time per reply %.1f -> %.1f us "
                "(%+.0f %%)\n",
                side, a.records, b.records, change(a.programMedian(), b.programMedian()), cpuA, cpuB,
                change(cpuA, cpuB));
}

// How the single turnarounds spread, all rounds together: a reply answered
// while the other side's processor is still awake comes back in a fraction
// of the time of one that has to wake it, so the middle of a side's figure
// moves with the share of its replies that are quick.
void printSpread(const char* side, const QList<Row>& rows)
{
    std::printf("%s: each side's turnarounds, all rounds together, in us: 10th, 25th, 50th, 75th, 90th "
                "percentile\n",
                side);
    const std::array<const char*, 3> names{"program", "qt.floor", "loop"};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            std::printf("  %5d  %-8s", row.records, names[i]);
            for (double fraction : {0.1, 0.25, 0.5, 0.75, 0.9})
                std::printf("  %6.1f", percentileOf(row.every[i], fraction));
            std::printf("\n");
        }
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QDate day(2007, 11, 16);
    const QList<int> sizes{500, 1000, 2000, 2500};
    // --rounds N: runs per figure; --receive-only / --send-only: one side
    // (for a profiler); --spread: how the single turnarounds spread.
    const QStringList args = app.arguments();
    if (const qsizetype at = args.indexOf(QStringLiteral("--rounds")); at >= 0 && at + 1 < args.size())
        Rounds = std::max(1, args.at(at + 1).toInt());
    const bool receive = !args.contains(QStringLiteral("--send-only"));
    const bool send = !args.contains(QStringLiteral("--receive-only"));
    const bool spread = args.contains(QStringLiteral("--spread"));

    std::printf("Turnaround per reply in microseconds, median of %d rounds: the program, the least a program on\n"
                "Qt's event loop does (qt.floor: the port's readyRead answered with premade frames), and a minimal\n"
                "loop, on the same kind of pty. ratio: program / loop, floor: qt.floor / loop, each the median of\n"
                "the rounds' ratios; cpu: the PC side's processor time per reply\n",
                Rounds);
    printHead();

    QList<Row> receiveRows;
    for (int records : receive ? sizes : QList<int>()) {
        const TerminalAccounts accounts = UploadRecords::sampleAccounts(records, day);
        UploadRecords replies;
        QString error;
        if (!UploadRecords::build(accounts, UploadRecords::generate(accounts, records, day), {}, &replies, &error)) {
            std::fprintf(stderr, "cannot build the replies: %s\n", qPrintable(error));
            return 1;
        }
        // The program takes 2000 records at most, whatever is announced:
        // the loop asks for the same ones.
        const int last = std::min(replies.recordCount(), UploadSession::RecordCeiling) + 1;
        QList<QByteArray> requests;
        for (int n = 0; n <= last; ++n)
            requests.append(UploadFrames::request(n));
        requests.append(UploadFrames::end());

        auto terminal = [&replies](int master, Timing* out) { uploadTerminal(master, replies, out); };
        Row row;
        row.records = records;
        for (int round = 0; round < Rounds; ++round) {
            const auto [program, floor, minimal] = inTurn(
                round, [&] { return measure(terminal, runUploadSession); },
                [&] {
                    return measure(terminal, [&requests](const QString& device) {
                        return qtFloor(device, requests, UploadFrames::ReplySize);
                    });
                },
                [&] {
                    return measure(terminal, [&requests](const QString& device) {
                        return minimalLoop(device, requests, UploadFrames::ReplySize);
                    });
                });
            if (!program.ok || !floor.ok || !minimal.ok) {
                std::fprintf(stderr,
                             "the receive of %d records did not complete (program %d, %zu replies; floor %d, %zu; "
                             "loop %d, %zu)\n",
                             records, program.ok, program.turnUs.size(), floor.ok, floor.turnUs.size(), minimal.ok,
                             minimal.turnUs.size());
                return 1;
            }
            row.add(program, floor, minimal);
        }
        receiveRows.append(row);
        printRow("receive", row, records > UploadSession::RecordCeiling ? "  (2000 taken: the ceiling)" : "");
    }

    QList<Row> sendRows;
    for (int records : send ? sizes : QList<int>()) {
        // The frame array holds 2499 accounts at most.
        const int accounts = std::min(records, DownloadSession::FrameCapacity - 1);
        const DownloadJob job = sampleDownloadJob(accounts);
        QList<QByteArray> frames;
        try {
            LinkCodec codec;
            frames.append(DownloadFrames::header(job, QDateTime(day, QTime(9, 0)), codec));
            int n = 2;
            for (const DownloadAccount& account : job.accounts)
                frames.append(DownloadFrames::record(account, n++, codec));
            frames.append(DownloadFrames::end());
        } catch (const LinkError& e) {
            std::fprintf(stderr, "cannot build the frames: %s\n", qPrintable(e.message()));
            return 1;
        }
        Row row;
        row.records = accounts;
        for (int round = 0; round < Rounds; ++round) {
            const auto [program, floor, minimal] = inTurn(
                round,
                [&] {
                    return measure(downloadTerminal,
                                   [&job](const QString& device) { return runDownloadSession(device, job); });
                },
                [&] {
                    return measure(downloadTerminal, [&frames](const QString& device) {
                        return qtFloor(device, frames, DownloadFrames::AnswerSize);
                    });
                },
                [&] {
                    return measure(downloadTerminal, [&frames](const QString& device) {
                        return minimalLoop(device, frames, DownloadFrames::AnswerSize);
                    });
                });
            if (!program.ok || !floor.ok || !minimal.ok) {
                std::fprintf(stderr,
                             "the send of %d accounts did not complete (program %d, %zu replies; floor %d, %zu; "
                             "loop %d, %zu)\n",
                             accounts, program.ok, program.turnUs.size(), floor.ok, floor.turnUs.size(), minimal.ok,
                             minimal.turnUs.size());
                return 1;
            }
            row.add(program, floor, minimal);
        }
        sendRows.append(row);
        printRow("send", row, accounts < records ? "  (2499: the frame array's limit)" : "");
    }

    if (!receiveRows.isEmpty())
        printFlatness("receive", receiveRows);
    if (!sendRows.isEmpty())
        printFlatness("send", sendRows);
    if (spread && !receiveRows.isEmpty())
        printSpread("receive", receiveRows);
    if (spread && !sendRows.isEmpty())
        printSpread("send", sendRows);
    return 0;
}
