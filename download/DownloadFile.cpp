#include "download/DownloadFile.h"

#include "base/PathUtil.h"
#include "download/SequentialInput.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

// A record read in one piece is this long or longer; a shorter one is
// checked, and one shorter than RebuildBelow was split over several lines.
constexpr qsizetype FullLength = 136;
constexpr qsizetype RebuildBelow = 71;

void appendSpaces(QString& line, qsizetype count)
{
    if (count > 0)
        line.append(QString(count, QLatin1Char(' ')));
}

// Puts one list-input item back onto a record that was split over several
// lines. The bank's export broke records at known fields; the widths below
// move each known piece back to its columns. An item with a space whose tail
// matches none of them is dropped.
void appendItem(QString& line, const QString& item)
{
    const qsizetype itemLength = item.size();
    if (!item.contains(QLatin1Char(' '))) {
        const bool longEnough = line.size() >= 21;
        if (itemLength >= 65 && longEnough) {
            line.append(QLatin1Char(','));
            appendSpaces(line, 136 - (itemLength + line.size()));
        } else if (itemLength == 46 && longEnough) {
            line.append(QLatin1Char(','));
            appendSpaces(line, 70 - line.size());
        } else {
            line.append(QLatin1Char(','));
        }
        line.append(item);
        return;
    }

    const qsizetype tail = itemLength - (item.lastIndexOf(QLatin1Char(' ')) + 1);
    qsizetype target = 0;
    if (tail == 56)
        target = 126;
    else if (tail == 46)
        target = 116;
    else if (tail == 66)
        target = 136;
    else
        return;
    line.append(QLatin1Char(','));
    appendSpaces(line, target - (itemLength + line.size()));
    line.append(item);
}

} // namespace

QString DownloadFile::pathFor(const QString& bankInfoPath, const QString& agent, const QString& date)
{
    return PathUtil::join(bankInfoPath, agent + date + QStringLiteral("d.txt"));
}

QString DownloadFile::fileNameValue(const QString& path)
{
    // On the bank's Windows machines the value is the path less "X:\". Here
    // the root goes in the same way: a drive letter with its colon and
    // separator, or the leading separators of an absolute path.
    static const QRegularExpression drive(QStringLiteral(R"(^[A-Za-z]:[\\/]?)"));
    const auto match = drive.match(path);
    if (match.hasMatch())
        return path.mid(match.capturedLength());
    qsizetype start = 0;
    while (start < path.size() && (path.at(start) == QLatin1Char('/') || path.at(start) == QLatin1Char('\\')))
        ++start;
    return path.mid(start);
}

bool DownloadFile::lengthAccepted(qsizetype length)
{
    return length == FullLength || (length >= 101 && length <= 131);
}

bool DownloadFile::fail(Failure failure, const QString& text, Messenger::Icon icon, int record, const QString& detail)
{
    m_records.clear();
    m_lines.clear();
    m_branchId.clear();
    m_agentId.clear();
    m_failure = failure;
    m_error = text;
    m_detail = detail;
    m_icon = icon;
    m_failedRecord = record;
    return false;
}

bool DownloadFile::ReadDownLoadFile(const QString& path)
{
    m_path = path;
    QFile file(path);
    if (QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly)) {
        const QString why = QFileInfo(path).isDir() ? QStringLiteral("it is a folder") : file.errorString();
        return fail(
            Failure::CannotOpen,
            QStringLiteral("The DownLoad File %1 cannot be read (%2). Please check the DownLoad File").arg(path, why),
            Messenger::Icon::Critical);
    }
    const bool ok = ReadDownLoadFile(file);
    file.close();
    return ok;
}

