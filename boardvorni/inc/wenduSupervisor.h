/// The seam for a future supervisor of the unit.
#pragma once

#include "faultmanager/faultData.h"
#include "ostinel/activeObject.h"

#include <functional>
#include <memory>

/// Holds what a supervisor needs, a way to report faults and the server thread, and does nothing with it yet.
class WenduSupervisor
{
public:
    using ReportFault = std::function<void(VornServer::FaultData)>;

    WenduSupervisor(const ReportFault& reportFault,
                    const std::shared_ptr<Ostinel::ActiveObject::V1::ActiveObjectIf>& activeObject)
        : m_reportFault(reportFault), m_activeObject(activeObject)
    {
    }

    void start() {}

private:
    ReportFault m_reportFault;
    // Weak: the server thread ends when VornServerImpl lets go of it.
    std::weak_ptr<Ostinel::ActiveObject::V1::ActiveObjectIf> m_activeObject;
};
