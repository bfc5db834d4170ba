// Soak run: many downloads and many receives through a bad cable (a relay
// between two pseudo-terminals that corrupts, loses, splits and delays bytes
// and pulls the line now and then) against the simulated terminal.
//
// For each download it prints whether it completed with the terminal holding
// exactly the accounts sent, ended with a message, hung, or finished with
// wrong data. For each receive the truth is what the simulated terminal was
// given; the program's word is not taken for it:
//   - completed correctly: success reported, and the agent's RestoreData
//     rows, the day's collection history and the upload file under its
//     official name hold exactly the terminal's collections;
//   - ended with a message: the receive stopped or was refused, and the
//     rows, the history and the bank folder are exactly as before it;
//   - hung: no end within the hang limit;
//   - wrong data: success reported with rows or history that are not the
//     terminal's collections, or a message with rows or history changed;
//   - wrong upload file: the official upload file not exactly what the
//     terminal's collections make, or changed by a receive that ended with
//     a message, or any other file appearing in the bank folder.
// Hung, wrong data and wrong upload files must all be 0.
//
//   bench_soak [--sends N] [--accounts N] [--receives N] [--receive-accounts N]
//              [--seed S] [--timeout-ms MS] [--hang-s S] [--clean]
//
// --timeout-ms shortens the response time-outs (1000 ms on the real screens;
// the receive's idle resend is five of them) and the relay's delays and pulls
// with them, for a quicker run. --clean turns the faults off, which shows
// that the run's own idea of the truth agrees with a clean exchange.

#include "base/Clock.h"
#include "base/Messenger.h"
#include "bench/LineRelay.h"
#include "bench/SampleDownload.h"
#include "core/AppContext.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "store/SharedDatabase.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/TerminalAccounts.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "upload/ReceiveFlow.h"
#include "upload/RestoreStore.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

// ---------------------------------------------------------------- downloads

QList<DownloadAccount> makeAccounts(int n, int send)
{
    QList<DownloadAccount> accounts;
    for (int i = 1; i <= n; ++i)
        accounts.append({QString::number(i % 10), QStringLiteral("DDS%1").arg(send % 100, 2, 10, QLatin1Char('0')),
                         QStringLiteral("%1").arg(send * 1000 + i, 15, 10, QLatin1Char('0')),
                         QStringLiteral("HOLDER %1 OF SEND %2").arg(i).arg(send),
                         QString::number((send * 7919 + i * 104729) % 100000000), QString::number((i * 37) % 100000),
                         QStringLiteral("0102%1").arg(i % 100, 2, 10, QLatin1Char('0')), QStringLiteral("      ")});
    return accounts;
}

// What the terminal must hold after the download: each frame as it decodes it.
QList<TerminalAccount> expectedAccounts(const QList<DownloadAccount>& accounts)
{
    QList<TerminalAccount> out;
    LinkCodec codec;
    for (int i = 0; i < accounts.size(); ++i)
        out.append(TerminalAccounts::accountFromFrame(DownloadFrames::record(accounts.at(i), i + 2, codec)));
    return out;
}

struct Figures
{
    int runs = 0;
    int correct = 0;
    int withMessage = 0;
    int hung = 0;
    int wrong = 0;
    int wrongFiles = 0; // receives only
    int crcQuestions = 0;
    QMap<QString, int> endings;
    qint64 elapsedMs = 0;
    QList<qint64> correctMs;
};