bool DownloadFile::ReadDownLoadFile(QIODevice& device)
{
    m_records.clear();
    m_lines.clear();
    m_branchId.clear();
    m_agentId.clear();
    m_failure = Failure::None;
    m_error.clear();
    m_detail.clear();
    m_icon = Messenger::Icon::None;
    m_failedRecord = 0;

    if (!device.isOpen() || !device.isReadable()) {
        return fail(Failure::CannotOpen,
                    QStringLiteral("The DownLoad File %1 cannot be read (%2). Please check the DownLoad File")
                        .arg(m_path, device.errorString()),
                    Messenger::Icon::Critical);
    }

    const QString file = QDir::toNativeSeparators(m_path);
    const QString fixIt = QStringLiteral("Nothing was stored or sent; the terminal keeps the accounts it has. Ask "
                                         "the bank for a corrected DownLoad File, then press Send again.");
    SequentialInput in(device);
    QList<DownloadRecord> records;
    QList<int> lines;
    QString branchId;
    QString agentId;
    int agentLine = 0;
    while (!in.atEnd()) {
        const int number = static_cast<int>(records.size()) + 1;
        const int lineNumber = in.lineNumber();
        QString line = in.lineInput();
        if (line.size() < FullLength) {
            while (line.size() < RebuildBelow) {
                QString item;
                if (!in.listInput(&item)) {
                    return fail(Failure::PastEnd,
                                QStringLiteral("The DownLoad File ends inside record %1 (a short or empty line with "
                                               "nothing after it). Please check the DownLoad File")
                                    .arg(number),
                                Messenger::Icon::Critical, number,
                                QStringLiteral("The DownLoad File %1, line %2.").arg(file).arg(lineNumber) +
                                    QLatin1Char(' ') + fixIt);
                }
                appendItem(line, item);
            }
            if (!lengthAccepted(line.size()))
                return fail(Failure::DataFormat, QStringLiteral("Error in DATA FORMAT"), Messenger::Icon::None, number,
                            QStringLiteral("The DownLoad File %1, line %2: the record is %3 characters long; a record "
                                           "has 136 or more, or 101 to 131.")
                                    .arg(file)
                                    .arg(lineNumber)
                                    .arg(line.size()) +
                                QLatin1Char(' ') + fixIt);
        }
        if (records.size() == Capacity) {
            return fail(Failure::Overflow,
                        QStringLiteral("The DownLoad File holds more than %1 records; nothing was stored. "
                                       "Please check the DownLoad File")
                            .arg(Capacity),
                        Messenger::Icon::Critical, number,
                        QStringLiteral("The DownLoad File %1, line %2.").arg(file).arg(lineNumber) + QLatin1Char(' ') +
                            fixIt);
        }
        DownloadRecord record = DownloadRecord::fromLine(line);
        if (const auto problem = DownloadFields::contentProblem(record, line, lineNumber))
            return fail(Failure::BadField, QStringLiteral("Error in DATA FORMAT"), Messenger::Icon::None, number,
                        problem->describe(m_path) + QLatin1Char(' ') + fixIt);
        lines.append(lineNumber);
        branchId = record.BranchID;
        agentId = record.AgentID;
        agentLine = lineNumber;
        records.append(std::move(record));
    }

    // The last record's agent goes into every stored row and is what the
    // next download of that agent deletes by: without one the rows could
    // never be replaced.
    if (!records.isEmpty() && agentId.trimmed().isEmpty()) {
        return fail(Failure::DataFormat, QStringLiteral("Error in DATA FORMAT"), Messenger::Icon::None,
                    static_cast<int>(records.size()),
                    QStringLiteral("The DownLoad File %1, line %2: the record has no agent identifier "
                                   "(columns 124-138).")
                            .arg(file)
                            .arg(agentLine) +
                        QLatin1Char(' ') + fixIt);
    }

    if (records.size() > MaxRecords) {
        return fail(Failure::TooManyRecords,
                    QStringLiteral("No.of records has exceeded 2000,Please check the DownLoad File"),
                    Messenger::Icon::Critical, 0,
                    QStringLiteral("The DownLoad File %1 holds %2 records.").arg(file).arg(records.size()) +
                        QLatin1Char(' ') + fixIt);
    }
    m_records = std::move(records);
    m_lines = std::move(lines);
    m_branchId = branchId;
    m_agentId = agentId;
    return true;
}

std::optional<FieldProblem> DownloadFile::frameProblem() const
{
    for (qsizetype i = 0; i < m_records.size(); ++i) {
        if (auto problem = DownloadFields::frameProblem(m_records.at(i), m_lines.at(i), i == m_records.size() - 1))
            return problem;
    }
    return std::nullopt;
}
