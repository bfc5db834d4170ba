#include "store/DailyCopy.h"

#include "base/PathUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>

namespace DatabaseCopy {

namespace {

const QString dailyPattern = QStringLiteral(R"(^HandHeldData-(\d{4}-\d{2}-\d{2})\.db$)");
const QString partPattern = QStringLiteral(R"(^HandHeldData-\d{4}-\d{2}-\d{2}\.db\.part(-journal)?$)");

} // namespace

QString dailyFolder(const QString& dataDir)
{
    return PathUtil::join(dataDir, QStringLiteral("BackupData"));
}

QString dailyPath(const QString& dataDir, const QDate& day)
{
    return PathUtil::join(dailyFolder(dataDir),
                          QStringLiteral("HandHeldData-%1.db").arg(day.toString(QStringLiteral("yyyy-MM-dd"))));
}

QList<CopyFile> dailyCopies(const QString& dataDir)
{
    return copiesIn(dailyFolder(dataDir), dailyPattern);
}

Outcome makeDailyCopy(const QString& dbPath, const QString& dataDir, const QDate& today, bool* made)
{
    if (made)
        *made = false;
    removeLeftParts(dataDir);
    const QString path = dailyPath(dataDir, today);
    if (QFileInfo::exists(path)) {
        Outcome out;
        out.ok = true;
        out.path = path;
        return out;
    }
    Outcome out = makeCopy(dbPath, path);
    if (!out.ok)
        return out;
    if (made)
        *made = true;
    // Pruned only after a copy was made: a day whose copy failed leaves
    // the older ones as they are.
    pruneDailyCopies(dataDir);
    return out;
}

QStringList pruneDailyCopies(const QString& dataDir)
{
    struct Daily
    {
        QDate day;
        QString path;
    };
    QList<Daily> copies;
    const QRegularExpression re(dailyPattern);
    for (const CopyFile& c : dailyCopies(dataDir)) {
        const QDate day =
            QDate::fromString(re.match(QFileInfo(c.path).fileName()).captured(1), QStringLiteral("yyyy-MM-dd"));
        if (day.isValid())
            copies.append({day, c.path});
    }
    std::sort(copies.begin(), copies.end(), [](const Daily& a, const Daily& b) { return a.day > b.day; });
    QStringList removed;
    for (qsizetype i = dailyCopiesKept; i < copies.size(); ++i) {
        if (QFile::remove(copies.at(i).path))
            removed << copies.at(i).path;
    }
    return removed;
}

QStringList removeLeftParts(const QString& dataDir)
{
    QStringList removed;
    for (const CopyFile& part : copiesIn(dailyFolder(dataDir), partPattern)) {
        if (QFile::remove(part.path))
            removed << part.path;
    }
    return removed;
}

} // namespace DatabaseCopy
