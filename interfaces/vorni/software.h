/// VORNI signals of the unit's software: the right to use the software store, loading of load module containers (LMC),
/// their selection, the list of software components, the running LMC. A load module goes by its product number and
/// revision, joined by an underscore.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_LOAD_LMC_INIT_REQ: a client begins to load a module.
struct OmlaVornLoadLmcInitReqS {
    static constexpr std::uint32_t number = 0x1658803;
    VornSignalHeader header; ///< the module's name follows, zero-terminated
};

/// OMLA_VORN_LOAD_LMC_INIT_CFM: data may come, or need not.
struct OmlaVornLoadLmcInitCfmS {
    static constexpr std::uint32_t number = 0x1658804;
    VornSignalHeader header;
    VornU16 loadInitResult; ///< 0 data may follow, 1 already loaded, 2 already loaded and running
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornLoadLmcInitCfmS) == 16 && offsetof(OmlaVornLoadLmcInitCfmS, loadInitResult) == 12);

/// OMLA_VORN_LOAD_LMC_INIT_REJ: the module can't be loaded.
using OmlaVornLoadLmcInitRejS = VornDescribedRejectSignal<0x1658805>;

/// OMLA_VORN_LOAD_LMC_DATA: a block of the module.
struct OmlaVornLoadLmcDataS {
    static constexpr std::uint32_t number = 0x1658806;
    VornSignalHeader header;
    VornU16 lmSeqNr; ///< of the block, as the client numbers them
    std::uint8_t reserved[2];
    VornU32 noOfBytes; ///< of the block, which follows
};
static_assert(sizeof(OmlaVornLoadLmcDataS) == 20 && offsetof(OmlaVornLoadLmcDataS, lmSeqNr) == 12 &&
              offsetof(OmlaVornLoadLmcDataS, noOfBytes) == 16);

/// OMLA_VORN_LOAD_LMC_ACK: a block has arrived.
struct OmlaVornLoadLmcAckS {
    static constexpr std::uint32_t number = 0x1658807;
    VornSignalHeader header;
    VornU16 lmSeqNr; ///< of the block
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornLoadLmcAckS) == 16 && offsetof(OmlaVornLoadLmcAckS, lmSeqNr) == 12);

/// OMLA_VORN_LOAD_LMC_END_REQ: all blocks are sent.
using OmlaVornLoadLmcEndReqS = VornPlainSignal<0x1658808>;

/// OMLA_VORN_LOAD_LMC_END_CFM: the load is over.
struct OmlaVornLoadLmcEndCfmS {
    static constexpr std::uint32_t number = 0x1658809;
    VornSignalHeader header;
    VornU16 loadResult; ///< 0 completed, 1 failed
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornLoadLmcEndCfmS) == 16 && offsetof(OmlaVornLoadLmcEndCfmS, loadResult) == 12);

/// OMLA_VORN_LOAD_LMC_END_REJ: the load goes on.
using OmlaVornLoadLmcEndRejS = VornDescribedRejectSignal<0x165880A>;

/// OMLA_VORN_SELECT_LMC_REQ: a client chooses the module of the next start.
struct OmlaVornSelectLmcReqS {
    static constexpr std::uint32_t number = 0x165880B;
    VornSignalHeader header; ///< the module's name follows, zero-terminated
};

/// OMLA_VORN_SELECT_LMC_CFM: it is chosen.
using OmlaVornSelectLmcCfmS = VornPlainSignal<0x165880C>;

/// OMLA_VORN_SELECT_LMC_REJ: it can't be chosen.
using OmlaVornSelectLmcRejS = VornDescribedRejectSignal<0x165880D>;

/// OMLA_VORN_SW_COMP_LIST_REQ: a client asks for the list of software components.
using OmlaVornSwCompListReqS = VornPlainSignal<0x165880E>;

/// OMLA_VORN_SW_COMP_LIST_CFM: the list follows in parts.
using OmlaVornSwCompListCfmS = VornPlainSignal<0x165880F>;

/// OMLA_VORN_SW_COMP_LIST_REJ: there is no list.
using OmlaVornSwCompListRejS = VornDescribedRejectSignal<0x1658810>;

