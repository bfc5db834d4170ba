#pragma once

#include "link/LinkState.h"
#include "link/LinkTrace.h"
#include "link/PortResolver.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>

class LinkChannel;

// The one port to the terminal and everything that belongs to it: the
// channel (a serial port unless a test puts in its own), the program-wide
// link state the send and receive sides share, the trace, which device the
// configured Comm Port means, and which session holds the port now.
//
// Only one session talks to the terminal at a time: the last one to open
// the port. Its handlers get the receive events and port failures; a
// session that loses the port to another is told once (`taken`) and gets
// nothing more, so sessions need no checks of their own.
class LinkPort : public QObject
{
    Q_OBJECT
public:
    struct Handlers
    {
        std::function<void()> dataArrived;                  // bytes are waiting
        std::function<void(const QString& message)> failed; // the port failed; it is closed already
        std::function<void()> taken;                        // another session opened the port
    };

    explicit LinkPort(QObject* parent = nullptr);
    ~LinkPort() override;

    LinkState& state() { return m_state; }

    // Which device to open and where it came from (the Comm Port setting,
    // ports.ini or --port); asked at every open.
    void setDeviceLookup(std::function<PortChoice()> lookup) { m_deviceLookup = std::move(lookup); }
    PortChoice choice() const;
    QString device() const { return choice().device; }

    // Starts writing the link trace; false with a reason on failure.
    bool startTrace(const QString& path, QString* error);
    LinkTrace* trace() { return m_trace.isOpen() ? &m_trace : nullptr; }

    // Tests put in their own channel; the current one is dropped.
    void setChannelFactory(std::function<std::unique_ptr<LinkChannel>()> factory);
    LinkChannel& channel();

    // Closes the port if open and opens it on the current device with
    // whatever was waiting in its input thrown away; `holder` is recorded as
    // the session that now talks to the terminal, and `handlers` get its
    // events. False with a message naming the device and the reason.
    bool open(QObject* holder, Handlers handlers, QString* error);
    // The same without handlers (the session connects to channel() itself).
    bool open(QObject* holder, QString* error) { return open(holder, Handlers(), error); }
    // Reopens without changing who holds the port.
    bool reopen(QString* error);

    // True when `who` holds the port, or nobody does.
    bool holds(const QObject* who) const { return !m_holder || m_holder == who; }
    QObject* holder() const { return m_holder.data(); }
    // Closes the port if `who` holds it; nobody holds it afterwards.
    void release(const QObject* who);

    // Writes to the port if `who` holds it.
    void write(const QObject* who, const QByteArray& bytes);

private:
    void attach(LinkChannel& channel);
    void onData();
    void onFailed(const QString& message);

    LinkState m_state;
    LinkTrace m_trace;
    std::function<PortChoice()> m_deviceLookup;
    std::function<std::unique_ptr<LinkChannel>()> m_channelFactory;
    std::unique_ptr<LinkChannel> m_channel;
    QPointer<QObject> m_holder;
    Handlers m_handlers;
};
