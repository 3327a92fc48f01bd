#include "tools/boardsim/legacy/legacyServer.h"

#include "tools/boardsim/core/console.h"
#include "vorni/connection.h"
#include "vorni/signalTable.h"

#include <cstring>

namespace boardsim {

namespace {

constexpr std::size_t maxClients = 10000;

// References that mark a GSM client; given out on command only.
constexpr std::uint32_t firstGsmRef = 100;
constexpr std::uint32_t behindGsmRefs = 200;

constexpr const char* defaultRejectText = "Rejected by the legacy server";

template <typename Record>
std::string behindNumber(const Record& record)
{
    return {reinterpret_cast<const char*>(&record) + sizeof(VornSigNo), sizeof(record) - sizeof(VornSigNo)};
}

} // namespace

LegacyServer::LegacyServer() : KivServer("legacy", "LegacyVornServer")
{
    addCommand({"revision { <n> | absent | normal }",
                "the protocol revision that a connection's confirm selects; normal: the client's",
                [this](const Words& args, std::ostream&) { setRevision(args); }});
    addCommand({"serverref <n>", "the serverRef of the next new client; each further one gets the next number",
                [this](const Words& args, std::ostream&) { setServerRef(args); }});
}

void LegacyServer::setRevision(const Words& args)
{
    expectWords(args, 1, 1);
    const bool isNormal = args[0] == "normal";
    const bool isAbsent = args[0] == "absent";
    m_revision = isNormal || isAbsent
                     ? std::nullopt
                     : std::optional(static_cast<std::uint16_t>(parseNumber(args[0], "the revision", UINT16_MAX)));
    m_echoesRevision = isNormal;
}

void LegacyServer::setServerRef(const Words& args)
{
    expectWords(args, 1, 1);
    m_nextServerRef = parseNumber(args[0], "serverRef");
}

std::string LegacyServer::messageName(const std::string& word) const
{
    if (Vorni::findSignal(std::string_view(word)) != nullptr) {
        return word;
    }
    if (word.empty() || word[0] != '0') {
        throw CommandError("there is no signal \"" + word + "\"; one without a name goes by its number, 0x...");
    }
    return Vorni::signalName(parseNumber(word, "a signal number"));
}

std::vector<std::string> LegacyServer::messageNames() const
{
    std::vector<std::string> names;
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (signal.direction == Vorni::Direction::toServer) {
            names.emplace_back(signal.name);
        }
    }
    return names;
}

void LegacyServer::checkRule(const std::string&, const Rule&) const {}

void LegacyServer::receive(const std::shared_ptr<kiv_msg>& msg)
{
    const SignalBytes signal(reinterpret_cast<const std::byte*>(msg.get()), kiv_size(msg.get()));
    VornSignalHeader header;
    if (signal.size() < sizeof(header)) {
        countBad("shorter than the header");
        return;
    }
    std::memcpy(&header, signal.data(), sizeof(header));
    const std::string message = Vorni::signalName(header.sigNo);
    countReceived(message);
    console::traffic(name(), [&] { return "<- " + Vorni::printSignal(signal); });
    process(message, [&](const Rule& rule) { return makeAnswer(kiv_sender(msg.get()), header, signal, rule); });
}

Server::Answer LegacyServer::makeAnswer(kiv_mbox_id_t sender, const VornSignalHeader& header, SignalBytes signal,
                                        const Rule& rule)
{
    if (rule.kind == RuleKind::reject) {
        return reject(sender, header, rule);
    }
    if (header.sigNo == OmlaVornConnEstablishReqS::number) {
        return connectionConfirm(sender, header, signal);
    }
    const SignalBytes echoed = signal.subspan(sizeof(header.sigNo));
    return toSend(sender, header.sigNo + 1, {reinterpret_cast<const char*>(echoed.data()), echoed.size()});
}

Server::Answer LegacyServer::connectionConfirm(kiv_mbox_id_t sender, const VornSignalHeader& header, SignalBytes signal)
{
    OmlaVornConnEstablishReqS request;
    if (signal.size() < sizeof(request)) {
        countBad("a short OMLA_VORN_CONN_ESTABLISH_REQ");
        return {};
    }
    std::memcpy(&request, signal.data(), sizeof(request));
    const Client* client = takeClient(sender, header.clientRef, request.protocolRev);
    if (client == nullptr) {
        countBad("a client too many, or gone");
        return {};
    }
    VornSignalHeader confirm = header;
    confirm.serverRef = client->serverRef;
    std::string bytes = behindNumber(confirm);
    if (m_echoesRevision || m_revision) {
        const VornU16 selected(m_echoesRevision ? client->protocolRev : *m_revision);
        bytes.append(reinterpret_cast<const char*>(&selected), sizeof(selected));
    }
    return toSend(sender, header.sigNo + 1, std::move(bytes));
}

Server::Answer LegacyServer::reject(kiv_mbox_id_t sender, const VornSignalHeader& header, const Rule& rule)
{
    VornRejectSignal<0> refusal{};
    refusal.header = header;
    refusal.errorCode = 1;
    rule.fields.value_or(defaultRejectText).copy(refusal.errorText, sizeof(refusal.errorText) - 1);
    return toSend(sender, header.sigNo + 2, behindNumber(refusal));
}

Server::Answer LegacyServer::toSend(kiv_mbox_id_t receiver, std::uint32_t number, std::string behindNumber)
{
    return [this, receiver, number, bytes = std::move(behindNumber)] {
        console::traffic(name(), [&] {
            const std::string signal = std::string(reinterpret_cast<const char*>(&number), sizeof(number)) + bytes;
            return "-> " + Vorni::printSignal(std::as_bytes(std::span(signal)));
        });
        send(receiver, number, bytes);
    };
}

/// A client that asks again keeps its reference.
const LegacyServer::Client* LegacyServer::takeClient(kiv_mbox_id_t sender, std::uint32_t clientRef,
                                                     std::uint16_t protocolRev)
{
    const auto known = m_clients.find(sender);
    if (known != m_clients.end()) {
        known->second.clientRef = clientRef;
        known->second.protocolRev = protocolRev;
        return &known->second;
    }
    if (m_clients.size() >= maxClients || !watch(sender)) {
        return nullptr;
    }
    return &(m_clients[sender] = {clientRef, nextServerRef(), protocolRev});
}

std::uint32_t LegacyServer::nextServerRef()
{
    const std::uint32_t given = m_nextServerRef++;
    if (m_nextServerRef == firstGsmRef) {
        m_nextServerRef = behindGsmRefs;
    }
    return given;
}

void LegacyServer::clientLost(kiv_mbox_id_t client)
{
    console::traffic(name(), "lost client " + mailboxText(client));
    m_clients.erase(client);
}

void LegacyServer::dropState()
{
    m_clients.clear();
}

void LegacyServer::showState(Json& server) const
{
    KivServer::showState(server);
    server["revision"] = m_echoesRevision ? "normal" : m_revision ? std::to_string(*m_revision) : "absent";
    server["nextServerRef"] = m_nextServerRef;
    Json clients = Json::array();
    for (const auto& [mbox, client] : m_clients) {
        clients.push_back({{"mailbox", mailboxText(mbox)},
                           {"clientRef", client.clientRef},
                           {"serverRef", client.serverRef},
                           {"protocolRev", client.protocolRev}});
    }
    server["clients"] = std::move(clients);
}

} // namespace boardsim
