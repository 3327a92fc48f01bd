/// What the simulator prints while it runs: one line per message received and sent.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

namespace boardsim::console {

/// Whether traffic is printed; off at first. Set before the servers start.
void setVerbose(bool verbose);
bool isVerbose();

/// Prints a line of a server's traffic on standard output, with the time, when that is wanted. From any thread.
void traffic(std::string_view server, std::string_view text);

/// The same with a text that is composed only when it is wanted.
template <typename Compose>
requires std::is_invocable_v<Compose>
void traffic(std::string_view server, Compose compose)
{
    if (isVerbose()) {
        const std::string text = compose();
        traffic(server, std::string_view(text));
    }
}

} // namespace boardsim::console
