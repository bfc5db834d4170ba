#pragma once

#include <QString>
#include <functional>

// The bytes of a checked copy (CheckedCopy.h), taken with SQLite's online
// backup a few pages at a time. Between two steps the database is held by
// nobody, so the program or another tonvy-cli commits its writes at once
// instead of waiting for the end of the copy (version 2.1's copy, one
// VACUUM INTO, held a read lock for the whole copy: about 30 s on five
// years of history, longer than any writer waits). A write by another
// connection makes SQLite start the copy again from its first page; after
// restartsAllowed such restarts the copy gives up.
namespace DatabaseCopy {

constexpr int pagesPerStep = 1024;
constexpr int restartsAllowed = 20;

// Why a stepped copy failed: SQLite's primary result code and words, or
// unsettled when the database kept changing.
struct StepFailure
{
    int code = 0;
    QString words;
    bool unsettled = false;
    int restarts = 0;
};

// Copies the database file at from into the file at to (new or empty),
// with connections of its own: may run on any thread. False with *failure.
bool copyInSteps(const QString& from, const QString& to, StepFailure* failure);

// Test and bench seam: called after each step with the pages copied so
// far, the pages of the database and the restarts so far, while no lock is
// held. An empty function removes it.
using StepObserver = std::function<void(int copied, int total, int restarts)>;
void setStepObserver(StepObserver observer);

} // namespace DatabaseCopy
