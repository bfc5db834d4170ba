#include "reports/ReportRenderer.h"

#include "base/DurableFile.h"
#include "reports/PageWriter.h"
#include "reports/ReportSnapshot.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QPdfWriter>
#include <QSaveFile>
#include <QStringList>
#include <climits>

namespace {

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')) &&
        !text.contains(QLatin1Char('\r')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString csvLine(const QStringList& fields)
{
    QStringList quoted;
    for (const QString& f : fields)
        quoted << csvField(f);
    return quoted.join(QLatin1Char(',')) + QStringLiteral("\r\n");
}

QString dailyHeadLine()
{
    return csvLine({QStringLiteral("Date"), QStringLiteral("AgentID"), QStringLiteral("Account No"),
                    QStringLiteral("Closing Amount"), QStringLiteral("Collected Amount")});
}

QString dailyLine(const QString& date, const DailyRow& row)
{
    return csvLine({date, row.agentId, row.accountNo, ReportFormat::formatAmount(row.closingAmt),
                    ReportFormat::formatAmount(row.collectedAmt)});
}

// The CSV text, handed out in pieces as it is made.
void csvPieces(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
               const std::function<void(const QString&)>& out)
{
    if (kind == ReportKind::Daily) {
        // Read from a snapshot: writing a long range holds no lock on the
        // database while the file is written (ReportSnapshot).
        ReportSnapshot snapshot(db, limits);
        out(dailyHeadLine());
        QString chunk;
        DailyQuery(snapshot.db(), limits).forEach([&](const QString& date, const DailyRow& row) {
            chunk += dailyLine(date, row);
            if (chunk.size() > 64 * 1024) {
                out(chunk);
                chunk.clear();
            }
            return true;
        });
        out(chunk);
    } else {
        out(ReportRenderer::agentCsv(ReportData::agent(db, limits)));
    }
}

} // namespace

QString ReportRenderer::cannotWrite(const QString& path, const QString& why)
{
    return QStringLiteral("Cannot write the report file %1: %2").arg(path, why);
}

QString ReportRenderer::dailyCsv(const DailySummary& summary)
{
    QString csv = dailyHeadLine();
    for (const DailyGroup& group : summary.groups) {
        for (const DailyRow& row : group.rows)
            csv += dailyLine(group.date, row);
    }
    return csv;
}

QString ReportRenderer::agentCsv(const AgentSummary& summary)
{
    QString csv = csvLine({QStringLiteral("AgentID"), QStringLiteral("Collected Amount"), QStringLiteral("Date")});
    for (const AgentRow& row : summary.rows)
        csv += csvLine({row.agentId, ReportFormat::formatAmount(row.collectedAmt), row.date});
    return csv;
}

QString ReportRenderer::csv(SharedDatabase& db, ReportKind kind, const ReportLimits& limits)
{
    QString text;
    csvPieces(db, kind, limits, [&text](const QString& piece) { text += piece; });
    return text;
}

bool ReportRenderer::writeCsv(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const QString& path,
                              QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        if (error)
            *error = cannotWrite(path, file.errorString());
        return false;
    }
    bool written = true;
    try {
        csvPieces(db, kind, limits, [&](const QString& piece) {
            const QByteArray bytes = piece.toUtf8();
            if (written && file.write(bytes) != bytes.size())
                written = false;
        });
    } catch (const StoreError& e) {
        file.cancelWriting();
        if (error)
            *error = e.message();
        return false;
    }
    QString why;
    if (!written || !DurableFile::commit(file, &why)) {
        if (error)
            *error = cannotWrite(path, written ? why : file.errorString());
        return false;
    }
    return true;
}

bool ReportRenderer::writePdf(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
                              const ReportHeader& header, const QString& path, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        if (error)
            *error = cannotWrite(path, file.errorString());
        return false;
    }
    bool painted = false;
    try {
        QPdfWriter writer(&file);
        writer.setTitle(ReportFormat::title(kind));
        writer.setCreator(QStringLiteral("Tonvy Hand-Held Interface Software"));
        writer.setResolution(300);
        PageWriter pages(db, kind, limits, header, &writer);
        pages.writePages(INT_MAX);
        painted = pages.finish();
    } catch (const StoreError& e) {
        file.cancelWriting();
        if (error)
            *error = e.message();
        return false;
    }
    QString why;
    if (!painted || !DurableFile::commit(file, &why)) {
        if (error)
            *error = cannotWrite(path, painted ? why : file.errorString());
        return false;
    }
    return true;
}
