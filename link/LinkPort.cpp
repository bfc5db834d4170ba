#include "link/LinkPort.h"

#include "link/LinkChannel.h"
#include "link/SerialLink.h"

LinkPort::LinkPort(QObject* parent) : QObject(parent) {}

LinkPort::~LinkPort()
{
    m_handlers = Handlers();
    m_holder.clear();
    m_channel.reset();
}

PortChoice LinkPort::choice() const
{
    return m_deviceLookup ? m_deviceLookup() : PortChoice();
}

bool LinkPort::startTrace(const QString& path, QString* error)
{
    return m_trace.open(path, error);
}

void LinkPort::setChannelFactory(std::function<std::unique_ptr<LinkChannel>()> factory)
{
    m_channel.reset();
    m_channelFactory = std::move(factory);
}

LinkChannel& LinkPort::channel()
{
    if (!m_channel) {
        if (m_channelFactory) {
            m_channel = m_channelFactory();
        } else {
            auto serial = std::make_unique<SerialLink>();
            serial->setTrace(trace());
            m_channel = std::move(serial);
        }
        attach(*m_channel);
    }
    return *m_channel;
}

void LinkPort::attach(LinkChannel& channel)
{
    connect(&channel, &LinkChannel::dataArrived, this, &LinkPort::onData);
    connect(&channel, &LinkChannel::failed, this, &LinkPort::onFailed);
}

bool LinkPort::reopen(QString* error)
{
    LinkChannel& link = channel();
    if (auto* serial = qobject_cast<SerialLink*>(&link)) {
        serial->setChoice(choice());
        serial->setTrace(trace());
    }
    return link.open(error);
}

bool LinkPort::open(QObject* holder, Handlers handlers, QString* error)
{
    QPointer<QObject> previous = m_holder;
    Handlers previousHandlers = std::move(m_handlers);
    m_holder = holder;
    m_handlers = std::move(handlers);
    // The one that had the port is told before anything of the new holder
    // happens on it, so that its timers are off by then.
    if (previous && previous != holder && previousHandlers.taken)
        previousHandlers.taken();
    return reopen(error);
}

void LinkPort::release(const QObject* who)
{
    if (!m_holder || m_holder != who)
        return;
    m_holder.clear();
    m_handlers = Handlers();
    if (m_channel && m_channel->isOpen())
        m_channel->close();
}

void LinkPort::write(const QObject* who, const QByteArray& bytes)
{
    if (holds(who))
        channel().write(bytes);
}

void LinkPort::onData()
{
    if (!m_holder && m_handlers.dataArrived) {
        // The holder is gone (deleted without releasing): nobody reads.
        m_handlers = Handlers();
        return;
    }
    // Copied: the handler may open the port for someone else or release it.
    const auto dataArrived = m_handlers.dataArrived;
    if (dataArrived)
        dataArrived();
}

void LinkPort::onFailed(const QString& message)
{
    if (!m_holder) {
        m_handlers = Handlers();
        return;
    }
    // Copied: the handler may open the port for someone else or release it.
    const auto failed = m_handlers.failed;
    if (failed)
        failed(message);
}
