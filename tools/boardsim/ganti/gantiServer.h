/// The GANTI server, the board's software manager.
///
/// A message is the header of message number and procedure reference, 4 bytes each and big-endian, and the encoding. An
/// answer, and an indication that belongs to a request, echo the request's procedure reference.
#pragma once

#include "tools/boardsim/core/ploeServer.h"
#include "tools/boardsim/core/revisionSetting.h"
#include "tools/boardsim/ganti/componentList.h"
#include "tools/boardsim/ganti/gantiCapabilities.h"
#include "tools/boardsim/ganti/loading.h"
#include "tools/boardsim/ganti/softwareSlots.h"
#include "tools/boardsim/ganti/softwareStore.h"
#include "tools/boardsim/ganti/tickets.h"

#include <set>
#include <vector>

namespace boardsim {

class GantiServer : public PloeServer
{
public:
    GantiServer();

    std::string messageName(const std::string& word) const override;
    std::vector<std::string> messageNames() const override;

protected:
    void showState(Json& server) const override;

private:
    void addRequests();
    void addConnectionCommands();

    void add(GantiProcedures& group);

    template <typename Group, typename Req, typename Cfm, typename Rej>
    void on(Group& group, Verdict (Group::*handler)(Call&, const Req&, Cfm&, Rej&));

    void receive(std::uint32_t client, std::span<const std::byte> frame) override;
    void clientLost(std::uint32_t client) override;
    void opened() override { m_store.open(); }
    void dropState() override;
    void checkRule(const std::string& message, const Rule& rule) const override;

    Verdict establish(const gant::ConnEstablishReq& request, gant::ConnEstablishCfm& confirm,
                      gant::ConnEstablishRej& reject);
    void forget(std::uint32_t client);
    Answer makeAnswer(const RequestRow& request, Call call, const Message& body, const Rule& rule);
    Answer toSend(std::uint32_t client, std::uint32_t procRef, std::shared_ptr<const Message> body);
    GantiIndicate indicator();

    RequestTable<Call> m_table;
    SoftwareStore m_store;
    Tickets m_tickets;
    GantiCapabilities m_capabilities;
    Loading m_loading;
    SoftwareSlots m_slots;
    ComponentList m_list;
    std::vector<GantiProcedures*> m_groups;

    // Settings.
    RevisionSetting m_revision;
    std::uint32_t m_limit = 64;

    std::set<std::uint32_t> m_established; ///< clients
};

} // namespace boardsim
