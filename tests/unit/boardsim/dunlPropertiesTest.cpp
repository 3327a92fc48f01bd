// What the simulated board is and can do: product data, and the parameters of capabilities.

#include "boardSimFixture.h"

#include <initializer_list>
#include <map>

namespace {

using namespace boardsim;
using namespace tolme::dunl;

class BoardSimPropertiesTest : public BoardSimTest
{
protected:
    template <typename Cfm>
    Cfm ask(std::uint32_t request, std::uint32_t confirm)
    {
        send("DunlServer", request, 6, m_connection);
        const auto received = expect<Cfm>(confirm);
        EXPECT_EQ(received.procedureRef, 6U);
        return received.body;
    }

    GetProductInfoCfm product() { return ask<GetProductInfoCfm>(MsgNo::GetProductInfoReq, MsgNo::GetProductInfoCfm); }
    GetContainerPidCfm container()
    {
        return ask<GetContainerPidCfm>(MsgNo::GetContainerPidReq, MsgNo::GetContainerPidCfm);
    }
    GetCapabilitiesCfm capabilities()
    {
        return ask<GetCapabilitiesCfm>(MsgNo::GetCapabilitiesReq, MsgNo::GetCapabilitiesCfm);
    }

    void change(std::initializer_list<const char*> lines)
    {
        for (const char* line : lines) {
            EXPECT_EQ(run(line), 0) << line;
        }
    }

    /// Whether all fields are there, with a text that fits its place in each of the legacy signals.
    static void expectWhole(const google::protobuf::Message& data)
    {
        const std::map<std::string, std::size_t> most = {{"product_revision", 7}, {"product_number", 24},
                                                         {"production_date", 8},  {"serial_number", 13},
                                                         {"market_name", 32},     {"product_name", 20}};
        const auto& descriptor = *data.GetDescriptor();
        for (int i = 0; i < descriptor.field_count(); ++i) {
            const std::string text = data.GetReflection()->GetString(data, descriptor.field(i));
            const auto limit = most.find(descriptor.field(i)->name());
            EXPECT_FALSE(text.empty()) << descriptor.field(i)->name();
            EXPECT_TRUE(limit == most.end() || text.size() <= limit->second) << text;
        }
    }

    std::uint32_t m_connection = connectDunl();
};

TEST_F(BoardSimPropertiesTest, product_data_is_whole_at_first_and_then_as_set)
{
    expectWhole(product());
    expectWhole(container());
    EXPECT_LE(product().product_name().size(), 12U);
    EXPECT_EQ(product().production_date().size(), 8U);

    change({"dunl product product_name IRU 4478 B1 B3", "dunl product market_name absent",
            "dunl container serial_number S1", "dunl container product_number absent", "dunl restart"});
    m_connection = connectDunl();
    auto changed = product();
    EXPECT_EQ(changed.product_name(), "IRU 4478 B1 B3");
    EXPECT_FALSE(changed.has_market_name());
    changed.set_market_name("whatever");
    expectWhole(changed); // the others are as they were
    EXPECT_EQ(container().serial_number(), "S1");
    EXPECT_FALSE(container().has_product_number());
    const Json shown = show("dunl");
    EXPECT_EQ(shown["product"]["product_name"], "IRU 4478 B1 B3");
    EXPECT_TRUE(shown["container"].at("product_number").is_null());

    change({"dunl product default"});
    expectWhole(product());
    EXPECT_EQ(container().serial_number(), "S1");
    for (const char* line : {"product", "product default now", "product product_name", "product colour red",
                             "container market_name x", "container absent"}) {
        EXPECT_EQ(run(std::string("dunl ") + line), 1) << line;
    }
    EXPECT_EQ(container().serial_number(), "S1");
}

TEST_F(BoardSimPropertiesTest, capabilities_have_the_parameters_that_are_set)
{
    change({"dunl capabilities CLIMATE_CONTROL TEMPERATURE_LEVEL_MEASUREMENT RESTART_RANK_LABEL_SUPPORT",
            "dunl hotspots 1:absent:70 absent:65535:absent", "dunl temperature-levels 7:5:85", "dunl rank-label 99",
            "dunl lmc-tag SECOND LMC"});
    const std::string told = "capabilities: CLIMATE_CONTROL capabilities: TEMPERATURE_LEVEL_MEASUREMENT "
                             "capabilities: RESTART_RANK_LABEL_SUPPORT "
                             "temperature_level_measurement_params { upper_level: 85 sensor_id: 7 lower_level: 5 } "
                             "hotspot_params { upper_temperature: 70 hotspot_id: 1 } "
                             "hotspot_params { lower_temperature: 65535 } restart_rank_label: 99";
    EXPECT_EQ(capabilities().ShortDebugString(), told);
    EXPECT_EQ(show("dunl")["capabilityParameters"].dump(),
              R"({"temperatureLevels":["7:5:85"],"hotspots":["1:absent:70","absent:65535:absent"],)"
              R"("rankLabel":99,"lmcTag":"SECOND LMC"})");
    for (const char* line : {"hotspots", "hotspots 1:2", "hotspots 1:2:3:4", "hotspots 1:2:x", "hotspots 1:2:3 none",
                             "temperature-levels 1", "rank-label x", "rank-label", "lmc-tag"}) {
        EXPECT_EQ(run(std::string("dunl ") + line), 1) << line;
    }
    EXPECT_EQ(capabilities().ShortDebugString(), told);

    change({"dunl capabilities +ALTERNATIVE_LMC_SUPPORT"});
    EXPECT_EQ(capabilities().alternative_lmc_tag(), "SECOND LMC");
    change({"dunl hotspots none", "dunl temperature-levels default", "dunl rank-label absent", "dunl lmc-tag absent"});
    const auto without = capabilities();
    EXPECT_EQ(without.capabilities_size(), 4);
    EXPECT_EQ(without.hotspot_params_size(), 0);
    EXPECT_EQ(without.temperature_level_measurement_params_size(), 2);
    EXPECT_FALSE(without.has_restart_rank_label() || without.has_alternative_lmc_tag());
}

} // namespace
