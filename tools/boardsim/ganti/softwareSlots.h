/// The slots of the GANTI server as its clients and the command line see them: inventory, what runs, deletion.
#pragma once

#include "tools/boardsim/ganti/gantiProcedures.h"
#include "tools/boardsim/ganti/loading.h"
#include "tools/boardsim/ganti/softwareStore.h"
#include "tools/boardsim/ganti/tickets.h"

#include <chrono>

namespace boardsim {

/// A deletion erases the slot, which takes a time that is set; its confirm comes at the end of that. Only what is in a
/// writable slot and doesn't run can be deleted, and one at a time.
class SoftwareSlots : public GantiProcedures
{
public:
    SoftwareSlots(SoftwareStore& store, const Tickets& tickets, const Loading& loading)
        : m_store(store), m_tickets(tickets), m_loading(loading)
    {
    }

    Verdict inventory(Call& call, const gant::GetSwProductInvReq& request, gant::GetSwProductInvCfm& confirm,
                      gant::GetSwProductInvRej& reject);
    Verdict runningSoftware(Call&, const gant::GetRunningSwReq&, gant::GetRunningSwCfm& confirm,
                            gant::GetRunningSwRej& reject);
    Verdict setWorking(Call&, const gant::SetCurrentSlotWorkingReq&, gant::SetCurrentSlotWorkingCfm&,
                       gant::SetCurrentSlotWorkingRej& reject);
    Verdict remove(Call& call, const gant::DeleteReq& request, gant::DeleteCfm&, gant::DeleteRej& reject);

    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct Erasure {
        std::uint32_t timer = 0; ///< 0: none is going on
        std::size_t slot = 0;
        std::vector<std::function<void()>> atEnd;
    };

    bool isErasing() const;
    void erase(std::size_t slot);
    void startTimer();
    void erased();

    SoftwareStore& openStore();
    void expectIdle() const;
    void printSlots(std::ostream& out);
    void setSlot(const Words& args);
    void setRunning(const Words& args);
    void compare(const Words& args, std::ostream& out);
    void clear();

    SoftwareStore& m_store;
    const Tickets& m_tickets;
    const Loading& m_loading;
    std::chrono::milliseconds m_eraseTime{0}; ///< a setting
    Erasure m_erasure;
    std::uint32_t m_timesSetWorking = 0;
};

} // namespace boardsim
