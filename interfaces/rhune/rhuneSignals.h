/// RHUNE: the signals by which a client of the unit connects to the server and forwards faults to it.
///
/// They are built as those of VORNI, but for their references: procedureRef is the client's for one request; whose
/// reference connectionRef is, each record says. Those to the server go to its private mailbox.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// The first 12 bytes of every signal between a client and the server.
struct RhuneSignalHeader {
    VornSigNo sigNo;
    VornU32 procedureRef;
    VornU32 connectionRef;

    void setReferences(std::uint32_t procedure, std::uint32_t connection)
    {
        procedureRef = procedure;
        connectionRef = connection;
    }
};
static_assert(sizeof(RhuneSignalHeader) == 12 && alignof(RhuneSignalHeader) == 1);
static_assert(offsetof(RhuneSignalHeader, procedureRef) == 4 && offsetof(RhuneSignalHeader, connectionRef) == 8);

/// RHUNE_VORN_CONN_ESTABLISH_REQ: a client asks for a connection. Behind the record stand the revisions that it speaks,
/// a VornU32 each.
struct RhuneVornConnEstablishReqS {
    static constexpr std::uint32_t number = 0x17C0201;
    RhuneSignalHeader header; ///< connectionRef: the client's reference of the connection
    VornU32 nbrOfSupportedProtocolRev;
};
static_assert(sizeof(RhuneVornConnEstablishReqS) == 16 &&
              offsetof(RhuneVornConnEstablishReqS, nbrOfSupportedProtocolRev) == 12);

/// RHUNE_VORN_CONN_ESTABLISH_CFM: the client is connected.
struct RhuneVornConnEstablishCfmS {
    static constexpr std::uint32_t number = 0x17C0202;
    RhuneSignalHeader header; ///< connectionRef: the server's reference of the connection
    VornU32 selectedProtocolRevision;
};
static_assert(sizeof(RhuneVornConnEstablishCfmS) == 16 &&
              offsetof(RhuneVornConnEstablishCfmS, selectedProtocolRevision) == 12);

/// RHUNE_VORN_CONN_ESTABLISH_REJ: the server speaks none of the client's revisions.
struct RhuneVornConnEstablishRejS {
    static constexpr std::uint32_t number = 0x17C0203;
    RhuneSignalHeader header; ///< connectionRef: 0
    VornU16 errorCode;        ///< 1
    std::uint8_t reserved1[2];
    char errorDescription[110]; ///< zero-terminated
    std::uint8_t reserved2[2];
};
static_assert(sizeof(RhuneVornConnEstablishRejS) == 128 && offsetof(RhuneVornConnEstablishRejS, errorCode) == 12 &&
              offsetof(RhuneVornConnEstablishRejS, errorDescription) == 16);

/// RHUNE_VORN_FAULT_FWD: a client raises a fault.
struct RhuneVornFaultFwdS {
    static constexpr std::uint32_t number = 0x17C0204;
    RhuneSignalHeader header; ///< connectionRef: the server's
    VornU16 faultId;
    std::uint8_t reserved[2];
    char faultDescription[112]; ///< zero-terminated
    VornU32 recoveryTime;       ///< seconds
    char hwFaultLabel[20];      ///< zero-terminated, may be empty
};
static_assert(sizeof(RhuneVornFaultFwdS) == 152 && offsetof(RhuneVornFaultFwdS, faultId) == 12 &&
              offsetof(RhuneVornFaultFwdS, faultDescription) == 16 &&
              offsetof(RhuneVornFaultFwdS, recoveryTime) == 128 && offsetof(RhuneVornFaultFwdS, hwFaultLabel) == 132);

/// RHUNE_VORN_FAULTCEASE_FWD: a client ceases a fault.
struct RhuneVornFaultceaseFwdS {
    static constexpr std::uint32_t number = 0x17C0205;
    RhuneSignalHeader header; ///< connectionRef: the server's
    VornU16 faultId;
    std::uint8_t reserved[2];
};
static_assert(sizeof(RhuneVornFaultceaseFwdS) == 16 && offsetof(RhuneVornFaultceaseFwdS, faultId) == 12);

/// RHUNE_VORN_CONN_CLOSE_REQ: a client ends its connection.
struct RhuneVornConnCloseReqS {
    static constexpr std::uint32_t number = 0x17C0206;
    RhuneSignalHeader header; ///< connectionRef: the server's
};
static_assert(sizeof(RhuneVornConnCloseReqS) == 12);

/// RHUNE_VORN_CONN_CLOSE_CFM: the connection has ended.
struct RhuneVornConnCloseCfmS {
    static constexpr std::uint32_t number = 0x17C0207;
    RhuneSignalHeader header; ///< connectionRef: the client's
};
static_assert(sizeof(RhuneVornConnCloseCfmS) == 12);

/// RHUNE_VORN_SERVER_KIV_MONITOR_IND: what the server gives to the monitor of a client's mailbox, and gets back when
/// that ends. It never leaves the server's process.
struct RhuneVornServerKivMonitorIndS {
    static constexpr std::uint32_t number = 0x17C0209;
    VornSigNo sigNo;
    boost::endian::native_uint32_t serverConnectionReference; ///< host order
};
static_assert(sizeof(RhuneVornServerKivMonitorIndS) == 8 &&
              offsetof(RhuneVornServerKivMonitorIndS, serverConnectionReference) == 4);
