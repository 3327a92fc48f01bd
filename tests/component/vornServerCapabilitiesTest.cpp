/// The capabilities as they come through the connectors; what each record holds is tested with the component alone.

#include "dunl/dunl.pb.h"
#include "ganti/ganti.pb.h"
#include "unit.h"
#include "vorni/capabilities.h"

using namespace TestUnit;
using namespace tolme;

namespace {

class VornServerCapabilitiesOfUnitTest : public UnitTest
{
protected:
    VornServerCapabilitiesOfUnitTest()
    {
        unit.dunlCapabilities = {dunl::HW_PID, dunl::UTC_TIME, dunl::MARKET_PID};
        unit.gantiCapabilities->mutable_lockable_resource_sw_store_support();
        unit.bringUp();
    }

    static std::vector<std::uint16_t> ask(Client& client)
    {
        client.send<OmlaVornGetCapabilitiesReqS>();
        const Received received = client.expectNumber(OmlaVornGetCapabilitiesCfmS::number);
        EXPECT_EQ(received.sender(), client.publicMbox());
        const auto& cfm = *viewSignal<OmlaVornGetCapabilitiesCfmS>(received.get());
        EXPECT_GE(received.size(), sizeof(cfm) + cfm.noOfRecords * sizeof(VornCapabilityRecordS));
        const auto* records = reinterpret_cast<const VornCapabilityRecordS*>(&cfm + 1);
        std::vector<std::uint16_t> numbers;
        for (unsigned i = 0; i < cfm.noOfRecords; ++i) {
            numbers.push_back(records[i].number);
        }
        return numbers;
    }
};

using Numbers = std::vector<std::uint16_t>;

TEST_F(VornServerCapabilitiesOfUnitTest, when_the_board_servers_connect_twice_then_what_they_can_do_is_told_twice)
{
    Client& client = unit.connect();
    const Numbers once{11, 12, 3, 25, 42, 47};
    EXPECT_EQ(ask(client), once);
    EXPECT_EQ(ask(unit.addClient()), once) << "without a session";
    unit.dunl.die();
    unit.fesk.die();
    unit.settle();
    unit.connectDunl();
    unit.connectFesk();
    unit.settle();
    EXPECT_EQ(ask(client), (Numbers{11, 12, 3, 25, 3, 25, 42, 47}));
}

} // namespace
