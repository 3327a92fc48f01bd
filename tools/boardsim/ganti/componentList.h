/// The software component list of the GANTI server.
#pragma once

#include "tools/boardsim/ganti/gantiProcedures.h"
#include "tools/boardsim/ganti/softwareStore.h"
#include "tools/boardsim/ganti/tickets.h"

#include <optional>
#include <string>

namespace boardsim {

/// A text of tags: an entry for each software that isn't the boot's. It goes out in chunks, each behind the
/// acknowledgement of the one before; an acknowledgement that says abort ends it.
class ComponentList : public GantiProcedures
{
public:
    ComponentList(SoftwareStore& store, const Tickets& tickets, GantiIndicate indicate)
        : m_store(store), m_tickets(tickets), m_indicate(std::move(indicate))
    {
    }

    Verdict request(Call& call, const gant::SwCompListReq& request, gant::SwCompListCfm&, gant::SwCompListRej& reject);
    void acknowledged(Call& call, const gant::SwCompListAck& ack);

    void ticketGone(std::uint32_t ticket) override;
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct List {
        std::uint32_t ticket;
        std::uint32_t client;
        std::uint32_t procRef;
        std::string text;
        std::size_t sent = 0;
        bool isEndSent = false;
    };

    std::string text() const;
    void sendChunk(std::uint32_t client, std::uint32_t procRef);
    bool isListOf(std::uint32_t client, std::uint32_t procRef) const;
    void setFile(const Words& args);

    SoftwareStore& m_store;
    const Tickets& m_tickets;
    GantiIndicate m_indicate;

    // Settings.
    std::optional<std::string> m_givenText; ///< nothing: made from the slots
    std::string m_file;
    std::size_t m_chunkSize = 4096;

    // State.
    std::optional<List> m_list;
    std::uint32_t m_strayAcks = 0; ///< that belong to no list
};

} // namespace boardsim
