/// A scripted client of the simulated board, and the command line beside it.
#pragma once

#include "tools/boardsim/boardSim.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "kiv/kiv.h"
#include "messageNumber.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <chrono>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

namespace boardsim {

inline constexpr std::uint32_t patience = 5000; // milliseconds

template <typename Body>
struct Received {
    bool came = false;
    std::uint32_t procedureRef = 0;
    std::uint32_t connectionRef = 0;
    Body body;
};

/// A client of the board with a mailbox on the test's thread, and the command line beside it.
class BoardSimTest : public ::testing::Test
{
protected:
    BoardSimTest() { m_mailbox = kiv_create_mailbox("TestClient"); }
    ~BoardSimTest() override { kiv_delete_mailbox(m_mailbox); }

    int run(const std::string& line, std::string* output = nullptr)
    {
        std::istringstream in("board " + line);
        const Words words{std::istream_iterator<std::string>(in), {}};
        std::ostringstream out;
        const int exitCode = m_board.command(words, out);
        if (output != nullptr) {
            *output = out.str();
        }
        return exitCode;
    }

    Json show(const std::string& server)
    {
        std::string text;
        run("show " + server + " --json", &text);
        return Json::parse(text);
    }

    /// For what no message tells of.
    bool eventually(const std::function<bool()>& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    void sendBytes(const char* server, std::uint32_t number, const std::string& behindNumber)
    {
        kiv_msg* msg = kiv_alloc(static_cast<std::uint32_t>(4 + behindNumber.size()), number);
        std::memcpy(reinterpret_cast<char*>(msg) + 4, behindNumber.data(), behindNumber.size());
        kiv_send(&msg, kiv_locate(server), KIV_CURRENT_MBOX);
    }

    void send(const char* server, std::uint32_t number, std::uint32_t procedureRef, std::uint32_t connectionRef,
              const google::protobuf::Message& body = tolme::dunl::GetCapabilitiesReq()) // any empty one
    {
        BoardMessageHeader header;
        header.procedureRef = procedureRef;
        header.connectionRef = connectionRef;
        std::string bytes(reinterpret_cast<const char*>(&header) + 4, sizeof(header) - 4);
        body.AppendToString(&bytes);
        sendBytes(server, number, bytes);
    }

    static std::shared_ptr<kiv_msg> take(std::uint32_t number, std::uint32_t timeout = patience)
    {
        const std::uint32_t filter[] = {1, number};
        return {kiv_receive(filter, timeout, KIV_ANY_SENDER), kiv_free};
    }

    /// Whether a message of this number is there already.
    bool anyOf(std::uint32_t number) { return take(number, KIV_NO_WAIT) != nullptr; }

    template <typename Body>
    Received<Body> expect(std::uint32_t number)
    {
        Received<Body> received;
        const auto msg = take(number);
        BoardMessageHeader header;
        if (msg == nullptr || kiv_size(msg.get()) < sizeof(header)) {
            ADD_FAILURE() << "no message " << std::hex << number;
            return received;
        }
        std::memcpy(&header, msg.get(), sizeof(header));
        received.procedureRef = header.procedureRef;
        received.connectionRef = header.connectionRef;
        received.came = received.body.ParseFromArray(reinterpret_cast<const char*>(msg.get()) + sizeof(header),
                                                     static_cast<int>(kiv_size(msg.get()) - sizeof(header)));
        return received;
    }

    /// The number that the message has in the interface of its package.
    static std::uint32_t numberOf(const google::protobuf::Message& message)
    {
        const std::string_view name = message.GetDescriptor()->full_name();
        for (const auto& entry : tolme::dunl::messages) {
            if (entry.name == name) {
                return entry.number;
            }
        }
        for (const auto& entry : tolme::fesk::messages) {
            if (entry.name == name) {
                return entry.number;
            }
        }
        ADD_FAILURE() << name << " has no number";
        return 0;
    }

    void sendDunl(std::uint32_t procedureRef, std::uint32_t connectionRef, const google::protobuf::Message& body)
    {
        send("DunlServer", numberOf(body), procedureRef, connectionRef, body);
    }

    void sendFesk(std::uint32_t procedureRef, std::uint32_t connectionRef, const google::protobuf::Message& body)
    {
        send("FeskServer", numberOf(body), procedureRef, connectionRef, body);
    }

    template <typename Body>
    Received<Body> expect()
    {
        return expect<Body>(numberOf(Body()));
    }

    /// Whether such a message is there already.
    template <typename Body>
    bool anyOf()
    {
        return anyOf(numberOf(Body()));
    }

    std::uint32_t connectFesk(std::uint32_t clientId = 100)
    {
        tolme::fesk::ConnEstablishReq request;
        request.add_protocol_revision(1);
        sendFesk(clientId, clientId, request);
        return expect<tolme::fesk::ConnEstablishCfm>().connectionRef;
    }

    std::uint32_t connectDunl(std::uint32_t clientId = 100)
    {
        tolme::dunl::ConnEstablishReq request;
        request.add_protocol_revision(1);
        send("DunlServer", tolme::dunl::MsgNo::ConnEstablishReq, clientId, clientId, request);
        return expect<tolme::dunl::ConnEstablishCfm>(tolme::dunl::MsgNo::ConnEstablishCfm).connectionRef;
    }

    std::uint32_t connectYarrowi(std::uint32_t clientRef, std::uint32_t procedureRef)
    {
        yarrowi::ConnectionEstablishReq request;
        request.add_protocol_revision(1);
        send("YarrowIServer", yarrowi::MsgNo::ConnectionEstablishReq, procedureRef, clientRef, request);
        return expect<yarrowi::ConnectionEstablishCfm>(yarrowi::MsgNo::ConnectionEstablishCfm).connectionRef;
    }

    void setTime(std::uint32_t procedureRef, std::uint32_t connectionRef, std::uint32_t source, std::uint32_t time)
    {
        tolme::dunl::SetUtcTimeReq request;
        request.set_utc_time_source_ref(source);
        request.set_utc_time(time);
        send("DunlServer", tolme::dunl::MsgNo::SetUtcTimeReq, procedureRef, connectionRef, request);
    }

    BoardSim m_board;
    kiv_mbox_id_t m_mailbox;
};

} // namespace boardsim
