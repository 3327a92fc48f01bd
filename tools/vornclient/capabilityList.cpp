#include "vornclient/capabilityList.h"

#include "vornclient/command.h"
#include "vorni/access.h"
#include "vorni/capabilities.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <fmt/format.h>
#include <span>
#include <string_view>

namespace VornClient {

namespace {

constexpr std::size_t valueLimit = 200;

struct Name {
    std::uint16_t number;
    const char* name;
};

constexpr std::array names{
    Name{VornCapability::LoadingBlockSize, "LoadingBlockSize"},
    Name{VornCapability::SystemConstants, "SystemConstants"},
    Name{VornCapability::HwPid, "HwPid"},
    Name{VornCapability::ClimateControl, "ClimateControl"},
    Name{VornCapability::CommonMmi, "CommonMmi"},
    Name{VornCapability::Preinstalled, "Preinstalled"},
    Name{VornCapability::SwCompList, "SwCompList"},
    Name{VornCapability::LockableResource, "LockableResource"},
    Name{VornCapability::LockableResourceSwStore, "LockableResourceSwStore"},
    Name{VornCapability::ContainerPid, "ContainerPid"},
    Name{VornCapability::IntegratedHwCategory_1, "IntegratedHwCategory_1"},
    Name{VornCapability::SpecialIndicator, "SpecialIndicator"},
    Name{VornCapability::UnitPort, "UnitPort"},
    Name{VornCapability::MarketPid, "MarketPid"},
    Name{VornCapability::Baseband26, "Baseband26"},
    Name{VornCapability::Baseband28, "Baseband28"},
    Name{VornCapability::SiteFailureNote, "SiteFailureNote"},
    Name{VornCapability::TemperatureLevelMeasurement, "TemperatureLevelMeasurement"},
    Name{VornCapability::EarlyPowerFailureReporting, "EarlyPowerFailureReporting"},
    Name{VornCapability::NotifyRestart, "NotifyRestart"},
    Name{VornCapability::HereIAm, "HereIAm"},
    Name{VornCapability::FdfIdList, "FdfIdList"},
    Name{VornCapability::BootSwInventory, "BootSwInventory"},
    Name{VornCapability::AlternativeLmcSupport, "AlternativeLmcSupport"},
    Name{VornCapability::DeepSleepSupport, "DeepSleepSupport"},
    Name{VornCapability::RestartNotificationSupport, "RestartNotificationSupport"},
    Name{VornCapability::EventHistorySupport, "EventHistorySupport"},
    Name{VornCapability::RestartRankLabelSupport, "RestartRankLabelSupport"},
    Name{VornCapability::OpticalIndicatorControl, "OpticalIndicatorControl"},
    Name{VornCapability::wakeUpTimeSupport, "wakeUpTimeSupport"},
};

template <typename Payload>
Payload payloadOf(const VornCapabilityRecordS& record)
{
    static_assert(sizeof(Payload) <= vornCapabilityPayloadSize);
    Payload payload;
    std::memcpy(&payload, record.payload, sizeof(payload));
    return payload;
}

/// The entries that are there of a list that says how many it has.
template <typename Entry, std::size_t Size>
std::span<const Entry> entriesOf(const Entry (&entries)[Size], std::size_t said)
{
    return std::span(entries).first(std::min(said, Size));
}

template <std::size_t Size>
std::string textIn(const char (&field)[Size])
{
    return std::string(fieldText(field));
}

std::vector<ShownFields> rangesOf(const VornCapabilityRecordS& record)
{
    const auto payload = payloadOf<VornTemperatureRangesS>(record);
    std::vector<ShownFields> rows;
    for (const auto& range : entriesOf(payload.ranges, payload.noOfRanges)) {
        rows.push_back({{"id", range.id}, {"upper", range.upper}, {"lower", range.lower}});
    }
    return rows;
}

std::vector<ShownFields> idsOf(const VornCapabilityRecordS& record)
{
    const auto payload = payloadOf<VornFdfIdListS>(record);
    std::vector<ShownFields> rows;
    for (const auto& id : entriesOf(payload.ids, payload.noOfIds)) {
        rows.push_back({{"id", textIn(id)}});
    }
    return rows;
}

std::vector<ShownFields> inventoryOf(const VornCapabilityRecordS& record)
{
    const auto payload = payloadOf<VornBootSwInventoryS>(record);
    std::vector<ShownFields> rows;
    for (const auto& entry : entriesOf(payload.entries, payload.noOfEntries)) {
        rows.push_back(
            {{"productNumber", textIn(entry.productNumber)}, {"productRevision", textIn(entry.productRevision)}});
    }
    return rows;
}

std::vector<ShownFields> parametersOf(const VornCapabilityRecordS& record)
{
    switch (record.number) {
    case VornCapability::LoadingBlockSize:
        return {{{"blockSize", payloadOf<VornLoadingBlockSizeS>(record).blockSize}}};
    case VornCapability::ClimateControl:
    case VornCapability::TemperatureLevelMeasurement:
        return rangesOf(record);
    case VornCapability::FdfIdList:
        return idsOf(record);
    case VornCapability::BootSwInventory:
        return inventoryOf(record);
    case VornCapability::AlternativeLmcSupport:
        return {{{"tag", textIn(payloadOf<VornAlternativeLmcS>(record).tag)}}};
    case VornCapability::RestartRankLabelSupport:
        return {{{"label", payloadOf<VornCapabilityValueS>(record).value}}};
    case VornCapability::wakeUpTimeSupport:
        return {{{"seconds", payloadOf<VornCapabilityValueS>(record).value}}};
    default:
        return {};
    }
}

std::string printParameters(const std::vector<ShownFields>& rows)
{
    std::string text;
    for (const ShownFields& row : rows) {
        text += text.empty() ? "" : "; ";
        for (const ShownField& field : row) {
            text += fmt::format("{}{}={}", &field == &row.front() ? "" : " ", field.name, printValue(field));
        }
    }
    return text;
}

bool isSameName(std::string_view left, std::string_view right)
{
    const auto isSame = [](unsigned char one, unsigned char other) { return std::tolower(one) == std::tolower(other); };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), isSame);
}

} // namespace

