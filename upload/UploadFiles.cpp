#include "UploadFiles.h"

#include "AppContext.h"
#include "Clock.h"
#include "Messenger.h"
#include "PathUtil.h"
#include "SharedDatabase.h"
#include "StoreError.h"
#include "UploadSession.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace UploadFiles {

namespace {

const QString missingBankFolder =
    QStringLiteral("Bank Upload Folder does not Exist,Select BankInfoPath and UpLoad Again");
const QString uploadCompleted = QStringLiteral("Upload Completed Successfully");
const QString uploadProblem = QStringLiteral("Serious Problem While Uploading ");

// An empty last-transaction date in the dd/mm/20yy pattern.
const QString emptyLastTxnDate = QStringLiteral("//20");
// Position of the lone blank in an upload line; the check listing leaves it
// out because its separators already set the fields apart.
constexpr int BlankValue = 14;

// The values of one RestoreData row in upload-line order, with the day key
// and per-day sequence running over the rows in the order they are read.
class LineValues
{
public:
    QStringList next(const SharedRecordset& rs)
    {
        const QString dateTime = rs.text(QStringLiteral("DateTime"));
        QString lastTxnDate = rs.text(QStringLiteral("LasttxnDate"));
        if (lastTxnDate == emptyLastTxnDate)
            lastTxnDate = QString(10, QLatin1Char(' '));
        const QString dayKey = dateTime.left(5);
        if (dayKey != m_dayKey) {
            m_dayKey = dayKey;
            m_sequence = 1;
        } else {
            ++m_sequence;
        }
        return {rs.text(QStringLiteral("Branchid")),
                rs.text(QStringLiteral("categorycode")),
                rs.text(QStringLiteral("SchemeCode")),
                rs.text(QStringLiteral("AccountNo")),
                rs.text(QStringLiteral("CustomerCode")),
                rs.text(QStringLiteral("Accountname")),
                rs.text(QStringLiteral("BalanceAmount")),
                rs.text(QStringLiteral("agreedamount")),
                lastTxnDate,
                rs.text(QStringLiteral("AgentID")),
                rs.text(QStringLiteral("Amtcollected")),
                dateTime,
                rs.text(QStringLiteral("transactionnumber")),
                QStringLiteral("%1").arg(m_sequence, 4, 10, QLatin1Char('0')),
                QStringLiteral(" "),
                rs.text(QStringLiteral("BankSoftACNumber"))};
    }

private:
    QString m_dayKey;
    int m_sequence = 0;
};

QString backupFolder(const AppContext& ctx)
{
    return ctx.dataPath(QStringLiteral("BackupData"));
}

bool ensureFolder(const QString& folder, QString* error)
{
    if (QDir().mkpath(folder))
        return true;
    if (error)
        *error = QStringLiteral("the folder %1 cannot be created").arg(folder);
    return false;
}

bool save(const QString& path, const QStringList& lines, QString* error)
{
    QSaveFile file(path);
    return saveLines(file, lines, error);
}

} // namespace

QString uploadFilePath(const QString& bankInfoPath, const QString& uploadName)
{
    return PathUtil::join(bankInfoPath, uploadName + QStringLiteral(".txt"));
}

QString backupLine(int lineNumber, int recordIndex, const QByteArray& reply)
{
    QString text;
    text.reserve(reply.size());
    for (char ch : reply) {
        const auto b = static_cast<unsigned char>(ch);
        text += (b >= 0x20 && b < 0x7F) ? QLatin1Char(ch) : QLatin1Char('.');
    }
    return QLatin1Char('[') + QString::number(lineNumber) + QStringLiteral("] ") +
           QStringLiteral("%1").arg(recordIndex, 2, 10, QLatin1Char('0')) + QStringLiteral(" ) ") +
           QString::fromLatin1(reply.toHex(' ').toUpper()) + QStringLiteral("  ") + text;
}

