#pragma once

#include "link/LinkChannel.h"
#include "link/LinkPort.h"
#include "link/LinkState.h"
#include "link/LinkTrace.h"
#include "store/AppSettings.h"

#include <QString>
#include <functional>
#include <memory>

class Clock;
class Messenger;
class SharedDatabase;

// What the whole program shares: the database handle, the settings copy, the
// login target and the one port to the terminal (LinkPort, with the link
// state), plus the seams (messages, clock) that differ between the desktop
// program, the command-line tool and the tests. Created once and handed to
// every screen; protocol sessions get only the port and the clock.
class AppContext
{
    // Declared first: `link` below refers into it.
    LinkPort m_port;

public:
    AppContext(SharedDatabase& db, Messenger& messenger, Clock& clock);
    ~AppContext();
    AppContext(const AppContext&) = delete;
    AppContext& operator=(const AppContext&) = delete;

    SharedDatabase& db() { return m_db; }
    Messenger& messenger() { return m_messenger; }
    Clock& clock() { return m_clock; }
    LinkPort& port() { return m_port; }

    AppSettings settings;     // AppSettings
    bool LoginTarget = false; // false: configuration, true: folder selection
    bool LoginPassed = false;
    LinkState& link; // the port's program-wide link state

    // The folder holding the database, DownLoadData, BackupData and ports.ini.
    QString dataDir;
    // A device named on the command line, used instead of the Comm Port.
    QString portOverride;

    // Starts writing the link trace; false with a reason on failure.
    bool startTrace(const QString& path, QString* error);
    LinkTrace* trace() { return m_port.trace(); }

    // The device the configured Comm Port (or --port) means, and where it
    // came from.
    PortChoice portChoice() const;
    QString portDevice() const { return portChoice().device; }

    // The one link to the terminal (a serial port unless a test put in its
    // own). openCommPort() closes it if open and opens it on the current
    // device; false with a message naming the device and the reason.
    LinkChannel& channel() { return m_port.channel(); }
    bool openCommPort(QString* error) { return m_port.reopen(error); }
    // The same, recording which session now talks to the terminal. Only one
    // screen talks to it at a time: the last to open the port. The others
    // must neither read, write nor close it.
    bool openCommPort(QString* error, QObject* owner) { return m_port.open(owner, error); }
    bool ownsLink(const QObject* who) const { return m_port.holds(who); }
    // Closes the port if `who` is the session that opened it last.
    void releaseLink(const QObject* who) { m_port.release(who); }
    void setChannelFactory(std::function<std::unique_ptr<LinkChannel>()> factory)
    {
        m_port.setChannelFactory(std::move(factory));
    }

    // A path inside the data folder ("DownLoadData", "BackupData", ...).
    QString dataPath(const QString& name) const;

private:
    SharedDatabase& m_db;
    Messenger& m_messenger;
    Clock& m_clock;
};
