#include "tools/boardsim/core/protobufServer.h"

#include "tools/boardsim/core/console.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <cstring>
#include <fmt/format.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <stdexcept>

namespace boardsim {

namespace {

constexpr std::uint32_t ownRevision = 1;

// Far from what clients number their side with, so that mixing the two references up doesn't go unnoticed.
constexpr std::uint32_t refBase = 1000;

/// The text form's errors are told in the command's answer, not on standard error.
struct SilentErrors : google::protobuf::io::ErrorCollector {
    std::string first;

    void AddError(int, int, const std::string& message) override
    {
        if (first.empty()) {
            first = message;
        }
    }
};

/// Sets the fields given as text, "name: value ...". Throws CommandError.
void setFields(Message& message, const std::string& fields)
{
    SilentErrors errors;
    google::protobuf::TextFormat::Parser parser;
    parser.RecordErrorsTo(&errors);
    if (!parser.MergeFromString(fields, &message)) {
        throw CommandError(
            fmt::format("{} can't hold {{{}}}: {}", message.GetDescriptor()->name(), fields, errors.first));
    }
}

std::string printed(const Message& message, std::uint32_t procedureRef, std::uint32_t connectionRef)
{
    return fmt::format("{}{{procedureRef={}, connectionRef={}}} {}", message.GetDescriptor()->name(), procedureRef,
                       connectionRef, message.ShortDebugString());
}

} // namespace

void RevisionSetting::set(const Words& args)
{
    expectWords(args, 1, 1);
    isNegotiated = args[0] == "normal";
    fixed = isNegotiated ? std::nullopt : parseOptionalNumber(args[0], "the revision");
}

std::string RevisionSetting::text() const
{
    return isNegotiated ? "normal" : fixed ? std::to_string(*fixed) : "absent";
}

ProtobufServer::ProtobufServer(std::string name, std::string mailboxName, std::span<const MessageNumber> numbers)
    : KivServer(std::move(name), std::move(mailboxName)), m_numbers(numbers), m_lastRef(refBase)
{
    addConnectionCommands();
}

void ProtobufServer::addConnectionCommands()
{
    addCommand({"confirm <message> [<count>] [<fields>]", "do it, confirm it with these fields and no others",
                [this](const Words& args, std::ostream& out) { setRule(RuleKind::confirm, args, out); }});
    addCommand({"revision { <n> | absent | normal }", "the protocol revision that a connection's confirm selects",
                [this](const Words& args, std::ostream&) { m_revision.set(args); }});
    addCommand({"limit <n>", "the most connections that it takes", [this](const Words& args, std::ostream&) {
                    expectWords(args, 1, 1);
                    m_limit = parseNumber(args[0], "the limit");
                }});
}

void ProtobufServer::add(ProtobufProcedures& group)
{
    m_groups.push_back(&group);
    for (CommandRow& row : group.commands()) {
        addCommand(std::move(row));
    }
}

ProtobufServer::Request ProtobufServer::row(Purpose purpose, const Message& request) const
{
    Request entry;
    entry.purpose = purpose;
    entry.name = request.GetDescriptor()->name();
    entry.number = numberOf(request);
    entry.request = &request;
    return entry;
}

void ProtobufServer::enter(Request request)
{
    m_requests.emplace(request.number, std::move(request));
}

std::uint32_t ProtobufServer::numberOf(const Message& message) const
{
    const std::string& name = message.GetDescriptor()->full_name();
    const auto found = std::find_if(m_numbers.begin(), m_numbers.end(),
                                    [&](const MessageNumber& candidate) { return candidate.name == name; });
    if (found == m_numbers.end()) {
        throw std::logic_error(name + " has no message number");
    }
    return found->number;
}

const ProtobufServer::Request* ProtobufServer::findRequest(const std::string& name) const
{
    const auto found = std::find_if(m_requests.begin(), m_requests.end(),
                                    [&](const auto& entry) { return entry.second.name == name; });
    return found == m_requests.end() ? nullptr : &found->second;
}

std::string ProtobufServer::messageName(const std::string& word) const
{
    const std::string message = word.substr(word.rfind('.') + 1);
    if (findRequest(message) == nullptr && m_indications.count(message) == 0) {
        throw CommandError(fmt::format("{} receives or indicates no \"{}\"", name(), word));
    }
    return message;
}

std::vector<std::string> ProtobufServer::messageNames() const
{
    std::vector<std::string> names;
    for (const auto& [number, request] : m_requests) {
        names.push_back(request.name);
    }
    names.insert(names.end(), m_indications.begin(), m_indications.end());
    return names;
}

void ProtobufServer::checkRule(const std::string& message, const Rule& rule) const
{
    const Request* request = findRequest(message);
    const bool needsFields = rule.kind == RuleKind::reject || rule.kind == RuleKind::confirm;
    if (request == nullptr) {
        if (needsFields) {
            throw CommandError(message + " is an indication: it can be silent, delayed or held");
        }
        return;
    }
    const Message* answer = rule.kind == RuleKind::reject ? request->reject : request->confirm;
    if (answer == nullptr && rule.kind != RuleKind::silent) {
        throw CommandError(message + " has no such answer");
    }
    if (needsFields && rule.fields) {
        setFields(*std::unique_ptr<Message>(answer->New()), *rule.fields);
    }
}

void ProtobufServer::receive(const std::shared_ptr<kiv_msg>& msg)
{
    BoardMessageHeader header;
    if (kiv_size(msg.get()) < sizeof(header)) {
        countBad("shorter than the header");
        return;
    }
    std::memcpy(&header, msg.get(), sizeof(header));
    const auto found = m_requests.find(header.msgNo);
    if (found == m_requests.end()) {
        countBad("unknown message number");
        return;
    }
    const Request& request = found->second;
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

Server::Answer ProtobufServer::makeAnswer(const Request& request, const Incoming& incoming, const Rule& rule)
{
    if (request.purpose == Purpose::connect) {
        // A client that connects anew under the same reference has forgotten its earlier connection.
        closeConnections([&](const Connection& earlier) {
            return earlier.client == incoming.client && earlier.clientRef == incoming.connectionRef;
        });
        return answer(request, incoming, {0, incoming.connectionRef, incoming.client}, rule);
    }
    const auto found = m_connections.find(incoming.connectionRef);
    if (found == m_connections.end() || found->second.client != incoming.client) {
        countBad("unknown connection");
        return {};
    }
    return request.purpose == Purpose::unanswered ? Answer() : answer(request, incoming, found->second, rule);
}

Server::Answer ProtobufServer::answer(const Request& request, const Incoming& incoming, Connection connection,
                                      const Rule& rule)
{
    std::shared_ptr<Message> confirm(request.confirm->New());
    std::shared_ptr<Message> reject = newReject(request);
    const Verdict verdict = rule.kind == RuleKind::reject
                                ? Verdict::reject
                                : request.handle(connection, *incoming.body, *confirm, reject.get());
    if (verdict == Verdict::confirm) {
        return confirmed(request, incoming, connection, std::move(confirm), rule);
    }
    if (reject == nullptr) {
        return {}; // on command, where the interface has no reject
    }
    if (rule.kind == RuleKind::reject && rule.fields) {
        setFields(*reject, *rule.fields);
    }
    return toSend(incoming.procedureRef, connection.clientRef, connection.client, std::move(reject));
}

Server::Answer ProtobufServer::confirmed(const Request& request, const Incoming& incoming, const Connection& connection,
                                         std::shared_ptr<Message> confirm, const Rule& rule)
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
    if (rule.kind == RuleKind::confirm) {
        confirm->Clear();
        setFields(*confirm, rule.fields.value_or(""));
    }
    return toSend(incoming.procedureRef, connectionRef, connection.client, std::move(confirm));
}

std::unique_ptr<Message> ProtobufServer::newReject(const Request& request) const
{
    std::unique_ptr<Message> reject(request.reject != nullptr ? request.reject->New() : nullptr);
    if (reject != nullptr && request.prepareReject) {
        request.prepareReject(*reject);
    }
    return reject;
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
        send(client, numberOf(*body), bytes);
    };
}

Indicate ProtobufServer::indicator()
{
    return [this](const Connection& connection, const Message& message) {
        const std::shared_ptr<Message> body(message.New());
        body->CopyFrom(message);
        process(message.GetDescriptor()->name(),
                [&](const Rule&) { return toSend(0, connection.clientRef, connection.client, body); });
    };
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

bool ProtobufServer::agreesOn(std::span<const std::uint32_t> offeredRevisions) const
{
    return !m_revision.isNegotiated ||
           std::find(offeredRevisions.begin(), offeredRevisions.end(), ownRevision) != offeredRevisions.end();
}

std::optional<std::uint32_t> ProtobufServer::selectedRevision() const
{
    return m_revision.isNegotiated ? ownRevision : m_revision.fixed;
}

void ProtobufServer::showState(Json& server) const
{
    KivServer::showState(server);
    server["revision"] = m_revision.text();
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
