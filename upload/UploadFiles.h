#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class AppContext;
class QSaveFile;
struct UploadSummary;

// The three files a receive leaves behind: the bank's upload file in the
// bank-information folder, and a backup dump of the replies and a check
// listing in the BackupData folder. Each is written whole through a
// QSaveFile, so a crash or a full disk never leaves part of a file under its
// final name; lines are Latin-1 and end in CR LF.
namespace UploadFiles {

// CreateFlatFile: appends "u" to the upload base name, writes
// <BankInfoPath>/<base>.txt from the agent's RestoreData rows with an amount
// (in transaction-number order) and checks the totals against the summary.
// Reports the result; true when the file was written and the totals agree.
bool CreateFlatFile(AppContext& ctx, UploadSummary& summary);

// CreateFlatFile1: <data>/BackupData/<agent>_dd_mm_yy.txt, one line per
// reply 0 to TotalRecords + 1. False (reported) when it cannot be written.
bool CreateFlatFile1(AppContext& ctx, const UploadSummary& summary);

// CreateFlatFile2: <data>/BackupData/<base>Check.txt, every RestoreData row
// of the agent in numeric account-name order. False (reported) when it
// cannot be written.
bool CreateFlatFile2(AppContext& ctx, const UploadSummary& summary);

// The upload file's path: the folder, one separator unless it already ends
// in one, the name and ".txt".
QString uploadFilePath(const QString& bankInfoPath, const QString& uploadName);

// One backup line: "[" line "] " index ("00") " ) " the reply in hex "  "
// the reply's printable characters.
QString backupLine(int lineNumber, int recordIndex, const QByteArray& reply);

// Writes the lines (Latin-1, CR LF after each) and commits; on any failure
// the file under the final name is left as it was and *error says why.
bool saveLines(QSaveFile& file, const QStringList& lines, QString* error);

} // namespace UploadFiles
