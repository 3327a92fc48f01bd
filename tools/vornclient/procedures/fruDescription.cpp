/// The unit's FRU description file.
#include "vorni/fruDescription.h"

#include "vornclient/capabilityList.h"
#include "vornclient/command.h"
#include "vornclient/procedures/parts.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>
#include <fstream>

namespace VornClient {

namespace {

struct FruSettings {
    std::optional<std::string> fdfId;
    std::string output;
    std::optional<std::string> with;
};

FruSettings parseSettings(Words words)
{
    FruSettings settings;
    settings.with = takeWith(words);
    for (std::size_t at = 0; at < words.size(); ++at) {
        const bool hasNext = at + 1 < words.size();
        if (words[at] == "--output" && hasNext && !words[at + 1].empty()) {
            settings.output = words[++at];
        } else if (words[at].starts_with("--")) {
            throw BadUsage(fmt::format("{} isn't --output with a file's name", words[at]));
        } else if (settings.fdfId) {
            throw BadUsage("there are too many words");
        } else {
            settings.fdfId = words[at];
        }
    }
    return settings;
}

/// The unit has one file, and tells its identity among its capabilities.
Outcome askForId(CommandContext& context, FruSettings& settings)
{
    std::vector<Capability> capabilities;
    Outcome outcome = fetchCapabilities(context, capabilities);
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const std::vector<std::string> ids = fdfIds(capabilities);
    if (ids.empty()) {
        return {Verdict::failed, "the unit tells of no FRU description file among its capabilities", {}};
    }
    settings.fdfId = ids.front();
    return {};
}

/// The last part isn't acknowledged: the server would take it for a wish for more, of whatever file is on its way then.
Outcome fetch(CommandContext& context, const std::string& fdfId, std::string& text)
{
    const std::uint64_t mark = context.client().inbox().nextSequence();
    Outcome outcome = context.requestSignal(
        {OmlaVornGetFruDescFileCfmS::number, OmlaVornGetFruDescFileRejS::number}, [&](const References& references) {
            return makeSignalWithText<OmlaVornGetFruDescFileReqS>(references, fdfId);
        });
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    return receiveParts<OmlaVornFruDescFileDataS>(context, mark, false, text, [&](bool isLast) {
        Client& client = context.client();
        return isLast ? Outcome{}
                      : context.send(client, makeSignal<OmlaVornFruDescFileAckS>(client.references(), [](auto&) {}));
    });
}

Outcome writeFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return file ? Outcome{} : Outcome{Verdict::failed, fmt::format("{} can't be written", path), {}};
}

Outcome fru(CommandContext& context, Words words)
{
    FruSettings settings = parseSettings(words);
    if (Outcome outcome = settings.fdfId ? Outcome{} : askForId(context, settings); outcome.verdict != Verdict::ok) {
        return outcome;
    }
    std::string text;
    if (Outcome outcome = fetch(context, *settings.fdfId, text); outcome.verdict != Verdict::ok) {
        return outcome;
    }
    if (!settings.output.empty()) {
        if (Outcome outcome = writeFile(settings.output, text); outcome.verdict != Verdict::ok) {
            return outcome;
        }
    }
    context.printer().fruDescription(context.client(), *settings.fdfId, text, settings.output);
    if (settings.with && text.find(*settings.with) == std::string::npos) {
        return {Verdict::failed, fmt::format("the file has no \"{}\"", *settings.with), {}};
    }
    return {};
}

std::vector<std::string> completeFru(Words words)
{
    const bool isFile = words.size() > 1 && words[words.size() - 2] == "--output";
    return isFile ? completePath(words.back()) : std::vector<std::string>{"--output", "with"};
}

} // namespace

void addFruDescriptionCommands(CommandTable& table)
{
    table.add({"fru", "[ID] [--output FILE] [with TEXT]",
               "fetch the FRU description file of this identity, by default of the one among the unit's capabilities, "
               "and print it or write it to a file; it must have this text",
               fru, completeFru});
}

} // namespace VornClient
