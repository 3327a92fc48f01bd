/// Encoding and decoding of the board servers' messages.
#pragma once

#include "kiv/kiv.h"
#include "messageNumber.h"
#include "vorni/access.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace google::protobuf {
class Message;
}

/// The header of a board server's message, in host order.
struct BoardEnvelope {
    std::uint32_t msgNo = 0;
    std::uint32_t procedureRef = 0;
    std::uint32_t connectionRef = 0;
};

/// Makes a message to be sent. Null where it is too large or can't be encoded.
OwnedMessage encodeBoardMessage(const BoardEnvelope& envelope, const google::protobuf::Message& body);

/// The header of a received message; nothing where it is too short for one.
std::optional<BoardEnvelope> readBoardEnvelope(const kiv_msg* msg);

/// Takes a received message apart. False where it is too short or doesn't parse.
bool decodeBoardMessage(const kiv_msg* msg, BoardEnvelope& envelope, google::protobuf::Message& body);

/// The values of an enumeration field that the enumeration doesn't have: the parser puts them aside as unknown.
std::vector<int> unknownEnumValues(const google::protobuf::Message& body, int fieldNumber);

/// "msgNo:0x170773a procedureRef:1 connectionRef:100".
std::string printEnvelope(const BoardEnvelope& envelope);

/// The same followed by " tolme.dunl.SetUtcTimeCfm:{...}".
std::string printMessage(const BoardEnvelope& envelope, const google::protobuf::Message& body);
