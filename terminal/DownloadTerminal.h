#pragma once

#include "terminal/TerminalAccounts.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTimer>

class Pty;

// The hand-held terminal in its download mode: takes the header, the account
// frames and the end frame the PC sends, checks each one, answers with an
// acknowledgement carrying the frame's record number, and keeps what it got
// in a state file. Faults can be asked for to exercise the PC's resends.
class DownloadTerminal : public QObject
{
    Q_OBJECT
public:
    // Faults apply once each, to the first frame carrying the given record
    // number (0 is the header; the end frame is never faulted). -1: none.
    struct Faults
    {
        int nackFrame = -1;         // answer "NACK" instead of "AACK"
        int wrongNumberFrame = -1;  // acknowledge with the number plus one
        int silentFrame = -1;       // do not answer at all
        QByteArray notDownloadMode; // "CLOS" or "BACK": answer every frame with it
    };

    explicit DownloadTerminal(Pty* pty, QObject* parent = nullptr);

    void setFaults(const Faults& faults) { m_faults = faults; }
    // Folder of the state file; empty keeps the state in memory only.
    void setStateDir(const QString& dir) { m_stateDir = dir; }
    QString statePath() const;

    // Takes the PC's bytes no faster than a line at this speed would deliver
    // them (10 bits a byte); 0 takes them as they come. The Pty paces the
    // other direction.
    void setLineBaud(int baud) { m_baud = baud; }

    // Reads what the PC sent from the Pty whenever it arrives.
    void attach();
    // Takes bytes of the download exchange (for a caller that reads the Pty
    // itself and routes by command byte).
    void receive(const QByteArray& bytes);

    const TerminalAccounts& state() const { return m_state; }
    // Record numbers of the frames received, in arrival order (the end
    // frame is not listed).
    const QList<int>& receivedNumbers() const { return m_received; }
    int endFramesReceived() const { return m_endFrames; }
    int rejectedFrames() const { return m_rejected; }
    qint64 bytesIn() const { return m_bytesIn; }
    qint64 bytesOut() const { return m_bytesOut; }

    // The 14-byte answer: 01 FF 10 F0 'D' 00 07 HI LO <word> CS, where CS
    // makes bytes 8 to 14 add up to a multiple of 256.
    static QByteArray answerFrame(int number, const QByteArray& word);
    // Whether the header's check byte follows the double-summing rule.
    static bool headerCheckOk(const QByteArray& frame);
    static bool recordCheckOk(const QByteArray& frame);

signals:
    void headerReceived();
    void accountReceived(int number);
    // The end frame was acknowledged and the state saved.
    void downloadFinished();
    // A line for the operator of the simulator.
    void note(const QString& text);

private:
    void take(const QByteArray& bytes);
    void releaseArrived();
    void handleFrame(const QByteArray& frame);
    void answer(int number, const QByteArray& word);
    bool takeFault(int& frame, int number);
    void saveState();

    Pty* m_pty;
    QByteArray m_buffer;
    int m_baud = 0;
    QElapsedTimer m_lineClock;
    double m_lineFreeAtMs = 0;
    QList<QPair<double, QByteArray>> m_onLine; // bytes still travelling: arrival time, bytes
    QTimer m_arrival;
    Faults m_faults;
    QString m_stateDir;
    TerminalAccounts m_state;
    QMap<int, TerminalAccount> m_accounts;
    QMap<int, QByteArray> m_frames; // the frames the accounts came in, by number
    QList<int> m_received;
    bool m_headerSeen = false;
    int m_endFrames = 0;
    int m_rejected = 0;
    qint64 m_bytesIn = 0;
    qint64 m_bytesOut = 0;
};
