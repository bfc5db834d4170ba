#pragma once

#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"

#include <QDir>
#include <QTimer>

// A terminal in download mode that acknowledges every frame with the frame's
// own record number (bytes 8 and 9; the header and "OVER" carry 00 00), or
// one that answers every frame with a fixed reply.
class FakeTerminal : public FakeChannel
{
    Q_OBJECT
public:
    void write(const QByteArray& bytes) override
    {
        FakeChannel::write(bytes);
        if (bytes.isEmpty() || silent)
            return;
        QByteArray answer = fixedReply;
        if (answer.isEmpty()) {
            answer = QByteArray(8, '\0') + bytes.mid(7, 2) + QByteArray("AACK");
        }
        QTimer::singleShot(0, this, [this, answer] {
            if (isOpen())
                feed(answer);
        });
    }

    bool silent = false;
    QByteArray fixedReply;
};

// Settings a download needs, and a fake terminal behind the context's link.
// *terminal is set when the link is made; *silent is read then, so a test
// may change it until the first send.
inline void prepareSendContext(TestContext& t, FakeTerminal** terminal, const bool* silent)
{
    t.ctx->settings.BankInfoPath = t.path(QStringLiteral("bank"));
    t.ctx->settings.BankName = QStringLiteral("STATE BANK");
    t.ctx->settings.BranchName = QStringLiteral("MAIN ROAD");
    t.ctx->settings.FontSize = QStringLiteral("0");
    QDir().mkpath(t.ctx->settings.BankInfoPath);
    t.ctx->setChannelFactory([terminal, silent] {
        auto fake = std::make_unique<FakeTerminal>();
        *terminal = fake.get();
        fake->silent = *silent;
        return std::unique_ptr<LinkChannel>(std::move(fake));
    });
}
