#include "vornServerComponents.h"

#include "bbvorni/bbVorni.h"
#include "dunlfaulthandler/dunlFaultHandler.h"
#include "luvek/vornServerLuvek.h"
#include "rhune/rhune.h"
#include "vornServerCapabilities.h"
#include "vornServerDunl.h"
#include "vornServerFaultHandling.h"
#include "vornServerFdf.h"
#include "vornServerFesk.h"
#include "vornServerGanti.h"
#include "vornServerHereIAm.h"
#include "vornServerHwLog.h"
#include "vornServerLinkSupervision.h"
#include "vornServerMaintState.h"
#include "vornServerMmiHandling.h"
#include "vornServerOpticalIndicatorControl.h"
#include "vornServerPid.h"
#include "vornServerRestart.h"
#include "vornServerState.h"
#include "vornServerTemperature.h"
#include "vornServerTime.h"
#include "vornServerVisual.h"
#include "vornServerYarrowI.h"

std::vector<std::unique_ptr<VornServerComponent>> makeComponents(VornServerCommonData& commonData)
{
    std::vector<std::unique_ptr<VornServerComponent>> components;
    components.push_back(std::make_unique<VornServerPid>(commonData));
    components.push_back(std::make_unique<VornServerState>(commonData));
    components.push_back(std::make_unique<VornServerLinkSupervision>(commonData));
    components.push_back(std::make_unique<VornServerRestart>(commonData));
    components.push_back(std::make_unique<VornServerTemperature>(commonData));
    components.push_back(std::make_unique<VornServerTime>(commonData));
    components.push_back(std::make_unique<VornServerCapabilities>(commonData));
    components.push_back(std::make_unique<VornServerMaintState>(commonData));
    components.push_back(std::make_unique<VornServerVisual>(commonData));
    components.push_back(std::make_unique<VornServerDunl>(commonData));
    components.push_back(std::make_unique<VornServerFesk>(commonData));
    components.push_back(std::make_unique<VornServerMmiHandling>(commonData));
    components.push_back(std::make_unique<VornServerGanti>(commonData));
    components.push_back(std::make_unique<VornServerHereIAm>(commonData));
    components.push_back(std::make_unique<VornServerOpticalIndicatorControl>(commonData));
    components.push_back(std::make_unique<VornServerHwLog>(commonData));
    components.push_back(std::make_unique<VornServerFaultHandling>(commonData));
    components.push_back(std::make_unique<DunlFaultHandler>(commonData));
    auto bbVorni = std::make_unique<VornServer::BbVorni::BbVorni>(commonData);
    commonData.setBbVorniClient(*bbVorni);
    components.push_back(std::move(bbVorni));
    components.push_back(std::make_unique<VornServer::Rhune::Rhune>(commonData));
    components.push_back(std::make_unique<VornServerLuvek>(commonData));
    components.push_back(std::make_unique<VornServerFdf>(commonData));
    components.push_back(std::make_unique<VornServerYarrowI>(commonData));
    return components;
}
