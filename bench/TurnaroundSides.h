#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

struct DownloadJob;

// The PC sides bench_turnaround sets against each other, each run on the
// slave end `slavePath` (or `device`) until its exchange is over; true when
// it ended as it should.
namespace turnaround {

// The slave side with no program logic: each frame of `frames` written after
// the answer to the one before has fully arrived.
bool minimalLoop(const QString& slavePath, const QList<QByteArray>& frames, qsizetype answerSize);
// The least any program on Qt's event loop can do: the port opened and set
// up as the program does, and each answer taken from readyRead and answered
// with the next premade frame, written straight to the line. No session
// logic, no checks.
bool qtFloor(const QString& slavePath, const QList<QByteArray>& frames, qsizetype answerSize);
// The program: the receive's session over the serial port, as the screen
// runs it.
bool runUploadSession(const QString& device);
// The program: the send's session over the serial port, as the screen runs
// it.
bool runDownloadSession(const QString& device, const DownloadJob& job);

} // namespace turnaround
