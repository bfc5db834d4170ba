#include "upload/UploadFiles.h"

#include "base/Clock.h"
#include "base/DurableFile.h"
#include "base/Messenger.h"
#include "base/PathUtil.h"
#include "core/AppContext.h"
#include "link/UploadSession.h"
#include "store/StoreError.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <cstring>

namespace UploadFiles {

namespace {

SaveFileFactory saveFileFactory;

// The cause of a failed file operation. Qt reports a failed buffered write
// as "Unknown error"; errno, taken at once, still holds the real cause
// ("No space left on device").
QString causeOf(const QFileDevice& file, int savedErrno)
{
    const QString qtText = file.errorString();
    if (savedErrno != 0 && (qtText.isEmpty() || qtText == QLatin1String("Unknown error")))
        return QString::fromLocal8Bit(std::strerror(savedErrno));
    return qtText;
}

// A name part made safe for a file name: letters and digits stay, anything
// else (a path separator, a dot, a control byte) becomes "_".
QString safeNamePart(const QString& text)
{
    QString out;
    for (QChar c : text)
        out += (c.unicode() < 128 && c.isLetterOrNumber()) ? c : QLatin1Char('_');
    return out;
}

bool save(const QString& path, const QStringList& lines, QString* error)
{
    const std::unique_ptr<QSaveFile> file = makeSaveFile(path);
    return saveLines(*file, lines, error);
}

} // namespace

QString uploadCompletedText()
{
    return QStringLiteral("Upload Completed Successfully");
}

QString uploadProblemText()
{
    return QStringLiteral("Serious Problem While Uploading ");
}

QString missingBankFolderText()
{
    return QStringLiteral("Bank Upload Folder does not Exist,Select BankInfoPath and UpLoad Again");
}

void setSaveFileFactory(SaveFileFactory factory)
{
    saveFileFactory = std::move(factory);
}

std::unique_ptr<QSaveFile> makeSaveFile(const QString& path)
{
    if (saveFileFactory)
        return saveFileFactory(path);
    return std::make_unique<QSaveFile>(path);
}

QString backupFolder(const AppContext& ctx)
{
    return ctx.dataPath(QStringLiteral("BackupData"));
}

bool ensureFolder(const QString& folder, QString* error)
{
    errno = 0;
    if (QDir().mkpath(folder))
        return true;
    const int saved = errno;
    if (error)
        *error = QStringLiteral("the folder %1 cannot be created (%2)")
                     .arg(folder, saved ? QString::fromLocal8Bit(std::strerror(saved)) : QStringLiteral("refused"));
    return false;
}

bool toPaise(const QString& amount, qint64* paise)
{
    const QString text = amount.trimmed();
    if (text.isEmpty())
        return false;
    const qsizetype point = text.indexOf(QLatin1Char('.'));
    const QString whole = point < 0 ? text : text.left(point);
    QString fraction = point < 0 ? QString() : text.mid(point + 1);
    if (whole.isEmpty() && fraction.isEmpty())
        return false;
    if (fraction.size() > 2)
        return false;
    fraction = fraction.leftJustified(2, QLatin1Char('0'));
    qint64 value = 0;
    for (QChar c : whole + fraction) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        value = value * 10 + c.digitValue();
    }
    *paise = value;
    return true;
}

QString rupees(qint64 paise)
{
    return QStringLiteral("%1.%2").arg(paise / 100).arg(paise % 100, 2, 10, QLatin1Char('0'));
}

bool agreesWithSummary(const UploadSummary& summary, int count, qint64 paise)
{
    qint64 shown = 0;
    if (!toPaise(summary.totalAmountText(), &shown))
        return false;
    return count == summary.TotalTransactions && paise == shown;
}

QString uploadFilePath(const QString& bankInfoPath, const QString& uploadName)
{
    return PathUtil::join(bankInfoPath, uploadName + QStringLiteral(".txt"));
}

QString backupLine(int lineNumber, int recordIndex, const QByteArray& reply)
{
    // Built in one buffer: a receive writes one line a reply.
    static const char hex[] = "0123456789ABCDEF";
    QByteArray bytes(reply.isEmpty() ? 0 : reply.size() * 3 - 1 + 2 + reply.size(), ' ');
    char* out = bytes.data();
    for (char ch : reply) {
        const auto b = static_cast<unsigned char>(ch);
        *out++ = hex[b >> 4];
        *out++ = hex[b & 15];
        ++out; // the blank between two bytes, and the first of the two after the last
    }
    if (!reply.isEmpty())
        ++out; // the second blank
    for (char ch : reply) {
        const auto b = static_cast<unsigned char>(ch);
        *out++ = (b >= 0x20 && b < 0x7F) ? ch : '.';
    }
    QString line = QLatin1Char('[') + QString::number(lineNumber) + QStringLiteral("] ");
    if (recordIndex >= 0 && recordIndex < 10)
        line += QLatin1Char('0');
    line += QString::number(recordIndex) + QStringLiteral(" ) ");
    if (reply.isEmpty())
        line += QStringLiteral("  ");
    line += QString::fromLatin1(bytes);
    return line;
}

