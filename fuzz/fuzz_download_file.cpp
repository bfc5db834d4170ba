// The bank's download file as the send screen reads it, from any bytes.
#include "download/DownloadFields.h"
#include "download/DownloadFile.h"
#include "fuzz/FuzzSupport.h"
#include "link/DownloadFrames.h"

#include <QBuffer>

TONVY_FUZZ_START()

namespace {

DownloadAccount accountOf(const DownloadRecord& r)
{
    // What the send reads back from the stored row: the fields as cut.
    DownloadAccount a;
    a.categoryCode = r.CategoryCode;
    a.schemeCode = r.SchemeCode;
    a.acNumber = r.ACNumber;
    a.acName = r.ACName;
    a.balAmount = r.BalAmount;
    a.agreedAmount = r.AgreedAmount;
    a.openingDate = r.OpeningDate;
    a.txnDate = r.Txndate;
    return a;
}

void checkFailed(const DownloadFile& file)
{
    // A read that fails keeps nothing, and says why.
    FUZZ_CHECK(file.records().isEmpty());
    FUZZ_CHECK(file.recordLines().isEmpty());
    FUZZ_CHECK(file.recordCount() == 0);
    FUZZ_CHECK(file.BranchID().isEmpty());
    FUZZ_CHECK(file.AgentID().isEmpty());
    FUZZ_CHECK(file.failure() != DownloadFile::Failure::None);
    FUZZ_CHECK(!file.errorString().isEmpty());
}

void checkRead(const DownloadFile& file)
{
    FUZZ_CHECK(file.failure() == DownloadFile::Failure::None);
    FUZZ_CHECK(file.errorString().isEmpty());
    const QList<DownloadRecord>& records = file.records();
    FUZZ_CHECK(records.size() == file.recordLines().size());
    FUZZ_CHECK(records.size() <= DownloadFile::MaxRecords);
    int previous = 0;
    for (qsizetype i = 0; i < records.size(); ++i) {
        const DownloadRecord& r = records.at(i);
        const int line = file.recordLines().at(i);
        FUZZ_CHECK(line > previous);
        previous = line;
        // Every field within its columns; the packed ones hold what a
        // frame can carry.
        FUZZ_CHECK(r.BranchID.size() <= 15 && r.CategoryCode.size() <= 1 && r.SchemeCode.size() <= 5);
        FUZZ_CHECK(r.ACNumber.size() <= 15 && r.CustomerCode.size() <= 6 && r.ACName.size() <= 50);
        FUZZ_CHECK(r.BalAmount.size() <= 8 && r.AgreedAmount.size() <= 5 && r.AgentID.size() <= 15);
        FUZZ_CHECK(r.MyDate.size() <= 6 && r.OpeningDate.size() <= 6 && r.Txndate.size() <= 6);
        FUZZ_CHECK(!r.BranchID.isNull() && !r.ACNumber.isNull() && !r.BankSoftACNumber.isNull());
        FUZZ_CHECK(!DownloadFields::contentProblem(r, QString(), line).has_value());
    }
    if (records.isEmpty()) {
        FUZZ_CHECK(file.BranchID().isEmpty() && file.AgentID().isEmpty());
        return;
    }
    // The last record names the agent every stored row is kept under.
    FUZZ_CHECK(file.BranchID() == records.last().BranchID);
    FUZZ_CHECK(file.AgentID() == records.last().AgentID);
    FUZZ_CHECK(!file.AgentID().trimmed().isEmpty());

    // A file the send accepts (read, and no field a frame needs missing)
    // can be sent: every frame can be built, at its full length. Anything
    // else would fail after the terminal gave up the accounts it held.
    if (file.frameProblem())
        return;
    LinkCodec codec;
    try {
        DownloadJob job;
        job.agentDateKey = QStringLiteral("0051611");
        job.branchId = file.BranchID();
        job.agentId = file.AgentID();
        job.recordCount = file.recordCount();
        job.transactions = QStringLiteral("1");
        job.downloadPassword = QStringLiteral("5678");
        job.setupPassword = QStringLiteral("1234");
        job.bankName = DownloadFrames::paddedBankName(QStringLiteral("BANK"));
        job.branchName = DownloadFrames::paddedBranchName(QStringLiteral("BRANCH"));
        job.fontSize = QStringLiteral("0");
        const QByteArray header = DownloadFrames::header(job, QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30)), codec);
        FUZZ_CHECK_SAYS(header.size() == 137, QStringLiteral("header of %1 bytes").arg(header.size()));
        for (qsizetype i = 0; i < records.size(); ++i) {
            const QByteArray frame = DownloadFrames::record(accountOf(records.at(i)), static_cast<int>(i) + 1, codec);
            FUZZ_CHECK_SAYS(frame.size() == 137,
                            QStringLiteral("record %1: frame of %2 bytes").arg(i + 1).arg(frame.size()));
        }
    } catch (const LinkError& e) {
        FuzzSupport::broken(__FILE__, __LINE__, "an accepted file cannot be sent", e.message());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QByteArray bytes = FuzzSupport::bytes(data, size);
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    DownloadFile file;
    if (file.ReadDownLoadFile(buffer))
        checkRead(file);
    else
        checkFailed(file);

    // The same reader used again: nothing of the first read is left over.
    QByteArray empty;
    QBuffer none(&empty);
    none.open(QIODevice::ReadOnly);
    FUZZ_CHECK(file.ReadDownLoadFile(none));
    FUZZ_CHECK(file.records().isEmpty() && file.AgentID().isEmpty());
    return 0;
}
