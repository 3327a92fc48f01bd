#include "vornServerComponents.h"

#include "dunlfaulthandler/dunlFaultHandler.h"
#include "rhune/rhune.h"
#include "vornServerDunl.h"
#include "vornServerFaultHandling.h"
#include "vornServerFesk.h"
#include "vornServerGanti.h"
#include "vornServerLinkSupervision.h"
#include "vornServerMmiHandling.h"
#include "vornServerState.h"
#include "vornServerTime.h"
#include "vornServerYarrowI.h"

std::vector<std::unique_ptr<VornServerComponent>> makeComponents(VornServerCommonData& commonData)
{
    std::vector<std::unique_ptr<VornServerComponent>> components;
    components.push_back(std::make_unique<VornServerState>(commonData));
    components.push_back(std::make_unique<VornServerLinkSupervision>(commonData));
    components.push_back(std::make_unique<VornServerTime>(commonData));
    components.push_back(std::make_unique<VornServerDunl>(commonData));
    components.push_back(std::make_unique<VornServerFesk>(commonData));
    components.push_back(std::make_unique<VornServerMmiHandling>(commonData));
    components.push_back(std::make_unique<VornServerGanti>(commonData));
    components.push_back(std::make_unique<VornServerFaultHandling>(commonData));
    components.push_back(std::make_unique<DunlFaultHandler>(commonData));
    components.push_back(std::make_unique<VornServer::Rhune::Rhune>(commonData));
    components.push_back(std::make_unique<VornServerYarrowI>(commonData));
    return components;
}
