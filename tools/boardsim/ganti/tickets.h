/// Tickets of the GANTI server: who may use the software store.
#pragma once

#include "tools/boardsim/ganti/gantiProcedures.h"

#include <deque>

namespace boardsim {

/// One ticket is usable at a time, over all clients; the others wait in the order in which they were asked for. The
/// holder is told when its ticket becomes usable, behind the confirm of its request. A ticket is its client's only.
class Tickets : public GantiProcedures
{
public:
    explicit Tickets(GantiIndicate indicate);

    /// Who is to be told of tickets that go. Set once.
    void whenGone(std::function<void(std::uint32_t ticket)> told) { m_gone = std::move(told); }

    Verdict acquire(Call& call, const gant::AcquireResourceReq&, gant::AcquireResourceCfm& confirm,
                    gant::AcquireResourceRej& reject);
    Verdict release(Call& call, const gant::ReleaseResourceReq& request, gant::ReleaseResourceCfm&,
                    gant::ReleaseResourceRej& reject);

    /// Whether the request's ticket is usable; where it isn't, the reject tells why.
    template <typename Req, typename Rej>
    bool admits(const Call& call, const Req& request, Rej& reject) const
    {
        const Standing standing = standingOf(call.client, request.ticket_number());
        if (standing != Standing::usable) {
            reject.set_reason(standing == Standing::queued ? Rej::TICKET_IN_QUEUE : Rej::INVALID_TICKET_NUMBER);
        }
        return standing == Standing::usable;
    }

    bool isUsable(const Call& call, std::uint32_t ticket) const
    {
        return standingOf(call.client, ticket) == Standing::usable;
    }

    void clientLost(std::uint32_t client);
    void reset() override;
    void show(Json& server) const override;

private:
    enum class Standing { usable, queued, unknown };

    struct Ticket {
        std::uint32_t number;
        std::uint32_t client;
        std::uint32_t procRef;
        bool isConfirmed = false;
        bool isTold = false; ///< that it is usable
    };

    Standing standingOf(std::uint32_t client, std::uint32_t number) const;
    void confirmed(std::uint32_t number);
    void tellHolder();
    void tellHolderSoon();

    GantiIndicate m_indicate;
    std::function<void(std::uint32_t)> m_gone;
    std::deque<Ticket> m_tickets; ///< the holder's first
    std::uint32_t m_lastNumber;
    std::uint32_t m_timer = 0;
};

} // namespace boardsim
