/// The legacy server, which takes every client and all signals that nobody else does.
///
/// It answers to the mailbox that a signal came from, by one rule: a request N is confirmed with N + 1 and rejected
/// with N + 2, the usual numbers of a signal family. A confirm echoes references and payload, so that the way there and
/// back can be seen; a reject has the usual form, with error code 1.
///
/// OMLA_VORN_CONN_ESTABLISH_REQ follows the same rule, but its confirm carries a serverRef of the client's own and the
/// selected protocol revision (16 bits behind the references) in place of the payload.
#pragma once

#include "tools/boardsim/core/kivServer.h"

#include "vorni/header.h"

#include <map>
#include <optional>
#include <span>
#include <string>

namespace boardsim {

class LegacyServer : public KivServer
{
public:
    LegacyServer();

    /// A signal's name, or its number as "0x..." where it has none.
    std::string messageName(const std::string& word) const override;
    std::vector<std::string> messageNames() const override;

private:
    struct Client {
        std::uint32_t clientRef;
        std::uint32_t serverRef;
        std::uint16_t protocolRev;
    };

    using SignalBytes = std::span<const std::byte>; ///< all of a signal, the number included

    void receive(const std::shared_ptr<kiv_msg>& msg) override;
    void clientLost(kiv_mbox_id_t client) override;
    void dropState() override;
    void showState(Json& server) const override;
    void checkRule(const std::string& message, const Rule& rule) const override;

    Answer makeAnswer(kiv_mbox_id_t sender, const VornSignalHeader& header, SignalBytes signal, const Rule& rule);
    Answer connectionConfirm(kiv_mbox_id_t sender, const VornSignalHeader& header, SignalBytes signal);
    Answer reject(kiv_mbox_id_t sender, const VornSignalHeader& header, const Rule& rule);
    Answer toSend(kiv_mbox_id_t receiver, std::uint32_t number, std::string behindNumber);
    const Client* takeClient(kiv_mbox_id_t sender, std::uint32_t clientRef, std::uint16_t protocolRev);
    std::uint32_t nextServerRef();
    void setRevision(const Words& args);
    void setServerRef(const Words& args);

    // Settings.
    bool m_echoesRevision = true;
    std::optional<std::uint16_t> m_revision; ///< where it isn't echoed; nothing: left out
    std::uint32_t m_nextServerRef = 1;

    // State.
    std::map<kiv_mbox_id_t, Client> m_clients;
};

} // namespace boardsim
