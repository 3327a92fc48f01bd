/// The unit's faults: subscribing to them, and what is shown of them at the moment.
#include "vorni/faults.h"

#include "vornclient/command.h"
#include "vornclient/interruptibleWaits.h"
#include "vornclient/procedures/procedures.h"
#include "vorni/oamState.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr const char* shortForm = "short";
constexpr const char* labelForm = "label";

/// Whether the words ask for the form with label: one of the two names, or nothing for the default.
bool takeForm(Words words, const char* byDefault)
{
    requireWords(words, 0, 1);
    const std::string form = words.empty() ? byDefault : words[0];
    if (form != shortForm && form != labelForm) {
        throw BadUsage(fmt::format("\"{}\" isn't {} or {}", form, shortForm, labelForm));
    }
    return form == labelForm;
}

Outcome subscribe(CommandContext& context, bool withLabel)
{
    if (withLabel) {
        return context.request<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>(
            {OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number, 0});
    }
    return context.request<OmlaVornSubscribeFaultsReqS>({OmlaVornSubscribeFaultsCfmS::number, 0});
}

/// Brings the view up to date. The faults follow the confirm of the subscription and nothing tells where they end, but
/// an answer that was asked for behind the subscription comes behind them.
Outcome fetch(CommandContext& context)
{
    if (!context.client().isSubscribedToFaults()) {
        Outcome subscribed = context.actsByItself()
                                 ? subscribe(context, true)
                                 : Outcome{Verdict::failed, "not subscribed: faults subscribe comes first", {}};
        if (subscribed.verdict != Verdict::ok) {
            return subscribed;
        }
    }
    return context.request<OmlaVornAuditReqS>({OmlaVornAuditCfmS::number, 0});
}

Outcome list(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    if (Outcome fetched = fetch(context); fetched.verdict != Verdict::ok) {
        return fetched;
    }
    context.printer().faults(context.client());
    return {};
}

/// The printer shows changes of the faults rather than signals while it lives.
class PrintedWatch
{
public:
    PrintedWatch(Printer& printer, const Client& client) : m_printer(printer) { printer.beginWatch(client); }
    ~PrintedWatch() { m_printer.endWatch(); }
    PrintedWatch(const PrintedWatch&) = delete;
    PrintedWatch& operator=(const PrintedWatch&) = delete;

private:
    Printer& m_printer;
};

Outcome watch(CommandContext& context, Words words)
{
    const auto within = takeWithin(words);
    const bool withLabel = takeForm(words, labelForm);
    const InterruptibleWaits interrupt(context.hub());
    if (Outcome connected = context.beConnected(); connected.verdict != Verdict::ok) {
        return connected;
    }
    const PrintedWatch printed(context.printer(), context.client());
    const unsigned losses = context.hub().serverLosses();
    if (Outcome subscribed = subscribe(context, withLabel); subscribed.verdict != Verdict::ok) {
        return subscribed;
    }
    const auto end = within ? ClientHub::Clock::now() + *within : ClientHub::Clock::time_point::max();
    const WaitResult result = context.hub().waitUntil([&] { return context.hub().serverLosses() != losses; }, end);
    if (result == WaitResult::fulfilled) {
        return {Verdict::noServer, fmt::format("\"{}\" went away", ClientHub::serverName), {}};
    }
    if (result == WaitResult::interrupted && context.playDepth > 0) {
        return {Verdict::interrupted, "interrupted", {}}; // the whole session
    }
    return {};
}

Outcome faults(CommandContext& context, Words words)
{
    const std::string action = words.empty() ? "list" : words[0];
    const Words rest = words.empty() ? words : words.subspan(1);
    if (action == "subscribe") {
        return subscribe(context, takeForm(rest, shortForm));
    }
    if (action == "list") {
        return list(context, rest);
    }
    if (action == "watch" || action == "--watch") {
        return watch(context, rest);
    }
    throw BadUsage(fmt::format("faults have no action \"{}\"", action));
}

std::vector<std::string> complete(Words words)
{
    if (words.size() == 1) {
        return {"list", "subscribe", "watch"};
    }
    return words.size() == 2 && words[0] != "list" ? std::vector<std::string>{shortForm, labelForm}
                                                   : std::vector<std::string>{};
}

} // namespace

void addFaultCommands(CommandTable& table)
{
    table.add({"faults", "[list|subscribe [short|label]|watch [short|label] [within SECONDS]]",
               "print the faults that the client is shown, subscribing with label where it hasn't; subscribe to them, "
               "in the short form or with recovery time and label; subscribe and show each change until Ctrl-C (also "
               "spelt --watch)",
               faults, complete});
}

} // namespace VornClient
