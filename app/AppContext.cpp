#include "AppContext.h"

#include "PathUtil.h"
#include "PortResolver.h"
#include "SerialLink.h"

AppContext::AppContext(SharedDatabase& db, Messenger& messenger, Clock& clock)
    : m_db(db), m_messenger(messenger), m_clock(clock)
{
}

AppContext::~AppContext() = default;

bool AppContext::startTrace(const QString& path, QString* error)
{
    return m_trace.open(path, error);
}

QString AppContext::portDevice() const
{
    return PortResolver::resolve(settings.CommPort, dataDir, portOverride);
}

LinkChannel& AppContext::channel()
{
    if (!m_channel) {
        if (m_channelFactory) {
            m_channel = m_channelFactory();
        } else {
            auto serial = std::make_unique<SerialLink>();
            serial->setTrace(trace());
            m_channel = std::move(serial);
        }
    }
    return *m_channel;
}

bool AppContext::openCommPort(QString* error)
{
    LinkChannel& link = channel();
    if (auto* serial = qobject_cast<SerialLink*>(&link))
        serial->setDevice(portDevice());
    return link.open(error);
}

bool AppContext::openCommPort(QString* error, QObject* owner)
{
    m_linkOwner = owner;
    return openCommPort(error);
}

void AppContext::releaseLink(const QObject* who)
{
    if (!m_linkOwner || m_linkOwner != who)
        return;
    m_linkOwner.clear();
    if (m_channel && m_channel->isOpen())
        m_channel->close();
}

void AppContext::setChannelFactory(std::function<std::unique_ptr<LinkChannel>()> factory)
{
    m_channel.reset();
    m_channelFactory = std::move(factory);
}

QString AppContext::dataPath(const QString& name) const
{
    return PathUtil::join(dataDir, name);
}