Figures runSends(LineRelay& relay, int sends, int accountsPerSend, int timeoutMs, int hangMs)
{
    Figures f;
    f.runs = sends;
    if (sends <= 0)
        return f;
    DownloadTerminal terminal(&relay.terminalPty());
    terminal.attach();

    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(9, 0))};
    LinkPort port;
    const QString device = relay.pcDevice();
    port.setDeviceLookup([device] { return PortChoice::given(device); });
    DownloadSession session(port, clock);
    session.timer2().setInterval(timeoutMs);
    session.headerWatch().setInterval(5 * timeoutMs);
    session.Form_Load();

    QElapsedTimer total;
    total.start();
    for (int send = 1; send <= sends; ++send) {
        DownloadJob job = sampleDownloadHead();
        job.agentId = QStringLiteral("AG%1").arg(send, 4, 10, QLatin1Char('0')).leftJustified(15);
        job.accounts = makeAccounts(accountsPerSend, send);
        job.recordCount = static_cast<int>(job.accounts.size());

        QEventLoop loop;
        QString ending;
        enum { Running, Completed, Stopped, Hung } outcome = Running;
        const auto onMessage = QObject::connect(&session, &DownloadSession::message, &loop,
                                                [&ending](const SessionMessage& m) { ending = m.text; });
        const auto onCompleted = QObject::connect(&session, &DownloadSession::completed, &loop, [&] {
            outcome = Completed;
            loop.quit();
        });
        const auto onStopped = QObject::connect(&session, &DownloadSession::stopped, &loop, [&] {
            outcome = Stopped;
            loop.quit();
        });
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, [&] {
            outcome = Hung;
            loop.quit();
        });
        deadline.start(hangMs);
        QElapsedTimer one;
        one.start();
        // Each download from a freshly opened send screen: a second one from
        // the same screen would find "download complete" still set and never
        // resend, as version 2.1 did.
        session.Form_Load();
        session.prepareSend();
        session.FirstProtocol(job);
        if (outcome == Running)
            loop.exec();
        QObject::disconnect(onMessage);
        QObject::disconnect(onCompleted);
        QObject::disconnect(onStopped);

        const char* verdict = "";
        if (outcome == Completed) {
            if (terminal.state().accounts == expectedAccounts(job.accounts) &&
                terminal.state().agentId == job.agentId) {
                ++f.correct;
                f.correctMs.append(one.elapsed());
                verdict = "completed correctly";
            } else {
                ++f.wrong;
                verdict = "WRONG DATA";
                const QList<TerminalAccount> expected = expectedAccounts(job.accounts);
                const QList<TerminalAccount>& got = terminal.state().accounts;
                int firstDiff = -1;
                for (int i = 0; i < std::min(expected.size(), got.size()) && firstDiff < 0; ++i)
                    if (!(expected.at(i) == got.at(i)))
                        firstDiff = i;
                std::printf("  terminal holds %lld accounts for %s (expected %lld for %s), end frames %d, first "
                            "difference at %d\n",
                            static_cast<long long>(got.size()), qPrintable(terminal.state().agentId),
                            static_cast<long long>(expected.size()), qPrintable(job.agentId),
                            terminal.endFramesReceived(), firstDiff);
            }
        } else if (outcome == Stopped) {
            ++f.withMessage;
            ++f.endings[ending.section(QLatin1Char('\n'), 0, 0)];
            verdict = "ended with a message";
        } else {
            ++f.hung;
            verdict = "HUNG";
            session.stopTransfer();
        }
        if (outcome == Stopped)
            std::printf("send %3d: %s (%s)\n", send, verdict, qPrintable(ending.section(QLatin1Char('\n'), 0, 0)));
        else
            std::printf("send %3d: %s\n", send, verdict);
        std::fflush(stdout);
    }
    session.stopTransfer();
    f.elapsedMs = total.elapsed();
    return f;
}

// ----------------------------------------------------------------- receives

class SilentMessenger : public Messenger
{
public:
    void show(const QString&, Icon, const QString&, const QString&) override {}
    bool askOkCancel(const QString&, Icon, const QString&) override { return true; }
};

// Everything a receive may change, as it stands at one moment.
struct Snapshot
{
    QList<QStringList> restoreRows; // the agent's RestoreData rows, every column
    QList<QStringList> historyRows; // the agent's CollectionHistory rows, every column
    std::optional<QByteArray> uploadFile;
    QStringList bankFolder; // file names
    bool operator==(const Snapshot&) const = default;
};

