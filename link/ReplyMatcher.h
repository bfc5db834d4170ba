#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QList>

// Tells whether a good reply answers the record asked for, and keeps the
// replies taken. The reply's head says nothing we may rely on, so replies
// are told apart by their records: no two records of one upload are alike
// (each holds its account and its transaction numbers), so the same record
// at two places means a late reply or a request the terminal read as
// another one.
//
// It works on the shared Records array and an index of the records kept
// there by their content, so that each reply is matched in constant time,
// whatever the number of records already in. No port, no timers: the
// session acts on the verdict.
class ReplyMatcher
{
public:
    enum class Verdict {
        Take,              // the answer to request n: keep it and go on
        Wait,              // not the answer; its answer is still to come
        AskAgain,          // ask for record n again now
        AskForOther,       // ask for record `other` again now, and come back from there
        SummaryUnreadable, // the summary's place held no summary too many times in a row
    };
    struct Decision
    {
        Verdict verdict = Verdict::Take;
        int other = -1; // with AskForOther
    };

    // Summary replies in a row that do not read as a summary before the
    // receive is given up.
    static constexpr int BadSummariesAllowed = 3;

    explicit ReplyMatcher(QList<QByteArray>& records);

    // A good (checked) reply to request n.
    Decision match(int n, const QByteArray& reply);

    // Records[n] set to / cleared from a reply. A kept reply joins the
    // index when the index is next used, or at indexKept(): a session calls
    // that once its next request is out, so that the terminal does not wait
    // on it.
    void keep(int n, const QByteArray& reply);
    void indexKept() const;
    void forget(int n);
    bool holds(int n) const { return !m_records.at(n).isEmpty(); }
    // The lowest place other than n holding this content, -1 if none.
    int keptElsewhere(int n, QByteArrayView content) const;

    // A fresh receive: every record forgotten, nothing pending.
    void clearAll();
    // The disputes and confirmations under way dropped.
    void clearPending();
    // The summary was read: bad summaries are counted from zero again.
    void summaryTaken() { m_badSummaries = 0; }

private:
    QList<QByteArray>& m_records;
    // Where each kept record is, by a hash of its content; the records
    // under one hash are compared byte for byte. Only the hash and the place
    // are stored, no copy of the record. One place per hash in m_kept (an
    // entry in a table sized for the whole receive, no allocation per
    // reply), any further places under the same hash in m_alsoKept: two
    // records alike (only when the terminal really has two) or two hashes
    // alike.
    mutable QHash<size_t, int> m_kept;
    mutable QMultiHash<size_t, int> m_alsoKept;
    // Kept, not yet in the index.
    mutable QList<int> m_unindexed;
    int m_badSummaries = 0;
    // A record kept earlier answered differently on a later request: the
    // answer that comes twice in a row wins.
    int m_disputed = -1;
    QByteArray m_candidate;
    // A record that names no account, taken only when asked again it comes
    // again.
    int m_unconfirmed = -1;
    QByteArray m_unconfirmedContent;
    // A fresh request answered with a record kept at another index.
    int m_duplicateFor = -1;
    int m_duplicateOf = -1;
    int m_duplicateCount = 0;
};
