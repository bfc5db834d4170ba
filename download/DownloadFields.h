#pragma once

#include <QList>
#include <QString>
#include <optional>

struct DownloadRecord;

// A field of the bank's download file that the frames cannot carry: which
// line it stands on, which field and columns, its value and what is wrong.
struct FieldProblem
{
    int line = 0;    // line of the file (from 1) where the record begins
    QString field;   // "balance amount"
    QString columns; // "95-102"
    QString value;   // as it stands in the file
    QString why;     // "is not a number"

    // One sentence naming the file, the line, the field and its value.
    QString describe(const QString& path) const;
};

// Checks of the fields the frames to the terminal carry as numbers (the
// balance and the agreed amount, packed two digits to a byte) and dates (the
// opening and last transaction dates, three packed bytes). Version 2.1 found
// a letter in these only while it packed the record frames, after the header
// had gone out and the terminal had given up the accounts it held.
namespace DownloadFields {

// A number or date field that holds characters the terminal cannot be sent:
// a letter or sign in an amount, a letter in a date. Empty or blank fields
// are not judged here; a short line leaves them so.
// `text` is the record's line as read (rebuilt when it was split), for the
// value the message shows.
std::optional<FieldProblem> contentProblem(const DownloadRecord& record, const QString& text, int line);

// A field that a short line left empty or cut short where a frame needs it:
// an amount with no digits, a date cut inside its columns, and, for the
// header, the last record's agent identifier, which must fill its 15 columns.
std::optional<FieldProblem> frameProblem(const DownloadRecord& record, int line, bool lastRecord);

} // namespace DownloadFields