QList<QStringList> rows(SharedDatabase& db, const QString& sql, const QVariantList& values)
{
    QSqlQuery q(db.connection());
    q.prepare(sql);
    for (const QVariant& v : values)
        q.addBindValue(v);
    if (!q.exec())
        qFatal("soak: cannot read the database: %s", qPrintable(sql));
    QList<QStringList> out;
    while (q.next()) {
        QStringList row;
        for (int i = 0; i < q.record().count(); ++i)
            row << (q.value(i).isNull() ? QStringLiteral("<NULL>") : q.value(i).toString());
        out << row;
    }
    return out;
}

// The receive half of the soak run: one database and one bank folder for
// all receives, one agent and one day, so that each receive replaces the one
// before and a refused receive must leave the last one's rows and file.
class ReceiveSoak
{
public:
    static constexpr int AccountsDefault = 40;

    ReceiveSoak(LineRelay& relay, int accounts, int timeoutMs, int hangMs, quint32 seed)
        : m_relay(relay), m_timeoutMs(timeoutMs), m_hangMs(hangMs), m_seed(seed)
    {
        QString error;
        if (!m_dir.isValid() || !m_db.open(QDir(m_dir.path()).filePath(SharedDatabase::fileName()), &error))
            qFatal("soak: cannot open a database: %s", qPrintable(error));
        m_ctx = std::make_unique<AppContext>(m_db, m_messenger, m_clock);
        m_ctx->dataDir = m_dir.path();
        m_ctx->settings.BankInfoPath = QDir(m_dir.path()).filePath(QStringLiteral("Bank"));
        QDir().mkpath(m_ctx->settings.BankInfoPath);
        m_ctx->portOverride = relay.pcDevice();
        m_accounts = UploadRecords::sampleAccounts(accounts, day());
        storeDownloadedAccounts();
    }

    static QDate day() { return {2007, 11, 16}; }

    QString officialUploadFile() const
    {
        // Agent 001 of the sample accounts, 16 November: 0011611u.txt.
        return QDir(m_ctx->settings.BankInfoPath).filePath(m_accounts.agentDateKey + QStringLiteral("u.txt"));
    }

