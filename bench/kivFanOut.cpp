#include "board.h"
#include "fanOut.h"
#include "faultTimes.h"
#include "mailbox.h"
#include "vorni/access.h"
#include "vorni/faults.h"

#include <fmt/format.h>
#include <vector>

namespace Bench {
namespace {

using std::chrono::nanoseconds;

using SubscribeReq = OmlaVornSubscribeFaultsWithHwFaultLabelReqS;
using SubscribeCfm = OmlaVornSubscribeFaultsWithHwFaultLabelCfmS;
using FaultInd = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;
using CeaseInd = OmlaVornFaultceaseIndS;

void subscribeFaults(kiv_mbox_id_t client, kiv_mbox_id_t publicMbox)
{
    connectClient(client, publicMbox);
    NewSignal<SubscribeReq>(1, 1).send(publicMbox, client);
    if (receiveMessage()->number != SubscribeCfm::number) {
        throw Failed("a client's subscription isn't confirmed");
    }
}

void checkSignal(const kiv_msg* msg, FaultStep step)
{
    const bool isRaise = step == FaultStep::raise;
    if (msg->number != (isRaise ? FaultInd::number : CeaseInd::number) ||
        kiv_size(msg) != (isRaise ? sizeof(FaultInd) : sizeof(CeaseInd))) {
        throw Failed(fmt::format("a subscriber got {:#x}", msg->number));
    }
}

/// Has the board send a fault; what follows is the subscribers' part.
class KivFanOut : public FanOut
{
public:
    nanoseconds run(FaultStep step) final
    {
        kiv_msg* msg = kiv_alloc(sizeof(FaultOrder), FaultOrder::number);
        reinterpret_cast<FaultOrder*>(msg)->isRaise = step == FaultStep::raise;
        kiv_send(&msg, m_dunl, KIV_CURRENT_MBOX);
        return awaitReceipt(step);
    }

protected:
    KivFanOut(const std::string& serverProgram, unsigned receivers)
        : m_times(faultTimesPath(), receivers), m_unit(serverProgram), m_dunl(awaitMailbox("DunlServer"))
    {
    }

    virtual nanoseconds awaitReceipt(FaultStep step) = 0;

    FaultTimes m_times;
    Unit m_unit;

private:
    kiv_mbox_id_t m_dunl;
};

class KivMailboxes final : public KivFanOut
{
public:
    KivMailboxes(const std::string& serverProgram, unsigned count) : KivFanOut(serverProgram, 1)
    {
        while (m_mailboxes.size() < count) {
            m_mailboxes.push_back(cloneMailbox(kiv_current_mbox(), fmt::format("subscriber{}", m_mailboxes.size())));
            subscribeFaults(m_mailboxes.back(), m_unit.publicMbox());
        }
    }
    ~KivMailboxes() override
    {
        for (const kiv_mbox_id_t mailbox : m_mailboxes) {
            kiv_delete_mailbox(mailbox);
        }
    }
    KivMailboxes(const KivMailboxes&) = delete;
    KivMailboxes& operator=(const KivMailboxes&) = delete;

private:
    nanoseconds awaitReceipt(FaultStep step) override
    {
        for (const kiv_mbox_id_t mailbox : m_mailboxes) {
            const MessagePtr message = receiveMessage();
            checkSignal(message.get(), step);
            // The server tells its subscribers in the order in which they came.
            if (kiv_receiver(message.get()) != mailbox) {
                throw Failed("a subscriber is left out");
            }
        }
        return m_times.sinceSent();
    }

    std::vector<kiv_mbox_id_t> m_mailboxes;
};

class KivProcesses final : public KivFanOut
{
public:
    KivProcesses(const std::string& serverProgram, unsigned count) : KivFanOut(serverProgram, count)
    {
        while (m_processes.size() < count) {
            m_processes.push_back(startRole({"kivSubscriber", fmt::format("subscriber{}", m_processes.size())}));
        }
    }

private:
    nanoseconds awaitReceipt(FaultStep) override { return m_times.awaitLastReceipt(); }

    std::vector<Child> m_processes;
};

} // namespace

std::unique_ptr<FanOut> openKivFanOut(const std::string& serverProgram, Clients kind, unsigned subscribers)
{
    if (kind == Clients::mailboxes) {
        return std::make_unique<KivMailboxes>(serverProgram, subscribers);
    }
    return std::make_unique<KivProcesses>(serverProgram, subscribers);
}

void runKivSubscriber(const std::string& name, const Ready& ready)
{
    FaultTimes times(faultTimesPath());
    subscribeFaults(createMailbox(name), kiv_locate("VornServer"));
    ready();
    for (FaultStep step = FaultStep::raise;; step = step == FaultStep::raise ? FaultStep::cease : FaultStep::raise) {
        const MessagePtr message(kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER));
        times.noteReceipt();
        checkSignal(message.get(), step);
    }
}

} // namespace Bench
