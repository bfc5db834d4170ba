#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>
#include <array>
#include <functional>

class AppContext;

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
// requests, replies checked and kept in the shared Records array, the end
// frame, time-outs and check failures. When the last record is in it calls
// the restore handler (decoding, storing and writing the bank files).
class UploadSession : public QObject
{
    Q_OBJECT
public:
    explicit UploadSession(AppContext& ctx, QObject* parent = nullptr);
    ~UploadSession() override;

    // Receive screen loaded: port opened, Timer1 at 1000 ms, UploadDone
    // cleared; Timer3 (5000 ms) runs from here. False when the port could
    // not be opened (already reported).
    bool Form_Load();
    // Receive pressed (or Enter on it): TotalRecords 5000, FifthProtocol.
    void cmdSend_Click();

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
    void closePort();

    QTimer& timer1() { return m_timer1; }
    QTimer& timer3() { return m_timer3; }

    UploadSummary& summary() { return m_summary; }
    const UploadSummary& summary() const { return m_summary; }

    // RestoreData: run when the last record has arrived.
    void setRestoreHandler(std::function<void(UploadSession&)> handler) { m_restore = std::move(handler); }

    static QByteArray requestFrame(int recHi, int recLo);
    static QByteArray endFrame();

    static constexpr int ReplySize = 137;
    static constexpr int RecordCeiling = 2000; // records in one upload at most
    static constexpr int CrcQuestionAfter = 15;
    static constexpr int CableMessageEvery = 5;

    static QString noAcknowledgementText() { return QStringLiteral("No Acknowledgement from HandHeld Terminal"); }
    static QString checkCableText() { return QStringLiteral("Please Check the Communication Cable"); }
    static QString crcQuestionText() { return QStringLiteral("Error in CRC,Press OK to try again or Cancel to Quit"); }

signals:
    void headerReceived();                  // Receive disabled
    void summaryDecoded();                  // Label4, Label6, TotalTransact, txtTotalAmount
    void progress(int received, int total); // lblRecord "k / n"
    void busyChanged(bool busy);            // Label9 shown / hidden
    void finished();                        // the last record is in and handled
    // Cancel on the check-failure question: close the screen. The handler
    // still sends one more request after emitting it, even when a receiver
    // has deleted the session.
    void closeRequested();
    // A failure was reported (a conversion or store error inside a handler,
    // the port failing or not opening); the exchange may have stalled.
    void failed(const QString& message);

private:
    AppContext& m_ctx;
    UploadSummary m_summary;
    QTimer m_timer1;
    QTimer m_timer3;
    std::function<void(UploadSession&)> m_restore;
    QMetaObject::Connection m_dataConnection;
    QMetaObject::Connection m_failConnection;
    bool m_flushing = false;

    void onComm();
    void onTimer1();
    void onTimer3();
    void report(const QString& message);
    void flushInput();
    void stepBackAfterTimeout();
    static void writeRequest(AppContext& ctx);
};
