/// Signals as such: sending any of them, and saying what must and must not come.
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

namespace {

using Clock = ClientHub::Clock;

Outcome sendSignal(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    Client& sender = context.clientFor(parseSignalNumber(words.front()));
    return context.send(sender, buildSignal(words, sender.nextReferences()));
}

/// The one whose signals are looked at; where it is the one in use, it is connected first.
Outcome beConnected(CommandContext& context, const Client& client)
{
    return &client == &context.client() ? context.beConnected() : Outcome{};
}

/// The signals that are expected next of a number are taken in their order: one with other fields is a failure.
Outcome expectSignal(CommandContext& context, Words words)
{
    const auto within = takeWithin(words).value_or(context.options().answerTimeout);
    const SignalPattern pattern = SignalPattern::parse(words);
    Client& client = context.clientFor(pattern.number());
    if (Outcome connected = beConnected(context, client); connected.verdict != Verdict::ok) {
        return connected;
    }
    std::optional<Signal> found;
    const WaitResult result = context.hub().waitUntil(
        [&] {
            found = client.inbox().take([&](const Signal& signal) { return signal.number() == pattern.number(); });
            return found.has_value();
        },
        Clock::now() + within);
    if (found && pattern.matchesFields(*found)) {
        return {Verdict::ok, "", std::move(found)};
    }
    if (result == WaitResult::interrupted) {
        return {Verdict::interrupted, "interrupted", {}};
    }
    if (found) {
        return {Verdict::failed, fmt::format("expected {}, came: {}", pattern.print(), found->print()), {}};
    }
    return {Verdict::timedOut,
            fmt::format("expected {} within {}, came: {}", pattern.print(), printSeconds(within),
                        printUnread(client.inbox())),
            {}};
}

Outcome expectNone(CommandContext& context, Words words)
{
    const auto within = takeWithin(words);
    if (!within) {
        throw BadUsage("\"within SECONDS\" is missing");
    }
    const auto pattern = words.empty() ? std::nullopt : std::optional(SignalPattern::parse(words));
    Client& client = pattern ? context.clientFor(pattern->number()) : context.client();
    if (Outcome connected = beConnected(context, client); connected.verdict != Verdict::ok) {
        return connected;
    }
    const auto isUnwanted = [&](const Signal& signal) {
        return !pattern || (signal.number() == pattern->number() && pattern->matchesFields(signal));
    };
    std::optional<Signal> found;
    const WaitResult result = context.hub().waitUntil(
        [&] {
            found = client.inbox().take(isUnwanted);
            return found.has_value();
        },
        Clock::now() + *within);
    if (found) {
        return {Verdict::failed,
                fmt::format("expected no {}, came: {}", pattern ? pattern->print() : "signal", found->print()),
                {}};
    }
    if (result == WaitResult::interrupted) {
        return {Verdict::interrupted, "interrupted", {}};
    }
    return {};
}

Outcome watch(CommandContext& context, Words words)
{
    requireWords(words, 0, 1);
    const auto end = words.empty() ? Clock::time_point::max() : Clock::now() + parseSeconds(words[0]);
    context.client().open();
    context.hub().waitUntil([] { return false; }, end);
    return {};
}

Outcome forget(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    context.client().inbox().clear();
    return {};
}

std::vector<std::string> namesOf(Vorni::Direction direction)
{
    std::vector<std::string> names;
    for (const Vorni::SignalInfo& info : Vorni::signals()) {
        if (info.direction == direction) {
            names.emplace_back(info.name);
        }
    }
    return names;
}

std::vector<std::string> fieldsOf(const std::string& name)
{
    const Vorni::SignalInfo* info = Vorni::findSignal(std::string_view(name));
    std::vector<std::string> fields;
    for (const char* reference : Vorni::referenceNames(info != nullptr ? info->protocol : Vorni::Protocol::vorni)) {
        fields.push_back(std::string(reference) + "=");
    }
    if (info != nullptr) {
        for (const Vorni::FieldInfo& field : info->fields) {
            fields.push_back(std::string(field.name) + "=");
        }
    }
    return fields;
}

std::vector<std::string> completeSent(Words words)
{
    return words.size() == 1 ? namesOf(Vorni::Direction::toServer) : fieldsOf(words[0]);
}

std::vector<std::string> completeExpected(Words words)
{
    return words.size() == 1 ? namesOf(Vorni::Direction::toClient) : fieldsOf(words[0]);
}

} // namespace

void addSignalCommands(CommandTable& table)
{
    table.add({"send", "SIGNAL [FIELD=VALUE...] [--raw HEX] [--size N]",
               "send any signal, by name or number; --raw appends bytes, --size cuts or extends", sendSignal,
               completeSent});
    table.add({"expect", "SIGNAL [FIELD=VALUE...] [within SECONDS]",
               "the next signal of this name, here or to come, has these fields", expectSignal, completeExpected});
    table.add({"expect-none", "[SIGNAL [FIELD=VALUE...]] within SECONDS", "no such signal is here unread or comes",
               expectNone, completeExpected});
    table.add({"forget", "", "forget the signals that have come and weren't expected", forget, nullptr});
    table.add({"watch", "[SECONDS]", "print what arrives", watch, nullptr});
}

} // namespace VornClient
