#include "vornServerCapabilities.h"

#include "bbvorni/bbVorniClient.h"
#include "fdfclient/fdfClient.h"
#include "gantclient/gantClient.h"
#include "tolmeClient.h"
#include "vornServerDunl.h"
#include "vornServerFesk.h"
#include "vornSession.h"
#include "vorni/capabilities.h"
#include "yarrowi/if/yarrowIClient.h"

#include <algorithm>
#include <cassert>

namespace {

constexpr std::uint16_t firstProtocolRev = 1;

/// Codes of the unit's own capabilities inside this server; the others are DunlCapability and FeskCapability.
enum OwnCapability : std::uint16_t {
    SystemConstants = 1,
    DeepSleepSupport = 10,
    wakeUpTimeSupport = 11,
};

struct WakeUpTimeCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = wakeUpTimeSupport;
    explicit WakeUpTimeCapability(std::uint32_t wakeUpTime) : TolmeCapability(ownCode), seconds(wakeUpTime) {}
    std::uint32_t seconds;
};

/// Those that are a number and nothing else.
struct PlainCapability {
    std::uint16_t code;
    std::uint16_t number;
};
constexpr PlainCapability plainCapabilities[] = {
    {SystemConstants, VornCapability::SystemConstants},
    {DunlCapability::HwPid, VornCapability::HwPid},
    {FeskCapability::CommonMmi, VornCapability::CommonMmi},
    {FeskCapability::SpecialIndicator, VornCapability::SpecialIndicator},
    {DunlCapability::UnitPort, VornCapability::UnitPort},
    {DunlCapability::SiteFailureNote, VornCapability::SiteFailureNote},
    {DunlCapability::EarlyPowerFailureReporting, VornCapability::EarlyPowerFailureReporting},
    {FeskCapability::HereIAm, VornCapability::HereIAm},
    {DeepSleepSupport, VornCapability::DeepSleepSupport},
    {DunlCapability::ContainerPid, VornCapability::ContainerPid},
    {DunlCapability::IntegratedHwCategory_1, VornCapability::IntegratedHwCategory_1},
    {DunlCapability::NotifyRestart, VornCapability::NotifyRestart},
    {DunlCapability::RestartNotificationSupport, VornCapability::RestartNotificationSupport},
    {DunlCapability::EventHistorySupport, VornCapability::EventHistorySupport},
    {FeskCapability::OpticalIndicatorControl, VornCapability::OpticalIndicatorControl},
};

/// At most so many characters, and a zero.
template <std::size_t Size>
void putText(char (&field)[Size], const std::string& text, std::size_t maxCharacters = Size - 1)
{
    static_assert(Size > 0);
    text.copy(field, std::min(maxCharacters, Size - 1));
}

} // namespace

/// What the answer is made of.
struct VornServerCapabilities::Sources {
    std::vector<std::shared_ptr<const PLOECapability>> softwareManager;
    std::vector<std::shared_ptr<const FDFCapIdList>> fruDescription;
    std::vector<std::shared_ptr<const TolmeCapability>> board; ///< DUNL, FESK, the unit's own
    const std::vector<std::uint32_t>& baseband;
    bool isFruDescriptionOverridden = false;

    std::size_t size() const { return softwareManager.size() + fruDescription.size() + board.size() + baseband.size(); }
};

/// What the answer depends on besides.
struct VornServerCapabilities::Asker {
    bool isOfFirstRevision = false; ///< has a session of protocol revision 1
    bool isGsmOnIru = false;
};

/// The records of the signal that is being built.
class VornServerCapabilities::Writer
{
public:
    Writer(OmlaVornGetCapabilitiesCfmS& signal, std::size_t room)
        : m_signal(signal), m_next(reinterpret_cast<VornCapabilityRecordS*>(&signal + 1)), m_left(room)
    {
    }

    /// The next record, zeroed behind its number and size, as the payload that it has.
    template <typename Payload = std::uint8_t[vornCapabilityPayloadSize]>
    Payload& add(std::uint16_t number)
    {
        static_assert(sizeof(Payload) <= vornCapabilityPayloadSize);
        assert(m_left > 0); // each source gives one record at most
        --m_left;
        m_next->number = number;
        m_next->size = sizeof(VornCapabilityRecordS);
        m_signal.noOfRecords += 1;
        return reinterpret_cast<Payload&>((m_next++)->payload);
    }
    std::size_t count() const { return m_signal.noOfRecords; }

private:
    OmlaVornGetCapabilitiesCfmS& m_signal;
    VornCapabilityRecordS* m_next;
    std::size_t m_left;
};

bool VornServerCapabilities::init()
{
    subscribe(OmlaVornGetCapabilitiesReqS::number, &VornServerCapabilities::handleGetCapabilitiesReq);
    return true;
}

