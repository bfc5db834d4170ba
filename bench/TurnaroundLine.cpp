#include "bench/TurnaroundLine.h"

#include "link/UploadFrames.h"
#include "terminal/UploadRecords.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace turnaround {

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
    ~PtyPair()
    {
        if (slaveKeep >= 0)
            ::close(slaveKeep);
        if (master >= 0)
            ::close(master);
    }
};

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

bool pinTo(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return pthread_setaffinity_np(pthread_self(), sizeof set, &set) == 0;
}

} // namespace

std::vector<int> allowedProcessors()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<int> cpus;
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &set))
            cpus.push_back(cpu);
    return cpus;
}

void makeRaw(int fd)
{
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    tcsetattr(fd, TCSANOW, &t);
}

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

namespace {

// What the terminal does after answering a frame.
enum class Then {
    TimeNext, // time the PC to its next frame
    Untimed,  // the next frame is not timed
    Finish,   // the exchange is over
    Fail,     // a frame it cannot answer
};

// The terminal's loop: each frame from the PC answered by `answer`, which
// fills in the bytes to write back (none for no answer) and says what next.
void answerFrames(int master, Timing* out,
                  const std::function<Then(const QByteArray& frame, QByteArray* reply)>& answer)
{
    QByteArray buffer;
    QByteArray frame;
    QByteArray reply;
    SteadyClock::time_point sent;
    bool timing = false;
    while (nextFrame(master, buffer, &frame)) {
        if (timing)
            out->turnUs.push_back(microsSince(sent));
        reply.clear();
        const Then then = answer(frame, &reply);
        if (then == Then::Fail || (!reply.isEmpty() && !writeAll(master, reply)))
            return;
        sent = SteadyClock::now();
        if (then == Then::Finish) {
            out->ok = true;
            return;
        }
        timing = then == Then::TimeNext;
    }
}

} // namespace

void uploadTerminal(int master, const UploadRecords& records, Timing* out)
{
    answerFrames(master, out, [&records](const QByteArray& frame, QByteArray* reply) {
        if (frame == UploadFrames::end())
            return Then::Finish;
        const int n = UploadFrames::requestedRecord(frame);
        if (n < 0)
            return Then::Fail;
        *reply = records.reply(n);
        return n >= 2 ? Then::TimeNext : Then::Untimed;
    });
}

void downloadTerminal(int master, Timing* out)
{
    answerFrames(master, out, [](const QByteArray& frame, QByteArray* ack) {
        const int number = static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
        *ack = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                 "D\x00\x07");
        *ack += static_cast<char>((number >> 8) & 0xFF);
        *ack += static_cast<char>(number & 0xFF);
        *ack += "AACK";
        int sum = 0;
        for (qsizetype i = 7; i < ack->size(); ++i)
            sum += static_cast<unsigned char>(ack->at(i));
        *ack += static_cast<char>((-sum) & 0xFF);
        if (frame.mid(9, 4) == "OVER")
            return Then::Finish;
        return number >= 2 ? Then::TimeNext : Then::Untimed; // the header's answer waits for the 10 ms tick
    });
}

Timing measure(const std::function<void(int master, Timing*)>& terminal,
               const std::function<bool(const QString&)>& slave, const Placement& placement)
{
    Timing timing;
    PtyPair pty;
    if (!pty.open())
        return timing;
    cpu_set_t before{};
    pthread_getaffinity_np(pthread_self(), sizeof before, &before);
    // A run that could not be placed as asked is not counted as placed.
    bool placed = true;
    std::thread peer([&] {
        if (placement.apart() && !pinTo(placement.terminalCpu)) {
            std::fprintf(stderr, "the terminal could not be put on processor %d\n", placement.terminalCpu);
            placed = false;
        }
        terminal(pty.master, &timing);
    });
    if (placement.apart() && !pinTo(placement.pcCpu)) {
        std::fprintf(stderr, "the PC side could not be put on processor %d\n", placement.pcCpu);
        placed = false;
    }
    timespec started{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &started);
    const bool ok = slave(pty.slavePath);
    timespec after{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    peer.join();
    pthread_setaffinity_np(pthread_self(), sizeof before, &before);
    timing.cpuUs = static_cast<double>(after.tv_sec - started.tv_sec) * 1e6 +
                   static_cast<double>(after.tv_nsec - started.tv_nsec) / 1e3;
    timing.ok = timing.ok && ok && placed;
    return timing;
}

} // namespace turnaround
