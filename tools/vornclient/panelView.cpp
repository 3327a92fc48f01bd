#include "vornclient/panelView.h"

#include "vorni/access.h"
#include "vorni/hereIAm.h"
#include "vorni/maintenanceState.h"
#include "vorni/opticalIndicator.h"
#include "vorni/visualIndication.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

namespace {

using OpticalStatusInd = OmlaVornOpticalIndicatorControlStatusChangeIndS;
using OpticalSubscribeCfm = OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS;

struct ItemName {
    const char* field;
    const char* title;
};

/// By PanelItem.
constexpr std::array<ItemName, panelItems> names{{{"firstIndication", "first indication"},
                                                  {"secondIndication", "second indication"},
                                                  {"thirdIndication", "third indication"},
                                                  {"fourthIndication", "fourth indication"},
                                                  {"maintState", "maintenance state"},
                                                  {"hereIAm", "Here-I-Am"},
                                                  {"opticalIndicator", "optical indicator"}}};

bool isCode(std::size_t item)
{
    return item <= static_cast<std::size_t>(PanelItem::fourth);
}

std::string printValue(std::size_t item, const std::optional<std::uint32_t>& value)
{
    if (!value) {
        return "-";
    }
    return isCode(item) ? printIndication(static_cast<std::uint16_t>(*value)) : std::to_string(*value);
}

} // namespace

std::vector<SpecialIndicator> specialIndicatorsOf(const Signal& confirm)
{
    std::vector<SpecialIndicator> indicators;
    const auto record = recordOf<OmlaVornGetSpecialIndicatorCfmS>(confirm);
    if (!record) {
        return indicators;
    }
    const std::size_t come = (confirm.bytes.size() - sizeof(*record)) / sizeof(VornSpecialIndicatorS);
    for (std::size_t index = 0; index < std::min<std::size_t>(come, record->noOfIndicators); ++index) {
        VornSpecialIndicatorS entry;
        std::memcpy(&entry, confirm.bytes.data() + sizeof(*record) + index * sizeof(entry), sizeof(entry));
        indicators.push_back({std::string(fieldText(entry.name)), entry.state});
    }
    return indicators;
}

std::string printIndication(std::uint16_t code)
{
    return code == vornUnknownIndication ? "-" : fmt::format("{:#06x}", code);
}

void PanelView::takeCode(PanelItem item, std::uint16_t code, const Signal& signal)
{
    Item& known = itemOf(item);
    const auto value = code == vornUnknownIndication ? std::nullopt : std::optional<std::uint32_t>(code);
    if (known.value != value) {
        known.value = value;
        known.told = signal.time;
        ++m_version;
    }
}

template <typename Indication>
void PanelView::takeState(PanelItem item, std::uint32_t (*stateOf)(const Indication&), const Signal& signal)
{
    if (const auto indication = recordOf<Indication>(signal)) {
        itemOf(item).value = stateOf(*indication);
        itemOf(item).told = signal.time;
        ++m_version;
    }
}

void PanelView::applyCodes(const Signal& signal)
{
    if (const auto codes = recordOf<OmlaVornGetVisualIndicationCfmS>(signal)) {
        takeCode(PanelItem::first, codes->firstIndication, signal);
        takeCode(PanelItem::second, codes->secondIndication, signal);
        takeCode(PanelItem::third, codes->thirdIndication, signal);
        takeCode(PanelItem::fourth, codes->fourthIndication, signal);
    }
}

void PanelView::applySubscription(std::uint32_t number)
{
    const PanelItem item = number == OmlaVornSubscribeMaintStateCfmS::number     ? PanelItem::maintenance
                           : number == OmlaVornSubscribeHereIAmStateCfmS::number ? PanelItem::hereIAm
                                                                                 : PanelItem::optical;
    itemOf(item).isSubscribed = true;
}

void PanelView::apply(const Signal& signal)
{
    switch (signal.number()) {
    case OmlaVornGetVisualIndicationCfmS::number:
        applyCodes(signal);
        break;
    case OmlaVornGetSpecialIndicatorCfmS::number:
        m_specials = specialIndicatorsOf(signal);
        break;
    case OmlaVornSetMaintStateIndS::number:
        takeState<OmlaVornSetMaintStateIndS>(
            PanelItem::maintenance, [](const auto& indication) { return indication.maintState.value(); }, signal);
        break;
    case OmlaVornHereIAmStateIndS::number:
        takeState<OmlaVornHereIAmStateIndS>(
            PanelItem::hereIAm, [](const auto& indication) -> std::uint32_t { return indication.state; }, signal);
        break;
    case OpticalStatusInd::number:
        takeState<OpticalStatusInd>(
            PanelItem::optical, [](const auto& indication) -> std::uint32_t { return indication.state; }, signal);
        break;
    case OmlaVornSubscribeMaintStateCfmS::number:
    case OmlaVornSubscribeHereIAmStateCfmS::number:
    case OpticalSubscribeCfm::number:
        applySubscription(signal.number());
        break;
    default:
        break;
    }
}

void PanelView::clear()
{
    m_items = {};
    m_specials.clear();
    ++m_version;
}

std::vector<std::string> PanelView::fieldNames()
{
    std::vector<std::string> fields;
    for (const ItemName& name : names) {
        fields.emplace_back(name.field);
    }
    return fields;
}

ShownFields PanelView::fields() const
{
    ShownFields fields;
    for (std::size_t item = 0; item < panelItems; ++item) {
        if (m_items[item].value) {
            fields.push_back({names[item].field, std::int64_t{*m_items[item].value}});
        }
    }
    for (const SpecialIndicator& special : m_specials) {
        fields.push_back({special.name, std::int64_t{special.state}});
    }
    return fields;
}

std::vector<std::string> PanelView::print() const
{
    std::vector<std::vector<std::string>> rows{{"INDICATOR", "STATE", "SINCE"}};
    for (std::size_t item = 0; item < panelItems; ++item) {
        const Item& known = m_items[item];
        const char* untold = isCode(item) ? "-" : known.isSubscribed ? "not indicated yet" : "not subscribed";
        rows.push_back({names[item].title, printValue(item, known.value), known.value ? isoTime(known.told) : untold});
    }
    for (const SpecialIndicator& special : m_specials) {
        rows.push_back({printable(special.name), std::to_string(special.state), "-"});
    }
    return printTable(rows);
}

std::vector<std::string> PanelView::printNews(const PanelView& before) const
{
    std::vector<std::string> lines;
    for (std::size_t item = 0; item < panelItems; ++item) {
        const Item& known = m_items[item];
        if (known.value != before.m_items[item].value || known.told != before.m_items[item].told) {
            lines.push_back(fmt::format("{}: {}", names[item].title, printValue(item, known.value)));
        }
    }
    for (const SpecialIndicator& special : m_specials) {
        const auto isSame = [&](const SpecialIndicator& other) {
            return other.name == special.name && other.state == special.state;
        };
        if (std::none_of(before.m_specials.begin(), before.m_specials.end(), isSame)) {
            lines.push_back(fmt::format("{}: {}", printable(special.name), special.state));
        }
    }
    for (const SpecialIndicator& special : before.m_specials) {
        const auto isSame = [&](const SpecialIndicator& other) { return other.name == special.name; };
        if (std::none_of(m_specials.begin(), m_specials.end(), isSame)) {
            lines.push_back(printable(special.name) + ": -");
        }
    }
    return lines;
}

} // namespace VornClient
