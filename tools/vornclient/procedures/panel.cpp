/// All indicators in one view.
#include "vornclient/panelView.h"

#include "vornclient/command.h"
#include "vornclient/interruptibleWaits.h"
#include "vornclient/procedures/procedures.h"
#include "vorni/hereIAm.h"
#include "vorni/maintenanceState.h"
#include "vorni/opticalIndicator.h"
#include "vorni/visualIndication.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

namespace {

using OpticalSubscribeReq = OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS;
using OpticalSubscribeCfm = OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS;
using OpticalSubscribeRej = OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS;

/// A second subscription would have everything told twice. One that is refused leaves its place in the panel empty.
template <typename Request, typename Confirm, typename Reject>
Outcome subscribeTo(CommandContext& context, PanelItem item)
{
    if (context.client().panel().isSubscribed(item)) {
        return {};
    }
    Outcome outcome = context.request<Request>({Confirm::number, Reject::number});
    return outcome.verdict == Verdict::rejected ? Outcome{} : outcome;
}

Outcome subscribe(CommandContext& context)
{
    Outcome outcome =
        subscribeTo<OmlaVornSubscribeMaintStateReqS, OmlaVornSubscribeMaintStateCfmS, OmlaVornSubscribeMaintStateRejS>(
            context, PanelItem::maintenance);
    if (outcome.verdict == Verdict::ok) {
        outcome = subscribeTo<OmlaVornSubscribeHereIAmStateReqS, OmlaVornSubscribeHereIAmStateCfmS,
                              OmlaVornSubscribeHereIAmStateRejS>(context, PanelItem::hereIAm);
    }
    if (outcome.verdict == Verdict::ok) {
        outcome =
            subscribeTo<OpticalSubscribeReq, OpticalSubscribeCfm, OpticalSubscribeRej>(context, PanelItem::optical);
    }
    return outcome;
}

/// Asks for what isn't indicated. What was indicated before the board answers has come when this returns.
Outcome fetch(CommandContext& context)
{
    Outcome codes = context.request<OmlaVornGetVisualIndicationReqS>(
        {OmlaVornGetVisualIndicationCfmS::number, OmlaVornGetVisualIndicationRejS::number});
    return codes.verdict != Verdict::ok
               ? codes
               : context.request<OmlaVornGetSpecialIndicatorReqS>(
                     {OmlaVornGetSpecialIndicatorCfmS::number, OmlaVornGetSpecialIndicatorRejS::number});
}

Report reportOf(const PanelView& panel)
{
    return {"panel", panel.fields(), nullptr, {}, panel.print()};
}

void checkNames(const Assignments& expected)
{
    const auto names = PanelView::fieldNames();
    for (const auto& [name, value] : expected) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            throw BadUsage(fmt::format("the panel has no \"{}\"", name));
        }
    }
}

Outcome show(CommandContext& context, Words words)
{
    const Assignments expected = parseAssignments(words);
    checkNames(expected);
    if (Outcome subscribed = context.actsByItself() ? subscribe(context) : Outcome{};
        subscribed.verdict != Verdict::ok) {
        return subscribed;
    }
    if (Outcome fetched = fetch(context); fetched.verdict != Verdict::ok) {
        return fetched;
    }
    const PanelView& panel = context.client().panel();
    context.printer().report(context.client(), reportOf(panel));
    const std::string difference = printDifference(panel.fields(), expected);
    return difference.empty() ? Outcome{} : Outcome{Verdict::failed, difference, {}};
}

/// Shows the panel where it isn't as it was.
void showNews(CommandContext& context, PanelView& shown)
{
    const PanelView& panel = context.client().panel();
    const auto news = panel.printNews(shown);
    if (!news.empty()) {
        context.printer().live(context.client(), {reportOf(panel), "panel", news});
    }
    shown = panel;
}

/// Shows what changes. An indication tells of itself; what the codes are is asked every now and then, and with each.
Outcome follow(CommandContext& context, ClientHub::Clock::time_point end, unsigned losses)
{
    constexpr std::chrono::seconds askAgain{2};
    const PanelView& panel = context.client().panel();
    PanelView shown;
    while (true) {
        const Outcome fetched = fetch(context);
        showNews(context, shown);
        if (fetched.verdict != Verdict::ok && fetched.verdict != Verdict::rejected) {
            return fetched;
        }
        const unsigned version = panel.version();
        const auto hasNews = [&] { return panel.version() != version || context.hub().serverLosses() != losses; };
        const WaitResult result = context.hub().waitUntil(hasNews, std::min(end, ClientHub::Clock::now() + askAgain));
        showNews(context, shown);
        if (context.hub().serverLosses() != losses) {
            return {Verdict::noServer, fmt::format("\"{}\" went away", ClientHub::serverName), {}};
        }
        if (result == WaitResult::interrupted) {
            return {Verdict::interrupted, "interrupted", {}};
        }
        if (ClientHub::Clock::now() >= end) {
            return {};
        }
    }
}

Outcome watch(CommandContext& context, Words words)
{
    const auto within = takeWithin(words);
    requireWords(words, 0, 0);
    const InterruptibleWaits interrupt(context.hub());
    if (Outcome connected = context.beConnected(); connected.verdict != Verdict::ok) {
        return connected;
    }
    const LivePrinting live(context.printer());
    const unsigned losses = context.hub().serverLosses();
    if (Outcome subscribed = subscribe(context); subscribed.verdict != Verdict::ok) {
        return subscribed;
    }
    const auto end = within ? ClientHub::Clock::now() + *within : ClientHub::Clock::time_point::max();
    Outcome outcome = follow(context, end, losses);
    const bool isOrderly = outcome.verdict == Verdict::interrupted && context.playDepth == 0;
    return isOrderly ? Outcome{} : outcome;
}

Outcome panel(CommandContext& context, Words words)
{
    if (!words.empty() && (words[0] == "watch" || words[0] == "--watch")) {
        return watch(context, words.subspan(1));
    }
    return show(context, words);
}

std::vector<std::string> complete(Words words)
{
    std::vector<std::string> candidates{"watch"};
    candidates.resize(words.size() == 1 ? 1 : 0);
    for (const std::string& name : PanelView::fieldNames()) {
        candidates.push_back(name + "=");
    }
    return candidates;
}

} // namespace

void addPanelCommands(CommandTable& table)
{
    table.add({"panel", "[FIELD=VALUE...|watch [within SECONDS]]",
               "print all indicators, which must be these (- for unknown): the codes, the maintenance, Here-I-Am and "
               "optical indicator states as last indicated, subscribing to them where the client hasn't; show each "
               "change until Ctrl-C (also spelt --watch)",
               panel, complete});
}

} // namespace VornClient
