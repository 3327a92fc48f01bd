/// The signals of VORNI and RHUNE as data: number, name, direction and fields of each. It serves whoever prints, builds
/// or lists signals without knowing them: the client tool, the simulator, the tests, the signal reference.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Vorni {

enum class FieldKind : std::uint8_t {
    number, ///< unsigned, big-endian, 1, 2, 4 or 8 bytes
    text,   ///< zero-terminated, ends with the field at the latest
    bytes,
};

/// A field behind the header. Reserved bytes are no fields.
struct FieldInfo {
    const char* name;
    std::uint16_t offset; ///< from the signal's start, bytes
    std::uint16_t size;   ///< bytes; 0: to the end of the signal
    FieldKind kind;
    const char* meaning; ///< unit and range; may be empty
};

enum class Direction : std::uint8_t { toServer, toClient };

enum class Protocol : std::uint8_t { vorni, rhune };

/// The names of the two references behind the number.
std::array<const char*, 2> referenceNames(Protocol protocol);

struct SignalInfo {
    std::uint32_t number;
    Protocol protocol;
    const char* name;   ///< "OMLA_VORN_...", "RHUNE_VORN_..."
    std::uint32_t size; ///< of the record, bytes; a signal may be longer where `openEnded`
    bool openEnded;
    Direction direction;
    const char* answeredBy; ///< the class that handles or sends it
    std::span<const FieldInfo> fields;
};

/// All signals, in the order of their numbers.
std::span<const SignalInfo> signals();

/// The signal of a number or name, or null.
const SignalInfo* findSignal(std::uint32_t number);
const SignalInfo* findSignal(std::string_view name);

/// The number's name, or the number as "0x..." where it has none.
std::string signalName(std::uint32_t number);

/// One field as found in a signal.
struct FieldValue {
    const FieldInfo* info;
    std::uint64_t number = 0; ///< FieldKind::number
    std::string text;         ///< FieldKind::text; FieldKind::bytes as hexadecimal digits
    bool isCut = false;       ///< there are more bytes than were wanted
};

/// One of the two references of a signal.
struct ReferenceValue {
    const char* name; ///< "clientRef", "procedureRef"
    std::uint32_t value = 0;
};

/// A signal taken apart. What the signal is too short for is left out.
struct DecodedSignal {
    std::uint32_t number = 0;
    const SignalInfo* info = nullptr;       ///< null for an unknown number
    std::vector<ReferenceValue> references; ///< both or none
    std::vector<FieldValue> fields;
    std::string rest;         ///< bytes behind the record as hexadecimal digits
    std::size_t restSize = 0; ///< their number
    bool truncated = false;   ///< shorter than its record
};

/// Takes the bytes of a message apart, the number in host order first. Reads nothing outside them. Of what stands
/// behind the record, and of bytes that reach to the signal's end, no more than `maxRest` are kept.
DecodedSignal decodeSignal(std::span<const std::byte> bytes, std::size_t maxRest = SIZE_MAX);

/// "OMLA_VORN_SET_UTC_TIME_REJ{clientRef=1, serverRef=2, errorCode=1, description="Failed to set UTC time"}".
/// Of a long tail only the beginning is shown.
std::string printSignal(std::span<const std::byte> bytes);

} // namespace Vorni
