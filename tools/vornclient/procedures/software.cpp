/// The unit's software: the ticket that all of it stands on, loading a module, choosing one, the list of software
/// components, the running module.
#include "vorni/software.h"

#include "vornclient/command.h"
#include "vornclient/interruptibleWaits.h"
#include "vornclient/lmcLoad.h"
#include "vornclient/procedures/parts.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace VornClient {

namespace {

constexpr std::uint16_t softwareStore = 1; ///< as clients number the resources

// The tickets

std::uint16_t takeResource(Words words)
{
    requireWords(words, 0, 1);
    return words.empty() ? softwareStore : static_cast<std::uint16_t>(parseNumber(words[0], UINT16_MAX));
}

/// Confirm, reject and the rejects' wider record have the resource at the same place.
bool isAbout(std::uint16_t resource, const Signal& signal)
{
    const auto record = recordOf<OmlaVornAcquireResourceCfmS>(signal);
    return !record || record->resource == resource;
}

Answers answersAbout(std::uint16_t resource, std::uint32_t confirm, std::uint32_t reject)
{
    return {confirm, reject, [resource](const Signal& signal) { return isAbout(resource, signal); }};
}

Outcome release(CommandContext& context, std::uint16_t resource)
{
    return context.request<OmlaVornReleaseResourceReqS>(
        answersAbout(resource, OmlaVornReleaseResourceCfmS::number, OmlaVornReleaseResourceRejS::number),
        [&](auto& request) { request.resource = resource; });
}

/// The same where something else has failed: it must be tried even after Ctrl-C.
Outcome giveBack(CommandContext& context, std::uint16_t resource)
{
    const UninterruptedWaits uninterrupted(context.hub());
    return release(context, resource);
}

/// What is no longer waited for mustn't come later: the request is taken back.
Outcome acquire(CommandContext& context, std::uint16_t resource, std::optional<std::chrono::milliseconds> within = {})
{
    const Waiting waiting{within, fmt::format("waiting for the ticket of resource {}", resource)};
    Outcome outcome = context.request<OmlaVornAcquireResourceReqS>(
        answersAbout(resource, OmlaVornAcquireResourceCfmS::number, OmlaVornAcquireResourceRejS::number),
        [&](auto& request) { request.resource = resource; }, waiting);
    const bool mayWaitInQueue = outcome.verdict == Verdict::timedOut || outcome.verdict == Verdict::interrupted;
    if (mayWaitInQueue && context.client().isConnected()) {
        const Outcome takenBack = giveBack(context, resource);
        outcome.message += takenBack.verdict == Verdict::ok
                               ? fmt::format("; the request for resource {} is taken back", resource)
                               : fmt::format("; it couldn't be taken back either: {}", takenBack.message);
    }
    return outcome;
}

/// A client of revision 1 needn't acquire in the boot environment, where it isn't told of the ticket either.
bool acquiresByItself(CommandContext& context)
{
    const Client& client = context.client();
    return context.actsByItself() && client.heldResources().empty() && client.settings().protocolRev > 1;
}

/// Runs a procedure that needs a ticket; a client that acts by itself and holds none has one meanwhile.
template <typename Procedure>
Outcome withTicket(CommandContext& context, bool givesBack, Procedure&& procedure)
{
    context.requireVorni();
    const bool acquires = acquiresByItself(context);
    if (acquires) {
        if (Outcome acquired = acquire(context, softwareStore); acquired.verdict != Verdict::ok) {
            return acquired;
        }
    }
    Outcome outcome = procedure();
    if (!acquires || !givesBack || context.client().heldResources().empty()) {
        return outcome;
    }
    Outcome released = giveBack(context, softwareStore);
    return outcome.verdict == Verdict::ok && released.verdict != Verdict::ok ? released : outcome;
}

Outcome acquireCommand(CommandContext& context, Words words)
{
    const auto within = takeWithin(words);
    return acquire(context, takeResource(words), within);
}

Outcome beginAcquire(CommandContext& context, Words words)
{
    const std::uint16_t resource = takeResource(words);
    context.requireVorni();
    if (Outcome connected = context.beConnected(); connected.verdict != Verdict::ok) {
        return connected;
    }
    Client& client = context.client();
    return context.send(client, makeSignal<OmlaVornAcquireResourceReqS>(
                                    client.nextReferences(), [&](auto& request) { request.resource = resource; }));
}

Outcome releaseCommand(CommandContext& context, Words words)
{
    return release(context, takeResource(words));
}

// Loading

/// A load that can't go on would leave a module that is half there: without its ticket the unit drops it.
void drop(CommandContext& context, Outcome& outcome)
{
    const auto& held = context.client().heldResources();
    const Outcome released = giveBack(context, held.empty() ? softwareStore : held.front());
    outcome.message += released.verdict == Verdict::ok
                           ? "; the ticket is released, and with it what was loaded"
                           : "; the ticket couldn't be released, so that the load stays open: " + released.message;
}

Outcome runLoad(CommandContext& context, LmcLoad& load)
{
    Outcome outcome = load.run();
    if (outcome.verdict == Verdict::ok) {
        context.printer().loaded(context.client(), load.summary());
    } else if (load.isOpen() && context.client().isConnected()) {
        drop(context, outcome);
    }
    return outcome;
}

Outcome load(CommandContext& context, Words words)
{
    const LoadSettings settings = parseLoadSettings(words);
    LmcLoad load(context, settings);
    const InterruptibleWaits interrupt(context.hub());
    return withTicket(context, !settings.breakOffAfter, [&] { return runLoad(context, load); });
}

// Selection, the list, the running module

Outcome select(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    if (words[0].empty() || words[0].size() > longestLoadModule) {
        throw BadUsage(fmt::format("a load module's name has 1 to {} characters", longestLoadModule));
    }
    return withTicket(context, true, [&] {
        return context.requestSignal({OmlaVornSelectLmcCfmS::number, OmlaVornSelectLmcRejS::number},
                                     [&](const References& references) {
                                         return makeSignalWithText<OmlaVornSelectLmcReqS>(references, words[0]);
                                     });
    });
}

Outcome acknowledge(CommandContext& context, bool aborts)
{
    Client& client = context.client();
    return context.send(client, makeSignal<OmlaVornSwCompListAckS>(client.references(),
                                                                   [&](auto& ack) { ack.abort = aborts ? 1 : 0; }));
}

Outcome receiveList(CommandContext& context, std::uint64_t since, bool aborts, std::string& list)
{
    Outcome outcome = receiveParts<OmlaVornSwCompListDataS>(context, since, aborts, list,
                                                            [&](bool) { return acknowledge(context, aborts); });
    if (outcome.verdict == Verdict::failed) {
        acknowledge(context, true); // it ends nowhere
    }
    return outcome;
}

Outcome fetchList(CommandContext& context, bool aborts, std::string& list)
{
    const std::uint64_t mark = context.client().inbox().nextSequence();
    Outcome outcome =
        context.request<OmlaVornSwCompListReqS>({OmlaVornSwCompListCfmS::number, OmlaVornSwCompListRejS::number});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    outcome = receiveList(context, mark, aborts, list);
    if (outcome.verdict == Verdict::ok) {
        context.printer().softwareList(context.client(), list);
    }
    return outcome;
}

Outcome software(CommandContext& context, Words words)
{
    const auto text = takeWith(words);
    requireWords(words, 0, 1);
    if (!words.empty() && words[0] != "--abort") {
        throw BadUsage(fmt::format("\"{}\" isn't --abort", words[0]));
    }
    std::string list;
    Outcome outcome = withTicket(context, true, [&] { return fetchList(context, !words.empty(), list); });
    if (outcome.verdict == Verdict::ok && text && list.find(*text) == std::string::npos) {
        return {Verdict::failed, fmt::format("the list has no \"{}\"", *text), {}};
    }
    return outcome;
}

Outcome running(CommandContext& context, Words words)
{
    requireWords(words, 0, 1);
    Outcome outcome = context.request<OmlaVornGetRunningLmcReqS>(
        {OmlaVornGetRunningLmcCfmS::number, OmlaVornGetRunningLmcRejS::number});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const std::string loadModule = outcome.answer->text();
    context.printer().runningModule(context.client(), loadModule);
    if (!words.empty() && words[0] != loadModule) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("expected that {} runs, came: {}", words[0], outcome.answer->print());
    }
    return outcome;
}