bool saveLines(QSaveFile& file, const QStringList& lines, QString* error)
{
    auto fail = [&] {
        if (error)
            *error = file.errorString();
        // Committing a cancelled file removes the temporary copy at once and
        // leaves the final name untouched.
        file.cancelWriting();
        if (file.isOpen())
            file.commit();
        return false;
    };
    if (!file.open(QIODevice::WriteOnly))
        return fail();
    for (const QString& line : lines) {
        const QByteArray bytes = line.toLatin1() + "\r\n";
        if (file.write(bytes) != bytes.size())
            return fail();
    }
    if (!file.commit()) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

bool CreateFlatFile(AppContext& ctx, UploadSummary& summary)
{
    Messenger& messenger = ctx.messenger();
    const QString folder = ctx.settings.BankInfoPath;
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        messenger.plain(missingBankFolder);
        return false;
    }
    // Kept suffixed: the check listing, written next, is named from it too.
    summary.UploadBaseName += QLatin1Char('u');
    const QString path = uploadFilePath(folder, summary.UploadBaseName);

    QStringList lines;
    double amountTotal = 0;
    int transactionCount = 0;
    try {
        // Numeric order, as the original's number-typed column sorted; rowid
        // keeps equal numbers in the order they were received.
        SharedRecordset& rs = ctx.db().openSharedRecordset(
            QStringLiteral("SELECT * FROM RestoreData WHERE AgentID = ? AND AmtCollected <> '' "
                           "ORDER BY CAST(TransactionNumber AS INTEGER), rowid"),
            {summary.BankAgentId});
        LineValues values;
        for (; !rs.eof(); rs.moveNext()) {
            lines << values.next(rs).join(QString());
            amountTotal += rs.text(QStringLiteral("Amtcollected")).toDouble();
            ++transactionCount;
        }
        ctx.db().closeSharedRecordset();
    } catch (const StoreError& e) {
        messenger.critical(e.message());
        return false;
    }

    QString why;
    if (!save(path, lines, &why)) {
        messenger.critical(QStringLiteral("Cannot write the upload file %1: %2").arg(path, why));
        return false;
    }

    // Compared with what txtTotalAmount shows, in whole paise so that a sum
    // of decimal amounts compares exactly.
    const double shownAmount = summary.totalAmountText().toDouble();
    const bool agree =
        qRound64(amountTotal * 100) == qRound64(shownAmount * 100) && transactionCount == summary.TotalTransactions;
    if (agree)
        messenger.information(uploadCompleted);
    else
        messenger.critical(uploadProblem);
    return agree;
}

bool CreateFlatFile1(AppContext& ctx, const UploadSummary& summary)
{
    const QString folder = backupFolder(ctx);
    const QString name = summary.UploadBaseName.left(3) + QLatin1Char('_') +
                         ctx.clock().now().toString(QStringLiteral("dd_MM_yy")) + QStringLiteral(".txt");
    const QString path = PathUtil::join(folder, name);

    // Header, summary and every announced transaction record, as far as the
    // reply array reaches.
    const int last = qBound(1, summary.TotalRecords + 1, LinkState::RecordsSize - 1);
    QStringList lines;
    for (int index = 0; index <= last; ++index)
        lines << backupLine(index + 1, index, ctx.link.Records.at(index));

    QString why;
    if (!ensureFolder(folder, &why) || !save(path, lines, &why)) {
        ctx.messenger().critical(QStringLiteral("Cannot write the backup file %1: %2").arg(path, why));
        return false;
    }
    return true;
}

bool CreateFlatFile2(AppContext& ctx, const UploadSummary& summary)
{
    const QString folder = backupFolder(ctx);
    const QString path = PathUtil::join(folder, summary.UploadBaseName + QStringLiteral("Check.txt"));

    QStringList lines;
    try {
        // Val(Accountname) ordered by the name's leading number: SQLite's
        // CAST to REAL reads the longest numeric prefix after leading blanks
        // and gives 0 when there is none, as Val did; rowid keeps the
        // received order among equal numbers (names without one).
        SharedRecordset& rs = ctx.db().openSharedRecordset(
            QStringLiteral("SELECT * FROM RestoreData WHERE AgentID = ? ORDER BY CAST(Accountname AS REAL), rowid"),
            {summary.BankAgentId});
        LineValues values;
        for (; !rs.eof(); rs.moveNext()) {
            QStringList row = values.next(rs);
            row.removeAt(BlankValue);
            lines << row.join(QStringLiteral(" | "));
        }
        ctx.db().closeSharedRecordset();
    } catch (const StoreError& e) {
        ctx.messenger().critical(e.message());
        return false;
    }

    QString why;
    if (!ensureFolder(folder, &why) || !save(path, lines, &why)) {
        ctx.messenger().critical(QStringLiteral("Cannot write the check listing %1: %2").arg(path, why));
        return false;
    }
    return true;
}

} // namespace UploadFiles
