#pragma once

#include "base/Messenger.h"
#include "download/AccountStore.h"
#include "download/DownloadFile.h"
#include "link/DownloadSession.h"

#include <QObject>
#include <QString>

class AppContext;

// What the Send button does, without the window: the input checks, locating
// and reading the download file, storing its accounts, reading them back in
// the order they are sent and starting the download protocol with them.
// Everything the user must be told comes out of message(), whether the send
// screen (boxes that do not block) or the command-line tool (lines) shows it.
class SendFlow : public QObject
{
    Q_OBJECT
public:
    enum class Result {
        AgentMissing, // "Enter Agent ID": the agent box wants the focus
        DateMissing,  // "Enter Date": the date box wants the focus
        Stopped,      // refused or failed with a message; Send and Clear enabled again
        Started,      // the header frame is out; the session goes on
        Busy,         // a download is under way; nothing done
    };

    explicit SendFlow(AppContext& ctx, QObject* parent = nullptr);

    // Screen loaded: the session's start state, and the terminal passwords
    // ("0000" format) that travel in the header.
    void Form_Load();
    // Screen closed: a download under way is stopped and the port closed.
    void Form_Unload();

    // The Send button with the three boxes' texts. An empty transactions
    // text is replaced by "1", which the caller shows in its box.
    Result cmdSend(const QString& agentText, const QString& dateText, QString& transactText);

    // The clerk stops a download under way: nothing more is sent, the port
    // is closed, Send and Clear are enabled again. No message.
    void stopTransfer();
    // The same for a download stopped from outside (a signal to the command
    // line tool): `outcome` goes to the audit trail as the send's end. False
    // when no download was under way.
    bool stopTransfer(const QString& outcome);
    bool busy() const { return m_session.busy(); }

    // Agent number formatted "000".
    static QString agentNumber(const QString& agentText);

    QString downloadPassword() const { return m_downloadPassword; }
    QString setupPassword() const { return m_setupPassword; }

    DownloadSession& session() { return m_session; }
    AccountStore& store() { return m_store; }
    const DownloadFile& file() const { return m_file; }
    const DownloadJob& job() const { return m_job; }
    QString downloadPath() const { return m_downloadPath; }

signals:
    // Something to tell the user, with the icon of its box and the detail
    // that names the file or line it is about.
    void message(const QString& text, Messenger::Icon icon, const QString& detail = {});
    // cmdSend and cmdClear: off for the whole download, on again after every
    // failure reported by a message and after completion.
    void buttonsEnabled(bool enabled);
    // Acknowledged records and the record count, for "Record Sent : k / n".
    void progress(int acknowledged, int total);
    void completed();
    void stopped();

private:
    // The outcome of a download that reached the terminal, for the audit trail.
    void audit(const QString& outcome);
    Result stop(const QString& text, Messenger::Icon icon, const QString& detail = {});
    // The file's accounts can all be sent: refused with a message before
    // anything is stored or the port is touched when they cannot.
    bool checkSendable();
    bool readAccounts(QString* error);

    AppContext& m_ctx;
    DownloadSession m_session;
    AccountStore m_store;
    DownloadFile m_file;
    DownloadJob m_job;
    QString m_downloadPath;
    QString m_downloadPassword;
    QString m_setupPassword;
};
