// The upload session's reply handling, driven through a fake channel: the
// input is what the terminal sends, in pieces, with the session's timers
// firing and the clerk's answers in between.
//
// Input: a sequence of steps, each one byte and what it needs:
//   op % 8 in 0..3  the next byte is a length n, then n bytes arrive
//   op % 8 == 4     the reply time-out (Timer1) fires, when it runs
//   op % 8 == 5     the idle resend (Timer3) fires, when it runs
//   op % 8 == 6     the line went quiet after a failed check (flush timer)
//   op % 8 == 7     the clerk: (op / 8) % 4 is Receive, OK, Cancel, stop
#include "base/Clock.h"
#include "fuzz/FuzzSupport.h"
#include "link/LinkCodec.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "tests/support/FakeChannel.h"

TONVY_FUZZ_START()

namespace {

struct Watch
{
    int finished = 0;
    qsizetype framesChecked = 0;
};

bool checkByteGood(const QByteArray& reply)
{
    int sum = 0;
    for (int i = 9; i < 137; ++i)
        sum += static_cast<unsigned char>(reply.at(i));
    return (sum & 0xFF) == 0;
}

// Every record kept is a whole reply that passed its check. (The whole
// array is 2,501 records: looked over when a receive finishes and at the
// end, not after every step.)
void checkRecords(const LinkState& link)
{
    for (int i = 0; i < link.Records.size(); ++i) {
        const QByteArray& r = link.Records.at(i);
        if (r.isEmpty())
            continue;
        FUZZ_CHECK_SAYS(r.size() >= UploadFrames::ReplySize,
                        QStringLiteral("record %1 of %2 bytes").arg(i).arg(r.size()));
        FUZZ_CHECK_SAYS(checkByteGood(r), QStringLiteral("record %1 kept with a bad check byte").arg(i));
    }
}

void checkFinished(UploadSession& session, const LinkState& link)
{
    // Finished: every record from the header to the last one is in.
    FUZZ_CHECK(session.phase() == UploadSession::Phase::Done);
    FUZZ_CHECK(link.completion.isComplete());
    const int last = session.recordNo();
    FUZZ_CHECK(last >= 2);
    const int received = last - 1;
    FUZZ_CHECK(received == session.summary().TotalRecords || received == UploadSession::RecordCeiling);
    for (int i = 0; i <= last; ++i)
        FUZZ_CHECK_SAYS(!link.Records.at(i).isEmpty(), QStringLiteral("record %1 missing at the end").arg(i));
    checkRecords(link);
}

void checkStep(UploadSession& session, FakeChannel& channel, Watch& watch)
{
    // Only requests for records a receive can hold, and the end frame, go out.
    for (; watch.framesChecked < channel.written.size(); ++watch.framesChecked) {
        const QByteArray& frame = channel.written.at(watch.framesChecked);
        if (frame == UploadFrames::end())
            continue;
        const int asked = UploadFrames::requestedRecord(frame);
        FUZZ_CHECK_SAYS(asked >= 0 && asked < LinkState::RecordsSize,
                        QStringLiteral("frame %1").arg(QString::fromLatin1(frame.toHex(' '))));
    }
    FUZZ_CHECK(session.recordNo() >= -1 && session.recordNo() < LinkState::RecordsSize);
    FUZZ_CHECK(session.summary().TotalRecords >= 0 && session.summary().TotalRecords <= 32767);
    if (session.phase() == UploadSession::Phase::Stopped)
        FUZZ_CHECK(!session.isBusy());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FixedClock clock(QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30)));
    LinkPort port;
    FakeChannel* channel = nullptr;
    port.setChannelFactory([&channel] {
        auto c = std::make_unique<FakeChannel>();
        channel = c.get();
        return c;
    });
    UploadSession session(port, clock);
    Watch watch;
    QObject::connect(&session, &UploadSession::finished, [&] {
        ++watch.finished;
        checkFinished(session, port.state());
    });
    FUZZ_CHECK(session.Form_Load());
    FUZZ_CHECK(channel != nullptr);
    session.cmdSend_Click();
    FUZZ_CHECK(UploadFrames::requestedRecord(channel->lastWritten()) == 0);

    std::size_t at = 0;
    int steps = 0;
    while (at < size && steps++ < 4096) {
        const std::uint8_t op = data[at++];
        switch (op % 8) {
        case 0:
        case 1:
        case 2:
        case 3: {
            const std::size_t wanted = at < size ? data[at++] : 0;
            const std::size_t n = std::min(wanted, size - at);
            channel->feed(FuzzSupport::bytes(data + at, n));
            at += n;
            break;
        }
        case 4:
            if (session.timer1().isActive())
                session.Timer1_Timer();
            break;
        case 5:
            if (session.timer3().isActive())
                session.Timer3_Timer();
            break;
        case 6:
            if (session.flushTimer().isActive())
                session.FlushTimer_Timer();
            break;
        case 7:
            switch ((op / 8) % 4) {
            case 0:
                session.cmdSend_Click();
                break;
            case 1:
                session.answerCrcQuestion(true);
                break;
            case 2:
                session.answerCrcQuestion(false);
                break;
            case 3:
                session.stop();
                break;
            }
            break;
        }
        checkStep(session, *channel, watch);
    }
    checkRecords(port.state());
    if (session.phase() == UploadSession::Phase::Done)
        checkFinished(session, port.state());
    session.closePort();
    return 0;
}
