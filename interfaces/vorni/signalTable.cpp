#include "vorni/signalTable.h"

#include "vorni/connection.h"
#include "vorni/deepSleep.h"
#include "vorni/linkSupervision.h"
#include "vorni/mmi.h"
#include "vorni/utc.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <string_view>

namespace Vorni {

namespace {

template <typename Record, typename Field>
constexpr FieldKind kindOf()
{
    if constexpr (std::is_array_v<Field>) {
        return std::is_same_v<std::remove_extent_t<Field>, char> ? FieldKind::text : FieldKind::bytes;
    } else {
        return FieldKind::number;
    }
}

#define VORN_FIELD(record_, member_, meaning_)                                                                         \
    FieldInfo                                                                                                          \
    {                                                                                                                  \
#member_, static_cast < std::uint16_t>(offsetof(record_, member_)),                                            \
            static_cast < std::uint16_t>(sizeof(record_::member_)), kindOf < record_, decltype(record_::member_)>(),   \
            meaning_                                                                                                   \
    }

constexpr std::span<const FieldInfo> noFields;

// Every reject of the usual form has the fields of this one.
using AnyReject = VornRejectSignal<0>;
constexpr std::array rejectFields{VORN_FIELD(AnyReject, errorCode, ""), VORN_FIELD(AnyReject, errorText, "")};

constexpr std::array connEstablishReqFields{
    VORN_FIELD(OmlaVornConnEstablishReqS, protocolRev, "the client's protocol revision")};
constexpr std::array selectMmiReqFields{VORN_FIELD(OmlaVornSelectMmiReqS, mode, "1 is supported")};
constexpr std::array setUtcTimeReqFields{VORN_FIELD(OmlaVornSetUtcTimeReqS, utcTime, "passed on untouched")};
constexpr std::array setUtcTimeRejFields{VORN_FIELD(OmlaVornSetUtcTimeRejS, errorCode, "1"),
                                         VORN_FIELD(OmlaVornSetUtcTimeRejS, description, "")};
constexpr std::array deepSleepStatusIndFields{
    VORN_FIELD(OmlaVornDeepSleepStatusIndS, status, "0 inactive, 1 pre-active, 2 activating, 3 active, 4 failure"),
    VORN_FIELD(OmlaVornDeepSleepStatusIndS, statusText, "")};

template <typename Record>
constexpr SignalInfo row(const char* name, Direction direction, const char* answeredBy,
                         std::span<const FieldInfo> fields = noFields, bool openEnded = false)
{
    return {Record::number, name, sizeof(Record), openEnded, direction, answeredBy, fields};
}

constexpr auto toServer = Direction::toServer;
constexpr auto toClient = Direction::toClient;
constexpr bool openEnded = true;

const std::array table{
    row<OmlaVornConnEstablishReqS>("OMLA_VORN_CONN_ESTABLISH_REQ", toServer, "VornServerImpl", connEstablishReqFields,
                                   openEnded),
    row<OmlaVornConnEstablishCfmS>("OMLA_VORN_CONN_ESTABLISH_CFM", toClient, "VornServerImpl", noFields, openEnded),
    row<OmlaVornConnEstablishRejS>("OMLA_VORN_CONN_ESTABLISH_REJ", toClient, "VornServerImpl", noFields, openEnded),
    row<OmlaVornSelectMmiReqS>("OMLA_VORN_SELECT_MMI_REQ", toServer, "VornServerMmiHandling", selectMmiReqFields),
    row<OmlaVornSelectMmiCfmS>("OMLA_VORN_SELECT_MMI_CFM", toClient, "VornServerMmiHandling"),
    row<OmlaVornSelectMmiRejS>("OMLA_VORN_SELECT_MMI_REJ", toClient, "VornServerMmiHandling", rejectFields),
    row<OmlaVornLinkSupervisionReqS>("OMLA_VORN_LINK_SUPERVISION_REQ", toServer, "VornServerLinkSupervision", noFields,
                                     openEnded),
    row<OmlaVornLinkSupervisionRejS>("OMLA_VORN_LINK_SUPERVISION_REJ", toClient, "VornServerLinkSupervision",
                                     rejectFields),
    row<OmlaVornSetUtcTimeReqS>("OMLA_VORN_SET_UTC_TIME_REQ", toServer, "VornServerTime", setUtcTimeReqFields),
    row<OmlaVornSetUtcTimeCfmS>("OMLA_VORN_SET_UTC_TIME_CFM", toClient, "VornServerTime"),
    row<OmlaVornSetUtcTimeRejS>("OMLA_VORN_SET_UTC_TIME_REJ", toClient, "VornServerTime", setUtcTimeRejFields),
    row<OmlaVornSubscribeDeepSleepStatusReqS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REQ", toServer,
                                              "VornServerYarrowI"),
    row<OmlaVornSubscribeDeepSleepStatusCfmS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_CFM", toClient,
                                              "VornServerYarrowI"),
    row<OmlaVornSubscribeDeepSleepStatusRejS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REJ", toClient,
                                              "VornServerYarrowI", rejectFields),
    row<OmlaVornDeepSleepStatusIndS>("OMLA_VORN_DEEP_SLEEP_STATUS_IND", toClient, "VornServerYarrowI",
                                     deepSleepStatusIndFields),
    row<OmlaVornActivateDeepSleepReqS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_REQ", toServer, "VornServerYarrowI"),
    row<OmlaVornActivateDeepSleepCfmS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_CFM", toClient, "VornServerYarrowI"),
    row<OmlaVornActivateDeepSleepRejS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_REJ", toClient, "VornServerYarrowI",
                                       rejectFields),
    row<OmlaVornDeactivateDeepSleepReqS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REQ", toServer, "VornServerYarrowI"),
    row<OmlaVornDeactivateDeepSleepCfmS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_CFM", toClient, "VornServerYarrowI"),
    row<OmlaVornDeactivateDeepSleepRejS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REJ", toClient, "VornServerYarrowI",
                                         rejectFields),
};

