/// Steps of the tests of what clients do in the name of their MMI users.
#pragma once

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "unit.h"

#include <fmt/format.h>
#include <string>
#include <string_view>

namespace TestUnit {

/// What a client's request has become at the board. Confirm and reject have the numbers behind it.
template <typename Message>
struct Asked : Request<Message> {
    std::uint32_t msgNo = 0;

    template <typename Answer = Message>
    void confirm(const Answer& answer = {}) const
    {
        this->reply(msgNo + 1, answer);
    }
    template <typename Answer = Message>
    void reject(const Answer& answer = {}) const
    {
        this->reply(msgNo + 2, answer);
    }
};

class MmiUserTest : public UnitTest
{
protected:
    MmiUserTest() { unit.bringUp(); }

    /// A client whose session has no MMI user.
    Client& connectWithoutUser()
    {
        Client& client = unit.addClient();
        unit.requestConnection(client);
        unit.fesk.expectNumber(tolme::fesk::MsgNo::RegisterMmiUserReq);
        return client;
    }
    /// Its session is gone when this returns, and what the board was told of that is taken. Its mailbox.
    std::uint32_t lose(Client& client)
    {
        const std::uint32_t mbox = client.mbox();
        const auto mark = VornTrace::RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(VornTrace::RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
        unit.fesk.expectNumber(tolme::fesk::MsgNo::UnregisterMmiUserReq);
        unit.fesk.expectNothing();
        unit.dunl.discardAll();
        unit.yarrowi.discardAll();
        return mbox;
    }
    void loseBoard()
    {
        unit.fesk.die();
        unit.settle();
    }

    /// The next message to the board; it is asked in the name of this user. The first client's is 20.
    template <typename Message>
    Asked<Message> expectAsked(std::uint32_t msgNo, std::uint32_t userId = 20)
    {
        const Asked<Message> asked{unit.fesk.expect<Message>(msgNo), msgNo};
        EXPECT_EQ(asked.body.mmi_user_id(), userId);
        return asked;
    }
    /// The next signal, which is from the public mailbox and has the client's references.
    template <typename Record>
    static Record expectAt(Client& client)
    {
        const Record record = client.expect<Record>();
        EXPECT_EQ(record.header.clientRef, client.clientRef);
        EXPECT_EQ(record.header.serverRef, client.serverRef);
        EXPECT_EQ(client.lastSender, client.publicMbox());
        return record;
    }
    template <typename Reject>
    static void expectReject(Client& client, const std::string& text, std::uint16_t errorCode = 1)
    {
        const auto reject = expectAt<Reject>(client);
        EXPECT_EQ(reject.errorCode, errorCode);
        EXPECT_EQ(fieldText(reject.errorText), text);
    }
    /// Everything is handled, and nobody was sent anything.
    void expectSilence(std::initializer_list<Peer*> clients)
    {
        unit.settle();
        for (Peer* peer : clients) {
            peer->expectNothing();
        }
        unit.fesk.expectNothing();
    }
    /// The step, taken once for each of the texts, makes the server write that as a trace, and no other of them.
    template <typename Step>
    void expectTraced(const std::vector<std::string>& texts, Step&& step)
    {
        for (const std::string& expected : texts) {
            const auto mark = VornTrace::RecordedTraces::mark();
            step();
            unit.settle();
            for (const std::string& text : texts) {
                EXPECT_EQ(VornTrace::RecordedTraces::count(text, mark), text == expected ? 1U : 0U) << text;
            }
        }
    }
    static std::string noTransaction(std::uint32_t procedureRef, std::string_view message)
    {
        return fmt::format("ABN: No FESK transaction was found for procedureRef: {}. Ignoring {}.", procedureRef,
                           message);
    }
    static std::string noSession(std::uint32_t mbox, std::string_view message)
    {
        return fmt::format("ABN: No VORN session found for mailbox ID: {}. Ignoring {}.", mbox, message);
    }
};

} // namespace TestUnit
