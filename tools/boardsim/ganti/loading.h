/// Loading of software into a slot of the GANTI server.
#pragma once

#include "tools/boardsim/ganti/gantiProcedures.h"
#include "tools/boardsim/ganti/softwareStore.h"
#include "tools/boardsim/ganti/tickets.h"

#include <optional>

namespace boardsim {

/// A load goes on under the usable ticket, so that there is one at a time. Its blocks are written as they come. A block
/// out of sequence, or one that can't be written, fails the load: from then on blocks are acknowledged as aborted, and
/// its end leaves the slot empty. The board doesn't fetch software by itself: such a request is always rejected.
class Loading : public GantiProcedures
{
public:
    Loading(SoftwareStore& store, const Tickets& tickets) : m_store(store), m_tickets(tickets) {}

    Verdict init(Call& call, const gant::PushLoadInitReq& request, gant::PushLoadInitCfm&,
                 gant::PushLoadInitRej& reject);
    void data(Call& call, const gant::PushLoadData& block, gant::PushLoadAck& ack);
    Verdict end(Call& call, const gant::PushLoadEndReq& request, gant::PushLoadEndCfm& confirm,
                gant::PushLoadEndRej& reject);
    Verdict pull(Call& call, const gant::PullLoadInitReq& request, gant::PullLoadInitCfm&,
                 gant::PullLoadInitRej& reject);
    Verdict abortPull(Call& call, const gant::PullLoadAbortReq& request, gant::PullLoadAbortCfm&,
                      gant::PullLoadAbortRej& reject);

    bool isInProgress() const { return m_load.has_value(); }

    void ticketGone(std::uint32_t ticket) override;
    void reset() override { drop(); }
    void show(Json& server) const override;

private:
    struct Load {
        std::uint32_t ticket = 0;
        std::size_t slot = 0;
        UniqueFd file;
        std::string failure; ///< empty: none
        std::optional<std::uint16_t> lastSequence;
        std::uint64_t blocks = 0;
        std::uint64_t size = 0;
    };

    bool take(const gant::PushLoadData& block);
    void drop();

    SoftwareStore& m_store;
    const Tickets& m_tickets;
    std::optional<Load> m_load;
};

} // namespace boardsim
