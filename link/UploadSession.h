#pragma once

#include "link/SessionMessage.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>
#include <array>

class Clock;
class LinkPort;

// The receive screen's own values that the upload protocol fills and the
// restore store and file writers read.
struct UploadSummary
{
    int TotalRecords = 5000;          // announced by the header record
    int TotalTransactions = 0;        // from the summary record (TotalTransact)
    QString AgentId;                  // 3 characters from the summary (Label4)
    QString CollectionDate;           // ddmm from the summary (Label6)
    QString TotalAmountDigits;        // 8 digits from the summary
    QString BankAgentId;              // 15 characters from the header record
    QString UploadBaseName;           // summary bytes 10 to 16: agent and ddmm
    std::array<char, 6> ClockBytes{}; // made by SendRTC

    // txtTotalAmount: the digits as a number, formatted "0.00".
    QString totalAmountText() const;
};

// The PC side of taking the day's collections off the terminal: record
// requests, replies checked, matched to their request and kept in the
// shared Records array, the end frame, time-outs and check failures.
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
    enum class Phase {
        Idle,             // nothing asked yet (screen loaded)
        AwaitingHeader,   // record 0 requested
        AwaitingSummary,  // record 1 requested
        ReceivingRecords, // records 2 and up
        Done,             // the last record is in; the end frame went out
        Stopped,          // ended early: port failure, Cancel, stop(), a bad value
    };
    Q_ENUM(Phase)

    UploadSession(LinkPort& port, Clock& clock, QObject* parent = nullptr);
    ~UploadSession() override;

    // Receive screen loaded: port opened, Timer1 at 1000 ms, UploadDone
    // cleared; Timer3 (5000 ms) runs from here. False when the port could
    // not be opened (a message was emitted).
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

    Phase phase() const { return m_phase; }
    // A receive is under way: the header was asked for and the last record
    // is not in yet, or the check-failure question is open.
    bool isBusy() const;
    bool questionOpen() const { return m_questionOpen; }
    // RecordNo: the record now requested, -1 before the first request.
    int recordNo() const { return m_recordNo; }
    void setRecordNo(int recordNo) { m_recordNo = recordNo; }

    QTimer& timer1() { return m_timer1; }
    QTimer& timer3() { return m_timer3; }
    QTimer& flushTimer() { return m_flushTimer; }

    UploadSummary& summary() { return m_summary; }
    const UploadSummary& summary() const { return m_summary; }

    static constexpr int RecordCeiling = 2000; // records in one upload at most
    static constexpr int CrcQuestionAfter = 15;
    static constexpr int CableMessageEvery = 5;
    // Summary replies in a row that do not read as a summary before the
    // receive is given up.
    static constexpr int BadSummariesAllowed = 3;
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
    void phaseChanged(UploadSession::Phase phase);
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
    void setPhase(Phase phase);
    void say(const QString& text, SessionMessage::Icon icon);
    void fail(const QString& text);
    void onComm();
    void onTimer1();
    void onTimer3();
    void onDone(const QByteArray& bytes);
    void checkFailed();
    bool matchReply(int n, const QByteArray& reply);
    int keptElsewhere(int n, const QByteArray& content) const;
    // Records[n] set to / cleared from a reply, with the index of kept
    // records by content kept in step.
    void keep(int n, const QByteArray& reply);
    void forget(int n);
    void takeReply(int n, const QByteArray& reply);
    void clearMatching();
    void stepBackAfterTimeout();
    void writeRequest();
    bool ownsLink() const;
    template <typename F> void guarded(F&& step);

    LinkPort& m_port;
    Clock& m_clock;
    UploadSummary m_summary;
    QTimer m_timer1;
    QTimer m_timer3;
    QTimer m_flushTimer;
    Phase m_phase = Phase::Idle;
    int m_recordNo = -1;
    bool m_questionOpen = false;
    int m_badSummaries = 0;
    int m_unmatched = 0;
    // A record kept earlier answered differently on a later request: the
    // answer that comes twice in a row wins.
    int m_disputed = -1;
    QByteArray m_candidate;
    // A record that names no account, taken only when asked again it comes
    // again.
    int m_unconfirmed = -1;
    QByteArray m_unconfirmedContent;
    // A fresh request answered with a record kept at another index.
    int m_duplicateFor = -1;
    int m_duplicateOf = -1;
    int m_duplicateCount = 0;
    // Where each record content is kept in Records, lowest index first: a
    // reply is matched against the records kept so far in constant time,
    // not by a scan of them all. Two places hold the same content only when
    // the terminal really has two alike.
    QHash<QByteArray, QList<int>> m_kept;
    QMetaObject::Connection m_dataConnection;
    QMetaObject::Connection m_failConnection;
};