std::string printValue(const ShownField& field)
{
    const auto* number = std::get_if<std::int64_t>(&field.value);
    return number != nullptr ? std::to_string(*number) : printable(std::get<std::string>(field.value), valueLimit);
}

Outcome fetchCapabilities(CommandContext& context, std::vector<Capability>& capabilities)
{
    Outcome outcome = context.request<OmlaVornGetCapabilitiesReqS>({OmlaVornGetCapabilitiesCfmS::number, 0});
    if (outcome.verdict == Verdict::ok) {
        capabilities = capabilitiesOf(*outcome.answer);
    }
    return outcome;
}

std::vector<Capability> capabilitiesOf(const Signal& answer)
{
    std::vector<Capability> capabilities;
    const auto header = recordOf<OmlaVornGetCapabilitiesCfmS>(answer);
    auto records = std::span(answer.bytes).subspan(header ? sizeof(*header) : answer.bytes.size());
    for (std::size_t left = header ? std::size_t{header->noOfRecords} : 0;
         left > 0 && records.size() >= sizeof(VornCapabilityRecordS); --left) {
        VornCapabilityRecordS record;
        std::memcpy(&record, records.data(), sizeof(record));
        capabilities.push_back({record.number, parametersOf(record)});
        records = records.subspan(sizeof(record));
    }
    return capabilities;
}

std::optional<std::int64_t> loadingBlockSize(const std::vector<Capability>& capabilities)
{
    for (const Capability& capability : capabilities) {
        if (capability.number == VornCapability::LoadingBlockSize) {
            return std::get<std::int64_t>(capability.parameters.front().front().value);
        }
    }
    return std::nullopt;
}

std::vector<std::string> fdfIds(const std::vector<Capability>& capabilities)
{
    std::vector<std::string> ids;
    for (const Capability& capability : capabilities) {
        if (capability.number == VornCapability::FdfIdList) {
            for (const ShownFields& row : capability.parameters) {
                ids.push_back(std::get<std::string>(row.front().value));
            }
        }
    }
    return ids;
}

const char* capabilityName(std::uint16_t number)
{
    const auto* found =
        std::find_if(names.begin(), names.end(), [&](const Name& name) { return name.number == number; });
    return found == names.end() ? nullptr : found->name;
}

std::vector<std::string> capabilityNames()
{
    std::vector<std::string> all;
    std::transform(names.begin(), names.end(), std::back_inserter(all), [](const Name& name) { return name.name; });
    return all;
}

std::string printCapability(std::uint16_t number)
{
    const char* name = capabilityName(number);
    return name != nullptr ? fmt::format("{} ({})", name, number) : std::to_string(number);
}

std::uint16_t parseCapability(const std::string& word)
{
    const auto* found =
        std::find_if(names.begin(), names.end(), [&](const Name& name) { return isSameName(word, name.name); });
    if (found != names.end()) {
        return found->number;
    }
    if (word.empty() || std::isdigit(static_cast<unsigned char>(word.front())) == 0) {
        throw BadUsage(fmt::format("there is no capability \"{}\"", word));
    }
    return static_cast<std::uint16_t>(parseNumber(word, UINT16_MAX));
}

std::vector<std::string> printCapabilityTable(const std::vector<Capability>& capabilities)
{
    if (capabilities.empty()) {
        return {"the unit has no capabilities"};
    }
    std::vector<std::string> lines{fmt::format("{:>6}  {:<27}  {}", "NUMBER", "NAME", "PARAMETERS")};
    for (const Capability& capability : capabilities) {
        const char* name = capabilityName(capability.number);
        const std::string parameters = printParameters(capability.parameters);
        lines.push_back(fmt::format("{:>6}  {:<27}  {}", capability.number, name != nullptr ? name : "-",
                                    parameters.empty() ? "-" : parameters));
    }
    return lines;
}

} // namespace VornClient
