/// What the message numbers of the board servers' interfaces share.
///
/// A message of a board server is a kiv message: the number in host order, procedureRef and connectionRef big-endian,
/// the protobuf encoding from offset 12.
#pragma once

#include <boost/endian/arithmetic.hpp>
#include <cstddef>
#include <cstdint>

struct MessageNumber {
    std::uint32_t number;
    const char* name; ///< full name of the protobuf message
};

/// The first 12 bytes of a board server's message.
struct BoardMessageHeader {
    boost::endian::native_uint32_t msgNo;
    boost::endian::big_uint32_t procedureRef;  ///< ties an answer to its request; 0 for an unsolicited indication
    boost::endian::big_uint32_t connectionRef; ///< to the server: the server's reference; from it: the client's
};
static_assert(sizeof(BoardMessageHeader) == 12 && alignof(BoardMessageHeader) == 1 &&
              offsetof(BoardMessageHeader, procedureRef) == 4 && offsetof(BoardMessageHeader, connectionRef) == 8);
