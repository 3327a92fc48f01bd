/// The FRU description file, part by part. The file is a temporary one in the non-volatile store.

#include "nonVolatile.h"
#include "unit.h"
#include "vorni/fruDescription.h"

using namespace TestUnit;
using VornTrace::RecordedTraces;
using namespace std::string_literals;

namespace {

class VornServerFdfTest : public ::testing::Test
{
protected:
    VornServerFdfTest()
    {
        sarnaStoreFdf(sarnaFdfId, "KRC1");
        sarnaStoreFdf(sarnaFdfFile, "a text");
        unit = std::make_unique<Unit>();
        unit->bringUp();
    }

    static void ask(const Client& client, const std::string& id)
    {
        NewSignal<OmlaVornGetFruDescFileReqS> signal(client.clientRef, client.serverRef, id.size());
        id.copy(reinterpret_cast<char*>(&*signal) + sizeof(OmlaVornGetFruDescFileReqS), id.size());
        client.sendSignal(client.publicMbox(), signal);
    }
    static std::string expectPart(Client& client, std::uint32_t endFlag)
    {
        const Received received = client.expectNumber(OmlaVornFruDescFileDataS::number);
        const auto& part = *viewSignal<OmlaVornFruDescFileDataS>(received.get());
        EXPECT_EQ(part.endFlag, endFlag);
        EXPECT_EQ(received.size(), part.noOfBytes + 23);
        EXPECT_EQ(part.header.clientRef, client.clientRef);
        EXPECT_EQ(part.header.serverRef, client.serverRef);
        return {reinterpret_cast<const char*>(&part) + sizeof(part), part.noOfBytes};
    }
    static std::string fetchFirst(Client& client, std::uint32_t endFlag, const std::string& id = "KRC1")
    {
        ask(client, id);
        EXPECT_EQ(client.expect<OmlaVornGetFruDescFileCfmS>().header.clientRef, client.clientRef);
        EXPECT_EQ(client.lastSender, client.publicMbox());
        return expectPart(client, endFlag);
    }
    static void expectRefused(Client& client)
    {
        const auto rej = client.expect<OmlaVornGetFruDescFileRejS>();
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(rej.header.serverRef, client.serverRef);
        EXPECT_EQ(fieldText(rej.description), "No FRU Description file found");
    }

    std::unique_ptr<Unit> unit;
};

TEST_F(VornServerFdfTest, when_the_file_is_long_then_it_comes_in_parts_as_the_client_acknowledges)
{
    Client& client = unit->connect();
    EXPECT_EQ(fetchFirst(client, 1, "KRC1\0behind"s), "a text");
    const std::string text(2048, 'x');
    sarnaStoreFdf(sarnaFdfFile, text);
    EXPECT_EQ(fetchFirst(client, 1), text);
    sarnaStoreFdf(sarnaFdfFile, text + "y");
    EXPECT_EQ(fetchFirst(client, 0), text);
    EXPECT_TRUE(RecordedTraces::has("VornServer:sendFdfData() sending 2048 bytes with 1 bytes pending"));
    unit->settle();
    client.expectNothing();
    client.send<OmlaVornFruDescFileAckS>();
    EXPECT_EQ(expectPart(client, 1), "y");
    client.send<OmlaVornFruDescFileAckS>();
    unit->settle();
    client.expectNothing();
}

TEST_F(VornServerFdfTest, when_the_id_is_not_that_of_the_file_then_the_client_is_refused_unless_text_was_left)
{
    Client& client = unit->connect();
    for (const std::string& id : {"KRC"s, ""s, std::string(5000, 'x')}) {
        ask(client, id);
        expectRefused(client);
    }
    sarnaStoreFdf(sarnaFdfFile, std::string(2048, 'x') + "left");
    fetchFirst(client, 0);
    Client& other = unit->connect(8);
    EXPECT_EQ(fetchFirst(other, 1, "wrong"), "left");
    client.send<OmlaVornFruDescFileAckS>();
    unit->settle();
    client.expectNothing();
    sarnaStoreFdf(sarnaFdfFile, "");
    ask(client, "KRC1");
    expectRefused(client);
}

TEST_F(VornServerFdfTest, when_two_clients_fetch_then_the_second_replaces_what_is_left_of_the_first)
{
    Client& first = unit->connect();
    Client& second = unit->connect(8);
    sarnaStoreFdf(sarnaFdfFile, std::string(2048, 'x') + "first");
    fetchFirst(first, 0);
    sarnaStoreFdf(sarnaFdfFile, std::string(2048, 'y') + "second");
    EXPECT_EQ(fetchFirst(second, 0), std::string(2048, 'y'));
    first.send<OmlaVornFruDescFileAckS>();
    EXPECT_EQ(expectPart(first, 1), "second");
}

} // namespace
