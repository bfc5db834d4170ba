#pragma once

#include "terminal/Pty.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QRandomGenerator>
#include <QSerialPort>
#include <QString>
#include <QTimer>

// A bad cable between the program and a simulated terminal, made of two
// pseudo-terminals: the program opens pcDevice() as its serial port, the
// simulated terminal works on terminalPty(), and every chunk in between may
// be corrupted, lost, split or delayed, or the whole line pulled for a
// while. The same relay serves downloads and receives; faults are drawn from
// a seeded generator so that a run can be repeated.
class LineRelay : public QObject
{
    Q_OBJECT
public:
    struct Faults
    {
        double corruptByte = 0;    // chance per byte of being replaced by a random one
        double dropChunk = 0;      // chance per chunk of being lost
        double dropByte = 0;       // chance per byte of being lost
        double splitChunk = 0;     // chance per chunk of arriving in two parts
        int maxDelayMs = 0;        // each chunk held up to this long (order kept)
        double pullsPerMinute = 0; // how often the cable is pulled
        int pullMinMs = 500;
        int pullMaxMs = 3000;
    };

    explicit LineRelay(quint32 seed, QObject* parent = nullptr);

    bool open(QString* error);
    QString pcDevice() const { return m_pc.devicePath(); }
    Pty& terminalPty() { return m_terminal; }

    void setFaults(const Faults& faults) { m_faults = faults; }
    // A clean cable: nothing is changed, nothing delayed, nothing pulled.
    void setClean(bool clean);
    bool lineDown() const;

    qint64 bytesCorrupted() const { return m_corrupted; }
    qint64 bytesLost() const { return m_lost; }
    int pulls() const { return m_pulls; }

private:
    enum Direction { ToTerminal, ToPc };
    struct Chunk
    {
        qint64 dueMs;
        QByteArray bytes;
    };

    void take(Direction direction, QByteArray bytes);
    void release();
    void deliver(Direction direction, const QByteArray& bytes);
    qint64 nowMs() const { return m_clock.elapsed(); }
    bool chance(double p) { return p > 0 && m_random.generateDouble() < p; }

    Pty m_pc;
    Pty m_terminal;
    QSerialPort m_terminalLine; // the relay's end of the terminal's pty
    QRandomGenerator m_random;
    Faults m_faults;
    bool m_clean = false;
    QElapsedTimer m_clock;
    qint64 m_downUntilMs = -1;
    QList<Chunk> m_queue[2];
    qint64 m_lastDue[2] = {0, 0};
    QTimer m_releaser;
    QTimer m_puller;
    qint64 m_corrupted = 0;
    qint64 m_lost = 0;
    int m_pulls = 0;
};