    Figures run(int receives)
    {
        Figures f;
        f.runs = receives;
        if (receives <= 0)
            return f;
        UploadTerminal terminal(&m_relay.terminalPty());
        terminal.attach();
        QElapsedTimer total;
        total.start();
        for (int i = 1; i <= receives; ++i) {
            const QList<Collection> collections = makeCollections(i);
            UploadRecords records;
            QString error;
            if (!UploadRecords::build(m_accounts, collections, {}, &records, &error))
                qFatal("soak: cannot build the replies: %s", qPrintable(error));
            terminal.setRecords(records);
            receiveOnce(i, collections, records, f);
        }
        f.elapsedMs = total.elapsed();
        return f;
    }

private:
    void storeDownloadedAccounts()
    {
        // As a download from this PC would have left them.
        SharedDatabase::Transaction transaction(m_db);
        for (const TerminalAccount& a : std::as_const(m_accounts.accounts))
            m_db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                        "AgreedAmount, CustomerCode, BranchID, AgentID, MyDate, BankSoftACNumber) "
                                        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                         {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(),
                          QString::number(a.balance.toInt()), QString::number(a.agreedAmount.toInt()), customerCode(a),
                          m_accounts.branchId, m_accounts.agentId, a.lastTxnDate, bankSoft(a)});
        transaction.commit();
    }

    static QString customerCode(const TerminalAccount& a) { return QStringLiteral("C") + a.accountNumber.right(6); }
    static QString bankSoft(const TerminalAccount& a) { return QStringLiteral("SB") + a.accountNumber.right(8); }

    // A day of an agent: some doors, some twice, mostly the agreed amount
    // (so a collection put in another's place rarely shows in the total),
    // numbered on from wherever the terminal's count stands.
    QList<Collection> makeCollections(int receive) const
    {
        QRandomGenerator random(m_seed * 1000003u + static_cast<quint32>(receive));
        const int accountCount = static_cast<int>(m_accounts.accounts.size());
        const int count = 5 + static_cast<int>(random.bounded(accountCount + accountCount / 2));
        int number = 1 + static_cast<int>(random.bounded(30000));
        QDateTime when(day(), QTime(8, 0));
        QList<Collection> out;
        for (int k = 0; k < count; ++k) {
            const TerminalAccount& a = m_accounts.accounts.at(static_cast<int>(random.bounded(accountCount)));
            Collection c;
            c.accountNumber = a.accountNumber;
            c.amount = random.bounded(10) < 7 ? a.agreedAmount.toInt() : 1 + static_cast<int>(random.bounded(5000));
            when = when.addSecs(60 * (1 + static_cast<int>(random.bounded(12))));
            c.when = when;
            c.transactionNumber = number++;
            out.append(c);
        }
        return out;
    }

    const TerminalAccount& account(const QString& number) const
    {
        for (const TerminalAccount& a : m_accounts.accounts)
            if (a.accountNumber == number)
                return a;
        qFatal("soak: unknown account %s", qPrintable(number));
    }

    static QString amountText(int rupees) { return QStringLiteral("%1.00").arg(rupees, 7, 10, QLatin1Char('0')); }
    static QString dateTimeText(const QDateTime& when)
    {
        // The terminal carries only the last digit of the year.
        return when.toString(QStringLiteral("dd/MM/")) +
               QStringLiteral("20%1 ").arg(when.date().year() % 10, 2, 10, QLatin1Char('0')) +
               when.toString(QStringLiteral("hh:mm"));
    }
    static QString numberText(int n) { return QStringLiteral("%1").arg(n, 4, 10, QLatin1Char('0')); }

    // The collections as (account, amount, date and time, number), sorted.
    static QList<QStringList> collectionKeys(const QList<Collection>& collections)
    {
        QList<QStringList> out;
        for (const Collection& c : collections)
            out << QStringList{c.accountNumber, amountText(c.amount), dateTimeText(c.when),
                               numberText(c.transactionNumber)};
        std::sort(out.begin(), out.end());
        return out;
    }

    static QList<QStringList> historyKeys(const QList<Collection>& collections)
    {
        QList<QStringList> out;
        for (const Collection& c : collections)
            out << QStringList{c.accountNumber, QString::number(qint64(c.amount) * 100), dateTimeText(c.when),
                               numberText(c.transactionNumber)};
        std::sort(out.begin(), out.end());
        return out;
    }

    // The upload file the terminal's collections make, built here from the
    // accounts as they were stored, not by the program's writer: one line a
    // collection in transaction-number order, the fields joined without a
    // separator, a per-day sequence, CR LF after each line.
    QByteArray expectedUploadFile(QList<Collection> collections) const
    {
        std::sort(collections.begin(), collections.end(),
                  [](const Collection& a, const Collection& b) { return a.transactionNumber < b.transactionNumber; });
        QByteArray out;
        QString lastDay;
        int sequence = 0;
        for (const Collection& c : std::as_const(collections)) {
            const TerminalAccount& a = account(c.accountNumber);
            const QString dateTime = dateTimeText(c.when);
            if (dateTime.left(5) != lastDay) {
                lastDay = dateTime.left(5);
                sequence = 1;
            } else {
                ++sequence;
            }
            const QString lastTxn = a.lastTxnDate.left(2) + QLatin1Char('/') + a.lastTxnDate.mid(2, 2) +
                                    QStringLiteral("/20") + a.lastTxnDate.mid(4, 2);
            const QString line =
                m_accounts.branchId + a.categoryCode + a.schemeCode + a.accountNumber + customerCode(a) +
                a.name.trimmed() + QStringLiteral("%1.00").arg(a.balance.toInt(), 10, 10, QLatin1Char('0')) +
                QStringLiteral("%1.00").arg(a.agreedAmount.toInt(), 5, 10, QLatin1Char('0')) + lastTxn +
                m_accounts.agentId + amountText(c.amount) + dateTime + numberText(c.transactionNumber) +
                numberText(sequence) + QLatin1Char(' ') + bankSoft(a);
            out += line.toLatin1() + "\r\n";
        }
        return out;
    }

    Snapshot snapshot()
    {
        Snapshot s;
        const QString agent = m_accounts.agentId;
        s.restoreRows =
            rows(m_db, QStringLiteral("SELECT * FROM RestoreData WHERE AgentID = ? ORDER BY rowid"), {agent});
        s.historyRows =
            rows(m_db, QStringLiteral("SELECT * FROM CollectionHistory WHERE AgentID = ? ORDER BY rowid"), {agent});
        QFile file(officialUploadFile());
        if (file.open(QIODevice::ReadOnly))
            s.uploadFile = file.readAll();
        s.bankFolder = QDir(m_ctx->settings.BankInfoPath).entryList(QDir::Files | QDir::Hidden | QDir::System);
        return s;
    }

    QList<QStringList> storedKeys()
    {
        QList<QStringList> out = rows(m_db,
                                      QStringLiteral("SELECT AccountNo, Amtcollected, DateTime, TransactionNumber FROM "
                                                     "RestoreData WHERE AgentID = ?"),
                                      {m_accounts.agentId});
        std::sort(out.begin(), out.end());
        return out;
    }

    QList<QStringList> storedHistory()
    {
        QList<QStringList> out = rows(m_db,
                                      QStringLiteral("SELECT AccountNo, CollectedPaise, DateTime, TransactionNumber "
                                                     "FROM CollectionHistory WHERE AgentID = ? AND CollectionDate = ?"),
                                      {m_accounts.agentId, day().toString(Qt::ISODate)});
        std::sort(out.begin(), out.end());
        return out;
    }

    // Where the replies the program kept differ from what the terminal
    // holds (bytes 10 to 137), for a receive that did not complete.
    QStringList keptDifferences(const UploadRecords& records) const
    {
        QStringList out;
        const QList<QByteArray>& kept = m_ctx->link.Records;
        for (int n = 0; n <= records.recordCount() + 1 && n < kept.size(); ++n) {
            if (kept.at(n).isEmpty())
                continue;
            const QByteArray got = UploadFrames::content(kept.at(n));
            if (got == UploadFrames::content(records.reply(n)))
                continue;
            int same = -1;
            for (int k = 0; k <= records.recordCount() + 1 && same < 0; ++k)
                if (got == UploadFrames::content(records.reply(k)))
                    same = k;
            out << (same >= 0 ? QStringLiteral("record %1 kept holds record %2").arg(n).arg(same)
                              : QStringLiteral("record %1 kept differs from the terminal's (%2 bytes kept)")
                                    .arg(n)
                                    .arg(kept.at(n).size()));
        }
        return out;
    }

    void receiveOnce(int i, const QList<Collection>& collections, const UploadRecords& records, Figures& f)
    {
        const Snapshot before = snapshot();
        ReceiveFlow flow(*m_ctx);
        QEventLoop loop;
        enum { Running, Completed, Stopped, Hung } outcome = Running;
        bool reportedSuccess = false;
        QString ending;
        int questions = 0;
        QObject::connect(&flow, &ReceiveFlow::message, &loop, [&](const SessionMessage& m) {
            if (m.text != UploadSession::checkCableText() && m.text != UploadSession::noAcknowledgementText())
                ending = m.text;
        });
        QObject::connect(&flow, &ReceiveFlow::crcQuestion, &loop, [&](const SessionMessage&) {
            // The clerk presses OK and the receive goes on.
            ++questions;
            QTimer::singleShot(0, &flow, [&flow] { flow.answerCrcQuestion(true); });
        });
        QObject::connect(&flow, &ReceiveFlow::completed, &loop, [&](bool restored) {
            outcome = Completed;
            reportedSuccess = restored;
            loop.quit();
        });
        QObject::connect(&flow, &ReceiveFlow::stopped, &loop, [&] {
            outcome = Stopped;
            loop.quit();
        });
        QObject::connect(&flow, &ReceiveFlow::closeRequested, &loop, [&] {
            outcome = Stopped;
            loop.quit();
        });
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, [&] {
            outcome = Hung;
            loop.quit();
        });

        QElapsedTimer one;
        one.start();
        // Each receive from a freshly opened receive screen.
        if (flow.Form_Load()) {
            flow.session().timer1().setInterval(m_timeoutMs);
            flow.session().timer3().setInterval(5 * m_timeoutMs);
            deadline.start(m_hangMs);
            flow.cmdSend_Click();
            if (outcome == Running)
                loop.exec();
        } else {
            outcome = Stopped;
        }
        const qint64 ms = one.elapsed();
        f.crcQuestions += questions;
        flow.Form_Unload();

        const Snapshot after = snapshot();
        const QList<QStringList> expectedRows = collectionKeys(collections);
        const QByteArray expectedFile = expectedUploadFile(collections);
        QStringList wrongWhat;
        bool wrongData = false;
        bool wrongFile = false;
        const char* verdict = "";
        if (outcome == Completed && reportedSuccess) {
            if (storedKeys() != expectedRows) {
                wrongData = true;
                wrongWhat << QStringLiteral("RestoreData rows are not the terminal's collections");
            }
            if (storedHistory() != historyKeys(collections)) {
                wrongData = true;
                wrongWhat << QStringLiteral("the day's history is not the terminal's collections");
            }
            if (after.uploadFile != expectedFile) {
                wrongFile = true;
                wrongWhat << (after.uploadFile ? QStringLiteral("the upload file is not the terminal's collections")
                                               : QStringLiteral("no upload file under the official name"));
            }
            verdict = "completed correctly";
        } else if (outcome == Completed || outcome == Stopped) {
            if (after.restoreRows != before.restoreRows) {
                wrongData = true;
                wrongWhat << QStringLiteral("RestoreData rows changed although the receive ended with a message");
            }
            if (after.historyRows != before.historyRows) {
                wrongData = true;
                wrongWhat << QStringLiteral("the history changed although the receive ended with a message");
            }
            if (after.uploadFile != before.uploadFile) {
                wrongFile = true;
                wrongWhat << QStringLiteral("the upload file changed although the receive ended with a message");
            }
            verdict = "ended with a message";
        } else {
            verdict = "HUNG";
        }
        // Whatever the ending, nothing but the official file belongs there.
        for (const QString& name : after.bankFolder) {
            if (name != QFileInfo(officialUploadFile()).fileName()) {
                wrongFile = true;
                wrongWhat << QStringLiteral("a file \"%1\" appeared in the bank folder").arg(name);
            }
        }

        if (outcome == Hung) {
            ++f.hung;
        } else if (wrongData || wrongFile) {
            verdict = wrongData ? "WRONG DATA" : "WRONG UPLOAD FILE";
        } else if (outcome == Completed && reportedSuccess) {
            ++f.correct;
            f.correctMs.append(ms);
        } else {
            ++f.withMessage;
            ++f.endings[ending.section(QLatin1Char('\n'), 0, 1).simplified().left(150)];
        }
        f.wrong += wrongData ? 1 : 0;
        f.wrongFiles += wrongFile ? 1 : 0;

        std::printf("receive %3d (%d collections, %d records): %s in %.1f s", i, static_cast<int>(collections.size()),
                    records.recordCount(), verdict, static_cast<double>(ms) / 1000.0);
        if (questions > 0)
            std::printf(", %d check question(s) answered OK", questions);
        if (outcome != Hung && !(outcome == Completed && reportedSuccess))
            std::printf(" (%s)", qPrintable(ending.section(QLatin1Char('\n'), 0, 1).simplified().left(150)));
        std::printf("\n");
        for (const QString& what : std::as_const(wrongWhat))
            std::printf("    %s\n", qPrintable(what));
        if (!(outcome == Completed && reportedSuccess) || wrongData || wrongFile)
            for (const QString& what : keptDifferences(records))
                std::printf("    %s\n", qPrintable(what));
        if (outcome == Hung)
            std::printf("    phase %d, record %d requested\n", static_cast<int>(flow.session().phase()),
                        flow.session().recordNo());
        std::fflush(stdout);
        // A file that does not belong in the bank folder is reported once.
        for (const QString& name : after.bankFolder)
            if (name != QFileInfo(officialUploadFile()).fileName())
                QFile::remove(QDir(m_ctx->settings.BankInfoPath).filePath(name));
    }

    LineRelay& m_relay;
    const int m_timeoutMs;
    const int m_hangMs;
    const quint32 m_seed;
    QTemporaryDir m_dir;
    SharedDatabase m_db;
    SilentMessenger m_messenger;
    FixedClock m_clock{QDateTime(day(), QTime(18, 30))};
    std::unique_ptr<AppContext> m_ctx;
    TerminalAccounts m_accounts;
};

