#pragma once

#include "base/Messenger.h"
#include "download/DownloadFields.h"
#include "download/DownloadRecord.h"

#include <QList>
#include <QString>

class QIODevice;

// The bank's download file of one agent and date: locating it, reading and
// checking it. Holds the records and the values taken from the last record.
class DownloadFile
{
public:
    enum class Failure {
        None,
        CannotOpen,     // missing, a folder, or not readable
        DataFormat,     // a line of a length no record can have
        TooManyRecords, // more than MaxRecords
        Overflow,       // more records than the reader has room for
        PastEnd,        // the file ends inside a record that is being rebuilt
        BadField,       // a number or date field holds characters the terminal cannot take
    };

    static constexpr int MaxRecords = 2000;
    static constexpr int Capacity = 2500;

    // BankInfoPath, a separator unless it already ends in one, the agent
    // (three digits), the date (ddmm) and "d.txt".
    static QString pathFor(const QString& bankInfoPath, const QString& agent, const QString& date);
    // The FileName value stored with the accounts: the path less its root.
    static QString fileNameValue(const QString& path);

    // Reads and checks the whole file. On failure no record is kept and
    // errorString() / errorIcon() say what to show.
    bool ReadDownLoadFile(const QString& path);
    bool ReadDownLoadFile(QIODevice& device);

    const QList<DownloadRecord>& records() const { return m_records; }
    // The line (from 1) each record begins on, in the order of records().
    const QList<int>& recordLines() const { return m_lines; }
    // The first field, over all records, that a frame to the terminal needs
    // but a short line left empty or cut short; see DownloadFields.
    std::optional<FieldProblem> frameProblem() const;
    int recordCount() const { return static_cast<int>(m_records.size()); }
    // Columns 1-15 and 124-138 of the last record read (empty for an empty file).
    QString BranchID() const { return m_branchId; }
    QString AgentID() const { return m_agentId; }

    Failure failure() const { return m_failure; }
    QString errorString() const { return m_error; }
    // Which file, line and field the failure is about and what to do, where
    // errorString(), a text kept from version 2.1, does not say.
    QString errorDetail() const { return m_detail; }
    Messenger::Icon errorIcon() const { return m_icon; }
    // The number of the record the failure was found in (0 when not tied to one).
    int failedRecord() const { return m_failedRecord; }

private:
    bool fail(Failure failure, const QString& text, Messenger::Icon icon, int record = 0, const QString& detail = {});
    static bool lengthAccepted(qsizetype length);

    QList<DownloadRecord> m_records;
    QList<int> m_lines;
    QString m_branchId;
    QString m_agentId;
    QString m_path;
    Failure m_failure = Failure::None;
    QString m_error;
    QString m_detail;
    Messenger::Icon m_icon = Messenger::Icon::None;
    int m_failedRecord = 0;
};
