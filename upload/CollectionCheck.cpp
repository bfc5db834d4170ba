#include "upload/CollectionCheck.h"

#include "link/UploadSession.h"
#include "upload/UploadFiles.h"

#include <QDate>
#include <QHash>

namespace CollectionCheck {

namespace {

bool allDigits(const QString& text)
{
    for (QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return !text.isEmpty();
}

// Control bytes shown as \xNN, so that the clerk sees what came.
QString shown(const QString& text)
{
    QString out;
    for (QChar c : text) {
        if (c.unicode() < 0x20 || (c.unicode() >= 0x7F && c.unicode() < 0xA0))
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QString amountText(const QString& amount)
{
    qint64 paise = 0;
    return UploadFiles::toPaise(amount, &paise) ? UploadFiles::rupees(paise) : amount;
}

} // namespace

QStringList summaryProblems(const UploadSummary& summary)
{
    // The upload file's name is the summary's bytes 10 to 16 (anything
    // after the seventh character was added by an earlier run).
    const QString base = summary.UploadBaseName.left(7);
    const QString agent = base.left(3);
    const QString ddmm = base.mid(3, 4);
    QStringList problems;
    if (agent.size() != 3 || !allDigits(agent))
        problems << QStringLiteral("The terminal's summary gives the agent as \"%1\", which is not three digits.")
                        .arg(shown(agent));
    const bool dateDigits = ddmm.size() == 4 && allDigits(ddmm);
    // A leap year, so that 29 February counts as a real day.
    if (!dateDigits || !QDate(2000, ddmm.mid(2, 2).toInt(), ddmm.left(2).toInt()).isValid())
        problems << QStringLiteral("The terminal's summary gives the date as \"%1\", which is not a real day and "
                                   "month (ddmm).")
                        .arg(shown(ddmm));
    return problems;
}

QString reasonText(LeftOutReason reason)
{
    switch (reason) {
    case LeftOutReason::UnknownAccount:
        return QStringLiteral("the account is not among the agent's downloaded accounts");
    case LeftOutReason::EmptyAmount:
        return QStringLiteral("no amount (empty)");
    }
    return QString();
}

Result check(const UploadSummary& summary, const QList<RestoreStore::Entry>& entries)
{
    Result r;
    r.entries = static_cast<int>(entries.size());
    r.summaryCount = summary.TotalTransactions;
    UploadFiles::toPaise(summary.totalAmountText(), &r.summaryPaise);

    QHash<QString, QString> accountOfTransaction; // transaction number -> first account
    QStringList doubled;
    QStringList unknown;
    for (const RestoreStore::Entry& e : entries) {
        const bool hasAmount = !e.amount.isEmpty();
        qint64 paise = 0;
        if (hasAmount) {
            ++r.collections;
            if (UploadFiles::toPaise(e.amount, &paise))
                r.collectedPaise += paise;
            if (!e.transactionNumber.isEmpty()) {
                const auto seen = accountOfTransaction.constFind(e.transactionNumber);
                if (seen != accountOfTransaction.constEnd())
                    doubled << QStringLiteral("transaction number %1 appears twice (accounts %2 and %3)")
                                   .arg(e.transactionNumber, seen.value().trimmed(), e.accountNo.trimmed());
                else
                    accountOfTransaction.insert(e.transactionNumber, e.accountNo);
            }
            if (!e.inBankData)
                unknown << QStringLiteral("a collection of %1 for account %2, which is not among the agent's "
                                          "downloaded accounts")
                               .arg(amountText(e.amount), e.accountNo.trimmed());
        }
        const bool inFile = hasAmount && e.agentId == summary.BankAgentId;
        if (inFile) {
            ++r.fileCount;
            r.filePaise += paise;
        } else {
            LeftOut out;
            out.accountNo = e.accountNo;
            out.amount = e.amount;
            out.reason = hasAmount ? LeftOutReason::UnknownAccount : LeftOutReason::EmptyAmount;
            r.leftOut << out;
        }
    }

    if (r.fileCount != r.summaryCount || r.filePaise != r.summaryPaise)
        r.problems << QStringLiteral("The terminal's summary gives %1 transactions totalling %2, but the upload file "
                                     "would hold %3 totalling %4.")
                          .arg(r.summaryCount)
                          .arg(UploadFiles::rupees(r.summaryPaise))
                          .arg(r.fileCount)
                          .arg(UploadFiles::rupees(r.filePaise));
    for (const QString& d : doubled)
        r.problems << QStringLiteral("The records hold %1.").arg(d);
    for (const QString& u : unknown)
        r.problems << QStringLiteral("The records hold %1.").arg(u);
    return r;
}

} // namespace CollectionCheck