void printTimes(const Figures& f)
{
    if (f.correctMs.isEmpty())
        return;
    QList<qint64> ms = f.correctMs;
    std::sort(ms.begin(), ms.end());
    std::printf("  time of a correct one: median %.1f s, slowest %.1f s\n",
                static_cast<double>(ms.at(ms.size() / 2)) / 1000.0, static_cast<double>(ms.last()) / 1000.0);
}

void printEndings(const Figures& f)
{
    for (auto it = f.endings.cbegin(); it != f.endings.cend(); ++it)
        std::printf("      %3d x %s\n", it.value(), qPrintable(it.key()));
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    qRegisterMetaType<SessionMessage>();
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption sendsOption(QStringLiteral("sends"), QStringLiteral("Downloads to run."),
                                         QStringLiteral("N"), QStringLiteral("100"));
    const QCommandLineOption accountsOption(QStringLiteral("accounts"), QStringLiteral("Accounts per download."),
                                            QStringLiteral("N"), QStringLiteral("20"));
    const QCommandLineOption receivesOption(QStringLiteral("receives"), QStringLiteral("Receives to run."),
                                            QStringLiteral("N"), QStringLiteral("100"));
    const QCommandLineOption receiveAccountsOption(QStringLiteral("receive-accounts"),
                                                   QStringLiteral("Accounts the terminal holds for the receives."),
                                                   QStringLiteral("N"), QString::number(ReceiveSoak::AccountsDefault));
    const QCommandLineOption seedOption(QStringLiteral("seed"), QStringLiteral("Seed of the faults and the data."),
                                        QStringLiteral("S"), QStringLiteral("1"));
    const QCommandLineOption timeoutOption(QStringLiteral("timeout-ms"), QStringLiteral("Response time-out."),
                                           QStringLiteral("MS"), QStringLiteral("1000"));
    const QCommandLineOption hangOption(QStringLiteral("hang-s"),
                                        QStringLiteral("A transfer with no end after this long has hung."),
                                        QStringLiteral("S"), QStringLiteral("120"));
    const QCommandLineOption cleanOption(QStringLiteral("clean"), QStringLiteral("No faults on the cable."));
    parser.addOptions({sendsOption, accountsOption, receivesOption, receiveAccountsOption, seedOption, timeoutOption,
                       hangOption, cleanOption});
    parser.process(app);
    const int sends = parser.value(sendsOption).toInt();
    const int accountsPerSend = parser.value(accountsOption).toInt();
    const int receives = parser.value(receivesOption).toInt();
    const int receiveAccounts = std::max(1, parser.value(receiveAccountsOption).toInt());
    const quint32 seed = parser.value(seedOption).toUInt();
    const int timeoutMs = std::max(10, parser.value(timeoutOption).toInt());
    const int hangMs = std::max(1, parser.value(hangOption).toInt()) * 1000;
    const double scale = timeoutMs / 1000.0;

    LineRelay relay(seed);
    QString error;
    if (!relay.open(&error)) {
        std::fprintf(stderr, "cannot set up the relay: %s\n", qPrintable(error));
        return 1;
    }
    LineRelay::Faults faults;
    faults.corruptByte = 0.002;
    faults.dropChunk = 0.01;
    faults.dropByte = 0.001;
    faults.splitChunk = 0.2;
    faults.maxDelayMs = static_cast<int>(150 * scale);
    faults.pullsPerMinute = 4 / scale;
    faults.pullMinMs = static_cast<int>(500 * scale);
    faults.pullMaxMs = static_cast<int>(13000 * scale);
    relay.setFaults(faults);
    relay.setClean(parser.isSet(cleanOption));

    const Figures s = runSends(relay, sends, accountsPerSend, timeoutMs, hangMs);
    const qint64 corruptedAfterSends = relay.bytesCorrupted();
    const qint64 lostAfterSends = relay.bytesLost();
    const int pullsAfterSends = relay.pulls();

    ReceiveSoak receiveSoak(relay, receiveAccounts, timeoutMs, hangMs, seed);
    const Figures r = receiveSoak.run(receives);

    std::printf("\nseed %u, response time-out %d ms, hang limit %d s%s\n", seed, timeoutMs, hangMs / 1000,
                parser.isSet(cleanOption) ? ", clean cable" : "");
    if (sends > 0) {
        std::printf("%d downloads of %d accounts in %.1f s\n", sends, accountsPerSend,
                    static_cast<double>(s.elapsedMs) / 1000.0);
        std::printf("  completed correctly:   %d\n", s.correct);
        std::printf("  ended with a message:  %d\n", s.withMessage);
        printEndings(s);
        std::printf("  hung:                  %d\n", s.hung);
        std::printf("  wrong data:            %d\n", s.wrong);
        printTimes(s);
        std::printf("  cable: %lld bytes corrupted, %lld bytes lost, %d pulls\n",
                    static_cast<long long>(corruptedAfterSends), static_cast<long long>(lostAfterSends),
                    pullsAfterSends);
    }
    if (receives > 0) {
        std::printf("%d receives from a terminal of %d accounts in %.1f s\n", receives, receiveAccounts,
                    static_cast<double>(r.elapsedMs) / 1000.0);
        std::printf("  completed correctly:   %d\n", r.correct);
        std::printf("  ended with a message:  %d\n", r.withMessage);
        printEndings(r);
        std::printf("  hung:                  %d\n", r.hung);
        std::printf("  wrong data:            %d\n", r.wrong);
        std::printf("  wrong upload files:    %d\n", r.wrongFiles);
        if (r.crcQuestions > 0)
            std::printf("  check questions answered OK: %d\n", r.crcQuestions);
        printTimes(r);
        std::printf("  cable: %lld bytes corrupted, %lld bytes lost, %d pulls\n",
                    static_cast<long long>(relay.bytesCorrupted() - corruptedAfterSends),
                    static_cast<long long>(relay.bytesLost() - lostAfterSends), relay.pulls() - pullsAfterSends);
    }
    const bool good = s.hung == 0 && s.wrong == 0 && r.hung == 0 && r.wrong == 0 && r.wrongFiles == 0;
    return good ? 0 : 1;
}
