#pragma once

#include "link/DownloadFrames.h"
#include "link/DownloadPhase.h"
#include "link/SessionMessage.h"
#include "link/SessionTimer.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <exception>

class Clock;
class LinkPort;
struct LinkState;

// The PC side of sending one agent's accounts to the terminal: header frame,
// one record frame per account, the end frame, acknowledgements, resends and
// time-outs. The terminal's answers are read by DownloadAnswers; what the
// session does with them is decided by its phase (DownloadPhase). It works on
// the port's program-wide link state, shows nothing and never waits for
// anyone: what the user must be told is emitted as a message, and the screen
// or the command line decides how to show it. Handlers carry version 2.1's
// names so that screens, the CLI and tests can drive each one.
class DownloadSession : public QObject
{
    Q_OBJECT
public:
    using Phase = DownloadPhase::Phase;

    DownloadSession(LinkPort& port, Clock& clock, QObject* parent = nullptr);
    ~DownloadSession() override;

    // Send screen loaded: download complete cleared, send counter "0",
    // timers stopped (Timer1 at 10 ms).
    void Form_Load();
    // Send pressed: send counter "0", receive buffer emptied, timers stopped,
    // nothing of an earlier send left.
    void prepareSend();

    bool OpenCommPort(); // false after emitting the reason
    void FirstProtocol(const DownloadJob& job);
    void SecondProtocol();
    void SendOneByOne();
    void MSComm1_OnComm();
    void Timer1_Timer();
    void Timer2_Timer();
    void Timer3_Timer();
    // No answer to the header within five seconds.
    void headerTimedOut();
    // The clerk stops the transfer: timers off, the port closed, nothing
    // more sent. Emits nothing.
    void stopTransfer();
    void closePort(); // Form_Unload

    Phase phase() const { return m_phase.current(); }
    // A transfer is under way (the header is out and no end reached).
    bool busy() const;
    int sendCounter() const { return m_counter; }

    QTimer& timer1() { return m_timer1; }
    SessionTimer& timer2() { return m_timer2; }
    QTimer& timer3() { return m_timer3; }
    QTimer& headerWatch() { return m_headerWatch; }

    const DownloadJob& job() const { return m_job; }
    const QByteArray& headerFrame() const { return m_header; }
    // The ready-made frame of account n (1-based: index n of the array).
    QByteArray recordFrame(int index) const { return m_recordFrames.value(index); }
    int lastFrameSent() const { return m_lastFrameSent; }

    static QByteArray endFrame() { return DownloadFrames::end(); }

    static constexpr int FrameCapacity = 2500; // record frame array, index 0 unused
    static constexpr int HeaderWaitMs = 5000;
    // Answers in a row that bring no new account forward before the session
    // stops answering and lets the line go quiet (see MSComm1_OnComm).
    static constexpr int LagLimit = 8;

    static QString notInDownloadModeText()
    {
        return QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!");
    }
    static QString completedText() { return QStringLiteral("Download Completed Successfully!"); }
    static QString completedPlainText() { return QStringLiteral("Download Completed Successfully"); }
    static QString checkCableText() { return QStringLiteral("Please Check the Communication Cable"); }
    static QString portTakenText()
    {
        return QStringLiteral("The download was stopped: the Receive screen has taken the port. "
                              "Press Send again when the receive is over.");
    }

signals:
    // lblRecord: acknowledged records " / " record count.
    void progress(int acknowledged, int total);
    // Something to tell the user; emitted before stopped() or completed().
    void message(const SessionMessage& message);
    // Ended with a message: cmdSend and cmdClear are enabled again.
    void stopped();
    // The final acknowledgement arrived ("Download Completed Successfully").
    void completed();

private:
    void doFirstProtocol();
    void doSecondProtocol();
    void doSendOneByOne();
    void doOnComm();
    void doTimer2();
    // The one place the session's phase changes.
    void setPhase(Phase phase);
    void send(const QByteArray& frame);
    void setCounter(int counter);
    void stepBackSendCounter();
    void stopTimers();
    void stopWith(const SessionMessage& message);
    void complete(const QString& text);
    void fail(const QString& why);
    void onLinkFailed(const QString& message);
    void onPortTaken();
    LinkState& link();
    int frameCount() const { return static_cast<int>(m_recordFrames.size()) - 1; }
    template <typename Step> void guarded(Step step);

    LinkPort& m_port;
    Clock& m_clock;
    DownloadPhase m_phase;
    DownloadJob m_job;
    QByteArray m_header;
    QList<QByteArray> m_recordFrames; // index 1..N; index 0 never filled
    int m_lastFrameSent = 0;
    int m_counter = 0;       // the send counter (RecordNo of the shared state)
    int m_highest = 0;       // the furthest the counter has come in this send
    int m_sinceProgress = 0; // answers since it last came further
    int m_quietTicks = 0;    // time-outs that resent nothing
    QTimer m_timer1;
    SessionTimer m_timer2; // restarted for every acknowledgement
    QTimer m_timer3;
    QTimer m_headerWatch;
};

// A handler's work runs through this: a link error or any other failure
// stops the send with a message instead of leaving the handler.
template <typename Step> void DownloadSession::guarded(Step step)
{
    try {
        step();
    } catch (const LinkError& e) {
        fail(e.message());
    } catch (const std::exception& e) {
        fail(QString::fromLocal8Bit(e.what()));
    }
}
