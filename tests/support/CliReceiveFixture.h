#pragma once

#include "store/SettingsStore.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/DownloadedAccounts.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QtTest>
#include <memory>
#include <signal.h>

// What the tests of 'tonvy-cli receive' share: a fresh data folder that is
// also the bank folder, the simulated terminal answering on a
// pseudo-terminal held by the test, the agent's accounts downloaded, and the
// command run as a separate process while the test keeps answering.
// A test class derives from it and calls setUp() and tearDown() from its
// init() and cleanup().
class CliReceiveFixture
{
protected:
    struct Result
    {
        int exitCode = -1;
        QProcess::ExitStatus status = QProcess::CrashExit;
        QString out;
        QString err;
    };

    QString m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli");
    std::unique_ptr<TestContext> t;
    std::unique_ptr<Pty> pty;
    std::unique_ptr<UploadTerminal> terminal;
    TerminalAccounts accounts;
    UploadRecords records;

    void setUp()
    {
        t = std::make_unique<TestContext>();
        SettingsChange change;
        change.bankInfoPath = t->dir.path();
        change.commPort = QStringLiteral("1");
        SettingsStore::save(t->db, change);
        pty = std::make_unique<Pty>();
        QString error;
        QVERIFY2(pty->open(&error), qPrintable(error));
        terminal = std::make_unique<UploadTerminal>(pty.get());
        terminal->attach();
    }

    void tearDown()
    {
        terminal.reset();
        pty.reset();
        t.reset();
    }

    // Three accounts (or accountCount) of agent 001 on 16 Nov 2007 with five
    // collections on the terminal, the accounts stored as a download leaves
    // them. A bank identifier given replaces the sample's (padded to 15
    // characters).
    void prepare(const UploadRecords::Options& options = {}, const QString& bankAgentId = {}, int accountCount = 3)
    {
        const QDate day(2007, 11, 16);
        accounts = UploadRecords::sampleAccounts(accountCount, day);
        if (!bankAgentId.isEmpty())
            accounts.agentId = bankAgentId.leftJustified(15, QLatin1Char(' '));
        collect(5, 11, options);
        storeAsDownloaded(t->db, accounts);
    }

    // The terminal's collections of the day: count of them, made from seed.
    void collect(int count, quint32 seed, const UploadRecords::Options& options = {})
    {
        const QList<Collection> collections = UploadRecords::generate(accounts, count, QDate(2007, 11, 16), seed);
        QString error;
        QVERIFY2(UploadRecords::build(accounts, collections, options, &records, &error), qPrintable(error));
        terminal->setRecords(records);
    }

    // Runs the command and sends it `signal` as soon as its standard output
    // shows `trigger` (without one, after a second and a half). The terminal
    // stops answering at that moment, so that the receive is still under way
    // when the signal arrives.
    Result receiveInterrupted(const QString& trigger, int signal)
    {
        QProcess p;
        p.start(m_cli, QStringList{QStringLiteral("--data-dir"), t->dir.path(), QStringLiteral("--port"),
                                   pty->devicePath(), QStringLiteral("receive")});
        Result r;
        if (!p.waitForStarted())
            return r;
        bool sent = false;
        // With no text to wait for, the signal goes once the program has
        // asked the terminal for something: by then it has its handlers
        // (a signal any earlier would find a program still starting).
        bool asked = false;
        const QMetaObject::Connection seen =
            QObject::connect(terminal.get(), &UploadTerminal::requestReceived, [&asked] { asked = true; });
        QElapsedTimer clock;
        clock.start();
        while (p.state() != QProcess::NotRunning && clock.elapsed() < scaledMs(30000)) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            p.waitForFinished(5);
            r.out += QString::fromLocal8Bit(p.readAllStandardOutput());
            const bool due = trigger.isEmpty() ? asked : r.out.contains(trigger);
            if (!sent && due) {
                terminal->faults().mute = true;
                ::kill(static_cast<pid_t>(p.processId()), signal);
                sent = true;
            }
        }
        QObject::disconnect(seen);
        QCoreApplication::processEvents();
        terminal->faults().mute = false;
        r.exitCode = p.exitCode();
        r.status = p.exitStatus();
        r.out += QString::fromLocal8Bit(p.readAllStandardOutput());
        r.err = QString::fromLocal8Bit(p.readAllStandardError());
        return r;
    }

    // Runs the command while this process keeps answering on the pty.
    Result receive(const QStringList& options,
                   const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(m_cli, QStringList{QStringLiteral("--data-dir"), t->dir.path(), QStringLiteral("--port"),
                                   pty->devicePath(), QStringLiteral("receive")} +
                           options);
        Result r;
        if (!p.waitForStarted())
            return r;
        QElapsedTimer clock;
        clock.start();
        while (p.state() != QProcess::NotRunning && clock.elapsed() < scaledMs(30000)) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            p.waitForFinished(5);
        }
        QCoreApplication::processEvents();
        r.exitCode = p.exitCode();
        r.status = p.exitStatus();
        r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
        r.err = QString::fromLocal8Bit(p.readAllStandardError());
        return r;
    }
};
