// Writes the fuzz targets' seed corpus from the tests' own data: the sample
// download file, download lines built as the download tests build them, and
// replies built byte for byte as the receive tests build them.
//
//   fuzz_corpus_maker DIR     (DIR is fuzz/corpus; existing seeds are overwritten)
#include "link/DownloadFrames.h"
#include "link/UploadFrames.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/upload/ReplyBytes.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <cstdio>

namespace {

QString root;
int failures = 0;

void seed(const QString& target, const QString& name, const QByteArray& bytes)
{
    const QString folder = QDir(root).filePath(target);
    QDir().mkpath(folder);
    QFile file(QDir(folder).filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        std::fprintf(stderr, "cannot write %s: %s\n", qPrintable(file.fileName()), qPrintable(file.errorString()));
        ++failures;
    }
}

QByteArray sampleDownloadFile()
{
    QFile file(QStringLiteral(DOWNLOAD_FIXTURES "/0051611d.txt"));
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(file.fileName()));
        ++failures;
        return {};
    }
    return file.readAll();
}

QByteArray entry(const QByteArray& hex)
{
    return QByteArray::fromHex(hex);
}

// The receive tests' usual day: a header of `records`, a summary of agent
// 005 on 16/11, and transaction records of accounts 101, 102, ...
QList<QByteArray> receiveReplies(int records)
{
    QList<QByteArray> replies;
    replies << ReplyBytes::headerRecord(records, "AG0005");
    replies << ReplyBytes::summaryRecord("005", "1611", records, QByteArray::fromHex("00000150"));
    for (int n = 0; n < records; ++n) {
        const QByteArray account = QByteArray::number(101 + n).rightJustified(15, '0');
        const QByteArray txn = QByteArray::number(n + 1, 16).rightJustified(4, '0');
        replies << ReplyBytes::transactionRecord("1", "DDS01", account, {entry("000050 16B7 0900 " + txn)}, '\x01');
    }
    return replies;
}

// A step of the upload session's input: n bytes arriving.
QByteArray arrive(const QByteArray& bytes)
{
    QByteArray step;
    step += '\x00';
    step += static_cast<char>(bytes.size());
    return step + bytes;
}

void downloadSeeds()
{
    const QByteArray sample = sampleDownloadFile();
    const QByteArray three = accountsFile(3);
    const QByteArray good = AccountLine().bytes();
    const QString head30 = QStringLiteral("H").repeated(30);
    const QString item65 = QStringLiteral("1").repeated(65);
    const QString item46 = QStringLiteral("2").repeated(46);
    seed("fuzz_download_file", "sample_0051611d.txt", sample);
    seed("fuzz_download_file", "three_accounts_crlf.txt", three);
    seed("fuzz_download_file", "three_accounts_lf.txt",
         joinLines({AccountLine::numbered(1).bytes(), AccountLine::numbered(2).bytes()}, "\n"));
    seed("fuzz_download_file", "short_last_line.txt", joinLines({good, good.left(120)}));
    seed("fuzz_download_file", "split_record.txt", (head30 + "\r\n" + item65 + "\r\n").toLatin1() + joinLines({good}));
    seed("fuzz_download_file", "split_record_46.txt",
         (head30 + "\r\n" + item46 + "\r\n").toLatin1() + joinLines({good}));
    seed("fuzz_download_file", "ends_inside_split_record.txt", joinLines({good, QByteArray(30, 'H')}));

    seed("fuzz_sequential_input", "sample_0051611d.txt", sample);
    seed("fuzz_sequential_input", "split_record.txt", (head30 + "\r\n" + item65 + "\r\n").toLatin1());
    seed("fuzz_sequential_input", "list_items.txt", "  a , \"quoted, item\" tail,b\r\n\"open\rlast  ");
    seed("fuzz_sequential_input", "mixed_line_ends.txt", "one\rtwo\nthree\r\nfour");

    // One account's fields a line, as the download frames take them.
    for (const AccountLine& a : {AccountLine(), AccountLine::numbered(2000)}) {
        const QList<QByteArray> fields{a.category.toLatin1(),
                                       a.scheme.toLatin1(),
                                       a.acNumber.toLatin1(),
                                       a.name.toLatin1(),
                                       a.balance.toLatin1(),
                                       a.agreed.toLatin1(),
                                       "011105",
                                       "151107",
                                       "1",
                                       "0",
                                       "1"};
        seed("fuzz_download_frames", QStringLiteral("account_%1.txt").arg(a.acNumber.right(4)), fields.join('\n'));
    }
    seed("fuzz_download_frames", "blank_dates.txt",
         "1\nDDS01\n000000000000101\nRAMESH KUMAR\n00012345\n00100\n      \n\n7\n-1\n12");
}

