#pragma once

#include "link/ReplyMatcher.h"
#include "link/SessionMessage.h"
#include "link/SessionTimer.h"
#include "link/UploadPhase.h"
#include "link/UploadReplies.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>

class Clock;
class LinkPort;

// The PC side of taking the day's collections off the terminal: record
// requests, replies checked, matched to their request and kept in the
// shared Records array, the end frame, time-outs and check failures. The
// replies are read by UploadReplies, matched to their request by
// ReplyMatcher, and what the session does at each turn is decided by its
// phase (UploadPhase).
//
// The session shows nothing and never waits for the user: what the user
// must be told is emitted as message(), the check-failure question as
// crcQuestion() and answered later through answerCrcQuestion(). When the
// last record is in it emits finished(); storing what arrived is the
// caller's step (ReceiveFlow).
class UploadSession : public QObject
{
    Q_OBJECT
public:
    using Phase = UploadPhase::Phase;

    UploadSession(LinkPort& port, Clock& clock, QObject* parent = nullptr);
    ~UploadSession() override;

    // Receive screen loaded: port opened, Timer1 at 1000 ms, the shared
    // completion cleared; Timer3 (5000 ms) runs from here. False when the
    // port could not be opened (a message was emitted).
    bool Form_Load();
    // Receive pressed (or Enter on it): a fresh receive. The line's input is
    // emptied first, so bytes left by an interrupted exchange are never
    // taken as the header; TotalRecords 5000, FifthProtocol. Reopens the
    // port when it failed since.
    void cmdSend_Click();
    // The answer to crcQuestion(): OK asks for the record again, Cancel ends
    // the receive (closeRequested), still sending the request once more.
    void answerCrcQuestion(bool ok);
    // The clerk stopped the receive: timers off, port closed, nothing kept
    // for storing. No message.
    void stop();

    bool OpenCommPort();
    void FifthProtocol();
    void ThirdProtocol();
    void FourthProtocol();
    void CallOver();
    void SendRTC();
    void DecodeFifthProtocol();
    void DecodeThirdProtocol();
    void MSComm1_OnComm();
    void Timer1_Timer();
    void Timer3_Timer();
    // The line has been quiet for a moment after a failed check: the record
    // is asked for again.
    void FlushTimer_Timer();
    void closePort();

    Phase phase() const { return m_phase.current(); }
    // A receive is under way: the header was asked for and the last record
    // is not in yet, or the check-failure question is open.
    bool isBusy() const;
    bool questionOpen() const { return m_phase.current() == Phase::CheckQuestion; }
    // RecordNo: the record now requested, -1 before the first request.
    int recordNo() const { return m_recordNo; }
    void setRecordNo(int recordNo) { m_recordNo = recordNo; }

    SessionTimer& timer1() { return m_timer1; }
    SessionTimer& timer3() { return m_timer3; }
    QTimer& flushTimer() { return m_flushTimer; }

    UploadSummary& summary() { return m_summary; }
    const UploadSummary& summary() const { return m_summary; }

    static constexpr int RecordCeiling = UploadPhase::RecordCeiling; // records in one upload at most
    static constexpr int CrcQuestionAfter = 15;
    static constexpr int CableMessageEvery = 5;
    static constexpr int BadSummariesAllowed = ReplyMatcher::BadSummariesAllowed;
    // Good replies in a row that answer no request (late, misplaced)
    // before the receive is given up.
    static constexpr int UnmatchedRepliesAllowed = 20;
    // After a failed check, what still arrives is the rest of the damaged
    // reply: it is thrown away until the line has been quiet this long.
    static constexpr int FlushQuietMs = 50;

    static QString noAcknowledgementText() { return QStringLiteral("No Acknowledgement from HandHeld Terminal"); }
    static QString checkCableText() { return QStringLiteral("Please Check the Communication Cable"); }
    static QString crcQuestionText() { return QStringLiteral("Error in CRC,Press OK to try again or Cancel to Quit"); }

signals:
    void message(const SessionMessage& message);
    // The 15th check failure in a row: ask OK/Cancel, then call
    // answerCrcQuestion(). Nothing is requested until the answer comes.
    void crcQuestion(const SessionMessage& question);
    void phaseChanged(UploadPhase::Phase phase);
    void headerReceived();                  // Receive disabled
    void summaryDecoded();                  // Label4, Label6, TotalTransact, txtTotalAmount
    void progress(int received, int total); // lblRecord "k / n"
    void busyChanged(bool busy);            // Label9 shown / hidden
    // The last record is in, every record from 0 to it kept once: the
    // exchange is complete and consistent. Emitted once per receive.
    void finished();
    // Cancel on the check-failure question: close the screen. The last
    // request has already gone out.
    void closeRequested();
    // The receive ended early (port failure, a value that cannot be read,
    // stop()); a message saying what to do was emitted first, except after
    // stop().
    void stopped();

private:
    // The one place the session's phase changes.
    void setPhase(Phase phase);
    void say(const QString& text, SessionMessage::Icon icon);
    void fail(const QString& text);
    void onComm();
    void onTimer1();
    void onTimer3();
    void onDone(const QByteArray& bytes);
    void checkFailed();
    // Acts on the matcher's verdict; true when the reply is to be taken.
    bool accepted(int n, const QByteArray& reply);
    void takeReply(int n);
    void finish(int n);
    void stepBackAfterTimeout();
    void writeRequest();
    bool ownsLink() const;
    // Runs a step of the protocol when the session holds the port; a
    // failure inside it stops the receive with its message.
    void guarded(const std::function<void()>& step);

    LinkPort& m_port;
    Clock& m_clock;
    UploadSummary m_summary;
    SessionTimer m_timer1;
    SessionTimer m_timer3;
    QTimer m_flushTimer;
    UploadPhase m_phase;
    int m_recordNo = -1;
    int m_unmatched = 0;
    ReplyMatcher m_matcher;
    QMetaObject::Connection m_dataConnection;
    QMetaObject::Connection m_failConnection;
};
