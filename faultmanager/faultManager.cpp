#include "faultmanager/faultManager.h"

#include "trace/trace.h"
#include "vornServerUlmo.h"
#include "vorni/faultIds.h"

#include <fmt/format.h>
#include <optional>
#include <utility>

namespace VornServer {

namespace {

constexpr std::uint32_t environmentList = 0;
constexpr std::uint32_t softwareList = 1;
constexpr std::uint32_t powerList = 2;

Priority priorityOf(std::uint16_t faultId, const ActiveFaultList& list)
{
    switch (faultId) {
    case OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED:
    case OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION:
        return Priority::THIRD;
    case OMLA_CONST_FH_FAULT_ID_INTERNAL_RESOURCE_FAILURE:
        return Priority::LOWEST;
    case OMLA_CONST_FH_FAULT_ID_HW_FAULT:
    case OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION:
        return Priority::SECOND;
    case OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH:
    case OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW:
    case OMLA_CONST_FH_FAULT_ID_SW_ERROR:
    case OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW:
        return Priority::FIRST;
    default:
        return list.number() == environmentList ? Priority::NONE : Priority::SECOND;
    }
}

/// Whether a fault of this priority is held against the others when it comes and goes.
bool isCoordinated(Priority priority)
{
    return priority > Priority::LOWEST;
}

bool isFound(const ActiveFault& fault)
{
    return fault.source != FaultSource::NONE;
}

bool isExceptionalTemperature(std::uint16_t faultId)
{
    return faultId == OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH ||
           faultId == OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW;
}

bool isHardwareFault(std::uint16_t faultId)
{
    return faultId == OMLA_CONST_FH_FAULT_ID_HW_FAULT || faultId == OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION ||
           faultId == OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION;
}

/// The other fault of a mutually exclusive pair.
std::optional<std::uint16_t> relatedFault(std::uint16_t faultId)
{
    switch (faultId) {
    case OMLA_CONST_FH_FAULT_ID_HW_FAULT:
        return OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION;
    case OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION:
        return OMLA_CONST_FH_FAULT_ID_HW_FAULT;
    case OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH:
        return OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW;
    case OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW:
        return OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH;
    default:
        return std::nullopt;
    }
}

/// The active other fault of a pair, or null.
ActiveFault* activeRelatedFault(std::uint16_t faultId, ActiveFaultList& list)
{
    const auto related = relatedFault(faultId);
    if (!related) {
        return nullptr;
    }
    ActiveFault& found = list.find(*related);
    return isFound(found) ? &found : nullptr;
}

} // namespace

FaultManager::~FaultManager()
{
    VornServerUlmo::getInstance().unregisterCmdHandler("fm", this);
}

bool FaultManager::init()
{
    return VornServerUlmo::getInstance().registerCmdHandler("fm", this);
}

void FaultManager::setSubscribers(RaisedSubscriber raised, CeasedSubscriber ceased)
{
    m_raisedSubscriber = std::move(raised);
    m_ceasedSubscriber = std::move(ceased);
}

void FaultManager::setVisualIndicationCallback(IndicationCallback callback)
{
    m_visualIndicationCallback = std::move(callback);
}

void FaultManager::addExceptionalTemperatureCallback(TemperatureCallback callback)
{
    m_temperatureCallbacks.push_back(std::move(callback));
}

bool FaultManager::addFault(FaultData& fault)
{
    if (fault.source == FaultSource::NONE) {
        TRACE_ERROR("ABN: faultId: 0x{:x}, source = FaultSource::NONE", fault.faultId);
    }
    if (fault.faultId == OMLA_CONST_FH_FAULT_ID_LINK_ERROR) {
        TRACE_1("remap OMLA_CONST_FH_FAULT_ID_LINK_ERROR to OMLA_CONST_FH_FAULT_ID_SW_ERROR!");
        fault.faultId = OMLA_CONST_FH_FAULT_ID_SW_ERROR;
    }
    if (isHardwareFault(fault.faultId)) {
        onHardwareFault(true);
    }
    return handleAddFault(fault, listOf(fault.faultId));
}

bool FaultManager::handleAddFault(const FaultData& fault, ActiveFaultList& list)
{
    const Priority priority = priorityOf(fault.faultId, list);
    if (priority == Priority::NONE && fault.source != FaultSource::DUNL) {
        TRACE_ERROR("Unsupported faultId = {}, fault source = {}", faultIdText(fault.faultId),
                    faultSourceText(fault.source));
        return false;
    }
    if (ActiveFault& active = list.find(fault.faultId); isFound(active)) {
        TRACE_1("faultId = {} is already active", faultIdText(fault.faultId));
        ++active.numOfSources;
        return true;
    }
    ActiveFault& added = list.add(fault, priority);
    if (!isCoordinated(priority)) {
        TRACE_1("faultId = {}, priority = {}, has no impact on other faults", faultIdText(fault.faultId),
                priorityText(priority));
        report(added);
        return true;
    }
    if (list.hasHigherPriority(priority)) {
        TRACE_1("faultId = {}, was suppressed by higher priority fault", faultIdText(fault.faultId));
        return true;
    }
    if (const ActiveFault* related = activeRelatedFault(fault.faultId, list);
        related != nullptr && related->isReported) {
        return true;
    }
    ceaseLowerPriorityFaults(list, priority);
    report(added);
    return true;
}

void FaultManager::ceaseLowerPriorityFaults(ActiveFaultList& list, Priority priority)
{
    for (auto entry = list.buckets().rbegin(); entry != list.buckets().rend(); ++entry) {
        auto& [bucketPriority, bucket] = *entry;
        if (bucketPriority >= priority) {
            TRACE_1("faultListPriority = {}, no more faults with priority lower than {}", priorityText(bucketPriority),
                    priorityText(priority));
            return;
        }
        for (ActiveFault& fault : bucket) {
            if (fault.isReported) {
                sendCease(fault);
                fault.isReported = false;
            }
        }
    }
}

void FaultManager::removeFault(std::uint16_t faultId)
{
    if (faultId == OMLA_CONST_FH_FAULT_ID_LINK_ERROR) {
        TRACE_1("remap OMLA_CONST_FH_FAULT_ID_LINK_ERROR to OMLA_CONST_FH_FAULT_ID_SW_ERROR");
        faultId = OMLA_CONST_FH_FAULT_ID_SW_ERROR;
    }
    if (isHardwareFault(faultId)) {
        onHardwareFault(false);
    }
    handleRemoveFault(faultId, listOf(faultId));
}

void FaultManager::handleRemoveFault(std::uint16_t faultId, ActiveFaultList& list)
{
    const Priority priority = priorityOf(faultId, list);
    ActiveFault& active = list.find(faultId);
    if (!isFound(active)) {
        TRACE_ERROR("faultId = {}, has not been activated", faultIdText(faultId));
        return;
    }
    if (active.numOfSources >= 2) {
        --active.numOfSources;
        TRACE_1("faultId: {}, cannot be ceased, numOfSources = {}", faultIdText(faultId), active.numOfSources);
        return;
    }
    const ActiveFault removed = list.take(faultId);
    if (!isFound(removed)) {
        TRACE_1("Could not remove fault, faultId = {}", faultIdText(faultId));
        return;
    }
    sendCease(removed);
    if (!isCoordinated(priority)) {
        TRACE_1("faultId = {}, priority = {}, has no impact on other faults", faultIdText(faultId),
                priorityText(priority));
        return;
    }
    if (ActiveFault* related = activeRelatedFault(faultId, list)) {
        report(*related);
    }
    reportLowerPriorityFaults(list, priority);
}

/// Reports the highest of the lower buckets, whether or not its faults are reported or a higher fault is active.
void FaultManager::reportLowerPriorityFaults(ActiveFaultList& list, Priority priority)
{
    if (!isCoordinated(priority)) {
        return;
    }
    for (auto& [bucketPriority, bucket] : list.buckets()) {
        if (bucketPriority < priority && !bucket.empty()) {
            for (ActiveFault& fault : bucket) {
                report(fault);
            }
            return;
        }
    }
}

void FaultManager::reportActiveFaults(std::uint32_t target)
{
    // A late subscriber doesn't hear of power disturbances.
    for (const std::uint32_t number : {environmentList, softwareList}) {
        for (const auto& [priority, bucket] : m_lists[number].buckets()) {
            for (const ActiveFault& fault : bucket) {
                if (fault.isReported && m_raisedSubscriber) {
                    m_raisedSubscriber(fault, target);
                }
            }
        }
    }
}

void FaultManager::report(ActiveFault& fault)
{
    sendFault(fault);
    fault.isReported = true;
}

/// The clients are told first, then who follows the temperature.
void FaultManager::sendFault(const FaultData& fault)
{
    if (m_raisedSubscriber) {
        m_raisedSubscriber(fault, allSubscribers);
    } else {
        TRACE_ERROR("No subscriber for raised fault, faultId: {}, faultCase: {}", faultIdText(fault.faultId),
                    fault.faultCase);
    }
    if (isExceptionalTemperature(fault.faultId)) {
        callTemperatureCallbacks(true);
    }
}

/// The other way round than on a raise.
void FaultManager::sendCease(const FaultData& fault)
{
    if (isExceptionalTemperature(fault.faultId)) {
        callTemperatureCallbacks(false);
    }
    if (m_ceasedSubscriber) {
        m_ceasedSubscriber(fault);
    } else {
        TRACE_ERROR("No subscriber for ceased fault, faultId: {}, faultCase: {}", faultIdText(fault.faultId),
                    fault.faultCase);
    }
}

void FaultManager::callTemperatureCallbacks(bool isRaised)
{
    for (const TemperatureCallback& callback : m_temperatureCallbacks) {
        TRACE_1("Executing exceptional temperature fault {} callback", isRaised ? "raised" : "ceased");
        callback(isRaised);
    }
}

/// Where a hardware fault would drive an indicator.
void FaultManager::onHardwareFault(bool /*isRaised*/) {}

ActiveFaultList& FaultManager::listOf(std::uint16_t faultId)
{
    switch (faultId) {
    case OMLA_CONST_FH_FAULT_ID_SW_ERROR:
    case OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL:
        return m_lists[softwareList];
    case OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW:
    case OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED:
        return m_lists[powerList];
    default:
        return m_lists[environmentList];
    }
}

const std::string& FaultManager::faultIdName(std::uint16_t faultId) const
{
    static const std::string unknown = "UNKNOWN_FAULT_ID";
    const auto& names = Vorni::faultNames();
    const auto found = names.find(faultId);
    return found != names.end() ? found->second : unknown;
}

std::string FaultManager::faultIdText(std::uint16_t faultId) const
{
    return fmt::format("{} (0x{:x})", faultIdName(faultId), faultId);
}

bool FaultManager::handleCommand(const std::vector<std::string>& args, std::ostream& out)
{
    if (args.size() != 3 || args[2] != "list") {
        out << "invalid fm command\n";
        return false;
    }
    for (const ActiveFaultList& list : m_lists) {
        printList(list, out);
    }
    return true;
}

void FaultManager::printList(const ActiveFaultList& list, std::ostream& out) const
{
    for (const auto& [priority, bucket] : list.buckets()) {
        for (const ActiveFault& fault : bucket) {
            out << fmt::format("{}\nfaultId: 0x{:x}\nfaultDescription: {}\nfaultCase: {}\nrecoveryTime: {}\n"
                               "hwFaultLabel: {}\nnumSources: {}\nisReported: {}\n\n",
                               faultIdName(fault.faultId), fault.faultId, fault.faultDescription, fault.faultCase,
                               fault.recoveryTime, fault.hwFaultLabel.empty() ? "none" : fault.hwFaultLabel,
                               fault.numOfSources, fault.isReported);
        }
    }
}

} // namespace VornServer