std::uint64_t bigEndian(std::span<const std::byte> bytes)
{
    std::uint64_t value = 0;
    for (const std::byte byte : bytes) {
        value = value << 8 | std::to_integer<std::uint64_t>(byte);
    }
    return value;
}

std::string hexDigits(std::span<const std::byte> bytes)
{
    std::string digits;
    for (const std::byte byte : bytes) {
        fmt::format_to(std::back_inserter(digits), "{:02x}", std::to_integer<unsigned>(byte));
    }
    return digits;
}

std::string textUntilZero(std::span<const std::byte> bytes)
{
    const char* text = reinterpret_cast<const char*>(bytes.data());
    return {text, ::strnlen(text, bytes.size())};
}

FieldValue decodeField(const FieldInfo& info, std::span<const std::byte> signal)
{
    const auto bytes = signal.subspan(info.offset, std::min<std::size_t>(info.size, signal.size() - info.offset));
    FieldValue value{.info = &info, .number = 0, .text = {}};
    switch (info.kind) {
    case FieldKind::number:
        value.number = bigEndian(bytes);
        break;
    case FieldKind::text:
        value.text = textUntilZero(bytes);
        break;
    case FieldKind::bytes:
        value.text = hexDigits(bytes);
        break;
    }
    return value;
}

/// A number that is cut in two says nothing; a text or a run of bytes that is cut still does.
bool isIn(const FieldInfo& info, std::size_t size)
{
    return info.kind == FieldKind::number ? info.offset + std::size_t{info.size} <= size : info.offset < size;
}

std::string printField(const FieldValue& field)
{
    switch (field.info->kind) {
    case FieldKind::number:
        return fmt::format("{}={}", field.info->name, field.number);
    case FieldKind::text:
        return fmt::format("{}=\"{}\"", field.info->name, field.text);
    case FieldKind::bytes:
        break;
    }
    return fmt::format("{}=0x{}", field.info->name, field.text);
}

} // namespace

std::span<const SignalInfo> signals()
{
    return table;
}

const SignalInfo* findSignal(std::uint32_t number)
{
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const auto& info) { return info.number == number; });
    return found == table.end() ? nullptr : &*found;
}

const SignalInfo* findSignal(std::string_view name)
{
    const auto found = std::find_if(table.begin(), table.end(), [&](const auto& info) { return info.name == name; });
    return found == table.end() ? nullptr : &*found;
}

std::string signalName(std::uint32_t number)
{
    const SignalInfo* info = findSignal(number);
    return info != nullptr ? info->name : fmt::format("{:#x}", number);
}

DecodedSignal decodeSignal(std::span<const std::byte> bytes, std::size_t maxRest)
{
    DecodedSignal decoded;
    if (bytes.size() >= sizeof(decoded.number)) {
        std::memcpy(&decoded.number, bytes.data(), sizeof(decoded.number));
    }
    decoded.info = findSignal(decoded.number);
    decoded.hasReferences = bytes.size() >= sizeof(VornSignalHeader);
    if (decoded.hasReferences) {
        decoded.clientRef = static_cast<std::uint32_t>(bigEndian(bytes.subspan(4, 4)));
        decoded.serverRef = static_cast<std::uint32_t>(bigEndian(bytes.subspan(8, 4)));
    }
    std::size_t known = sizeof(VornSignalHeader);
    if (decoded.info != nullptr) {
        known = decoded.info->size;
        for (const FieldInfo& field : decoded.info->fields) {
            if (isIn(field, bytes.size())) {
                decoded.fields.push_back(decodeField(field, bytes));
            }
        }
    }
    decoded.truncated = bytes.size() < known;
    if (bytes.size() > known) {
        decoded.restSize = bytes.size() - known;
        decoded.rest = hexDigits(bytes.subspan(known, std::min(decoded.restSize, maxRest)));
    }
    return decoded;
}

std::string printSignal(std::span<const std::byte> bytes)
{
    constexpr std::size_t shownRest = 64;
    const DecodedSignal decoded = decodeSignal(bytes, shownRest);
    std::vector<std::string> parts;
    if (decoded.hasReferences) {
        parts.push_back(fmt::format("clientRef={}", decoded.clientRef));
        parts.push_back(fmt::format("serverRef={}", decoded.serverRef));
    }
    for (const FieldValue& field : decoded.fields) {
        parts.push_back(printField(field));
    }
    if (!decoded.rest.empty()) {
        parts.push_back("rest=0x" + decoded.rest);
        if (decoded.restSize > shownRest) {
            parts.back() += fmt::format("... ({} bytes)", decoded.restSize);
        }
    }
    if (decoded.truncated) {
        parts.push_back("truncated");
    }
    return fmt::format("{}{{{}}}", signalName(decoded.number), fmt::join(parts, ", "));
}

} // namespace Vorni
