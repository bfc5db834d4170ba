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
//
// All of it twice: with the terminal and the PC side where the scheduler
// puts them ("shared": on a small machine it often runs both on one
// processor, and a reply then needs no other processor woken), and with
// each on a processor of its own ("apart"), as a real terminal, a machine
// of its own, always is. Which of the two a reply gets moves the shared
// figures by far more than the PC side's own work does.

#include "bench/Median.h"
#include "bench/SampleDownload.h"
#include "bench/TurnaroundLine.h"
#include "bench/TurnaroundSides.h"
#include "link/DownloadFrames.h"
#include "link/DownloadSession.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "terminal/UploadRecords.h"

#include <QCoreApplication>
#include <QDateTime>
#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

using namespace turnaround;

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

// Where each round puts the two ends.
using Placer = std::function<Placement(int round)>;

// One receive size: the terminal's replies and the requests the loop and
// the floor send.
struct ReceiveCase
{
    int records = 0;
    UploadRecords replies;
    QList<QByteArray> requests;
};

// One send size: the download and its frames, made beforehand.
struct SendCase
{
    int records = 0;
    int accounts = 0;
    DownloadJob job;
    QList<QByteArray> frames;
};

bool makeReceiveCase(int records, const QDate& day, ReceiveCase* out)
{
    const TerminalAccounts accounts = UploadRecords::sampleAccounts(records, day);
    QString error;
    if (!UploadRecords::build(accounts, UploadRecords::generate(accounts, records, day), {}, &out->replies, &error)) {
        std::fprintf(stderr, "cannot build the replies: %s\n", qPrintable(error));
        return false;
    }
    out->records = records;
    // The program takes 2000 records at most, whatever is announced: the
    // loop asks for the same ones.
    const int last = std::min(out->replies.recordCount(), UploadSession::RecordCeiling) + 1;
    for (int n = 0; n <= last; ++n)
        out->requests.append(UploadFrames::request(n));
    out->requests.append(UploadFrames::end());
    return true;
}

bool makeSendCase(int records, const QDate& day, SendCase* out)
{
    out->records = records;
    // The frame array holds 2499 accounts at most.
    out->accounts = std::min(records, DownloadSession::FrameCapacity - 1);
    out->job = sampleDownloadJob(out->accounts);
    try {
        LinkCodec codec;
        out->frames.append(DownloadFrames::header(out->job, QDateTime(day, QTime(9, 0)), codec));
        int n = 2;
        for (const DownloadAccount& account : out->job.accounts)
            out->frames.append(DownloadFrames::record(account, n++, codec));
        out->frames.append(DownloadFrames::end());
    } catch (const LinkError& e) {
        std::fprintf(stderr, "cannot build the frames: %s\n", qPrintable(e.message()));
        return false;
    }
    return true;
}

// One row: the program, the floor and the loop, each answered by
// `terminal`, round after round; false (and why, on stderr) when one of
// them did not complete. The floor and the loop write `frames`, and each
// answer to them is `answerSize` bytes.
bool measureRow(const char* what, const char* unit, const std::function<void(int master, Timing*)>& terminal,
                const std::function<bool(const QString& device)>& program, const QList<QByteArray>& frames,
                qsizetype answerSize, const Placer& placer, Row* row)
{
    for (int round = 0; round < Rounds; ++round) {
        const Placement placement = placer(round);
        const auto [p, f, m] = inTurn(
            round, [&] { return measure(terminal, program, placement); },
            [&] {
                return measure(
                    terminal, [&](const QString& device) { return qtFloor(device, frames, answerSize); }, placement);
            },
            [&] {
                return measure(
                    terminal, [&](const QString& device) { return minimalLoop(device, frames, answerSize); },
                    placement);
            });
        if (!p.ok || !f.ok || !m.ok) {
            std::fprintf(stderr,
                         "the %s of %d %s did not complete (program %d, %zu replies; floor %d, %zu; loop %d, %zu)\n",
                         what, row->records, unit, p.ok, p.turnUs.size(), f.ok, f.turnUs.size(), m.ok, m.turnUs.size());
            return false;
        }
        row->add(p, f, m);
    }
    return true;
}

bool receiveRow(const ReceiveCase& c, const Placer& placer, Row* row)
{
    row->records = c.records;
    return measureRow(
        "receive", "records", [&c](int master, Timing* out) { uploadTerminal(master, c.replies, out); },
        runUploadSession, c.requests, UploadFrames::ReplySize, placer, row);
}

