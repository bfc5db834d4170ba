#pragma once

#include "AppSettings.h"
#include "LinkCodec.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

class AppContext;
class SharedRecordset;

// What the download file and the send screen hand to the download protocol
// (the form-level values the protocol reads).
struct DownloadJob
{
    QString agentDateKey; // agent (3 digits) and date (ddmm), e.g. "0051611"
    QString fileName;     // FileName value stored with the accounts
    QString branchId;     // BranchID of the last record, 15 characters
    QString agentId;      // AgentID of the last record, 15 characters
    int recordCount = 0;
    QString transactions;     // trimmed text of txtTransact
    QString downloadPassword; // terminal "Download" password, formatted "0000"
    QString setupPassword;    // terminal "Setup" password, formatted "0000"
};

// The PC side of sending one agent's accounts to the terminal: header frame,
// one record frame per account, the end frame, acknowledgements, resends and
// time-outs. Works on the program-wide link state and link of AppContext and
// shows its messages through the context's Messenger. Handlers carry the
// original's names so that screens, the CLI and tests can drive each one.
class DownloadSession : public QObject
{
    Q_OBJECT
public:
    explicit DownloadSession(AppContext& ctx, QObject* parent = nullptr);
    ~DownloadSession() override;

    // Send screen loaded: download complete cleared, send counter "0",
    // timers stopped (Timer1 at 10 ms).
    void Form_Load();
    // Send pressed: send counter "0", header pending, timers stopped.
    void prepareSend();

    bool OpenCommPort(); // false after reporting the failure
    void FirstProtocol(const DownloadJob& job);
    void SecondProtocol();
    void SendOneByOne();
    void MSComm1_OnComm();
    void Timer1_Timer();
    void Timer2_Timer();
    void Timer3_Timer();
    void closePort(); // Form_Unload

    QTimer& timer1() { return m_timer1; }
    QTimer& timer2() { return m_timer2; }
    QTimer& timer3() { return m_timer3; }

    // The terminal passwords read by Form_Load ("0000" format); FirstProtocol
    // uses them when the job leaves its own empty.
    QString downloadPassword() const { return m_downloadPassword; }
    QString setupPassword() const { return m_setupPassword; }

    const DownloadJob& job() const { return m_job; }
    const QByteArray& headerFrame() const { return m_header; }
    // The ready-made frame of account n (1-based: index n of the array).
    QByteArray recordFrame(int index) const { return m_recordFrames.value(index); }
    int lastFrameSent() const { return m_lastFrameSent; }

    static QByteArray endFrame();
    // The header frame for a job, the settings and a clock reading; throws
    // LinkError on a conversion failure. Pads the bank and branch names and
    // clears a negative font size in the settings given, as the send does.
    static QByteArray buildHeaderFrame(const DownloadJob& job, AppSettings& settings, const QDateTime& now,
                                       LinkCodec& codec);
    // The frame of one account row (fields by name) under a frame number;
    // throws LinkError on a conversion failure.
    static QByteArray buildRecordFrame(const SharedRecordset& row, int frameNumber, LinkCodec& codec);

    static constexpr int FrameCapacity = 2500; // record frame array, index 0 unused
    static QString notInDownloadModeText()
    {
        return QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!");
    }
    static QString completedText() { return QStringLiteral("Download Completed Successfully!"); }
    static QString completedPlainText() { return QStringLiteral("Download Completed Successfully"); }
    static QString checkCableText() { return QStringLiteral("Please Check the Communication Cable"); }

signals:
    // lblRecord: acknowledged records " / " record count.
    void progress(int acknowledged, int total);
    // A failure reported by message: cmdSend and cmdClear are enabled again.
    void stopped();
    // The final acknowledgement arrived ("Download Completed Successfully").
    void completed();

private:
    void doFirstProtocol();
    void doSecondProtocol();
    void doSendOneByOne();
    void doOnComm();
    void stepBackSendCounter();
    void stopTimers();
    void fail(const QString& why);
    void onLinkFailed(const QString& message);
    int frameCount() const { return static_cast<int>(m_recordFrames.size()) - 1; }
    template <typename Step> void guarded(Step step);

    AppContext& m_ctx;
    QString m_downloadPassword;
    QString m_setupPassword;
    DownloadJob m_job;
    QByteArray m_header;
    QList<QByteArray> m_recordFrames; // index 1..N; index 0 never filled
    int m_lastFrameSent = 0;
    QTimer m_timer1;
    QTimer m_timer2;
    QTimer m_timer3;
    QMetaObject::Connection m_dataConnection;
    QMetaObject::Connection m_failConnection;
};
