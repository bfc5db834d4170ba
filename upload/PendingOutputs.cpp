#include "upload/PendingOutputs.h"

#include "base/Clock.h"
#include "base/PathUtil.h"
#include "core/AppContext.h"
#include "store/AuditTrail.h"
#include "store/SharedDatabase.h"
#include "upload/UploadFiles.h"

#include <QFileInfo>
#include <QSaveFile>
#include <algorithm>
#include <memory>

namespace PendingOutputs {

namespace {

bool kindFrom(const QString& name, Kind* kind)
{
    for (Kind k : {Kind::UploadFile, Kind::CheckListing, Kind::Reconciliation}) {
        if (kindName(k) == name) {
            *kind = k;
            return true;
        }
    }
    return false;
}

// "1611" as "16/11".
QString dayText(const QString& ddmm)
{
    return ddmm.size() == 4 ? ddmm.left(2) + QLatin1Char('/') + ddmm.mid(2) : ddmm;
}

// One file of a receive that could not be written: which, whose, why, and
// what the clerk does about it.
QString notWritten(const Receive& r, const QString& what, const QString& why, const QString& toDo)
{
    return QStringLiteral("The %1 of agent %2 for %3 is not written: the program stopped after storing that "
                          "receive and before writing its files, and %4. %5, then start the program again or run "
                          "any tonvy-cli command.")
        .arg(what, r.agent, dayText(r.day), why, toDo);
}

// Writes one owed file; on failure *problem says what to do.
bool writeOutput(AppContext& ctx, const Receive& r, const Output& o, QString* path, QByteArray* bytes, QString* problem)
{
    SharedDatabase& db = ctx.db();
    QString why;
    if (o.kind == Kind::UploadFile) {
        const QString what = QStringLiteral("upload file %1").arg(o.fileName);
        const QString folder = ctx.settings.BankInfoPath;
        if (folder.isEmpty()) {
            *problem = notWritten(r, what, QStringLiteral("no bank folder is chosen"),
                                  QStringLiteral("Choose the bank folder in DRIVE SELECTION"));
            return false;
        }
        if (!QFileInfo(folder).isDir()) {
            *problem = notWritten(r, what, QStringLiteral("the bank folder %1 does not exist").arg(folder),
                                  QStringLiteral("Create the bank folder, or choose it in DRIVE SELECTION"));
            return false;
        }
        *path = PathUtil::join(folder, o.fileName);
        *bytes = UploadFiles::fileBytes(UploadFiles::uploadLines(db, r.bankAgentId).lines);
        const std::unique_ptr<QSaveFile> file = UploadFiles::makeSaveFile(*path);
        if (UploadFiles::saveBytes(*file, *bytes, &why))
            return true;
        *problem =
            notWritten(r, what, QStringLiteral("it cannot be written into the bank folder %1 (%2)").arg(folder, why),
                       QStringLiteral("Make the bank folder writable, or choose another in DRIVE SELECTION"));
        return false;
    }

    const QString folder = UploadFiles::backupFolder(ctx);
    *path = PathUtil::join(folder, o.fileName);
    *bytes =
        o.kind == Kind::CheckListing ? UploadFiles::fileBytes(UploadFiles::checkLines(db, r.bankAgentId)) : o.content;
    const QString what =
        (o.kind == Kind::CheckListing ? QStringLiteral("check listing %1") : QStringLiteral("reconciliation %1"))
            .arg(*path);
    const std::unique_ptr<QSaveFile> file = UploadFiles::makeSaveFile(*path);
    if (UploadFiles::ensureFolder(folder, &why) && UploadFiles::saveBytes(*file, *bytes, &why))
        return true;
    *problem = notWritten(r, what, QStringLiteral("it cannot be written (%1)").arg(why),
                          QStringLiteral("Free space or make the folder %1 writable").arg(folder));
    return false;
}

// The audit event of one completed receive, in the words of the receive's own.
QString auditDetails(const Receive& r, const QStringList& parts)
{
    return QStringLiteral("agent %1 (%2), date %3: files completed after an interrupted receive (the rows were "
                          "stored, the files not yet written): %4")
        .arg(r.agent, r.bankAgentId.trimmed(), r.day, parts.join(QStringLiteral("; ")));
}

} // namespace

QString kindName(Kind kind)
{
    switch (kind) {
    case Kind::UploadFile:
        return QStringLiteral("upload");
    case Kind::CheckListing:
        return QStringLiteral("check");
    case Kind::Reconciliation:
        return QStringLiteral("reconciliation");
    }
    return QString();
}

void mark(SharedDatabase& db, const QDateTime& at, const Receive& receive)
{
    // An earlier receive of the agent whose files were still owed was
    // completed before this one replaced its rows (complete() with the
    // agent); whatever mark is left can no longer be made from the rows.
    clear(db, receive.bankAgentId);
    for (const Output& o : receive.outputs)
        db.execute(QStringLiteral("INSERT INTO PendingOutputs (AgentID, Agent, Day, Kind, FileName, Content, "
                                  "RecordedAt) VALUES (?, ?, ?, ?, ?, ?, ?)"),
                   {receive.bankAgentId, receive.agent, receive.day, kindName(o.kind), o.fileName,
                    o.kind == Kind::Reconciliation ? QVariant(o.content) : QVariant(), at.toString(Qt::ISODate)});
}

void clear(SharedDatabase& db, const QString& bankAgentId)
{
    db.execute(QStringLiteral("DELETE FROM PendingOutputs WHERE AgentID = ?"), {bankAgentId});
}

QList<Receive> pending(SharedDatabase& db, const QString& bankAgentId)
{
    const QString sql = QStringLiteral("SELECT * FROM PendingOutputs%1 ORDER BY Id")
                            .arg(bankAgentId.isNull() ? QString() : QStringLiteral(" WHERE AgentID = ?"));
    SharedRecordset& rs =
        db.openSharedRecordset(sql, bankAgentId.isNull() ? QVariantList() : QVariantList{bankAgentId});
    QList<Receive> out;
    for (; !rs.eof(); rs.moveNext()) {
        Output o;
        if (!kindFrom(rs.text(QStringLiteral("Kind")), &o.kind))
            continue; // a kind of a later version: left for it
        o.fileName = rs.text(QStringLiteral("FileName"));
        o.content = rs.value(QStringLiteral("Content")).toByteArray();
        o.id = rs.value(QStringLiteral("Id")).toLongLong();
        const QString agentId = rs.text(QStringLiteral("AgentID"));
        const QString agent = rs.text(QStringLiteral("Agent"));
        const QString day = rs.text(QStringLiteral("Day"));
        auto it = std::find_if(out.begin(), out.end(), [&](const Receive& r) {
            return r.bankAgentId == agentId && r.agent == agent && r.day == day;
        });
        if (it == out.end()) {
            out.append(Receive{agentId, agent, day, {}});
            it = out.end() - 1;
        }
        it->outputs.append(o);
    }
    db.closeSharedRecordset();
    return out;
}

Completion complete(AppContext& ctx, const QString& bankAgentId)
{
    SharedDatabase& db = ctx.db();
    Completion result;
    for (const Receive& r : pending(db, bankAgentId)) {
        QStringList written;
        QList<qint64> done; // the marks of the files written
        QStringList problems;
        for (const Output& o : r.outputs) {
            QString path;
            QByteArray bytes;
            QString problem;
            if (!writeOutput(ctx, r, o, &path, &bytes, &problem)) {
                problems << problem;
                continue;
            }
            done << o.id;
            ++result.written;
            if (o.kind == Kind::UploadFile)
                written << QStringLiteral("upload file %1 (%2 lines, SHA-256 %3)")
                               .arg(path)
                               .arg(bytes.count("\r\n"))
                               .arg(AuditTrail::sha256(bytes));
            else
                written << QStringLiteral("%1 %2 (SHA-256 %3)")
                               .arg(o.kind == Kind::CheckListing ? QStringLiteral("check listing")
                                                                 : QStringLiteral("reconciliation"),
                                    path, AuditTrail::sha256(bytes));
        }
        if (!written.isEmpty()) {
            // The marks of the files written go in one step with the event
            // that names them: a program stopped after a file is in place but
            // before its mark goes writes it again at the next start (the same
            // bytes) and names it then. Removed one by one before the event,
            // a kill in between left files the audit trail never named.
            SharedDatabase::Transaction transaction(db);
            for (const qint64 id : done)
                db.execute(QStringLiteral("DELETE FROM PendingOutputs WHERE Id = ?"), {id});
            AuditTrail::record(db, ctx.clock().now(), AuditTrail::Action::Receive, auditDetails(r, written));
            transaction.commit();
        }
        result.problems << problems;
    }
    return result;
}

} // namespace PendingOutputs
