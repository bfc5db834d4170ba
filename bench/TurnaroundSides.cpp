#include "bench/TurnaroundSides.h"

#include "base/Clock.h"
#include "bench/TurnaroundLine.h"
#include "link/DownloadFrames.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"
#include "link/UploadSession.h"

#include <QEventLoop>
#include <QSerialPort>
#include <QTimer>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace turnaround {

bool minimalLoop(const QString& slavePath, const QList<QByteArray>& frames, qsizetype answerSize)
{
    const int fd = ::open(slavePath.toLocal8Bit().constData(), O_RDWR | O_NOCTTY);
    if (fd < 0)
        return false;
    makeRaw(fd);
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

} // namespace turnaround
