#include "rhune.h"

#include "rhuneClient.h"
#include "rhuneConnClose.h"
#include "rhuneConnEstablish.h"
#include "rhuneFaultFwd.h"

namespace VornServer::Rhune {

struct Rhune::Impl {
    explicit Impl(VornServerCommonData& commonData) : faultFwd(client, commonData.getFaultManager()) {}

    RhuneClient client;
    bool initialized = false;
    RhuneConnEstablish connEstablish{client};
    RhuneConnClose connClose{client};
    RhuneFaultFwd faultFwd;
};

Rhune::Rhune(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_impl(std::make_unique<Impl>(commonData))
{
}

Rhune::~Rhune()
{
    m_impl->faultFwd.removeMessageHandlers();
    m_impl->connClose.removeMessageHandlers();
    m_impl->connEstablish.removeMessageHandlers();
    m_impl->client.removeMessageHandlers();
}

bool Rhune::init()
{
    TRACE_1("Rhune::init()");
    m_impl->client.initialize();
    m_impl->connEstablish.addMessageHandlers();
    m_impl->connClose.addMessageHandlers();
    m_impl->faultFwd.addMessageHandlers();
    m_impl->initialized = true;
    return true;
}

bool Rhune::isReadyToPublish() const
{
    TRACE_1("Returning: {}", m_impl->initialized);
    return m_impl->initialized;
}

} // namespace VornServer::Rhune
