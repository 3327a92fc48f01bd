/// The debug command "deepsleep": a client of the yarrowi server on the command line.

#include "ostinel/commandClient.h"
#include "unit.h"
#include "vorni/utc.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <future>
#include <sstream>

using namespace TestUnit;
namespace MsgNo = yarrowi::MsgNo;
using namespace std::chrono_literals;

namespace {

constexpr std::uint32_t serverReference = 99;
constexpr const char* noResponse = "No response was received within 1 second(s)\n";

class DeepSleepCommandsTest : public UnitTest
{
protected:
    DeepSleepCommandsTest() { unit.bringUp(); }

    /// A command that waits, on a thread of its own as on a shell of its own.
    static std::future<std::string> start(const std::string& word)
    {
        return std::async(std::launch::async, [word] { return run(word); });
    }
    static std::string run(const std::string& word)
    {
        std::ostringstream out;
        const auto result = Ostinel::CommandClient::run({"deepsleep", word}, out);
        EXPECT_FALSE(result.error);
        EXPECT_EQ(result.exitCode, 0);
        return out.str();
    }
    template <typename Message>
    auto expect(std::uint32_t msgNo)
    {
        return unit.yarrowi.expect<Message>(msgNo);
    }
    void send(std::uint32_t msgNo, std::uint32_t procedureRef, std::uint32_t connectionRef,
              const google::protobuf::Message& body)
    {
        unit.yarrowi.sendMessage(unit.privateMbox(), msgNo, procedureRef, connectionRef, body);
    }
    void connect()
    {
        auto output = start("connect");
        const auto request = expect<yarrowi::ConnectionEstablishReq>(MsgNo::ConnectionEstablishReq);
        EXPECT_EQ(request.sender, unit.privateMbox());
        ASSERT_EQ(request.body.protocol_revision_size(), 1);
        EXPECT_EQ(request.body.protocol_revision(0), 1U);
        yarrowi::ConnectionEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        send(MsgNo::ConnectionEstablishCfm, request.procedureRef, serverReference, cfm);
        EXPECT_EQ(output.get(), "Ulmo received yarrowi.ConnectionEstablishCfm selected_protocol_revision: 1\n"
                                "Connection succeeded!\n");
        m_connectionRef = request.connectionRef;
    }
    void answer(std::uint32_t msgNo, const google::protobuf::Message& body) { send(msgNo, 0, m_connectionRef, body); }
    void indicate(yarrowi::DeepSleepState status)
    {
        yarrowi::DeepSleepStatusInd ind;
        ind.set_deep_sleep_status(status);
        answer(MsgNo::DeepSleepStatusInd, ind);
    }

