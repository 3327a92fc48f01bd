#include "rhuneClient.h"

#include "client.h"
#include "rhune/rhuneSignals.h"
#include "vorni/faultIds.h"
#include "vorni/hwLog.h"

#include <algorithm>
#include <stdexcept>

namespace Endurance {

namespace {

constexpr std::int64_t timeForRhune = 10 * second;
constexpr std::int64_t millisecond = second / 1000;
constexpr std::uint32_t ownConnectionRef = 77;

constexpr std::uint16_t faults[] = {
    OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION,
    OMLA_CONST_FH_FAULT_ID_SW_ERROR,
    OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED,
    OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION,
    OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL,
    OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW,
};

} // namespace

RhuneClient::RhuneClient(Ledger& ledger, const std::string& name, std::uint32_t seed)
    : m_ledger(ledger), m_random(seed), m_own(kiv_create_mailbox(name.c_str())),
      m_server(kiv_locate("private_VornServer"))
{
    if (m_own == KIV_NO_MBOX) {
        throw std::runtime_error("no mailbox " + name);
    }
}

void RhuneClient::run()
{
    while (isToldToGo == 0 && connect()) {
        for (unsigned i = pick(m_random, 1, 20); i > 0 && isToldToGo == 0; --i) {
            tellFaults();
            rest(pick(m_random, 0, 500));
        }
        if (pick(m_random, 0, 3) == 0) {
            readLog();
        }
        if (!close()) {
            break;
        }
    }
    ++m_ledger.left;
}

template <typename Record, typename Fill>
void RhuneClient::send(std::uint32_t connectionRef, Fill&& fill, std::size_t sizeBehind)
{
    NewSignal<Record> signal(++m_procedureRef, connectionRef, sizeBehind);
    if (signal) {
        fill(*signal);
        signal.send(m_server, m_own);
    }
}

bool RhuneClient::connect()
{
    const auto offerRevision = [](auto& request) {
        request.nbrOfSupportedProtocolRev = 1;
        *reinterpret_cast<VornU32*>(&request + 1) = 1;
    };
    send<RhuneVornConnEstablishReqS>(ownConnectionRef, offerRevision, sizeof(VornU32));
    const OwnedMessage answer = awaitAnswer(RhuneVornConnEstablishCfmS::number, RhuneVornConnEstablishRejS::number);
    const auto* confirm = viewSignal<RhuneVornConnEstablishCfmS>(answer.get());
    if (confirm == nullptr || confirm->header.sigNo != RhuneVornConnEstablishCfmS::number) {
        return false;
    }
    m_connectionRef = confirm->header.connectionRef;
    std::uint32_t highest = m_ledger.rhuneHighest;
    while (highest < m_connectionRef && !m_ledger.rhuneHighest.compare_exchange_weak(highest, m_connectionRef)) {
    }
    return true;
}

/// A fault and its end. A client that is killed in between leaves its fault.
void RhuneClient::tellFaults()
{
    const std::uint16_t faultId = faults[pick(m_random, 0, static_cast<unsigned>(std::size(faults) - 1))];
    send<RhuneVornFaultFwdS>(m_connectionRef, [&](auto& fault) {
        fault.faultId = faultId;
        std::copy_n("endurance", 9, fault.faultDescription);
        fault.recoveryTime = pick(m_random, 0, 1000);
        std::copy_n("LABEL", 5, fault.hwFaultLabel);
    });
    rest(pick(m_random, 0, 200));
    send<RhuneVornFaultceaseFwdS>(m_connectionRef, [&](auto& cease) { cease.faultId = faultId; });
    m_ledger.rhuneFaults += 2;
}

bool RhuneClient::close()
{
    send<RhuneVornConnCloseReqS>(m_connectionRef, [](auto&) {});
    return awaitAnswer(RhuneVornConnCloseCfmS::number, RhuneVornConnCloseCfmS::number) != nullptr;
}

/// Nobody is answered who has no session.
void RhuneClient::readLog()
{
    ++m_ledger.strayReads;
    const Way way{.clientRef = 1, .serverRef = 2, .own = m_own, .server = m_server};
    way.send<OmlaVornHwLogGetReqS>([](auto& request) { request.logId = 1; });
}

OwnedMessage RhuneClient::awaitAnswer(std::uint32_t confirm, std::uint32_t reject)
{
    ++m_ledger.rhuneAsked;
    const std::int64_t end = now() + timeForRhune;
    for (std::int64_t left = timeForRhune; left > 0; left = end - now()) {
        OwnedMessage signal(kiv_receive(nullptr, static_cast<std::uint32_t>(left / millisecond) + 1, KIV_ANY_SENDER));
        if (signal != nullptr && (signal->number == confirm || signal->number == reject)) {
            ++m_ledger.rhuneAnswered;
            return signal;
        }
    }
    ++m_ledger.rhuneUnanswered;
    return nullptr;
}

void RhuneClient::rest(unsigned milliseconds)
{
    const std::int64_t end = now() + milliseconds * millisecond;
    for (std::int64_t left = end - now(); left > 0 && isToldToGo == 0; left = end - now()) {
        kiv_free(kiv_receive(nullptr, static_cast<std::uint32_t>(left / millisecond) + 1, KIV_ANY_SENDER));
    }
}

} // namespace Endurance