QByteArray fileBytes(const QStringList& lines)
{
    qsizetype size = 0;
    for (const QString& line : lines)
        size += line.size() + 2;
    QByteArray all;
    all.reserve(size);
    for (const QString& line : lines) {
        all += line.toLatin1();
        all += "\r\n";
    }
    return all;
}

bool stageBytes(QSaveFile& file, const QByteArray& bytes, QString* error)
{
    auto fail = [&](int savedErrno) {
        if (error)
            *error = causeOf(file, savedErrno);
        // Committing a cancelled file removes the temporary copy at once and
        // leaves the final name untouched.
        file.cancelWriting();
        if (file.isOpen())
            file.commit();
        return false;
    };
    errno = 0;
    if (!file.open(QIODevice::WriteOnly))
        return fail(errno);
    errno = 0;
    if (file.write(bytes) != bytes.size())
        return fail(errno);
    // Push the bytes to the disk now, so that a full disk or a disk that
    // cannot keep them shows here and not when the file is renamed into place.
    errno = 0;
    if (!file.flush())
        return fail(errno);
    QString why;
    if (!DurableFile::syncFile(file, &why)) {
        if (error)
            *error = why;
        file.cancelWriting();
        file.commit();
        return false;
    }
    return true;
}

bool stageLines(QSaveFile& file, const QStringList& lines, QByteArray* bytes, QString* error)
{
    const QByteArray all = fileBytes(lines);
    if (!stageBytes(file, all, error))
        return false;
    if (bytes)
        *bytes = all;
    return true;
}

bool saveBytes(QSaveFile& file, const QByteArray& bytes, QString* error)
{
    return stageBytes(file, bytes, error) && DurableFile::commit(file, error);
}

bool saveLines(QSaveFile& file, const QStringList& lines, QString* error)
{
    return saveBytes(file, fileBytes(lines), error);
}

bool CreateFlatFile(AppContext& ctx, UploadSummary& summary)
{
    Messenger& messenger = ctx.messenger();
    const QString folder = ctx.settings.BankInfoPath;
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        messenger.plain(missingBankFolderText());
        return false;
    }
    // Kept suffixed: the check listing, written next, is named from it too.
    summary.UploadBaseName += QLatin1Char('u');
    const QString path = uploadFilePath(folder, summary.UploadBaseName);

    UploadLines upload;
    try {
        upload = uploadLines(ctx.db(), summary.BankAgentId);
    } catch (const StoreError& e) {
        messenger.critical(e.message());
        return false;
    }

    QString why;
    if (!save(path, upload.lines, &why)) {
        messenger.critical(QStringLiteral("Cannot write the upload file %1: %2").arg(path, why));
        return false;
    }

    const bool agree = agreesWithSummary(summary, upload.count, upload.paise);
    if (agree)
        messenger.information(uploadCompletedText());
    else
        messenger.critical(uploadProblemText());
    return agree;
}

QString backupPath(AppContext& ctx, const UploadSummary& summary)
{
    const QString folder = backupFolder(ctx);
    const QString stem = safeNamePart(summary.UploadBaseName.left(3)) + QLatin1Char('_') +
                         ctx.clock().now().toString(QStringLiteral("dd_MM_yy"));
    QString path = PathUtil::join(folder, stem + QStringLiteral(".txt"));
    // A second receive of the same agent on the same day keeps the first
    // one's dump.
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = PathUtil::join(folder, QStringLiteral("%1_%2.txt").arg(stem).arg(n));
    return path;
}

QString writeBackup(AppContext& ctx, const UploadSummary& summary, QString* error)
{
    const QString path = backupPath(ctx, summary);
    QString why;
    if (!ensureFolder(backupFolder(ctx), &why)) {
        if (error)
            *error = QStringLiteral("Cannot write the backup file %1: %2").arg(path, why);
        return {};
    }

    // Header, summary and every announced transaction record, as far as the
    // reply array reaches.
    const int last = qBound(1, summary.TotalRecords + 1, LinkState::RecordsSize - 1);
    QStringList lines;
    for (int index = 0; index <= last; ++index)
        lines << backupLine(index + 1, index, ctx.link.Records.at(index));

    if (!save(path, lines, &why)) {
        if (error)
            *error = QStringLiteral("Cannot write the backup file %1: %2").arg(path, why);
        return {};
    }
    return path;
}

bool CreateFlatFile1(AppContext& ctx, const UploadSummary& summary)
{
    QString why;
    if (writeBackup(ctx, summary, &why).isEmpty()) {
        ctx.messenger().critical(why);
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
        lines = checkLines(ctx.db(), summary.BankAgentId);
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
