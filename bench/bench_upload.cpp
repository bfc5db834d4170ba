// Receives of 500, 1000, 2000 and 2500 collections (in at most 2000
// records, as many as an upload holds) over a pseudo-terminal
// against the simulated terminal at full speed. For each it prints:
//  - the program's own work per reply: the processor time of the program's
//    thread during the exchange divided by the replies (the simulated
//    terminal answers from a thread of its own, so its work is not counted);
//    flat from 500 to 2500 when each reply costs the same;
//  - the wall-clock time of the exchange;
//  - the restore step once the last reply is in: decoding, storing and
//    writing the three files (wall clock and processor time), and the
//    decoding alone.
// Each figure is the best of the rounds; in a round every size runs once.
// The own work's flatness is printed from the medians of the rounds too.
// The machine's name, processors and load average are printed first.
// Options: --records N (one size only), --runs N (rounds, default 3).

#include "base/Clock.h"
#include "base/Messenger.h"
#include "bench/Median.h"
#include "core/AppContext.h"
#include "link/UploadSession.h"
#include "store/SharedDatabase.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "upload/EntryDecoder.h"
#include "upload/ReceiveFlow.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <thread>
#include <vector>

namespace {

class QuietMessenger : public Messenger
{
public:
    void show(const QString& text, Icon, const QString&, const QString&) override { messages << text; }
    bool askOkCancel(const QString& text, Icon, const QString&) override
    {
        messages << text;
        return true;
    }
    QStringList messages;
};

qint64 threadCpuNs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// The simulated terminal on the master side of a pseudo-terminal, answering
// from its own thread.
class TerminalThread : public QThread
{
public:
    explicit TerminalThread(const UploadRecords& records) : m_records(records) {}

    // Starts the thread and waits until the terminal listens; the slave's
    // path, or empty with *error.
    QString begin(QString* error)
    {
        start();
        m_ready.acquire();
        if (error)
            *error = m_error;
        return m_path;
    }
    int replies() const { return m_replies; }
    int overs() const { return m_overs; }

protected:
    void run() override
    {
        Pty pty;
        if (!pty.open(&m_error)) {
            m_ready.release();
            return;
        }
        UploadTerminal terminal(&pty);
        terminal.setRecords(m_records);
        terminal.attach();
        m_path = pty.devicePath();
        m_ready.release();
        exec();
        m_replies = terminal.repliesSent();
        m_overs = terminal.overCount();
    }

private:
    UploadRecords m_records;
    QSemaphore m_ready;
    QString m_path;
    QString m_error;
    int m_replies = 0;
    int m_overs = 0;
};

struct Figures
{
    int collections = 0;
    int records = 0;
    qint64 exchangeNs = 0;
    qint64 exchangeCpuNs = 0; // the program's thread
    int replies = 0;          // replies the program asked for
    qint64 restoreNs = 0;
    qint64 restoreCpuNs = 0;
    qint64 decodeNs = 0;
    bool ok = false;

