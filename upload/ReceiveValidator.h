#pragma once

#include "upload/ReceiveTypes.h"

#include <QStringList>

struct UploadSummary;

// Whether a receive may be stored, decided before any row changes: first
// on the summary alone, then on the decoded collections. No database, no
// files.
namespace ReceiveValidator {

struct Verdict
{
    enum class Kind {
        Proceed, // go on
        Refuse,  // stop: nothing replaced; the problems say why
        Fail,    // stop: the receive cannot be stored at all; problems holds the one reason
    };
    Kind kind = Kind::Proceed;
    QStringList problems;
    // A refused receive the clerk may still accept.
    bool mayAccept = false;

    bool proceeds() const { return kind == Kind::Proceed; }
};

// The summary's agent and date must make the upload file's name (refused
// for good otherwise), and the header's agent identifier must be usable as
// a key (failed otherwise).
Verdict checkSummary(const UploadSummary& summary);

// The collections against the summary (CollectionCheck::check's result):
// a disagreement refuses the receive, one the clerk may accept; with
// acceptMismatch it proceeds.
Verdict checkCollections(const CollectionCheck::Result& check, bool acceptMismatch);

} // namespace ReceiveValidator
