/// Emits every event of the provider once, for the test of the real provider.
///
///     traceEmitter EVENT...    says "ready", waits for a line or the end of its standard input, then until the named
///                              events are enabled, emits all and says "emitted"
///
/// The line is to come when the session has been started: LTTng enables the events of a running program a moment
/// before, and what is emitted in between is lost.

#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using VornTrace::Event;

bool areEnabled(const std::vector<std::string_view>& names)
{
    return std::all_of(names.begin(), names.end(), [](std::string_view name) {
        for (std::size_t i = 0; i < VornTrace::eventCount; ++i) {
            const auto event = static_cast<Event>(i);
            if (name == VornTrace::eventName(event)) {
                return VornTrace::isEnabled(event);
            }
        }
        return false;
    });
}

/// LTTng tells nobody when it enables an event, so the state is asked for.
bool waitUntilEnabled(const std::vector<std::string_view>& names)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!areEnabled(names)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void emitAll()
{
    const std::array<std::uint8_t, 4> bytes = {0x00, 0x01, 0xab, 0xff};
    const VornTrace::Uts uts{1700000000, 42, "yarrowi"};
    TRACE_ERROR("ABN: {} of {}", "error", "emitter");
    TRACE_INFO("info");
    TRACE_STATE_CHANGE("a \"quoted\" text, with = {{ all }}\n\\ of it");
    TRACE_1("1");
    TRACE_2("2");
    TRACE_3("3");
    TRACE_4("4");
    TRACE_5("5");
    TRACE_6("6");
    TRACE_7("7");
    TRACE_REC_SIG(0x1659100u, "received");
    TRACE_SEND_SIG(0x1659101u, 0x10002u, "sent");
    TRACE_DATA(bytes.data(), bytes.size(), "bytes");
    TRACE_UTS(1, uts, bytes.data(), bytes.size(), "uts1");
    TRACE_UTS(2, uts, nullptr, 0, "uts2");
    TRACE_UTS(3, uts, nullptr, 0, "uts3");
    TRACE_UTS(4, uts, nullptr, 0, "uts4");
    TRACE_UTS(5, uts, nullptr, 0, "uts5");
    TRACE_UTS(6, uts, nullptr, 0, "uts6");
    TRACE_UTS(7, uts, bytes.data(), bytes.size(), "uts7");
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> names(argv + 1, argv + argc);
    std::puts("ready");
    std::fflush(stdout);
    std::string line;
    std::getline(std::cin, line);
    if (!waitUntilEnabled(names)) {
        std::fputs("the events were not enabled in time\n", stderr);
        return EXIT_FAILURE;
    }
    emitAll();
    std::puts("emitted");
    return EXIT_SUCCESS;
}