    // The program's own work per reply, in microseconds.
    double ownUsPerReply() const { return static_cast<double>(exchangeCpuNs) / 1e3 / std::max(1, replies); }
};

bool runOnce(int collections, Figures* f, QString* error)
{
    const QDate day(2007, 11, 16);
    // One collection an account, one account a record, up to the 2000
    // records an upload holds at most; beyond that the terminal comes back
    // to some doors and their records carry two collections.
    const int accountCount = std::min(collections, UploadSession::RecordCeiling);
    const TerminalAccounts accounts = UploadRecords::sampleAccounts(accountCount, day);
    UploadRecords replies;
    if (!UploadRecords::build(accounts, UploadRecords::generate(accounts, collections, day), {}, &replies, error))
        return false;

    QTemporaryDir dir;
    SharedDatabase db;
    if (!dir.isValid()) {
        *error = QStringLiteral("no temporary folder");
        return false;
    }
    if (!db.open(QDir(dir.path()).filePath(SharedDatabase::fileName()), error))
        return false;
    QuietMessenger messenger;
    FixedClock clock{QDateTime(day, QTime(18, 30))};
    AppContext ctx(db, messenger, clock);
    ctx.dataDir = dir.path();
    ctx.settings.BankInfoPath = dir.path();

    // The accounts as a download from this PC would have left them, so that
    // every look-up of the restore step finds its row.
    {
        SharedDatabase::Transaction transaction(db);
        SharedDatabase::Batch insert(db, QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, "
                                                        "ACName, BalAmount, AgreedAmount, CustomerCode, BranchID, "
                                                        "AgentID, MyDate, BankSoftACNumber) "
                                                        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
        for (const TerminalAccount& a : accounts.accounts)
            insert.run({a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), a.balance.toInt(),
                        a.agreedAmount.toInt(), QStringLiteral("C") + a.accountNumber.right(6), accounts.branchId,
                        accounts.agentId, a.lastTxnDate, QStringLiteral("SB") + a.accountNumber.right(8)});
        transaction.commit();
    }

    TerminalThread terminal(replies);
    const QString path = terminal.begin(error);
    if (path.isEmpty())
        return false;
    ctx.portOverride = path;

    QEventLoop loop;
    bool completed = false;
    {
        ReceiveFlow flow(ctx);
        QElapsedTimer wall;
        qint64 cpuStart = 0;
        QObject::connect(&flow.session(), &UploadSession::finished, &loop, [&] {
            f->exchangeNs = wall.nsecsElapsed();
            f->exchangeCpuNs = threadCpuNs() - cpuStart;
            flow.session().timer3().stop();
            wall.restart();
            cpuStart = threadCpuNs();
        });
        QObject::connect(&flow, &ReceiveFlow::completed, &loop, [&](bool ok) {
            f->restoreNs = wall.nsecsElapsed();
            f->restoreCpuNs = threadCpuNs() - cpuStart;
            f->ok = ok;
            completed = true;
            loop.quit();
        });
        QObject::connect(&flow, &ReceiveFlow::stopped, &loop, [&] { loop.exit(1); });
        QObject::connect(&flow, &ReceiveFlow::outcomeReady, &loop, [&](const RestoreStore::ReceiveOutcome& o) {
            if (!o.succeeded())
                std::fprintf(stderr, "outcome %d: %s\n", int(o.result), qPrintable(o.problems.join(' ')));
        });
        QObject::connect(&flow, &ReceiveFlow::message, &loop, [&](const SessionMessage& m) {
            if (m.icon != SessionMessage::Icon::Information)
                std::fprintf(stderr, "%s\n", qPrintable(m.text));
        });
        QTimer::singleShot(120000, &loop, [&] { loop.exit(2); });

        if (!flow.Form_Load()) {
            *error = QStringLiteral("the port could not be opened");
            terminal.quit();
            terminal.wait();
            return false;
        }
        wall.start();
        cpuStart = threadCpuNs();
        flow.cmdSend_Click();
        const int rc = loop.exec();
        // Let the end frame reach the terminal.
        QElapsedTimer grace;
        grace.start();
        while (rc == 0 && grace.elapsed() < 200)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        flow.Form_Unload();
        terminal.quit();
        terminal.wait();
        if (rc != 0 || !completed) {
            *error = rc == 2 ? QStringLiteral("no end after two minutes") : QStringLiteral("the receive stopped");
            return false;
        }
        f->replies = terminal.replies();
        f->collections = collections;
        f->records = replies.recordCount();

        // The decoding alone, on the same replies, as the restore step runs it.
        QElapsedTimer decode;
        QList<RestoreStore::Entry> entries;
        QString why;
        decode.start();
        EntryDecoder::decodeRecords(ctx.link.Records, flow.summary(), &entries, &why);
        f->decodeNs = decode.nsecsElapsed();
    }
    return true;
}

QString machine()
{
    QString model = QStringLiteral("unknown processor");
    QFile cpu(QStringLiteral("/proc/cpuinfo"));
    if (cpu.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : cpu.readAll().split('\n')) {
            if (line.startsWith("model name")) {
                model = QString::fromLatin1(line.mid(line.indexOf(':') + 1).trimmed());
                break;
            }
        }
    }
    QString load = QStringLiteral("?");
    QFile loadavg(QStringLiteral("/proc/loadavg"));
    if (loadavg.open(QIODevice::ReadOnly))
        load = QString::fromLatin1(loadavg.readAll().split(' ').mid(0, 3).join(' '));
    return QStringLiteral("%1 processors (%2), load average %3")
        .arg(std::thread::hardware_concurrency())
        .arg(model, load);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QList<int> sizes = {500, 1000, 2000, 2500};
    int runs = 3;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args.at(i) == QLatin1String("--records"))
            sizes = {args.at(++i).toInt()};
        else if (args.at(i) == QLatin1String("--runs"))
            runs = std::max(1, args.at(++i).toInt());
    }

    std::printf("machine: %s\n", qPrintable(machine()));
    std::printf("best of %d runs each; restore = decoding, storing and writing the three files\n\n", runs);
    std::printf("%11s %7s %9s %12s %12s %12s %12s %9s\n", "collections", "records", "replies", "own us/reply",
                "exchange ms", "restore ms", "restore cpu", "decode ms");
    // The sizes take turns, round after round, so that a busy moment of the
    // machine spoils one round of every size rather than every run of one.
    QList<Figures> best(sizes.size());
    // Every round's own work per reply, for the median beside the best.
    QList<std::vector<double>> perReplyRuns(sizes.size());
    for (int r = 0; r < runs; ++r) {
        for (qsizetype i = 0; i < sizes.size(); ++i) {
            const int n = sizes.at(i);
            Figures f;
            QString error;
            if (!runOnce(n, &f, &error) || !f.ok) {
                std::fprintf(stderr, "%d collections: %s\n", n,
                             qPrintable(error.isEmpty() ? QStringLiteral("the restore reported a problem") : error));
                return 1;
            }
            perReplyRuns[i].push_back(f.ownUsPerReply());
            Figures& b = best[i];
            if (r == 0) {
                b = f;
                continue;
            }
            b.exchangeNs = std::min(b.exchangeNs, f.exchangeNs);
            b.exchangeCpuNs = std::min(b.exchangeCpuNs, f.exchangeCpuNs);
            b.restoreNs = std::min(b.restoreNs, f.restoreNs);
            b.restoreCpuNs = std::min(b.restoreCpuNs, f.restoreCpuNs);
            b.decodeNs = std::min(b.decodeNs, f.decodeNs);
        }
    }
    double firstPerReply = 0;
    double lastPerReply = 0;
    for (const Figures& b : best) {
        const double perReply = b.ownUsPerReply();
        if (firstPerReply == 0)
            firstPerReply = perReply;
        lastPerReply = perReply;
        std::printf("%11d %7d %9d %12.1f %12.1f %12.1f %12.1f %9.1f\n", b.collections, b.records, b.replies, perReply,
                    b.exchangeNs / 1e6, b.restoreNs / 1e6, b.restoreCpuNs / 1e6, b.decodeNs / 1e6);
    }
    if (sizes.size() > 1) {
        std::printf("\nown work per reply, last size against the first: %.2f\n", lastPerReply / firstPerReply);
        // The best of a short receive lies further below its typical run
        // than the best of a long one (fewer replies to average over), so
        // the medians are set against each other too.
        const double firstMedian = medianOf(perReplyRuns.first());
        const double lastMedian = medianOf(perReplyRuns.last());
        std::printf("the same with each size's median over the rounds: %.1f -> %.1f us, %.2f\n", firstMedian,
                    lastMedian, lastMedian / firstMedian);
    }
    return 0;
}
