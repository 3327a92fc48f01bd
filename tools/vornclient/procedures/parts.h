/// A text that the server sends in parts, each of which brings the next one by being acknowledged.
#pragma once

#include "vornclient/command.h"

#include <algorithm>
#include <fmt/format.h>
#include <string>
#include <string_view>

namespace VornClient {

/// The text in a part. A part says how much there is; no more is taken than has come.
template <typename Part>
std::string_view textOf(const Signal& part)
{
    const std::uint32_t said = recordOf<Part>(part)->noOfBytes;
    const std::size_t come = part.bytes.size() - sizeof(Part);
    return {reinterpret_cast<const char*>(part.bytes.data()) + sizeof(Part), std::min<std::size_t>(said, come)};
}

/// Appends the parts from `since` on to a text, to the last of them. `acknowledge` is called for each with whether it
/// is the last one and gives the outcome of acknowledging it; with `onlyFirst` no further one is waited for.
template <typename Part, typename Acknowledge>
Outcome receiveParts(CommandContext& context, std::uint64_t since, bool onlyFirst, std::string& text,
                     Acknowledge&& acknowledge)
{
    constexpr std::size_t longest = 16U << 20U;
    for (std::size_t received = 0; received < longest;) {
        Outcome outcome = context.await(context.client(), {Part::number, 0}, since);
        if (outcome.verdict != Verdict::ok) {
            return outcome;
        }
        since = outcome.answer->sequence + 1;
        received += outcome.answer->bytes.size();
        text += textOf<Part>(*outcome.answer);
        const bool isLast = recordOf<Part>(*outcome.answer)->endFlag != 0;
        if (Outcome sent = acknowledge(isLast); sent.verdict != Verdict::ok) {
            return sent;
        }
        if (isLast || onlyFirst) {
            return {};
        }
    }
    return {Verdict::failed, fmt::format("what comes in parts has more than {} bytes", longest), {}};
}

} // namespace VornClient