    std::uint32_t m_connectionRef = 0;
};

TEST_F(DeepSleepCommandsTest, when_there_is_no_connection_then_the_commands_say_so_and_send_nothing)
{
    EXPECT_EQ(run("subscribe"), "You need to connect before you can subscribe\n");
    EXPECT_EQ(run("activate"), "You need to connect before you can activate\n");
    EXPECT_EQ(run("deactivate"), "You need to connect before you can deactivate\n");
    EXPECT_EQ(run("disconnect"), "You are already not connected\n");
    const std::string usage = "Deep Sleep command usage:\n"
                              "\tdeepsleep { -h | --help }\t\tDisplay deepsleep command usage\n"
                              "\tdeepsleep connect\t\tOpen a ulmo session with deepsleep\n"
                              "\tdeepsleep subscribe\t\tSubscribe to deepsleep\n"
                              "\tdeepsleep activate\t\tRequest to activate deepsleep\n"
                              "\tdeepsleep deactivate\t\tRequest to deactivate deepsleep\n"
                              "\tdeepsleep disconnect\t\tClose ulmo session with deepsleep\n";
    EXPECT_EQ(run("--help"), usage);
    EXPECT_EQ(run("sleep"), usage);
    unit.settle();
    unit.yarrowi.expectNothing();
}

TEST_F(DeepSleepCommandsTest, when_the_session_is_open_then_each_command_is_a_request_and_its_answer)
{
    connect();
    EXPECT_EQ(run("connect"), "Ulmo session is already connected\n");

    auto output = start("subscribe");
    const auto subscribe = expect<yarrowi::SubscribeDeepSleepStatusReq>(MsgNo::SubscribeDeepSleepStatusReq);
    EXPECT_EQ(subscribe.connectionRef, serverReference);
    answer(MsgNo::SubscribeDeepSleepStatusCfm, yarrowi::SubscribeDeepSleepStatusCfm());
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.SubscribeDeepSleepStatusCfm\nSubscription succeeded!\n");

    output = start("subscribe");
    expect<yarrowi::SubscribeDeepSleepStatusReq>(MsgNo::SubscribeDeepSleepStatusReq);
    answer(MsgNo::SubscribeDeepSleepStatusRej, yarrowi::SubscribeDeepSleepStatusRej());
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.SubscribeDeepSleepStatusRej\nSubscription failed!\n");

    output = start("deactivate");
    EXPECT_EQ(expect<yarrowi::DeactivateDeepSleepReq>(MsgNo::DeactivateDeepSleepReq).connectionRef, serverReference);
    answer(MsgNo::DeactivateDeepSleepCfm, yarrowi::DeactivateDeepSleepCfm());
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.DeactivateDeepSleepCfm\nDeactivation succeeded!\n");
    output = start("deactivate");
    expect<yarrowi::DeactivateDeepSleepReq>(MsgNo::DeactivateDeepSleepReq);
    yarrowi::DeactivateDeepSleepRej rej;
    rej.set_deep_sleep_state(yarrowi::INACTIVE);
    answer(MsgNo::DeactivateDeepSleepRej, rej);
    EXPECT_EQ(output.get(),
              "Ulmo received yarrowi.DeactivateDeepSleepRej deep_sleep_state: INACTIVE\nDeactivation failed!\n");

    output = start("disconnect");
    expect<yarrowi::ConnectionClosedownReq>(MsgNo::ConnectionClosedownReq);
    EXPECT_EQ(output.get(), std::string(noResponse) + "Disconnection failed!\n") << "the session stays";
    answer(MsgNo::ConnectionClosedownCfm, yarrowi::ConnectionClosedownCfm()); // too late, for the next command
    unit.settle();
    output = start("activate");
    expect<yarrowi::ActivateDeepSleepReq>(MsgNo::ActivateDeepSleepReq);
    answer(MsgNo::ActivateDeepSleepRej, yarrowi::ActivateDeepSleepRej());
    EXPECT_EQ(output.get(), "Discarding unexpected message yarrowi.ConnectionClosedownCfm\n"
                            "Ulmo received yarrowi.ActivateDeepSleepRej\nActivation failed!\n");

    output = start("disconnect");
    expect<yarrowi::ConnectionClosedownReq>(MsgNo::ConnectionClosedownReq);
    answer(MsgNo::ConnectionClosedownCfm, yarrowi::ConnectionClosedownCfm());
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.ConnectionClosedownCfm\nDisconnection succeeded!\n");
    EXPECT_EQ(run("subscribe"), "You need to connect before you can subscribe\n");
    const std::uint32_t before = m_connectionRef;
    connect();
    EXPECT_NE(m_connectionRef, before) << "the record was removed";
}

TEST_F(DeepSleepCommandsTest, when_activate_waits_then_a_status_prolongs_it_and_the_clients_are_served)
{
    Client& client = unit.connect();
    connect();
    auto output = start("activate");
    expect<yarrowi::ActivateDeepSleepReq>(MsgNo::ActivateDeepSleepReq);
    EXPECT_EQ(output.wait_for(1500ms), std::future_status::timeout) << "longer than a second";
    indicate(yarrowi::PRE_ACTIVE);

    client.send<OmlaVornSetUtcTimeReqS>(); // the server goes on meanwhile
    unit.dunl.expectNumber(0x1707739);
    unit.settle();
    EXPECT_EQ(output.wait_for(5200ms), std::future_status::timeout) << "the full wait again";

    answer(MsgNo::ActivateDeepSleepCfm, yarrowi::ActivateDeepSleepCfm());
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.DeepSleepStatusInd deep_sleep_status: PRE_ACTIVE\n"
                            "Ulmo received yarrowi.ActivateDeepSleepCfm\nActivation succeeded!\n");
}

TEST_F(DeepSleepCommandsTest, when_the_connection_is_refused_or_not_answered_then_connect_fails_and_may_be_repeated)
{
    auto output = start("connect");
    const auto request = expect<yarrowi::ConnectionEstablishReq>(MsgNo::ConnectionEstablishReq);
    yarrowi::ConnectionEstablishRej rej;
    rej.set_reject_reason(yarrowi::ConnectionEstablishRej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);
    send(MsgNo::ConnectionEstablishRej, request.procedureRef, 0, rej);
    EXPECT_EQ(output.get(), "Ulmo received yarrowi.ConnectionEstablishRej reject_reason: "
                            "MAX_NUMBER_OF_CONNECTIONS_EXCEEDED\nConnection failed!\n");

    output = start("connect");
    expect<yarrowi::ConnectionEstablishReq>(MsgNo::ConnectionEstablishReq);
    m_connectionRef = request.connectionRef; // the same record
    indicate(yarrowi::ACTIVE);
    EXPECT_EQ(output.get(), "Discarding unexpected message yarrowi.DeepSleepStatusInd\n" + std::string(noResponse) +
                                "Connection failed!\n");
    connect();
}

TEST_F(UnitTest, when_the_board_has_no_deep_sleep_then_the_command_says_so)
{
    unit.start();
    unit.connectGanti();
    unit.connectDunl();
    unit.connectFesk();
    unit.connectYarrowI(false);
    for (const char* word : {"connect", "activate", "--help"}) {
        int exitCode = -1;
        EXPECT_EQ(unit.command({"deepsleep", word}, exitCode), "Deep Sleep Feature is not supported on this target\n");
        EXPECT_EQ(exitCode, 0);
    }
}

} // namespace
