#include "tools/boardsim/core/protobufServer.h"

#include "tools/boardsim/core/console.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <cstring>
#include <fmt/format.h>

namespace boardsim {

namespace {

// Far from what clients number their side with, so that mixing the two references up doesn't go unnoticed.
constexpr std::uint32_t refBase = 1000;

std::string printed(const Message& message, std::uint32_t procedureRef, std::uint32_t connectionRef)
{
    return fmt::format("{}{{procedureRef={}, connectionRef={}}} {}", message.GetDescriptor()->name(), procedureRef,
                       connectionRef, message.ShortDebugString());
}

} // namespace

ProtobufServer::ProtobufServer(std::string name, std::string mailboxName, std::span<const MessageNumber> numbers)
    : KivServer(std::move(name), std::move(mailboxName)), m_table(numbers), m_lastRef(refBase)
{
    addConnectionCommands();
}

void ProtobufServer::addConnectionCommands()
{
    addCommand({"confirm <message> [<count>] [<fields>]", "do it, confirm it with these fields and no others",
                [this](const Words& args, std::ostream& out) { setRule(RuleKind::confirm, args, out); }});
    addCommand({"indicate <message> [<fields>]",
                "tell it to all who would be told it, with these fields and no others, or without fields what is so",
                [this](const Words& args, std::ostream& out) { indicateOnCommand(args, out); }});
    addCommand({RevisionSetting::form, RevisionSetting::text,
                [this](const Words& args, std::ostream&) { m_revision.set(args); }});
    addCommand({"limit <n>", "the most connections that it takes", [this](const Words& args, std::ostream&) {
                    expectWords(args, 1, 1);
                    m_limit = parseNumber(args[0], "the limit");
                }});
}

void ProtobufServer::indicateOnCommand(const Words& args, std::ostream& out)
{
    expectWords(args, 1, args.size());
    const auto found = m_indications.find(messageName(args[0]));
    if (found == m_indications.end()) {
        throw CommandError(args[0] + " is no indication");
    }
    const ProtobufProcedures& group = *found->second.group;
    const std::unique_ptr<Message> message(found->second.prototype->New());
    if (args.size() > 1) {
        setFields(*message, joinWords(args, 1));
    } else {
        group.prepareIndication(*message);
    }
    const std::vector<Connection> audience = group.audience(*message);
    for (const Connection& connection : audience) {
        indicate(connection, connection.procedureRef, *message);
    }
    out << name() << ": " << found->first << " told " << audience.size() << " times\n";
}

void ProtobufServer::add(ProtobufProcedures& group)
{
    m_groups.push_back(&group);
    for (CommandRow& row : group.commands()) {
        addCommand(std::move(row));
    }
}

std::string ProtobufServer::messageName(const std::string& word) const
{
    std::string message = m_table.nameOf(word);
    if (message.empty()) {
        throw CommandError(fmt::format("{} receives or indicates no \"{}\"", name(), word));
    }
    return message;
}

std::vector<std::string> ProtobufServer::messageNames() const
{
    return m_table.names();
}

void ProtobufServer::checkRule(const std::string& message, const Rule& rule) const
{
    m_table.checkRule(message, rule);
}

void ProtobufServer::receive(const std::shared_ptr<kiv_msg>& msg)
{
    BoardMessageHeader header;
    if (kiv_size(msg.get()) < sizeof(header)) {
        countBad("shorter than the header");
        return;
    }
    std::memcpy(&header, msg.get(), sizeof(header));
    const RequestRow* found = m_table.find(header.msgNo);
    if (found == nullptr) {
        countBad("unknown message number");
        return;
    }
    const RequestRow& request = *found;
    countReceived(request.name);
    const Incoming incoming{header.procedureRef, header.connectionRef, kiv_sender(msg.get()),
                            std::shared_ptr<Message>(request.request->New())};
    const char* body = reinterpret_cast<const char*>(msg.get()) + sizeof(header);
    if (!incoming.body->ParseFromArray(body, static_cast<int>(kiv_size(msg.get()) - sizeof(header)))) {
        countBad("unparsable " + request.name);
        return;
    }
    console::traffic(name(),
                     [&] { return "<- " + printed(*incoming.body, incoming.procedureRef, incoming.connectionRef); });
    process(request.name, [&](const Rule& rule) { return makeAnswer(request, incoming, rule); });
}

Server::Answer ProtobufServer::makeAnswer(const RequestRow& request, const Incoming& incoming, const Rule& rule)
{
    if (request.purpose == Purpose::connect) {
        // A client that connects anew under the same reference has forgotten its earlier connection.
        closeConnections([&](const Connection& earlier) {
            return earlier.client == incoming.client && earlier.clientRef == incoming.connectionRef;
        });
        return answer(request, incoming, {0, incoming.connectionRef, incoming.client, incoming.procedureRef}, rule);
    }
    const auto found = m_connections.find(incoming.connectionRef);
    if (found == m_connections.end() || found->second.client != incoming.client) {
        countBad("unknown connection");
        return {};
    }
    Connection connection = found->second;
    connection.procedureRef = incoming.procedureRef;
    return answer(request, incoming, connection, rule);
}

Server::Answer ProtobufServer::answer(const RequestRow& request, const Incoming& incoming, const Connection& connection,
                                      const Rule& rule)
{
    Decision decision = m_table.decide(request, connection, *incoming.body, rule);
    if (decision.answer == nullptr) {
        return {};
    }
    return decision.verdict == Verdict::confirm
               ? confirmed(request, incoming, connection, std::move(decision.answer))
               : toSend(incoming.procedureRef, connection.clientRef, connection.client, std::move(decision.answer));
}

Server::Answer ProtobufServer::confirmed(const RequestRow& request, const Incoming& incoming,
                                         const Connection& connection, std::shared_ptr<Message> confirm)
{
    std::uint32_t connectionRef = connection.clientRef;
    if (request.purpose == Purpose::connect) {
        const Connection* opened = openConnection(incoming);
        if (opened == nullptr) {
            countBad("a client that is gone");
            return {};
        }
        connectionRef = opened->ref;
    } else if (request.purpose == Purpose::disconnect) {
        closeConnections([&](const Connection& open) { return open.ref == connection.ref; });
    }
    return toSend(incoming.procedureRef, connectionRef, connection.client, std::move(confirm));
}

Server::Answer ProtobufServer::toSend(std::uint32_t procedureRef, std::uint32_t connectionRef, kiv_mbox_id_t client,
                                      std::shared_ptr<const Message> body)
{
    return [this, procedureRef, connectionRef, client, body = std::move(body)] {
        const std::uint32_t refs[] = {boost::endian::native_to_big(procedureRef),
                                      boost::endian::native_to_big(connectionRef)};
        console::traffic(name(), [&] { return "-> " + printed(*body, procedureRef, connectionRef); });
        std::string bytes(reinterpret_cast<const char*>(refs), sizeof(refs));
        body->AppendToString(&bytes);
        send(client, m_table.numberOf(*body), bytes);
    };
}

Indicate ProtobufServer::indicator()
{
    return [this](const Connection& connection, const Message& message) { indicate(connection, 0, message); };
}

Indicate ProtobufServer::requestIndicator()
{
    return [this](const Connection& connection, const Message& message) {
        indicate(connection, connection.procedureRef, message);
    };
}

void ProtobufServer::indicate(const Connection& connection, std::uint32_t procedureRef, const Message& message)
{
    const std::shared_ptr<Message> body(message.New());
    body->CopyFrom(message);
    process(message.GetDescriptor()->name(),
            [&](const Rule&) { return toSend(procedureRef, connection.clientRef, connection.client, body); });
}

const Connection* ProtobufServer::openConnection(const Incoming& incoming)
{
    if (!watch(incoming.client)) {
        return nullptr;
    }
    do {
        ++m_lastRef;
    } while (m_lastRef == 0 || m_connections.count(m_lastRef) != 0);
    Connection& connection = m_connections[m_lastRef];
    connection = {m_lastRef, incoming.connectionRef, incoming.client};
    return &connection;
}

void ProtobufServer::closeConnections(const std::function<bool(const Connection&)>& concerned)
{
    for (auto next = m_connections.begin(); next != m_connections.end();) {
        if (!concerned(next->second)) {
            ++next;
            continue;
        }
        const Connection gone = next->second;
        next = m_connections.erase(next);
        for (ProtobufProcedures* group : m_groups) {
            group->connectionLost(gone);
        }
        const bool isLast = std::none_of(m_connections.begin(), m_connections.end(),
                                         [&](const auto& entry) { return entry.second.client == gone.client; });
        if (isLast) {
            unwatch(gone.client);
        }
    }
}

void ProtobufServer::clientLost(kiv_mbox_id_t client)
{
    console::traffic(name(), "lost client " + mailboxText(client));
    closeConnections([&](const Connection& connection) { return connection.client == client; });
}

void ProtobufServer::dropState()
{
    m_connections.clear();
    m_lastRef = refBase;
    for (ProtobufProcedures* group : m_groups) {
        group->reset();
    }
}

void ProtobufServer::showState(Json& server) const
{
    KivServer::showState(server);
    server["revision"] = m_revision.shown();
    server["limit"] = m_limit;
    Json connections = Json::array();
    for (const auto& [ref, connection] : m_connections) {
        connections.push_back(
            {{"ref", ref}, {"clientRef", connection.clientRef}, {"client", mailboxText(connection.client)}});
    }
    server["connections"] = std::move(connections);
    for (const ProtobufProcedures* group : m_groups) {
        group->show(server);
    }
}

} // namespace boardsim