void linkSeeds()
{
    const QList<QByteArray> replies = receiveReplies(3);
    seed("fuzz_upload_frames", "header.bin", replies.at(0));
    seed("fuzz_upload_frames", "summary.bin", replies.at(1));
    seed("fuzz_upload_frames", "transaction.bin", replies.at(2));
    seed("fuzz_upload_frames", "beyond_last.bin", ReplyBytes::transactionRecord("", "", "", {}, '\0'));
    seed("fuzz_upload_frames", "request_2001.bin", UploadFrames::request(2001));
    seed("fuzz_upload_frames", "end.bin", UploadFrames::end());

    seed("fuzz_link_codec", "packed_45.txt", "45");
    seed("fuzz_link_codec", "record_count_2000.txt", "2000");
    seed("fuzz_link_codec", "reply.bin", replies.at(2));
    LinkCodec codec;
    DownloadAccount account;
    account.categoryCode = QStringLiteral("1");
    account.schemeCode = QStringLiteral("DDS01");
    account.acNumber = QStringLiteral("000000000000101");
    account.acName = QStringLiteral("RAMESH KUMAR");
    account.balAmount = QStringLiteral("00012345");
    account.agreedAmount = QStringLiteral("00100");
    account.openingDate = QStringLiteral("010405");
    account.txnDate = QStringLiteral("151107");
    seed("fuzz_link_codec", "download_record.bin", DownloadFrames::record(account, 1, codec));

    // Whole receives as the terminal answers them, one reply at a time, in
    // pieces, with a damaged reply asked again, and a late second answer.
    QByteArray whole;
    for (const QByteArray& r : replies)
        whole += arrive(r);
    seed("fuzz_upload_session", "three_records.bin", whole + arrive(replies.last()) + "\x05");
    QByteArray pieces;
    for (const QByteArray& r : replies)
        pieces += arrive(r.left(100)) + arrive(r.mid(100));
    seed("fuzz_upload_session", "replies_in_pieces.bin", pieces);
    QByteArray damaged = replies.at(2);
    damaged[136] = static_cast<char>(damaged.at(136) + 1);
    seed("fuzz_upload_session", "damaged_then_good.bin",
         arrive(replies.at(0)) + arrive(replies.at(1)) + arrive(damaged) + "\x06" + arrive(replies.at(2)) +
             arrive(replies.at(3)) + arrive(replies.at(4)));
    seed("fuzz_upload_session", "nack_and_timeouts.bin", arrive("NACK") + "\x04\x04\x05" + arrive(replies.at(0)));
    seed("fuzz_upload_session", "late_reply.bin",
         arrive(replies.at(0)) + arrive(replies.at(1)) + arrive(replies.at(2)) + arrive(replies.at(1)) +
             arrive(replies.at(3)) + arrive(replies.at(4)));

    // The decoders: entries and whole transaction records.
    QByteArray records;
    for (int i = 2; i < replies.size(); ++i)
        records += replies.at(i);
    seed("fuzz_restore_decode", "three_records.bin", records);
    seed("fuzz_restore_decode", "two_entries.bin",
         ReplyBytes::transactionRecord("S", "DD001", "000000000000101",
                                       {entry("000005 16B7 0900 0001"), entry("000005 16B7 0901 0002")}, '\x02'));
    seed("fuzz_restore_decode", "account_only.bin",
         ReplyBytes::transactionRecord("S", "DD001", "000000000000101", {}, '\x20') +
             ReplyBytes::transactionRecord("S", "DD001", "000000000000102", {entry("000007 16B7 0902 0003")}, '\x01'));
    seed("fuzz_restore_decode", "entries.bin",
         entry("000000 05371430 0001") + entry("999999 31C92359 270F") + entry("001234 01730000 018A"));

    seed("fuzz_ports_ini", "ports.ini", "# ports of this PC\n[ports]\n1=/dev/ttyUSB0\n2 = /dev/ttyS1\n; 3=/dev/null\n");
    seed("fuzz_ports_ini", "windows_lines.ini", "1=/dev/ttyACM0\r\n10=/dev/pts/4\r\n");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_corpus_maker DIR\n");
        return 2;
    }
    root = QString::fromLocal8Bit(argv[1]);
    downloadSeeds();
    linkSeeds();
    return failures == 0 ? 0 : 1;
}
