#include "vornclient/faultView.h"

#include "vornclient/faultNames.h"
#include "vorni/access.h"
#include "vorni/faults.h"

#include <algorithm>
#include <fmt/format.h>
#include <tuple>
#include <utility>

namespace VornClient {

namespace {

using FaultWithLabelInd = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;

/// Longer than any text field.
constexpr std::size_t textLimit = 200;

template <typename Indication>
ShownFault shownFault(const Indication& indication, const Signal& signal)
{
    ShownFault fault;
    fault.faultId = indication.faultId;
    fault.faultCase = indication.faultCase;
    fault.description = fieldText(indication.faultDescription);
    fault.since = signal.time;
    return fault;
}

auto contents(const ShownFault& fault)
{
    return std::tie(fault.faultCase, fault.description, fault.recoveryTime, fault.label);
}

std::string printRecovery(const ShownFault& fault)
{
    return fault.recoveryTime ? fmt::format("{} s", *fault.recoveryTime) : "-";
}

} // namespace

std::optional<FaultChange> FaultView::apply(const Signal& signal)
{
    switch (signal.number()) {
    case OmlaVornFaultIndS::number:
        if (const auto indication = recordOf<OmlaVornFaultIndS>(signal)) {
            return raise(shownFault(*indication, signal));
        }
        break;
    case FaultWithLabelInd::number:
        if (const auto indication = recordOf<FaultWithLabelInd>(signal)) {
            ShownFault fault = shownFault(*indication, signal);
            fault.recoveryTime = indication->recoveryTime;
            fault.label = fieldText(indication->hwFaultLabel);
            return raise(std::move(fault));
        }
        break;
    case OmlaVornFaultceaseIndS::number:
        if (const auto indication = recordOf<OmlaVornFaultceaseIndS>(signal)) {
            return cease(indication->faultId);
        }
        break;
    default:
        break;
    }
    return std::nullopt;
}

std::optional<FaultChange> FaultView::raise(ShownFault fault)
{
    const auto [at, isNew] = m_faults.try_emplace(fault.faultId, fault);
    if (isNew) {
        return FaultChange{FaultEvent::raised, std::move(fault)};
    }
    if (contents(at->second) == contents(fault)) {
        return std::nullopt;
    }
    fault.since = at->second.since;
    at->second = fault;
    return FaultChange{FaultEvent::changed, std::move(fault)};
}

std::optional<FaultChange> FaultView::cease(std::uint16_t faultId)
{
    auto fault = m_faults.extract(faultId);
    if (fault.empty()) {
        return std::nullopt;
    }
    return FaultChange{FaultEvent::ceased, std::move(fault.mapped())};
}

bool FaultView::clear()
{
    return !std::exchange(m_faults, {}).empty();
}

const char* faultEventName(FaultEvent event)
{
    switch (event) {
    case FaultEvent::shown:
        return "shown";
    case FaultEvent::raised:
        return "raised";
    case FaultEvent::changed:
        return "changed";
    case FaultEvent::ceased:
        return "ceased";
    case FaultEvent::cleared:
        break;
    }
    return "cleared";
}

std::string printFaultChange(const FaultChange& change)
{
    const ShownFault& fault = change.fault;
    if (change.event == FaultEvent::cleared) {
        return "cleared: the faults are no longer known";
    }
    std::string line =
        fmt::format("{:<8}{} case={} description=\"{}\"", faultEventName(change.event), printFaultId(fault.faultId),
                    fault.faultCase, printable(fault.description, textLimit));
    if (fault.recoveryTime) {
        line += fmt::format(" recovery={} label=\"{}\"", *fault.recoveryTime, printable(fault.label, textLimit));
    }
    return line;
}

std::vector<std::string> printFaultTable(const FaultView& view)
{
    if (view.faults().empty()) {
        return {"no faults are shown"};
    }
    constexpr std::string_view nameTitle = "FAULT";
    std::size_t nameWidth = nameTitle.size();
    for (const auto& [faultId, fault] : view.faults()) {
        nameWidth = std::max(nameWidth, printFaultId(faultId).size());
    }
    const auto line = [&](std::string_view name, std::string_view faultCase, std::string_view since,
                          std::string_view recovery, std::string_view label, std::string_view description) {
        return fmt::format("{:<{}}  {:>5}  {:<24}  {:>12}  {:<19}  {}", name, nameWidth, faultCase, since, recovery,
                           label, description);
    };
    std::vector<std::string> lines{line(nameTitle, "CASE", "SINCE", "RECOVERY", "LABEL", "DESCRIPTION")};
    for (const auto& [faultId, fault] : view.faults()) {
        const std::string label = printable(fault.label, textLimit);
        lines.push_back(line(printFaultId(faultId), std::to_string(fault.faultCase), isoTime(fault.since),
                             printRecovery(fault), label.empty() ? "-" : label,
                             printable(fault.description, textLimit)));
    }
    return lines;
}

} // namespace VornClient
