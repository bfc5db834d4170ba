#include "link/ReplyMatcher.h"

#include "link/UploadFrames.h"

ReplyMatcher::ReplyMatcher(QList<QByteArray>& records) : m_records(records) {}

namespace {

size_t contentHash(QByteArrayView content)
{
    return qHash(content, QHashSeed::globalSeed());
}

} // namespace

int ReplyMatcher::keptElsewhere(int n, QByteArrayView content) const
{
    indexKept();
    // Looked up through the bytes in place: no copy per reply.
    const size_t hash = contentHash(content);
    const auto first = m_kept.constFind(hash);
    if (first == m_kept.constEnd())
        return -1;
    int lowest = -1;
    const auto consider = [&](int i) {
        if (i != n && (lowest < 0 || i < lowest) && UploadFrames::contentView(m_records.at(i)) == content)
            lowest = i;
    };
    consider(*first);
    const auto [from, to] = m_alsoKept.equal_range(hash);
    for (auto it = from; it != to; ++it)
        consider(it.value());
    return lowest;
}

void ReplyMatcher::keep(int n, const QByteArray& reply)
{
    indexKept();
    m_records[n] = reply;
    m_unindexed.append(n);
}

void ReplyMatcher::indexKept() const
{
    for (int n : std::as_const(m_unindexed)) {
        const size_t hash = contentHash(UploadFrames::contentView(m_records.at(n)));
        if (m_kept.contains(hash))
            m_alsoKept.insert(hash, n);
        else
            m_kept.insert(hash, n);
    }
    m_unindexed.clear();
}

void ReplyMatcher::forget(int n)
{
    indexKept();
    QByteArray& kept = m_records[n];
    if (kept.isEmpty())
        return;
    const size_t hash = contentHash(UploadFrames::contentView(kept));
    if (const auto first = m_kept.find(hash); first != m_kept.end() && *first == n) {
        // Another place under the same hash takes its turn first.
        if (const auto next = m_alsoKept.find(hash); next != m_alsoKept.end()) {
            *first = next.value();
            m_alsoKept.erase(next);
        } else {
            m_kept.erase(first);
        }
    } else {
        m_alsoKept.remove(hash, n);
    }
    kept.clear();
}

void ReplyMatcher::clearAll()
{
    for (QByteArray& r : m_records)
        r.clear();
    m_kept.clear();
    m_alsoKept.clear();
    // Room for a whole receive at once: the index does not grow reply by
    // reply.
    m_kept.reserve(m_records.size());
    m_unindexed.clear();
    m_badSummaries = 0;
    clearPending();
}

void ReplyMatcher::clearPending()
{
    m_disputed = -1;
    m_candidate.clear();
    m_unconfirmed = -1;
    m_unconfirmedContent.clear();
    m_duplicateFor = -1;
    m_duplicateOf = -1;
    m_duplicateCount = 0;
}

ReplyMatcher::Decision ReplyMatcher::match(int n, const QByteArray& reply)
{
    const QByteArrayView content = UploadFrames::contentView(reply);
    const int other = keptElsewhere(n, content);

    if (holds(n)) {
        // A record asked for again (step back, check question, walk back).
        if (UploadFrames::contentView(m_records.at(n)) == content) {
            if (m_disputed == n)
                m_disputed = -1;
            return {Verdict::Take};
        }
        // Another record's late reply: the answer to this request is still
        // to come.
        if (other >= 0)
            return {Verdict::Wait};
        // A different answer than the one kept: ask again, and take
        // whichever comes twice in a row.
        if (m_disputed == n && m_candidate == content) {
            m_disputed = -1;
            forget(n);
            return {Verdict::Take};
        }
        m_disputed = n;
        m_candidate = content.toByteArray();
        return {Verdict::AskAgain};
    }

    if (other >= 0) {
        if (m_duplicateFor == n && m_duplicateOf == other) {
            ++m_duplicateCount;
        } else {
            m_duplicateFor = n;
            m_duplicateOf = other;
            m_duplicateCount = 1;
        }
        // The terminal gives the same answer again: the record kept at
        // `other` may be the misplaced one. Ask for it again and come back
        // from there.
        if (m_duplicateCount == 2)
            return {Verdict::AskForOther, other};
        if (m_duplicateCount < 2)
            return {Verdict::Wait};
        // Asked again at both places and the same each time: the two
        // records really are alike.
        m_duplicateFor = -1;
        m_duplicateCount = 0;
        return {Verdict::Take};
    }

    if (n == 1 && !UploadFrames::plausibleSummary(reply)) {
        // A transaction record or noise in the summary's place would show
        // as agent and date and name the upload file.
        if (++m_badSummaries >= BadSummariesAllowed)
            return {Verdict::SummaryUnreadable};
        return {Verdict::Wait};
    }
    if (n >= 2 && UploadFrames::namesNoAccount(reply)) {
        // What the terminal answers for a record beyond its last. A request
        // whose number was damaged on the line gets it too, and kept here it
        // would lose this record's collections without a trace (it appears
        // nowhere else). Asked again: the same answer twice in a row is taken.
        if (m_unconfirmed == n && m_unconfirmedContent == content) {
            m_unconfirmed = -1;
            m_unconfirmedContent.clear();
            return {Verdict::Take};
        }
        m_unconfirmed = n;
        m_unconfirmedContent = content.toByteArray();
        return {Verdict::AskAgain};
    }
    return {Verdict::Take};
}
