#pragma once

#include "bench/Median.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <vector>

struct UploadRecords;

// The terminal's end of bench_turnaround: the terminal's two loops on the
// master side of a raw pseudo-terminal, which answer the PC side and time
// it, and one timed run of a PC side against one of them.
namespace turnaround {

struct Timing
{
    bool ok = false;
    std::vector<double> turnUs; // one per reply
    double cpuUs = 0;           // processor time of the PC's side, all of it
    double cpuPerReply() const { return turnUs.empty() ? 0 : cpuUs / static_cast<double>(turnUs.size()); }
    double median() const { return medianOf(turnUs); }
};

// Where the two ends run: where the scheduler puts them, or each on a
// processor of its own (a real terminal is a machine of its own).
struct Placement
{
    int terminalCpu = -1;
    int pcCpu = -1;
    bool apart() const { return terminalCpu >= 0 && pcCpu >= 0; }
};

// The processors this program may run on.
std::vector<int> allowedProcessors();

void makeRaw(int fd);
bool writeAll(int fd, const QByteArray& bytes);
// Reads until `buffer` holds at least `size` bytes; false on a time-out.
bool readAtLeast(int fd, QByteArray& buffer, qsizetype size);

// The terminal in upload mode: answers every record request with its reply,
// and times the PC from each reply of record 2 on to the next frame.
void uploadTerminal(int master, const UploadRecords& records, Timing* out);
// The terminal in download mode: acknowledges every frame with its number,
// and times the PC from each account frame's acknowledgement to the next.
void downloadTerminal(int master, Timing* out);

// Runs `slave` on this thread while the terminal runs on the master end of
// a new pseudo-terminal, both placed as `placement` says.
Timing measure(const std::function<void(int master, Timing*)>& terminal,
               const std::function<bool(const QString&)>& slave, const Placement& placement);

} // namespace turnaround
