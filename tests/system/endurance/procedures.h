/// The procedures of a client: what it sends, what answers it, and which servers behind the server the answer needs.
#pragma once

#include "vorni/access.h"

#include <array>
#include <cstdint>
#include <random>
#include <span>

namespace Endurance {

using Random = std::mt19937;

/// A number of a range, its ends included.
inline unsigned pick(Random& random, unsigned from, unsigned to)
{
    return std::uniform_int_distribution<unsigned>(from, to)(random);
}

/// The servers behind the server.
enum BackEnd : unsigned { legacy, dunl, fesk, yarrowi, ganti, backEndCount };

constexpr std::array<const char*, backEndCount> backEndNames{"legacy", "dunl", "fesk", "yarrowi", "ganti"};

/// A set of them, a bit each.
using BackEnds = unsigned;
constexpr BackEnds only(BackEnd backEnd)
{
    return 1U << backEnd;
}

/// In the order of the table.
enum ProcedureId : std::uint32_t {
    connect,
    proxied,
    getCapabilities,
    selectMmi,
    linkSupervision,
    getFruDescription,
    audit,
    enableOperation,
    disableOperation,
    subscribeFaults,
    subscribeFaultsWithLabel,
    setUtcTime,
    getHwPid,
    getContainerPid,
    getMarketNamePid,
    getExtendedMarketName,
    writeHwLog,
    readHwLog,
    measureTemperature,
    subscribeRestarts,
    getRestartHistory,
    notifyRestart,
    orderRestart,
    orderRestartWithRank,
    setVisualIndication,
    getVisualIndication,
    getSpecialIndicator,
    setMaintState,
    subscribeMaintState,
    orderHereIAm,
    subscribeHereIAm,
    subscribeOpticalIndicator,
    activateOpticalIndicator,
    activateOpticalIndicatorFor,
    deactivateOpticalIndicator,
    subscribeDeepSleep,
    activateDeepSleep,
    deactivateDeepSleep,
    getRunningLmc,
    acquireResource,
    releaseResource,
    beginLoad,
    loadBlock,
    endLoad,
    selectLmc,
    listSoftware,
    procedureCount
};

/// From whom a client's signal is, and to whom.
struct Way {
    std::uint32_t clientRef = 0;
    std::uint32_t serverRef = 0;
    kiv_mbox_id_t own = KIV_NO_MBOX;
    kiv_mbox_id_t server = KIV_NO_MBOX;

    template <typename Record, typename Fill>
    void send(Fill&& fill, std::size_t sizeBehind = 0) const
    {
        NewSignal<Record> signal(clientRef, serverRef, sizeBehind);
        if (signal) {
            fill(*signal);
            signal.send(server, own);
        }
    }
};

struct Procedure {
    ProcedureId id;
    const char* name;
    std::uint32_t confirm; ///< 0: it is never answered
    std::uint32_t reject;  ///< 0: there is none
    BackEnds needs;        ///< besides the legacy server, without which the server has no mailbox for clients
    unsigned weight;       ///< how often it is chosen; 0: only as a part of something larger
    void (*send)(const Way& way, Random& random); ///< null for such a part, which is filled in by what it is part of
};

std::span<const Procedure> procedures();
inline const Procedure& procedureOf(std::uint32_t id)
{
    return procedures()[id];
}
/// The back ends without which it may be unanswered.
inline BackEnds needsOf(std::uint32_t id)
{
    return procedureOf(id).needs | only(legacy);
}

/// How long an answer may take. A ticket waits until those before it are given back.
std::int64_t timeForAnswer(std::uint32_t id);

/// A signal of no component, which the legacy server answers with the next number.
struct ForeignSignal {
    static constexpr std::uint32_t number = 0x1658777;
    VornSignalHeader header;
    VornU32 payload;
};

} // namespace Endurance
