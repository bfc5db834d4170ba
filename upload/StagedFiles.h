#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>

class QSaveFile;
class SharedDatabase;

// The upload file and the check listing of one receive, written to
// temporary copies while the rows are not yet committed and renamed into
// place (each synced with its folder, DurableFile) only once they are: a
// full disk or a failed commit leaves rows and files as they were.
class StagedFiles
{
public:
    StagedFiles();
    ~StagedFiles();
    StagedFiles(const StagedFiles&) = delete;
    StagedFiles& operator=(const StagedFiles&) = delete;

    // The upload file <bankFolder>/<base>.txt from the agent's rows just
    // stored, with its count and total in whole paise. False with *error
    // (the whole sentence for the clerk). Throws StoreError.
    bool stageUpload(SharedDatabase& db, const QString& bankFolder, const QString& base, const QString& bankAgentId,
                     QString* error);
    // The check listing <backupFolder>/<base>Check.txt, the folder made
    // when missing. False with *error. Throws StoreError.
    bool stageCheck(SharedDatabase& db, const QString& backupFolder, const QString& base, const QString& bankAgentId,
                    QString* error);

    // Renames the staged copies into place. False with *why, the staged
    // copy dropped.
    bool commitUpload(QString* why);
    bool commitCheck(QString* why);
    // Drops the staged copies: nothing is renamed.
    void drop();

    bool hasUpload() const { return m_upload.file != nullptr; }
    bool hasCheck() const { return m_check.file != nullptr; }
    QString uploadPath() const { return m_upload.path; }
    QString checkPath() const { return m_check.path; }
    const QByteArray& uploadBytes() const { return m_upload.bytes; }
    const QByteArray& checkBytes() const { return m_check.bytes; }
    int uploadCount() const { return m_uploadCount; }
    qint64 uploadPaise() const { return m_uploadPaise; }
    // The upload file's lines (CR LF pairs in its bytes).
    int uploadLineCount() const { return static_cast<int>(m_upload.bytes.count("\r\n")); }

private:
    struct File
    {
        QString path;
        std::unique_ptr<QSaveFile> file;
        QByteArray bytes;
    };
    static bool stage(File& staged, const QStringList& lines, QString* error);

    File m_upload;
    File m_check;
    int m_uploadCount = 0;
    qint64 m_uploadPaise = 0;
};
