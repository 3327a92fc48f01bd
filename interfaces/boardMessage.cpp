#include "boardMessage.h"

#include <fmt/format.h>
#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

namespace {

constexpr std::uint32_t headerSize = sizeof(BoardMessageHeader);
/// A body this large can't be given its header within 32 bits.
constexpr std::size_t tooLarge = 0xFFFFFFFF - headerSize + 1;

} // namespace

OwnedMessage encodeBoardMessage(const BoardEnvelope& envelope, const google::protobuf::Message& body)
{
    const std::size_t size = body.ByteSizeLong();
    OwnedMessage msg(size < tooLarge ? kiv_alloc(static_cast<std::uint32_t>(size) + headerSize, envelope.msgNo)
                                     : nullptr);
    if (msg == nullptr) {
        return nullptr;
    }
    auto* header = viewSignal<BoardMessageHeader>(msg.get());
    header->procedureRef = envelope.procedureRef;
    header->connectionRef = envelope.connectionRef;
    if (!body.SerializeToArray(reinterpret_cast<char*>(msg.get()) + headerSize, static_cast<int>(size))) {
        return nullptr;
    }
    return msg;
}

std::optional<BoardEnvelope> readBoardEnvelope(const kiv_msg* msg)
{
    const auto* header = viewSignal<BoardMessageHeader>(msg);
    if (header == nullptr) {
        return std::nullopt;
    }
    return BoardEnvelope{header->msgNo, header->procedureRef, header->connectionRef};
}

bool decodeBoardMessage(const kiv_msg* msg, BoardEnvelope& envelope, google::protobuf::Message& body)
{
    const auto header = readBoardEnvelope(msg);
    if (!header || !body.ParseFromArray(reinterpret_cast<const char*>(msg) + headerSize,
                                        static_cast<int>(kiv_size(msg) - headerSize))) {
        return false;
    }
    envelope = *header;
    return true;
}

std::vector<int> unknownEnumValues(const google::protobuf::Message& body, int fieldNumber)
{
    std::vector<int> values;
    const google::protobuf::UnknownFieldSet& fields = body.GetReflection()->GetUnknownFields(body);
    for (int i = 0; i < fields.field_count(); ++i) {
        const google::protobuf::UnknownField& field = fields.field(i);
        if (field.number() == fieldNumber && field.type() == google::protobuf::UnknownField::TYPE_VARINT) {
            values.push_back(static_cast<int>(field.varint()));
        }
    }
    return values;
}

std::string printEnvelope(const BoardEnvelope& envelope)
{
    return fmt::format("msgNo:{:#x} procedureRef:{} connectionRef:{}", envelope.msgNo, envelope.procedureRef,
                       envelope.connectionRef);
}

std::string printMessage(const BoardEnvelope& envelope, const google::protobuf::Message& body)
{
    return fmt::format("{} {}:{{{}}}", printEnvelope(envelope), body.GetTypeName(), body.ShortDebugString());
}
