/// A board server that speaks protobuf messages over kiv: it locates nobody, it answers.
///
/// A message is the header of messageNumber.h and the encoding. A client opens a connection with its own reference in
/// the header's connectionRef and gets the server's reference back in the confirm's; from then on each side writes the
/// other's reference there. An answer echoes the request's procedureRef; an indication has 0.
///
/// A server derived from this enters its requests in its constructor, one line each: the protocol at a glance. What a
/// request does stands in a procedure group, a class of its own that knows nothing of headers, connections' references
/// or fault rules.
#pragma once

#include "tools/boardsim/core/kivServer.h"

#include "messageNumber.h"

#include <functional>
#include <google/protobuf/message.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace boardsim {

using google::protobuf::Message;

/// A client's connection.
struct Connection {
    std::uint32_t ref = 0;       ///< the server's reference
    std::uint32_t clientRef = 0; ///< the client's
    kiv_mbox_id_t client = KIV_NO_MBOX;
};

enum class Verdict { confirm, reject };

/// Sends an unsolicited message on a connection.
using Indicate = std::function<void(const Connection&, const Message&)>;

/// A group of a protobuf server. Its handlers have the form `Verdict handler(const Connection&, const Req&, Cfm&,
/// Rej&)`, or `void handler(const Connection&, const Req&, Cfm&)` where there is no reject; the answer that they decide
/// on is sent as they leave it.
class ProtobufProcedures : public ProcedureGroup
{
public:
    /// A connection has gone, and with it what belongs to it.
    virtual void connectionLost(const Connection&) {}

    /// Fills in what every reject of the group tells, also one that is sent on command.
    virtual void prepareReject(Message&) const {}

    /// The group's own commands.
    virtual std::vector<CommandRow> commands() { return {}; }
};

/// What a confirm selects: the revision that both sides speak, or what a command says.
struct RevisionSetting {
    bool isNegotiated = true;
    std::optional<std::uint32_t> fixed; ///< nothing: the field is left out

    void set(const Words& args); ///< "<n>", "absent" or "normal"
    std::string text() const;
};

class ProtobufServer : public KivServer
{
public:
    std::string messageName(const std::string& word) const override;
    std::vector<std::string> messageNames() const override;

protected:
    /// `numbers`: all messages of the interface.
    ProtobufServer(std::string name, std::string mailboxName, std::span<const MessageNumber> numbers);

    /// Enters a group: its state, its commands.
    void add(ProtobufProcedures& group);

    // The request table, and the indications that fault rules can name.

    template <typename Req, typename Cfm, typename Rej>
    void onConnect();

    template <typename Req, typename Cfm>
    void onDisconnect();

    template <typename Req, typename Group, typename Cfm, typename Rej>
    void on(Group& group, Verdict (Group::*handler)(const Connection&, const Req&, Cfm&, Rej&));

    /// A request that the interface has no reject for.
    template <typename Req, typename Group, typename Cfm>
    void on(Group& group, void (Group::*handler)(const Connection&, const Req&, Cfm&));

    /// A request that is counted and has no answer.
    template <typename Req>
    void onUnanswered();

    template <typename Ind>
    void indicates();

    Indicate indicator();

    void showState(Json& server) const override;

private:
    enum class Purpose { connect, request, disconnect, unanswered };

    /// One line of the request table.
    struct Request {
        Purpose purpose = Purpose::request;
        std::string name;
        std::uint32_t number = 0;
        const Message* request = nullptr; ///< prototypes; an answer that the interface doesn't have is null
        const Message* confirm = nullptr;
        const Message* reject = nullptr;
        std::function<void(Message& reject)> prepareReject;
        std::function<Verdict(const Connection&, const Message& request, Message& confirm, Message* reject)> handle;
    };

    struct Incoming {
        std::uint32_t procedureRef;
        std::uint32_t connectionRef;
        kiv_mbox_id_t client;
        std::shared_ptr<Message> body;
    };

    template <typename Req>
    Request row(Purpose purpose) const;
    Request row(Purpose purpose, const Message& request) const;
    void enter(Request request);

    void receive(const std::shared_ptr<kiv_msg>& msg) override;
    void clientLost(kiv_mbox_id_t client) override;
    void dropState() override;
    void checkRule(const std::string& message, const Rule& rule) const override;

