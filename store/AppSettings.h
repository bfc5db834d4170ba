#pragma once

#include <QString>

class SharedDatabase;

// The program-wide copy of the settings row of the Path table.
struct AppSettings
{
    QString BankName;
    QString BranchName;
    QString FontSize;
    QString BankInfoPath;
    QString ReportPath;
    QString CommPort;

    // Reads "select * from path where SNo='1'" into a fresh copy. Returns
    // false (and leaves every member empty) when the row is missing. The
    // shared result set is left open, as the main menu leaves it.
    bool load(SharedDatabase& db);
};
