/// The hardware logs: writing entries, reading all of a log.
#include "vorni/hwLog.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr std::size_t longestLabel = sizeof(OmlaVornHwLogSetReqS::label) - 1;

std::uint32_t parseLogId(const std::string& word)
{
    return static_cast<std::uint32_t>(parseNumber(word, UINT32_MAX));
}

/// The entries as the area has them. Throws BadUsage.
std::string packed(Words entries)
{
    std::string area;
    for (const std::string& entry : entries) {
        if (entry.empty()) {
            throw BadUsage("an entry has a character at least");
        }
        area += entry;
        area += '\0';
    }
    if (area.size() > vornHwLogAreaSize) {
        throw BadUsage(fmt::format("entries have at most {} bytes together, each with a zero behind it, these have {}",
                                   vornHwLogAreaSize, area.size()));
    }
    return area;
}

/// Those of an answer: no more than it says, and none from outside the area.
std::vector<std::string> unpacked(const OmlaVornHwLogGetCfmS& log)
{
    std::vector<std::string> entries;
    std::string_view area(reinterpret_cast<const char*>(log.entries), sizeof(log.entries));
    while (!area.empty() && entries.size() < log.length) {
        entries.emplace_back(area.substr(0, area.find('\0')));
        area.remove_prefix(std::min(entries.back().size() + 1, area.size()));
    }
    return entries;
}

Outcome write(CommandContext& context, Words words)
{
    requireWords(words, 3, SIZE_MAX);
    const std::uint32_t logId = parseLogId(words[0]);
    const std::string& label = words[1];
    if (label.size() > longestLabel) {
        throw BadUsage(fmt::format("a label has at most {} characters", longestLabel));
    }
    const Words entries = words.subspan(2);
    const std::string area = packed(entries);
    return context.request<OmlaVornHwLogSetReqS>({OmlaVornHwLogSetCfmS::number, OmlaVornHwLogSetRejS::number},
                                                 [&](auto& request) {
                                                     label.copy(request.label, label.size());
                                                     request.logId = logId;
                                                     request.length = static_cast<std::uint32_t>(entries.size());
                                                     std::memcpy(request.entries, area.data(), area.size());
                                                 });
}

Outcome read(CommandContext& context, Words words)
{
    const auto entry = takeWith(words);
    requireWords(words, 1, 1);
    const std::uint32_t logId = parseLogId(words[0]);
    Outcome outcome = context.request<OmlaVornHwLogGetReqS>(
        {OmlaVornHwLogGetCfmS::number, OmlaVornHwLogGetRejS::number}, [&](auto& request) { request.logId = logId; });
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const auto log = *recordOf<OmlaVornHwLogGetCfmS>(*outcome.answer);
    const std::vector<std::string> entries = unpacked(log);
    context.printer().logEntries(context.client(), logId, entries);
    if (entries.size() != log.length) {
        outcome.verdict = Verdict::failed;
        outcome.message =
            fmt::format("the answer says that it has {} entries and has {}", std::uint32_t{log.length}, entries.size());
    } else if (entry && std::find(entries.begin(), entries.end(), *entry) == entries.end()) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("log {} has no entry \"{}\"", logId, *entry);
    }
    return outcome;
}

Outcome log(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    if (words[0] == "write") {
        return write(context, words.subspan(1));
    }
    if (words[0] == "read") {
        return read(context, words.subspan(1));
    }
    throw BadUsage(fmt::format("\"{}\" isn't write or read", words[0]));
}

std::vector<std::string> completeLog(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"write", "read"} : std::vector<std::string>{};
}

} // namespace

void addHwLogCommands(CommandTable& table)
{
    table.add({"log", "{ write ID LABEL ENTRY... | read ID [with ENTRY] }",
               "write entries to a hardware log; print the entries of one, among which this one must be", log,
               completeLog});
}

} // namespace VornClient
