#include "tools/boardsim/ganti/gantiServer.h"

#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "tools/boardsim/core/console.h"

#include <boost/endian/arithmetic.hpp>
#include <cstring>
#include <fmt/format.h>

namespace boardsim {

namespace {

using namespace gant;
using google::protobuf::FieldDescriptor;

struct FrameHeader {
    boost::endian::big_uint32_t msgNo;
    boost::endian::big_uint32_t procRef;
};
static_assert(sizeof(FrameHeader) == 8 && alignof(FrameHeader) == 1);

/// What a request and its answer have in common: the ticket, the reference of its request, the block's number.
void echo(const Message& request, Message& answer)
{
    const auto* from = request.GetReflection();
    const auto* to = answer.GetReflection();
    for (int i = 0; i < request.GetDescriptor()->field_count(); ++i) {
        const FieldDescriptor* field = request.GetDescriptor()->field(i);
        const FieldDescriptor* echoed = answer.GetDescriptor()->FindFieldByName(field->name());
        if (echoed == nullptr || echoed->cpp_type() != field->cpp_type() || !from->HasField(request, field)) {
            continue;
        }
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT32) {
            to->SetUInt32(&answer, echoed, from->GetUInt32(request, field));
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_ENUM) {
            to->SetEnumValue(&answer, echoed, from->GetEnumValue(request, field));
        }
    }
}

/// A block of software isn't printed as a whole.
std::string printed(const Message& message, std::uint32_t client, std::uint32_t procRef)
{
    constexpr std::size_t maxText = 400;
    std::string text = message.ByteSizeLong() <= maxText ? message.ShortDebugString()
                                                         : fmt::format("({} bytes)", message.ByteSizeLong());
    return fmt::format("{}{{client={}, procRef={}}} {}", message.GetDescriptor()->name(), client, procRef, text);
}

} // namespace

GantiServer::GantiServer()
    : PloeServer("ganti", ServerMetadata().name()), m_table(messages), m_tickets(indicator()), m_capabilities(m_store),
      m_loading(m_store, m_tickets), m_slots(m_store, m_tickets, m_loading), m_list(m_store, m_tickets, indicator())
{
    m_tickets.whenGone([this](std::uint32_t ticket) {
        m_loading.ticketGone(ticket);
        m_list.ticketGone(ticket);
    });
    addConnectionCommands();
    add(m_capabilities);
    add(m_tickets);
    add(m_loading);
    add(m_list);
    add(m_slots);
    addRequests();
}

void GantiServer::add(GantiProcedures& group)
{
    m_groups.push_back(&group);
    for (CommandRow& row : group.commands()) {
        addCommand(std::move(row));
    }
}

void GantiServer::addRequests()
{
    m_table.on<ConnEstablishReq, ConnEstablishCfm, ConnEstablishRej>(
        Purpose::connect,
        [this](Call&, const Message& request, Message* confirm, Message* reject) {
            return establish(static_cast<const ConnEstablishReq&>(request), static_cast<ConnEstablishCfm&>(*confirm),
                             static_cast<ConnEstablishRej&>(*reject));
        },
        {},
        [](const Message&, Message& reject) {
            static_cast<ConnEstablishRej&>(reject).set_reason(ConnEstablishRej::NO_SUPPORTED_PROTOCOL_REVISION);
        });

    on(m_capabilities, &GantiCapabilities::get);

    on(m_tickets, &Tickets::acquire);
    on(m_tickets, &Tickets::release);

    on(m_loading, &Loading::init);
    m_table.on(m_loading, &Loading::data, echo);
    on(m_loading, &Loading::end);
    on(m_loading, &Loading::pull);
    on(m_loading, &Loading::abortPull);

    on(m_slots, &SoftwareSlots::remove);
    on(m_slots, &SoftwareSlots::inventory);
    on(m_slots, &SoftwareSlots::runningSoftware);
    on(m_slots, &SoftwareSlots::setWorking);

    on(m_list, &ComponentList::request);
    m_table.on(m_list, &ComponentList::acknowledged);

    m_table.indicates<AcquireResourceInd>();
    m_table.indicates<SwCompListData>();
}

template <typename Group, typename Req, typename Cfm, typename Rej>
void GantiServer::on(Group& group, Verdict (Group::*handler)(Call&, const Req&, Cfm&, Rej&))
{
    m_table.on(group, handler, echo, echo);
}

void GantiServer::addConnectionCommands()
{
    addCommand({"confirm <message> [<count>] [<fields>]",
                "do it, confirm it with these fields and no others but those of the request",
                [this](const Words& args, std::ostream& out) { setRule(RuleKind::confirm, args, out); }});
    addCommand({RevisionSetting::form, RevisionSetting::text,
                [this](const Words& args, std::ostream&) { m_revision.set(args); }});
    addCommand({"limit <n>", "the most connections that it takes", [this](const Words& args, std::ostream&) {
                    expectWords(args, 1, 1);
                    m_limit = parseNumber(args[0], "the limit", maxClients);
                }});
}

