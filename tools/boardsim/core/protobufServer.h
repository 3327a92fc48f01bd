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
#include "tools/boardsim/core/requestTable.h"
#include "tools/boardsim/core/revisionSetting.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace boardsim {

/// A client's connection.
struct Connection {
    std::uint32_t ref = 0;       ///< the server's reference
    std::uint32_t clientRef = 0; ///< the client's
    kiv_mbox_id_t client = KIV_NO_MBOX;
    std::uint32_t procedureRef = 0; ///< while a request is handled: the request's
};

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

    /// Who is told an indication of the group's when there is cause; each in the procedure that stands there.
    virtual std::vector<Connection> audience(const Message&) const { return {}; }

    /// Fills in what such an indication would tell now, where it tells a state.
    virtual void prepareIndication(Message&) const {}

    /// The group's own commands.
    virtual std::vector<CommandRow> commands() { return {}; }
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

    /// A message that isn't answered.
    template <typename Req, typename Group>
    void on(Group& group, void (Group::*handler)(const Connection&, const Req&));

    template <typename Ind>
    void indicates(const ProtobufProcedures& group);

    /// Of messages that nobody has asked for.
    Indicate indicator();

    /// Of messages that belong to a request, whose reference they echo: the connection is that which its handler got.
    Indicate requestIndicator();

    void showState(Json& server) const override;

private:
    struct Indication {
        const Message* prototype = nullptr;
        const ProtobufProcedures* group = nullptr;
    };
    struct Incoming {
        std::uint32_t procedureRef;
        std::uint32_t connectionRef;
        kiv_mbox_id_t client;
        std::shared_ptr<Message> body;
    };

    void receive(const std::shared_ptr<kiv_msg>& msg) override;
    void clientLost(kiv_mbox_id_t client) override;
    void dropState() override;
    void checkRule(const std::string& message, const Rule& rule) const override;

    Answer makeAnswer(const RequestRow& request, const Incoming& incoming, const Rule& rule);
    Answer answer(const RequestRow& request, const Incoming& incoming, const Connection& connection, const Rule& rule);
    Answer confirmed(const RequestRow& request, const Incoming& incoming, const Connection& connection,
                     std::shared_ptr<Message> confirm);
    void indicate(const Connection& connection, std::uint32_t procedureRef, const Message& message);
    Answer toSend(std::uint32_t procedureRef, std::uint32_t connectionRef, kiv_mbox_id_t client,
                  std::shared_ptr<const Message> body);

    const Connection* openConnection(const Incoming& incoming);
    void closeConnections(const std::function<bool(const Connection&)>& concerned);

    void addConnectionCommands();
    void indicateOnCommand(const Words& args, std::ostream& out);

    RequestTable<const Connection> m_table;
    std::vector<ProtobufProcedures*> m_groups;
    std::map<std::string, Indication> m_indications; ///< by the message

    // Settings.
    RevisionSetting m_revision;
    std::uint32_t m_limit = 4096; ///< connections

    // State.
    std::map<std::uint32_t, Connection> m_connections; ///< by the server's reference
    std::uint32_t m_lastRef;
};

template <typename Req, typename Cfm, typename Rej>
void ProtobufServer::onConnect()
{
    m_table.on<Req, Cfm, Rej>(
        Purpose::connect,
        [this](const Connection&, const Message& request, Message* confirm, Message* reject) {
            const auto& offered = static_cast<const Req&>(request).protocol_revision();
            if (!m_revision.agreesOn({offered.data(), static_cast<std::size_t>(offered.size())})) {
                return Verdict::reject;
            }
            if (m_connections.size() >= m_limit) {
                static_cast<Rej*>(reject)->set_reject_reason(Rej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);
                return Verdict::reject;
            }
            if (const auto revision = m_revision.selected()) {
                static_cast<Cfm*>(confirm)->set_selected_protocol_revision(*revision);
            }
            return Verdict::confirm;
        },
        {},
        [](const Message&, Message& reject) {
            static_cast<Rej&>(reject).set_reject_reason(Rej::NO_SUPPORTED_PROTOCOL_REVISION);
        });
}

template <typename Req, typename Cfm>
void ProtobufServer::onDisconnect()
{
    m_table.on(Purpose::disconnect, Req::default_instance(), &Cfm::default_instance());
}

template <typename Req, typename Group, typename Cfm, typename Rej>
void ProtobufServer::on(Group& group, Verdict (Group::*handler)(const Connection&, const Req&, Cfm&, Rej&))
{
    m_table.on(group, handler, {}, [&group](const Message&, Message& reject) { group.prepareReject(reject); });
}

template <typename Req, typename Group, typename Cfm>
void ProtobufServer::on(Group& group, void (Group::*handler)(const Connection&, const Req&, Cfm&))
{
    m_table.on(group, handler, {});
}

template <typename Req, typename Group>
void ProtobufServer::on(Group& group, void (Group::*handler)(const Connection&, const Req&))
{
    m_table.on(group, handler);
}

template <typename Ind>
void ProtobufServer::indicates(const ProtobufProcedures& group)
{
    m_table.indicates<Ind>();
    m_indications[Ind::descriptor()->name()] = {&Ind::default_instance(), &group};
}

} // namespace boardsim