/// Who has no session is answered too.
void VornServerCapabilities::handleGetCapabilitiesReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornGetCapabilitiesReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    TRACE_1("VornServerCapabilities:handleGetCapabilitiesReq()");
    const Sources sources = collect();
    const Asker asker = describeAsker(msg);
    const auto fill = [&](OmlaVornGetCapabilitiesCfmS& cfm) {
        Writer writer(cfm, sources.size());
        addBaseband(sources, writer);
        const bool isPreinstalledRunning = addSoftwareManager(sources, asker, writer);
        if (sources.isFruDescriptionOverridden || isPreinstalledRunning) {
            addFruDescription(sources, writer);
        }
        addBoard(sources, asker, writer);
        TRACE_INFO("handleGetCapabilitiesReq() collected {} out of {} capabilities.", writer.count(), sources.size());
    };
    sendSignal<OmlaVornGetCapabilitiesCfmS>(kiv_sender(msg.get()), signal->header.clientRef, signal->header.serverRef,
                                            fill, sources.size() * sizeof(VornCapabilityRecordS));
}

VornServerCapabilities::Sources VornServerCapabilities::collect() const
{
    Sources sources{.softwareManager = {},
                    .fruDescription = {},
                    .board = {},
                    .baseband = m_commonData.getBbVorniClient().getCapabilities()};
    m_commonData.getGANTClient().getCapabilities(sources.softwareManager);
    sources.isFruDescriptionOverridden = m_commonData.getFDFClient().getCapabilities(sources.fruDescription);
    TRACE_1("VornServerCapabilities:handleGetCapabilitiesReq() hasFdfUlmo: {}", sources.isFruDescriptionOverridden);
    m_commonData.getDunlClient().getCapabilities(sources.board);
    m_commonData.getFeskClient().getCapabilities(sources.board);
    if (m_commonData.isSystemConstantsAvailable()) {
        TRACE_1("VornServerCapabilities:handleGetCapabilitiesReq() adding 'SystemConstants'");
        sources.board.push_back(std::make_shared<TolmeCapability>(SystemConstants));
    }
    const YarrowIClient& yarrowi = m_commonData.getYarrowIClient();
    if (yarrowi.isDeepSleepSupported()) {
        TRACE_1("tolmeCapabilities getCapabilities() adding 'DeepSleepSupport'");
        sources.board.push_back(std::make_shared<TolmeCapability>(DeepSleepSupport));
    }
    if (yarrowi.hasWakeUpTime()) {
        TRACE_1("tolmeCapabilities getCapabilities() adding 'DeepSleepWakeUpTimeSupport'");
        sources.board.push_back(std::make_shared<WakeUpTimeCapability>(yarrowi.getWakeUpTime()));
    }
    return sources;
}

VornServerCapabilities::Asker VornServerCapabilities::describeAsker(const MessagePtr& msg) const
{
    const auto& header = *viewSignal<VornSignalHeader>(msg);
    const VornSession* session = m_commonData.findVornSession(kiv_sender(msg.get()));
    const HwPid& pid = m_commonData.getHwPid();
    const bool isGsm = isGsmServerRef(static_cast<std::int32_t>(header.serverRef.value()));
    const bool isIru = pid.allPidData != 0 && pid.productName.starts_with("IRU");
    return {.isOfFirstRevision = session != nullptr && session->getProtocolRev() == firstProtocolRev,
            .isGsmOnIru = isGsm && isIru};
}

/// From the last to the first.
void VornServerCapabilities::addBaseband(const Sources& sources, Writer& writer)
{
    std::for_each(sources.baseband.rbegin(), sources.baseband.rend(), [&](std::uint32_t capability) {
        if (capability == VornCapability::Baseband26 || capability == VornCapability::Baseband28) {
            writer.add(static_cast<std::uint16_t>(capability));
        } else {
            TRACE_INFO("ABN: unhandled BB-VORNI capability #{}", capability);
        }
    });
}

namespace {

void fillBootSwInventory(const PLOECapBootSwInventory& capability, VornBootSwInventoryS& inventory)
{
    constexpr std::size_t maxNumber = 22;
    constexpr std::size_t maxRevision = 8;
    const std::size_t count = std::min(capability.entries.size(), VornBootSwInventoryS::maxEntries);
    inventory.noOfEntries = static_cast<std::uint32_t>(count);
    for (std::size_t i = 0; i < count; ++i) {
        putText(inventory.entries[i].productNumber, capability.entries[i].first, maxNumber);
        putText(inventory.entries[i].productRevision, capability.entries[i].second, maxRevision);
    }
}

/// Of the hot spots' or the sensors' type.
template <typename Range, typename Convert>
void fillRanges(const std::vector<std::shared_ptr<Range>>& ranges, VornTemperatureRangesS& record, Convert&& convert)
{
    const std::size_t count = std::min(ranges.size(), VornTemperatureRangesS::maxRanges);
    record.noOfRanges = static_cast<std::uint16_t>(count);
    for (std::size_t i = 0; i < count; ++i) {
        record.ranges[i] = convert(*ranges[i]);
    }
}

VornTemperatureRangesS::Range rangeOf(std::uint16_t id, std::uint16_t upper, std::uint16_t lower)
{
    return {.id = VornU16(id), .upper = VornU16(upper), .lower = VornU16(lower), .reserved = {}};
}

} // namespace

