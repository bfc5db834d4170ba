#include "upload/StagedFiles.h"

#include "base/DurableFile.h"
#include "base/PathUtil.h"
#include "upload/UploadFiles.h"

#include <QSaveFile>

StagedFiles::StagedFiles() = default;
StagedFiles::~StagedFiles() = default;

bool StagedFiles::stage(File& staged, const QStringList& lines, QString* error)
{
    staged.file = UploadFiles::makeSaveFile(staged.path);
    return UploadFiles::stageLines(*staged.file, lines, &staged.bytes, error);
}

bool StagedFiles::stageUpload(SharedDatabase& db, const QString& bankFolder, const QString& base,
                              const QString& bankAgentId, QString* error)
{
    m_upload.path = UploadFiles::uploadFilePath(bankFolder, base);
    const UploadFiles::UploadLines lines = UploadFiles::uploadLines(db, bankAgentId);
    m_uploadCount = lines.count;
    m_uploadPaise = lines.paise;
    QString why;
    if (stage(m_upload, lines.lines, &why))
        return true;
    if (error)
        *error = QStringLiteral("Cannot write the upload file %1: %2.").arg(m_upload.path, why);
    return false;
}

bool StagedFiles::stageCheck(SharedDatabase& db, const QString& backupFolder, const QString& base,
                             const QString& bankAgentId, QString* error)
{
    m_check.path = PathUtil::join(backupFolder, base + QStringLiteral("Check.txt"));
    QString why;
    if (UploadFiles::ensureFolder(backupFolder, &why) && stage(m_check, UploadFiles::checkLines(db, bankAgentId), &why))
        return true;
    if (error)
        *error = QStringLiteral("Cannot write the check listing %1: %2.").arg(m_check.path, why);
    return false;
}

bool StagedFiles::commitUpload(QString* why)
{
    return m_upload.file && DurableFile::commit(*m_upload.file, why);
}

bool StagedFiles::commitCheck(QString* why)
{
    return m_check.file && DurableFile::commit(*m_check.file, why);
}

void StagedFiles::drop()
{
    m_upload.file.reset();
    m_check.file.reset();
}
