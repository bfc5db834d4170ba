#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class AppContext;
class QSaveFile;
class SharedDatabase;
struct UploadSummary;

// The three files a receive leaves behind: the bank's upload file in the
// bank-information folder, and a backup dump of the replies and a check
// listing in the BackupData folder. Each is written whole through a
// QSaveFile, so a crash or a full disk never leaves part of a file under its
// final name; lines are Latin-1 and end in CR LF.
namespace UploadFiles {

// The texts the upload file's writer reports.
QString uploadCompletedText();
QString uploadProblemText(); // ends in a blank
QString missingBankFolderText();

// The upload file's lines, built from the agent's RestoreData rows with an
// amount in transaction-number order, with their count and total in whole
// paise. Throws StoreError.
struct UploadLines
{
    QStringList lines;
    int count = 0;
    qint64 paise = 0;
};
UploadLines uploadLines(SharedDatabase& db, const QString& bankAgentId);
// The check listing's lines: every RestoreData row of the agent in numeric
// account-name order. Throws StoreError.
QStringList checkLines(SharedDatabase& db, const QString& bankAgentId);

// Whether count and total agree with what the receive screen shows
// (TotalTransact and txtTotalAmount), compared in whole paise.
bool agreesWithSummary(const UploadSummary& summary, int count, qint64 paise);

// An amount text ("0000050.00", "85", "12.5") in whole paise; false when it
// is not such a number.
bool toPaise(const QString& amount, qint64* paise);
// Whole paise as rupees with two decimals ("1850.00").
QString rupees(qint64 paise);

// CreateFlatFile: appends "u" to the upload base name, writes
// <BankInfoPath>/<base>.txt from the agent's RestoreData rows with an amount
// (in transaction-number order) and checks the totals against the summary.
// Reports the result; true when the file was written and the totals agree.
bool CreateFlatFile(AppContext& ctx, UploadSummary& summary);

// CreateFlatFile1: <data>/BackupData/<agent>_dd_mm_yy.txt, one line per
// reply 0 to TotalRecords + 1. A backup of an earlier receive of the same
// day is never overwritten: the next free name (<agent>_dd_mm_yy_2.txt, ...)
// is taken. False (reported) when it cannot be written.
bool CreateFlatFile1(AppContext& ctx, const UploadSummary& summary);

// The backup dump itself: writes it and returns its path, or returns an
// empty path with *error giving the real cause.
QString writeBackup(AppContext& ctx, const UploadSummary& summary, QString* error);
// The name the backup dump of this receive gets (not yet written): agent
// part made safe for a file name, today's date, the next free number.
QString backupPath(AppContext& ctx, const UploadSummary& summary);

// CreateFlatFile2: <data>/BackupData/<base>Check.txt, every RestoreData row
// of the agent in numeric account-name order. False (reported) when it
// cannot be written.
bool CreateFlatFile2(AppContext& ctx, const UploadSummary& summary);

// The BackupData folder of the data folder.
QString backupFolder(const AppContext& ctx);

// The upload file's path: the folder, one separator unless it already ends
// in one, the name and ".txt".
QString uploadFilePath(const QString& bankInfoPath, const QString& uploadName);

// One backup line: "[" line "] " index ("00") " ) " the reply in hex "  "
// the reply's printable characters.
QString backupLine(int lineNumber, int recordIndex, const QByteArray& reply);

// The bytes of a file of lines: each line in Latin-1 followed by CR LF. Every
// file of a receive is made of these bytes, whether the receive writes it or
// a later start completes it.
QByteArray fileBytes(const QStringList& lines);

// Writes the lines (Latin-1, CR LF after each), syncs them to the disk and
// commits, syncing the folder after the rename (DurableFile::commit); on any
// failure, a failed sync included, *error says why and, unless only the
// folder's sync failed, the file under the final name is left as it was.
bool saveLines(QSaveFile& file, const QStringList& lines, QString* error);

// Writes the lines into the file's temporary copy and syncs it to the disk
// without committing it, so that the caller can commit it (rename it into
// place, DurableFile::commit) once everything else has succeeded; *bytes
// receives what was written. On failure, a failed sync included, the
// temporary copy is removed and *error gives the real cause.
bool stageLines(QSaveFile& file, const QStringList& lines, QByteArray* bytes, QString* error);

// stageLines and saveLines for bytes already made.
bool stageBytes(QSaveFile& file, const QByteArray& bytes, QString* error);
bool saveBytes(QSaveFile& file, const QByteArray& bytes, QString* error);

// Makes the folder (and its parents) when missing; false with the cause.
bool ensureFolder(const QString& folder, QString* error);

// Every file of a receive is made through this factory; tests put in one
// whose files fail as a full disk would. An empty function restores plain
// QSaveFile.
using SaveFileFactory = std::function<std::unique_ptr<QSaveFile>(const QString& path)>;
void setSaveFileFactory(SaveFileFactory factory);
std::unique_ptr<QSaveFile> makeSaveFile(const QString& path);

} // namespace UploadFiles