std::string GantiServer::messageName(const std::string& word) const
{
    std::string message = m_table.nameOf(word);
    if (message.empty()) {
        throw CommandError(fmt::format("{} receives or indicates no \"{}\"", name(), word));
    }
    return message;
}

std::vector<std::string> GantiServer::messageNames() const
{
    return m_table.names();
}

void GantiServer::checkRule(const std::string& message, const Rule& rule) const
{
    m_table.checkRule(message, rule);
}

void GantiServer::receive(std::uint32_t client, std::span<const std::byte> frame)
{
    FrameHeader header;
    if (frame.size() < sizeof(header)) {
        countBad("shorter than the header");
        return;
    }
    std::memcpy(&header, frame.data(), sizeof(header));
    const RequestRow* request = m_table.find(header.msgNo);
    if (request == nullptr) {
        countBad("unknown message number");
        return;
    }
    countReceived(request->name);
    const std::unique_ptr<Message> body(request->request->New());
    if (!body->ParseFromArray(frame.data() + sizeof(header), static_cast<int>(frame.size() - sizeof(header)))) {
        countBad("unparsable " + request->name);
        return;
    }
    const Call call{client, header.procRef, {}, {}};
    console::traffic(name(), [&] { return "<- " + printed(*body, call.client, call.procRef); });
    process(request->name, [&](const Rule& rule) { return makeAnswer(*request, call, *body, rule); });
}

Server::Answer GantiServer::makeAnswer(const RequestRow& request, Call call, const Message& body, const Rule& rule)
{
    if (request.purpose == Purpose::connect) {
        forget(call.client); // one that connects anew starts anew
    } else if (m_established.count(call.client) == 0) {
        countBad("unknown connection");
        return {};
    }
    Decision decision = m_table.decide(request, call, body, rule);
    if (decision.answer == nullptr) {
        return {};
    }
    Answer send = toSend(call.client, call.procRef, std::move(decision.answer));
    if (decision.verdict == Verdict::reject) {
        return send;
    }
    if (request.purpose == Purpose::connect) {
        m_established.insert(call.client);
    }
    if (call.then) {
        send = [send = std::move(send), then = std::move(call.then)] {
            send();
            then();
        };
    }
    if (call.sendBy) {
        send = [send = std::move(send), sendBy = std::move(call.sendBy)] { sendBy(send); };
    }
    return send;
}

Server::Answer GantiServer::toSend(std::uint32_t client, std::uint32_t procRef, std::shared_ptr<const Message> body)
{
    return [this, client, procRef, body = std::move(body)] {
        console::traffic(name(), [&] { return "-> " + printed(*body, client, procRef); });
        FrameHeader header;
        header.msgNo = m_table.numberOf(*body);
        header.procRef = procRef;
        std::string frame(reinterpret_cast<const char*>(&header), sizeof(header));
        body->AppendToString(&frame);
        send(client, std::move(frame));
    };
}

GantiIndicate GantiServer::indicator()
{
    return [this](std::uint32_t client, std::uint32_t procRef, const Message& message) {
        const std::shared_ptr<Message> body(message.New());
        body->CopyFrom(message);
        process(message.GetDescriptor()->name(), [&](const Rule&) { return toSend(client, procRef, body); });
    };
}

Verdict GantiServer::establish(const ConnEstablishReq& request, ConnEstablishCfm& confirm, ConnEstablishRej& reject)
{
    const auto& offered = request.supported_protocol_revisions();
    if (!m_revision.agreesOn({offered.data(), static_cast<std::size_t>(offered.size())})) {
        return Verdict::reject;
    }
    if (m_established.size() >= m_limit) {
        reject.set_reason(ConnEstablishRej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);
        return Verdict::reject;
    }
    if (const auto revision = m_revision.selected()) {
        confirm.set_selected_protocol_revision(*revision);
    }
    return Verdict::confirm;
}

void GantiServer::clientLost(std::uint32_t client)
{
    forget(client);
}

void GantiServer::forget(std::uint32_t client)
{
    if (m_established.erase(client) != 0) {
        m_tickets.clientLost(client);
    }
}

void GantiServer::dropState()
{
    m_established.clear();
    for (GantiProcedures* group : m_groups) {
        group->reset();
    }
    m_store.close();
}

void GantiServer::showState(Json& server) const
{
    PloeServer::showState(server);
    server["revision"] = m_revision.shown();
    server["limit"] = m_limit;
    server["connections"] = m_established;
    for (const GantiProcedures* group : m_groups) {
        group->show(server);
    }
}

} // namespace boardsim
