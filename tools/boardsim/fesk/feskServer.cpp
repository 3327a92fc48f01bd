#include "tools/boardsim/fesk/feskServer.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"

namespace boardsim {

using namespace tolme::fesk;

FeskServer::FeskServer() : ProtobufServer("fesk", ServerMetadata().name(), messages)
{
    add(m_capabilities);
    add(m_mmiUsers);

    onConnect<ConnEstablishReq, ConnEstablishCfm, ConnEstablishRej>();

    on<GetCapabilitiesReq>(m_capabilities, &FeskCapabilities::get);

    on<RegisterMmiUserReq>(m_mmiUsers, &MmiUsers::registerUser);
    on<UnregisterMmiUserReq>(m_mmiUsers, &MmiUsers::unregisterUser);
}

} // namespace boardsim
