#include "tools/boardsim/dunl/connectivity.h"

#include "dunl/dunl.pb.h"

namespace boardsim {

Verdict Connectivity::connected(const Connection&, const tolme::dunl::ConnectivityConnectedReq&,
                                tolme::dunl::ConnectivityConnectedCfm&, tolme::dunl::ConnectivityConnectedRej&)
{
    m_state.isConnected = true;
    return Verdict::confirm;
}

Verdict Connectivity::notConnected(const Connection&, const tolme::dunl::ConnectivityNotConnectedReq&,
                                   tolme::dunl::ConnectivityNotConnectedCfm&, tolme::dunl::ConnectivityNotConnectedRej&)
{
    m_state.isConnected = false;
    return Verdict::confirm;
}

Verdict Connectivity::setSupervisionTimeout(const Connection&,
                                            const tolme::dunl::ConnectivitySetSupervisionTimeoutReq& request,
                                            tolme::dunl::ConnectivitySetSupervisionTimeoutCfm&,
                                            tolme::dunl::ConnectivitySetSupervisionTimeoutRej&)
{
    if (!request.has_supervision_timeout()) {
        return Verdict::reject;
    }
    m_state.supervisionTimeout = request.supervision_timeout();
    return Verdict::confirm;
}

void Connectivity::show(Json& server) const
{
    Json& connectivity = server["connectivity"];
    connectivity["connected"] = m_state.isConnected;
    connectivity["supervisionTimeout"] = m_state.supervisionTimeout ? Json(*m_state.supervisionTimeout) : Json();
}

} // namespace boardsim