std::vector<std::string> completeLoad(Words words)
{
    const std::vector<std::string> options{"--name", "--block", "--window", "--break-off-after"};
    const bool isValue =
        words.size() > 1 && std::find(options.begin(), options.end(), words[words.size() - 2]) != options.end();
    if (isValue) {
        return {};
    }
    return words.back().starts_with("-") ? options : completePath(words.back());
}

std::vector<std::string> completeSoftware(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"--abort", "with"} : std::vector<std::string>{};
}

} // namespace

void addSoftwareCommands(CommandTable& table)
{
    table.add({"acquire", "[RESOURCE] [within SECONDS]",
               "acquire a resource, by default 1, the software store, and wait for it in the queue", acquireCommand,
               nullptr});
    table.add({"begin-acquire", "[RESOURCE]", "the same without waiting", beginAcquire, nullptr});
    table.add({"release", "[RESOURCE]", "give a resource back", releaseCommand, nullptr});
    table.add(
        {"load", "FILE [--name PRODUCT_REV] [--block BYTES] [--window N] [--break-off-after BYTES]",
         "load a module, by default under the file's name and in blocks of the size that the unit wants. N blocks are "
         "in "
         "flight, by default up to 16 that have 256 KiB together; of many more the unit may lose some. A load that "
         "fails gives the resource back, which drops what was loaded; one that is broken off stays open",
         load, completeLoad});
    table.add({"select", "PRODUCT_REV", "choose the module of the next start", select, nullptr});
    table.add({"software", "[--abort] [with TEXT]",
               "print the list of software components, or its first part; it must have this text", software,
               completeSoftware});
    table.add({"running", "[PRODUCT_REV]", "print the running module, which must be this one", running, nullptr});
}

} // namespace VornClient
