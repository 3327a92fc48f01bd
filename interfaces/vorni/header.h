/// VORNI: what all signals between a client and the server share.
///
/// A signal is a kiv message: the signal number in host order, the two references and the payload big-endian, texts in
/// fixed fields and zero-terminated. The records are plain structs of byte-order aware fields without padding: reading
/// a field gives a value in host order, assigning one stores it in the order of the wire.
#pragma once

#include <boost/endian/arithmetic.hpp>
#include <cstddef>
#include <cstdint>

using VornU16 = boost::endian::big_uint16_t;
using VornS16 = boost::endian::big_int16_t;
using VornU32 = boost::endian::big_uint32_t;
using VornSigNo = boost::endian::native_uint32_t; ///< host order, unaligned

/// The first 12 bytes of every signal.
struct VornSignalHeader {
    VornSigNo sigNo;
    VornU32 clientRef;
    VornU32 serverRef;

    void setReferences(std::uint32_t client, std::uint32_t server)
    {
        clientRef = client;
        serverRef = server;
    }
};
static_assert(sizeof(VornSignalHeader) == 12 && alignof(VornSignalHeader) == 1);
static_assert(offsetof(VornSignalHeader, clientRef) == 4 && offsetof(VornSignalHeader, serverRef) == 8);

/// A signal that is its header.
template <std::uint32_t Number>
struct VornPlainSignal {
    static constexpr std::uint32_t number = Number;
    VornSignalHeader header;
};
static_assert(sizeof(VornPlainSignal<0>) == 12);

/// What is written of the text of a signal that refuses a request, its zero included; bytes.
inline constexpr std::uint32_t vornRejectTextSize = 110;

/// A signal that refuses a request.
template <std::uint32_t Number>
struct VornRejectSignal {
    static constexpr std::uint32_t number = Number;
    VornSignalHeader header;
    VornU16 errorCode;
    std::uint8_t reserved1[2];
    char errorText[vornRejectTextSize]; ///< zero-terminated
    std::uint8_t reserved2[2];

    char* text() { return errorText; }
};
static_assert(sizeof(VornRejectSignal<0>) == 128 && offsetof(VornRejectSignal<0>, errorCode) == 12 &&
              offsetof(VornRejectSignal<0>, errorText) == 16);

/// The same with a text field that reaches to the end, of which `vornRejectTextSize` bytes are written, as in the
/// other.
template <std::uint32_t Number>
struct VornDescribedRejectSignal {
    static constexpr std::uint32_t number = Number;
    VornSignalHeader header;
    VornU16 errorCode; ///< 1 where the signal doesn't say otherwise
    std::uint8_t reserved[2];
    char description[112]; ///< zero-terminated

    char* text() { return description; }
};
static_assert(sizeof(VornDescribedRejectSignal<0>) == 128 && offsetof(VornDescribedRejectSignal<0>, errorCode) == 12 &&
              offsetof(VornDescribedRejectSignal<0>, description) == 16);
