#include "core/AppContext.h"

#include "base/PathUtil.h"
#include "link/PortResolver.h"
#include "store/SharedDatabase.h"

AppContext::AppContext(SharedDatabase& db, Messenger& messenger, Clock& clock)
    : link(m_port.state()), m_db(db), m_messenger(messenger), m_clock(clock)
{
    m_port.setDeviceLookup([this] { return portChoice(); });
    // Events the store records itself (settings, passwords, downloads) carry
    // the program's clock too.
    m_db.setClock(&m_clock);
}

AppContext::~AppContext() = default;

bool AppContext::startTrace(const QString& path, QString* error)
{
    return m_port.startTrace(path, error);
}

PortChoice AppContext::portChoice() const
{
    return PortResolver::choose(settings.CommPort, dataDir, portOverride);
}

QString AppContext::dataPath(const QString& name) const
{
    return PathUtil::join(dataDir, name);
}
