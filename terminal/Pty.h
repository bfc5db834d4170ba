#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

class QSocketNotifier;

// The terminal's end of a pseudo-terminal pair: the program opens the slave
// device (devicePath()) as its serial port, the simulator reads and writes
// the master. The slave is put in raw mode so every byte passes unchanged.
class Pty : public QObject
{
    Q_OBJECT
public:
    explicit Pty(QObject* parent = nullptr);
    ~Pty() override;

    bool open(QString* error);
    QString devicePath() const { return m_slavePath; }

    // Bytes per second are paced as on a real line at this baud rate
    // (10 bits a byte); 0 sends at once.
    void setBaud(int baud) { m_baud = baud; }

    void write(const QByteArray& bytes);
    QByteArray readAll();

    // A pulled cable: while the line is down every byte is lost, in both
    // directions (what the program sends is read and thrown away, what is
    // written here, queued output included, never reaches it). Nothing is
    // held back for later.
    void setLineDown(bool down);
    bool lineDown() const { return m_down; }
    // Down now, up again after `ms` milliseconds.
    void dropFor(int ms);
    qint64 bytesDropped() const { return m_dropped; }
    // Bytes written but not yet on the line (paced output).
    qsizetype pending() const { return m_queue.size(); }

signals:
    void readyRead();

private:
    void drain();

    int m_master = -1;
    int m_slaveKeepAlive = -1;
    QString m_slavePath;
    QSocketNotifier* m_notifier = nullptr;
    QByteArray m_incoming;
    int m_baud = 0;
    QByteArray m_queue;
    QTimer m_pacer;
    QElapsedTimer m_clock;
    double m_lineFreeAtMs = 0; // when the paced line has sent everything queued so far
    bool m_down = false;
    qint64 m_dropped = 0;
    QTimer m_upAgain;
};