    Answer makeAnswer(const Request& request, const Incoming& incoming, const Rule& rule);
    Answer answer(const Request& request, const Incoming& incoming, Connection connection, const Rule& rule);
    Answer confirmed(const Request& request, const Incoming& incoming, const Connection& connection,
                     std::shared_ptr<Message> confirm, const Rule& rule);
    std::unique_ptr<Message> newReject(const Request& request) const;
    Answer toSend(std::uint32_t procedureRef, std::uint32_t connectionRef, kiv_mbox_id_t client,
                  std::shared_ptr<const Message> body);

    const Connection* openConnection(const Incoming& incoming);
    void closeConnections(const std::function<bool(const Connection&)>& concerned);

    bool agreesOn(std::span<const std::uint32_t> offeredRevisions) const;
    std::optional<std::uint32_t> selectedRevision() const;

    const Request* findRequest(const std::string& name) const;
    std::uint32_t numberOf(const Message& message) const;
    void addConnectionCommands();

    std::span<const MessageNumber> m_numbers;
    std::map<std::uint32_t, Request> m_requests;
    std::set<std::string> m_indications;
    std::vector<ProtobufProcedures*> m_groups;

    // Settings.
    RevisionSetting m_revision;
    std::uint32_t m_limit = 4096; ///< connections

    // State.
    std::map<std::uint32_t, Connection> m_connections; ///< by the server's reference
    std::uint32_t m_lastRef;
};

template <typename Req>
ProtobufServer::Request ProtobufServer::row(Purpose purpose) const
{
    return row(purpose, Req::default_instance());
}

template <typename Req, typename Cfm, typename Rej>
void ProtobufServer::onConnect()
{
    Request request = row<Req>(Purpose::connect);
    request.confirm = &Cfm::default_instance();
    request.reject = &Rej::default_instance();
    request.prepareReject = [](Message& reject) {
        static_cast<Rej&>(reject).set_reject_reason(Rej::NO_SUPPORTED_PROTOCOL_REVISION);
    };
    request.handle = [this](const Connection&, const Message& req, Message& cfm, Message* rej) {
        const auto& offered = static_cast<const Req&>(req).protocol_revision();
        if (!agreesOn({offered.data(), static_cast<std::size_t>(offered.size())})) {
            return Verdict::reject;
        }
        if (m_connections.size() >= m_limit) {
            static_cast<Rej*>(rej)->set_reject_reason(Rej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);
            return Verdict::reject;
        }
        if (const auto revision = selectedRevision()) {
            static_cast<Cfm&>(cfm).set_selected_protocol_revision(*revision);
        }
        return Verdict::confirm;
    };
    enter(std::move(request));
}

template <typename Req, typename Cfm>
void ProtobufServer::onDisconnect()
{
    Request request = row<Req>(Purpose::disconnect);
    request.confirm = &Cfm::default_instance();
    request.handle = [](const Connection&, const Message&, Message&, Message*) { return Verdict::confirm; };
    enter(std::move(request));
}

template <typename Req, typename Group, typename Cfm, typename Rej>
void ProtobufServer::on(Group& group, Verdict (Group::*handler)(const Connection&, const Req&, Cfm&, Rej&))
{
    Request request = row<Req>(Purpose::request);
    request.confirm = &Cfm::default_instance();
    request.reject = &Rej::default_instance();
    request.prepareReject = [&group](Message& reject) { group.prepareReject(reject); };
    request.handle = [&group, handler](const Connection& connection, const Message& req, Message& cfm, Message* rej) {
        return (group.*handler)(connection, static_cast<const Req&>(req), static_cast<Cfm&>(cfm),
                                static_cast<Rej&>(*rej));
    };
    enter(std::move(request));
}

template <typename Req, typename Group, typename Cfm>
void ProtobufServer::on(Group& group, void (Group::*handler)(const Connection&, const Req&, Cfm&))
{
    Request request = row<Req>(Purpose::request);
    request.confirm = &Cfm::default_instance();
    request.handle = [&group, handler](const Connection& connection, const Message& req, Message& cfm, Message*) {
        (group.*handler)(connection, static_cast<const Req&>(req), static_cast<Cfm&>(cfm));
        return Verdict::confirm;
    };
    enter(std::move(request));
}

template <typename Req>
void ProtobufServer::onUnanswered()
{
    enter(row<Req>(Purpose::unanswered));
}

template <typename Ind>
void ProtobufServer::indicates()
{
    m_indications.insert(Ind::descriptor()->name());
}

} // namespace boardsim