/// OMLA_VORN_SW_COMP_LIST_DATA: a part of the list.
struct OmlaVornSwCompListDataS {
    static constexpr std::uint32_t number = 0x1658811;
    /// Bytes that the signal is longer than its text; the text's zero is the first.
    static constexpr std::size_t slack = 3;
    VornSignalHeader header;
    VornU32 endFlag;   ///< 1 in the last part, else 0
    VornU32 noOfBytes; ///< of the text, which follows
};
static_assert(sizeof(OmlaVornSwCompListDataS) == 20 && offsetof(OmlaVornSwCompListDataS, endFlag) == 12 &&
              offsetof(OmlaVornSwCompListDataS, noOfBytes) == 16);

/// OMLA_VORN_SW_COMP_LIST_ACK: the client has a part and wants the next one, or no more.
struct OmlaVornSwCompListAckS {
    static constexpr std::uint32_t number = 0x1658812;
    VornSignalHeader header;
    VornU32 abort; ///< not 0: no more
};
static_assert(sizeof(OmlaVornSwCompListAckS) == 16 && offsetof(OmlaVornSwCompListAckS, abort) == 12);

/// OMLA_VORN_GET_RUNNING_LMC_REQ: a client asks which module runs.
using OmlaVornGetRunningLmcReqS = VornPlainSignal<0x1658813>;

/// OMLA_VORN_GET_RUNNING_LMC_CFM: the running module.
struct OmlaVornGetRunningLmcCfmS {
    static constexpr std::uint32_t number = 0x1658814;
    VornSignalHeader header;
    char loadModule[36]; ///< zero-terminated
};
static_assert(sizeof(OmlaVornGetRunningLmcCfmS) == 48 && offsetof(OmlaVornGetRunningLmcCfmS, loadModule) == 12);

/// OMLA_VORN_GET_RUNNING_LMC_REJ: it isn't known, or may not run on this hardware.
using OmlaVornGetRunningLmcRejS = VornDescribedRejectSignal<0x1658815>;

/// A signal that names a resource.
template <std::uint32_t Number>
struct VornResourceSignal {
    static constexpr std::uint32_t number = Number;
    VornSignalHeader header;
    VornU16 resource; ///< as the client numbers them; there is one, the software store
    std::uint8_t reserved[2];
};
static_assert(sizeof(VornResourceSignal<0>) == 16 && offsetof(VornResourceSignal<0>, resource) == 12);

/// A signal that refuses a request for a resource.
template <std::uint32_t Number>
struct VornResourceRejectSignal {
    static constexpr std::uint32_t number = Number;
    VornSignalHeader header;
    VornU16 resource;
    std::uint8_t reserved1[2];
    VornU16 errorCode; ///< always 1
    std::uint8_t reserved2[2];
    char description[112]; ///< zero-terminated
};
static_assert(sizeof(VornResourceRejectSignal<0>) == 132 && offsetof(VornResourceRejectSignal<0>, resource) == 12 &&
              offsetof(VornResourceRejectSignal<0>, errorCode) == 16 &&
              offsetof(VornResourceRejectSignal<0>, description) == 20);

/// OMLA_VORN_ACQUIRE_RESOURCE_REQ: a client wants a resource for itself.
using OmlaVornAcquireResourceReqS = VornResourceSignal<0x1659800>;

/// OMLA_VORN_ACQUIRE_RESOURCE_CFM: it has it.
using OmlaVornAcquireResourceCfmS = VornResourceSignal<0x1659801>;

/// OMLA_VORN_ACQUIRE_RESOURCE_REJ: it can't have it.
using OmlaVornAcquireResourceRejS = VornResourceRejectSignal<0x1659802>;

/// OMLA_VORN_RELEASE_RESOURCE_REQ: a client gives a resource back.
using OmlaVornReleaseResourceReqS = VornResourceSignal<0x1659803>;

/// OMLA_VORN_RELEASE_RESOURCE_CFM: it is given back.
using OmlaVornReleaseResourceCfmS = VornResourceSignal<0x1659804>;

/// OMLA_VORN_RELEASE_RESOURCE_REJ: it can't be given back.
using OmlaVornReleaseResourceRejS = VornResourceRejectSignal<0x1659805>;
