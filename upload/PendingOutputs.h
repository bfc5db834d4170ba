#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

class AppContext;
class SharedDatabase;

// The files a receive owes once its rows are stored. A receive records them
// (table PendingOutputs) in the same transaction that replaces the agent's
// rows, writes them, and removes the marks after the last one is in place.
// A mark found later means the program stopped in between (a power cut, a
// kill): complete() then writes the files from the stored rows, byte for
// byte what the receive would have written, through the same functions the
// receive uses.
namespace PendingOutputs {

enum class Kind {
    UploadFile,     // <BankInfoPath>/<name>, from the agent's RestoreData rows
    CheckListing,   // BackupData/<name>, from the agent's RestoreData rows
    Reconciliation, // BackupData/<name>, the receive's own text (kept in the mark)
};

// "upload", "check", "reconciliation": the Kind column.
QString kindName(Kind kind);

struct Output
{
    Kind kind = Kind::UploadFile;
    QString fileName;   // the name only: the folder is found when it is written
    QByteArray content; // the bytes of a file not made from the rows (the reconciliation)
    qint64 id = 0;      // the mark's row, once recorded
};

// One receive's files.
struct Receive
{
    QString bankAgentId; // the RestoreData rows' AgentID
    QString agent;       // the three-digit agent of the file names
    QString day;         // ddmm
    QList<Output> outputs;
};

// Records the receive's files as owed. Call it inside the transaction that
// replaces the rows; marks an earlier receive of the same agent left are
// replaced with it. Throws StoreError.
void mark(SharedDatabase& db, const QDateTime& at, const Receive& receive);

// Removes the agent's marks, once its files are in place. Throws StoreError.
void clear(SharedDatabase& db, const QString& bankAgentId);

// The receives with files still owed, oldest first; only the agent's when
// bankAgentId is given. Throws StoreError.
QList<Receive> pending(SharedDatabase& db, const QString& bankAgentId = {});

// What a completion did.
struct Completion
{
    int written = 0;      // files written
    QStringList problems; // one message a receive whose files are still owed
    bool complete() const { return problems.isEmpty(); }
};

// Writes every owed file (only the agent's when bankAgentId is given) from
// the stored rows, each through a temporary copy renamed into place, then
// removes the marks of what was written together with one audit event a
// receive, in one transaction. A file that cannot be written keeps its mark,
// and problems names the agent, the day and what to do. Throws StoreError
// when the marks or rows cannot be read, or the marks and the event cannot
// be written (the marks stay and the files are written again next time).
Completion complete(AppContext& ctx, const QString& bankAgentId = {});

} // namespace PendingOutputs
