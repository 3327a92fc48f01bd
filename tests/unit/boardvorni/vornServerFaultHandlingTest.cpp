/// What no peer can cause in this system: faults of the supervisor, and the visual indication of faults.

#include "vornServerFaultHandling.h"

#include "faultmanager/faultManagerIf.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "serverThread.h"
#include "tolmeClient.h"
#include "vornServerFesk.h"
#include "vorni/faultIds.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace TestUnit;
using namespace tolme;
using VornServer::FaultData;
using VornServer::FaultManagerIf;
using VornServer::FaultSource;
using VornTrace::RecordedTraces;

namespace {

class VornServerFaultHandlingTest : public ::testing::Test
{
protected:
    static std::string eventLog()
    {
        std::ifstream file(std::string(std::getenv("RU_DIR")) + "/log/tyvra.log");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    ServerThread thread;
    VornServerCommonData& commonData{thread.commonData};
    VornServerFaultHandling faultHandling{commonData};
};

TEST_F(VornServerFaultHandlingTest, when_a_fault_of_xcs_is_shown_then_it_stands_in_the_event_log)
{
    ASSERT_TRUE(faultHandling.init());
    FaultData fault;
    fault.source = FaultSource::RHUNE;
    fault.faultId = OMLA_CONST_FH_FAULT_ID_SW_ERROR;
    commonData.getFaultManager().addFault(fault);
    EXPECT_EQ(eventLog(), "");

    fault.source = FaultSource::XCS;
    fault.faultId = OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW;
    fault.faultDescription = "low power";
    fault.faultCase = 9;
    fault.recoveryTime = 60;
    commonData.getFaultManager().addFault(fault);
    EXPECT_NE(eventLog().find(" 191 faultId: 0x710, faultDescription: low power, faultCase: 9, recoveryTime: 60, "
                              "hwFaultLabel: empty\n"),
              std::string::npos)
        << eventLog();
    fault.faultId = OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION;
    fault.hwFaultLabel = "PSU";
    commonData.getFaultManager().addFault(fault);
    EXPECT_NE(eventLog().find("hwFaultLabel: PSU\n"), std::string::npos) << eventLog();
}

TEST_F(VornServerFaultHandlingTest, when_faults_are_to_be_indicated_then_fesk_is_asked_in_the_units_own_name)
{
    faultHandling.setVisualIndication(true);
    EXPECT_TRUE(RecordedTraces::has("Cannot send fesk::SetVisualIndicationReq to the FESK server"));

    VornServerFesk fesk(commonData);
    ASSERT_TRUE(fesk.init());
    BoardServer server{thread.post, "FeskServer"};
    server.appear();
    TolmeClient& client = commonData.getFeskClient();
    thread.handleUntil([&] { return client.isServerFound(); });
    fesk::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    server.sendMessage(kiv_current_mbox(), fesk::MsgNo::ConnEstablishCfm, client.getClientId(), 0x500, cfm);
    thread.settle();
    server.discardAll();
    commonData.setMmiUid(77);

    for (const bool isOn : {true, false}) {
        faultHandling.setVisualIndication(isOn);
        const auto request = server.expect<fesk::SetVisualIndicationReq>(fesk::MsgNo::SetVisualIndicationReq);
        EXPECT_EQ(request.body.visual_state(), isOn ? 9 : 10);
        EXPECT_EQ(request.body.mmi_user_id(), 77U);
        const auto* transaction = client.findTransaction(request.procedureRef);
        ASSERT_NE(transaction, nullptr);
        EXPECT_EQ(transaction->mboxId, 0xFFFFFFFF);
        EXPECT_TRUE(
            RecordedTraces::hasPart("VornServer sends SetVisualIndicationReq to FESK server with procedureRef " +
                                    std::to_string(request.procedureRef) + " and visualState "));
    }
}

} // namespace
