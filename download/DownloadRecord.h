#pragma once

#include <QString>

// One account of the bank's download file, each field cut from its fixed
// columns exactly as it stands (padding kept; dates reduced to ddmmyy).
struct DownloadRecord
{
    QString BranchID;         // columns 1-15
    QString CategoryCode;     // 16
    QString SchemeCode;       // 17-21
    QString ACNumber;         // 22-36
    QString CustomerCode;     // 37-42
    QString ACName;           // 43-92
    QString BalAmount;        // 95-102
    QString AgreedAmount;     // 106-110
    QString MyDate;           // 114-123 dd/mm/yyyy, as ddmmyy
    QString AgentID;          // 124-138
    QString OpeningDate;      // 139-148 dd/mm/yyyy, as ddmmyy
    QString Txndate;          // 149-158 dd/mm/yyyy, as ddmmyy
    QString BankSoftACNumber; // 160-174

    // Cuts the columns blindly: a short line gives short or empty fields and
    // a malformed date gives whatever characters stand in its columns.
    static DownloadRecord fromLine(const QString& line);
};
