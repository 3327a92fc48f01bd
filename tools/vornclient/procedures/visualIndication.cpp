/// The unit's indicators: setting one, and reading what they show.
#include "vorni/visualIndication.h"

#include "vornclient/command.h"
#include "vornclient/panelView.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

Outcome set(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    const auto code = static_cast<std::uint16_t>(parseNumber(words[0], UINT16_MAX));
    return context.request<OmlaVornSetVisualIndicationReqS>(
        {OmlaVornSetVisualIndicationCfmS::number, OmlaVornSetVisualIndicationRejS::number},
        [&](auto& request) { request.visualState = code; });
}

/// The words are fields that the confirm must have.
Outcome show(CommandContext& context, Words words)
{
    std::vector<std::string> expected{Vorni::signalName(OmlaVornGetVisualIndicationCfmS::number)};
    expected.insert(expected.end(), words.begin(), words.end());
    const SignalPattern pattern = SignalPattern::parse(expected);
    Outcome outcome = context.request<OmlaVornGetVisualIndicationReqS>(
        {OmlaVornGetVisualIndicationCfmS::number, OmlaVornGetVisualIndicationRejS::number});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const auto codes = *recordOf<OmlaVornGetVisualIndicationCfmS>(*outcome.answer);
    context.printer().report(
        context.client(),
        {"indicators",
         {{"firstIndication", codes.firstIndication},
          {"secondIndication", codes.secondIndication},
          {"thirdIndication", codes.thirdIndication},
          {"fourthIndication", codes.fourthIndication}},
         nullptr,
         {},
         {"first:  " + printIndication(codes.firstIndication), "second: " + printIndication(codes.secondIndication),
          "third:  " + printIndication(codes.thirdIndication), "fourth: " + printIndication(codes.fourthIndication)}});
    if (!pattern.matchesFields(*outcome.answer)) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("expected {}, came: {}", pattern.print(), outcome.answer->print());
    }
    return outcome;
}

/// The words are indicators and the states that they must have.
Outcome showSpecial(CommandContext& context, Words words)
{
    const Assignments expected = parseAssignments(words);
    Outcome outcome = context.request<OmlaVornGetSpecialIndicatorReqS>(
        {OmlaVornGetSpecialIndicatorCfmS::number, OmlaVornGetSpecialIndicatorRejS::number});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const auto indicators = specialIndicatorsOf(*outcome.answer);
    const std::uint32_t said = recordOf<OmlaVornGetSpecialIndicatorCfmS>(*outcome.answer)->noOfIndicators;
    Report report{"specialIndicators", {}, "indicators", {}, {}};
    ShownFields states;
    for (const SpecialIndicator& indicator : indicators) {
        report.rows.push_back({{"name", indicator.name}, {"state", indicator.state}});
        report.lines.push_back(fmt::format("{}: {}", printable(indicator.name), indicator.state));
        states.push_back({indicator.name, indicator.state});
    }
    if (indicators.empty()) {
        report.lines.emplace_back("there are none");
    }
    context.printer().report(context.client(), report);
    outcome.message = indicators.size() == said ? printDifference(states, expected)
                                                : fmt::format("the answer says that it has {} indicators and has {}",
                                                              said, indicators.size());
    outcome.verdict = outcome.message.empty() ? Verdict::ok : Verdict::failed;
    return outcome;
}

Outcome indicator(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    if (words[0] == "set") {
        return set(context, words.subspan(1));
    }
    if (words[0] == "show") {
        return show(context, words.subspan(1));
    }
    if (words[0] == "special") {
        return showSpecial(context, words.subspan(1));
    }
    throw BadUsage(fmt::format("indicators have no action \"{}\"", words[0]));
}

std::vector<std::string> complete(Words words)
{
    if (words.size() == 1) {
        return {"set", "show", "special"};
    }
    std::vector<std::string> fields;
    if (words[0] == "show") {
        for (const Vorni::FieldInfo& field : Vorni::findSignal(OmlaVornGetVisualIndicationCfmS::number)->fields) {
            fields.push_back(std::string(field.name) + "=");
        }
    }
    return fields;
}

} // namespace

void addVisualIndicationCommands(CommandTable& table)
{
    table.add({"indicator", "set CODE|show [FIELD=VALUE...]|special [NAME=STATE...]",
               "set an indicator by its code, decimal or 0x...; print what the four indicators show, or those that "
               "have a name, which must be this",
               indicator, complete});
}

} // namespace VornClient