bool sendRow(const SendCase& c, const Placer& placer, Row* row)
{
    row->records = c.accounts;
    return measureRow(
        "send", "accounts", downloadTerminal, [&c](const QString& device) { return runDownloadSession(device, c.job); },
        c.frames, DownloadFrames::AnswerSize, placer, row);
}

// Every row with the two ends placed by `placer`, printed as they come.
bool runAll(const QList<ReceiveCase>& receives, const QList<SendCase>& sends, const Placer& placer, bool spread)
{
    printHead();
    QList<Row> receiveRows;
    for (const ReceiveCase& c : receives) {
        Row row;
        if (!receiveRow(c, placer, &row))
            return false;
        receiveRows.append(row);
        printRow("receive", row, c.records > UploadSession::RecordCeiling ? "  (2000 taken: the ceiling)" : "");
    }
    QList<Row> sendRows;
    for (const SendCase& c : sends) {
        Row row;
        if (!sendRow(c, placer, &row))
            return false;
        sendRows.append(row);
        printRow("send", row, c.accounts < c.records ? "  (2499: the frame array's limit)" : "");
    }
    if (!receiveRows.isEmpty())
        printFlatness("receive", receiveRows);
    if (!sendRows.isEmpty())
        printFlatness("send", sendRows);
    if (spread && !receiveRows.isEmpty())
        printSpread("receive", receiveRows);
    if (spread && !sendRows.isEmpty())
        printSpread("send", sendRows);
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QDate day(2007, 11, 16);
    const QList<int> sizes{500, 1000, 2000, 2500};
    // --rounds N: runs per figure; --receive-only / --send-only: one side
    // (for a profiler); --spread: how the single turnarounds spread;
    // --placement shared|apart: one placement only.
    const QStringList args = app.arguments();
    if (const qsizetype at = args.indexOf(QStringLiteral("--rounds")); at >= 0 && at + 1 < args.size())
        Rounds = std::max(1, args.at(at + 1).toInt());
    QString only;
    if (const qsizetype at = args.indexOf(QStringLiteral("--placement")); at >= 0 && at + 1 < args.size())
        only = args.at(at + 1);
    const bool spread = args.contains(QStringLiteral("--spread"));

    QList<ReceiveCase> receives;
    for (int records : args.contains(QStringLiteral("--send-only")) ? QList<int>() : sizes) {
        receives.append(ReceiveCase());
        if (!makeReceiveCase(records, day, &receives.last()))
            return 1;
    }
    QList<SendCase> sends;
    for (int records : args.contains(QStringLiteral("--receive-only")) ? QList<int>() : sizes) {
        sends.append(SendCase());
        if (!makeSendCase(records, day, &sends.last()))
            return 1;
    }

    std::printf("Turnaround per reply in microseconds, median of %d rounds: the program, the least a program on\n"
                "Qt's event loop does (qt.floor: the port's readyRead answered with premade frames), and a minimal\n"
                "loop, on the same kind of pty. ratio: program / loop, floor: qt.floor / loop, each the median of\n"
                "the rounds' ratios; cpu: the PC side's processor time per reply\n",
                Rounds);

    if (only.isEmpty() || only == QLatin1String("shared")) {
        std::printf("\nshared: the terminal and the PC side where the scheduler puts them\n");
        if (!runAll(
                receives, sends, [](int) { return Placement(); }, spread))
            return 1;
    }
    if (only.isEmpty() || only == QLatin1String("apart")) {
        const std::vector<int> cpus = allowedProcessors();
        if (cpus.size() < 2) {
            std::printf("\napart: not measured, this machine gives the program one processor\n");
            return 0;
        }
        // Which end gets which processor changes from round to round: one
        // processor may be busier with the machine's other work.
        std::printf("\napart: the terminal on one processor, the PC side on another (%d and %d, swapped each "
                    "round)\n",
                    cpus[0], cpus[1]);
        const Placer apart = [&cpus](int round) {
            return round % 2 == 0 ? Placement{cpus[1], cpus[0]} : Placement{cpus[0], cpus[1]};
        };
        if (!runAll(receives, sends, apart, spread))
            return 1;
    }
    return 0;
}