/// Whether preinstalled software runs.
bool VornServerCapabilities::addSoftwareManager(const Sources& sources, const Asker& asker, Writer& writer)
{
    bool isPreinstalledRunning = false;
    for (const auto& capability : sources.softwareManager) {
        switch (capability->type) {
        case PLOECapability::Preinstalled:
            isPreinstalledRunning = static_cast<const PLOECapPreinstalled&>(*capability).running;
            writer.add(VornCapability::Preinstalled);
            break;
        case PLOECapability::SwCompList:
            writer.add(VornCapability::SwCompList);
            break;
        case PLOECapability::LockableResource:
        case PLOECapability::LockableResourceSwStore:
            if (!asker.isOfFirstRevision) { // such a client knows no tickets
                writer.add(capability->type == PLOECapability::LockableResource
                               ? VornCapability::LockableResource
                               : VornCapability::LockableResourceSwStore);
            }
            break;
        case PLOECapability::BootSwInventory:
            fillBootSwInventory(static_cast<const PLOECapBootSwInventory&>(*capability),
                                writer.add<VornBootSwInventoryS>(VornCapability::BootSwInventory));
            break;
        case PLOECapability::LoadingBlockSize: {
            auto& payload = writer.add<VornLoadingBlockSizeS>(VornCapability::LoadingBlockSize);
            payload.reserved1 = 1;
            payload.reserved2 = 1;
            payload.blockSize = static_cast<const PLOECapLoadingBlockSize&>(*capability).blockSize;
            break;
        }
        default:
            break;
        }
    }
    return isPreinstalledRunning;
}

/// Of more ids than the record has room for, the first; their number is that of those.
void VornServerCapabilities::addFruDescription(const Sources& sources, Writer& writer)
{
    for (const auto& list : sources.fruDescription) {
        if (list->kind != FDFCapIdList::idList) {
            continue;
        }
        auto& payload = writer.add<VornFdfIdListS>(VornCapability::FdfIdList);
        const std::size_t count = std::min(list->ids.size(), VornFdfIdListS::maxIds);
        payload.noOfIds = static_cast<std::uint16_t>(count);
        for (std::size_t i = 0; i < count; ++i) {
            putText(payload.ids[i], list->ids[i]);
        }
    }
}

/// What isn't in the table and has no record of its own only steers the components.
void VornServerCapabilities::addBoard(const Sources& sources, const Asker& asker, Writer& writer)
{
    for (const auto& capability : sources.board) {
        if (const auto* lmc = capabilityAs<AlternativeLmcCapability>(*capability)) {
            putText(writer.add<VornAlternativeLmcS>(VornCapability::AlternativeLmcSupport).tag, lmc->tag);
        } else if (const auto* wakeUp = capabilityAs<WakeUpTimeCapability>(*capability)) {
            writer.add<VornCapabilityValueS>(VornCapability::wakeUpTimeSupport).value = wakeUp->seconds;
        } else if (const auto* rank = capabilityAs<RestartRankLabelCapability>(*capability)) {
            writer.add<VornCapabilityValueS>(VornCapability::RestartRankLabelSupport).value = rank->label;
        } else if (const auto* levels = capabilityAs<TemperatureLevelMeasurementCapability>(*capability)) {
            fillRanges(levels->levels, writer.add<VornTemperatureRangesS>(VornCapability::TemperatureLevelMeasurement),
                       [](const auto& level) { return rangeOf(level.sensorId, level.upperLevel, level.lowerLevel); });
        } else if (const auto* climate = capabilityAs<ClimateControlCapability>(*capability)) {
            fillRanges(
                climate->hotspots, writer.add<VornTemperatureRangesS>(VornCapability::ClimateControl),
                [](const auto& spot) { return rangeOf(spot.hotspotId, spot.upperTemperature, spot.lowerTemperature); });
        } else if (capability->code == DunlCapability::MarketPid) {
            if (!asker.isGsmOnIru) {
                writer.add(VornCapability::MarketPid);
            }
        } else {
            const auto* plain = std::find_if(std::begin(plainCapabilities), std::end(plainCapabilities),
                                             [&](const auto& row) { return row.code == capability->code; });
            if (plain != std::end(plainCapabilities)) {
                writer.add(plain->number);
            }
        }
    }
}
