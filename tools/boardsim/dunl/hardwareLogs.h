/// The hardware logs of the board, the node configuration log among them, as clients write and read them.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

namespace boardsim {

/// The logs are kept when the server stops, and when the simulator ends. The node configuration log is written by
/// requests of its own and by no others; it is read like any log. What can't be kept or read is rejected.
class HardwareLogs : public ProtobufProcedures
{
public:
    Verdict set(const Connection&, const tolme::dunl::HwLogSetReq& request, tolme::dunl::HwLogSetCfm&,
                tolme::dunl::HwLogSetRej&);
    Verdict storeNodeConfig(const Connection&, const tolme::dunl::StoreNodeConfigEntryReq& request,
                            tolme::dunl::StoreNodeConfigEntryCfm&, tolme::dunl::StoreNodeConfigEntryRej&);
    Verdict get(const Connection&, const tolme::dunl::HwLogGetReq& request, tolme::dunl::HwLogGetCfm& confirm,
                tolme::dunl::HwLogGetRej& reject);

    void prepareReject(Message& reject) const override;
    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;
};

} // namespace boardsim
