/// Restarts of the board: announcing and ordering them, being told of them, their history.
#include "vorni/restart.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"
#include "vorni/access.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>

namespace VornClient {

namespace {

using OrderWithRank = OmlaVornRestartBoardWithRankAndLabelFwdS;

constexpr std::uint16_t defaultCode = 401; ///< that of an order without rank

/// From rank 1 on.
constexpr std::array rankNames{"warm", "cold", "cold-with-test", "program", "power-cycle"};

std::uint16_t parseRank(const std::string& word)
{
    const auto* const name = std::find(rankNames.begin(), rankNames.end(), word);
    return static_cast<std::uint16_t>(name != rankNames.end() ? name - rankNames.begin() + 1
                                                              : static_cast<long>(parseNumber(word, UINT16_MAX)));
}

std::string printRank(std::uint16_t rank)
{
    return rank >= 1 && rank <= rankNames.size() ? rankNames[rank - 1U] : std::to_string(rank);
}

struct Order {
    std::optional<std::uint16_t> rank;
    std::optional<std::uint16_t> code;
    std::optional<std::string> label;
    std::string text;
};

void checkOrder(const Order& order)
{
    if (!order.rank && (order.code || order.label)) {
        throw BadUsage("--code and --label go with --rank");
    }
    constexpr std::size_t longest = OrderWithRank::traceInformationSize - 1;
    if (order.rank && order.text.size() > longest) {
        throw BadUsage(fmt::format("the text has at most {} characters", longest));
    }
}

Order parseOrder(Words words)
{
    Order order;
    bool hasText = false;
    for (; !words.empty(); words = words.subspan(1)) {
        const std::string& word = words[0];
        const bool isOption = word.starts_with("--");
        if (isOption && words.size() == 1) {
            throw BadUsage(fmt::format("{} is followed by nothing", word));
        }
        if (word == "--rank") {
            order.rank = parseRank(words[1]);
        } else if (word == "--code") {
            order.code = static_cast<std::uint16_t>(parseNumber(words[1], UINT16_MAX));
        } else if (word == "--label") {
            order.label = words[1];
        } else if (isOption || hasText) {
            throw BadUsage(fmt::format("\"{}\" isn't an option, and a text is one word: \"...\"", word));
        } else {
            order.text = word;
            hasText = true;
        }
        words = words.subspan(isOption ? 1 : 0);
    }
    checkOrder(order);
    return order;
}

std::vector<std::byte> makeOrder(const References& references, const Order& order)
{
    if (!order.rank) {
        return makeSignalWithText<OmlaVornRestartBoardFwdS>(references, order.text);
    }
    const std::string label = order.label.value_or("");
    auto bytes = makeSignal<OrderWithRank>(
        references,
        [&](auto& forward) {
            forward.restartCode = order.code.value_or(defaultCode);
            forward.restartRank = *order.rank;
        },
        OrderWithRank::traceInformationSize + label.size() + 1);
    char* const begin = reinterpret_cast<char*>(bytes.data());
    order.text.copy(begin + sizeof(OrderWithRank), order.text.size());
    label.copy(begin + OrderWithRank::labelOffset, label.size());
    return bytes;
}

Outcome restart(CommandContext& context, Words words)
{
    const Order order = parseOrder(words);
    context.requireVorni();
    if (Outcome connected = context.beConnected(); connected.verdict != Verdict::ok) {
        return connected;
    }
    Outcome sent = context.send(context.client(), makeOrder(context.client().references(), order));
    if (sent.verdict == Verdict::ok) {
        context.printer().report(context.client(), {"restartOrdered",
                                                    {{"rank", order.rank ? printRank(*order.rank) : rankNames[1]}},
                                                    nullptr,
                                                    {},
                                                    {"sent; an order has no answer but the restart"}});
    }
    return sent;
}

Outcome notify(CommandContext& context, Words words)
{
    requireWords(words, 1, 2);
    const auto value = static_cast<std::uint32_t>(parseNumber(words[0], UINT32_MAX));
    const std::string text = words.size() > 1 ? words[1] : "";
    constexpr std::size_t longest = sizeof(OmlaVornNotifyRestartReqS::text) - 1;
    if (text.size() > longest) {
        throw BadUsage(fmt::format("the text has at most {} characters", longest));
    }
    return context.request<OmlaVornNotifyRestartReqS>(
        {OmlaVornNotifyRestartCfmS::number, OmlaVornNotifyRestartRejS::number}, [&](auto& request) {
            request.value = value;
            text.copy(request.text, text.size());
        });
}

Outcome subscribe(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    return context.request<OmlaVornSubscribeRestartNotificationReqS>(
        {OmlaVornSubscribeRestartNotificationCfmS::number, OmlaVornSubscribeRestartNotificationRejS::number});
}

constexpr std::uint16_t restartType = 0;
constexpr std::uint16_t lostClientType = 1;

/// The events of an answer; no more than it says and than have come.
std::vector<VornHistoryEventS> eventsOf(const Signal& confirm)
{
    constexpr std::size_t begin = offsetof(OmlaVornGetEventHistoryCfmS, events);
    const std::size_t said = recordOf<OmlaVornGetEventHistoryCfmS>(confirm)->noOfEvents;
    const std::size_t come = (confirm.bytes.size() - begin) / sizeof(VornHistoryEventS);
    std::vector<VornHistoryEventS> events(std::min(said, come));
    if (!events.empty()) {
        std::memcpy(events.data(), confirm.bytes.data() + begin, events.size() * sizeof(VornHistoryEventS));
    }
    return events;
}

Report reportOf(const std::vector<VornHistoryEventS>& events)
{
    Report report{"restartHistory", {}, "events", {}, {}};
    std::vector<std::vector<std::string>> table{{"EVENT", "CODE", "RANK", "LABEL", "TEXT"}};
    for (const VornHistoryEventS& event : events) {
        if (event.type == lostClientType) { // of which nothing more is told
            report.rows.push_back({{"type", lostClientType}});
            table.push_back({"lost client", "-", "-", "-", "-"});
            continue;
        }
        const std::string text(fieldText(event.traceInformation));
        const std::string label(fieldText(event.label));
        report.rows.push_back({{"type", event.type},
                               {"restartCode", event.restartCode},
                               {"restartRank", event.restartRank},
                               {"label", label},
                               {"traceInformation", text}});
        table.push_back({event.type == restartType ? "restart" : fmt::format("type {}", event.type.value()),
                         std::to_string(event.restartCode), printRank(event.restartRank),
                         label.empty() ? "-" : printable(label), printable(text)});
    }
    report.lines = events.empty() ? std::vector<std::string>{"the history is empty"} : printTable(table);
    return report;
}

/// Holds the history against what is expected of it.
Outcome judge(Outcome outcome, const std::vector<VornHistoryEventS>& events, const std::optional<std::string>& text)
{
    const std::uint16_t said = recordOf<OmlaVornGetEventHistoryCfmS>(*outcome.answer)->noOfEvents;
    const auto hasText = [&](const auto& event) { return fieldText(event.traceInformation) == *text; };
    if (events.size() != said) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("the answer says that it has {} events and has {}", said, events.size());
    } else if (text && std::none_of(events.begin(), events.end(), hasText)) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("no event has the text \"{}\"", *text);
    }
    return outcome;
}

Outcome history(CommandContext& context, Words words)
{
    const auto text = takeWith(words);
    requireWords(words, 0, 1);
    constexpr std::uint16_t defaultNumber = 10;
    const auto number = words.empty() ? defaultNumber : static_cast<std::uint16_t>(parseNumber(words[0], UINT16_MAX));
    Outcome outcome = context.request<OmlaVornGetEventHistoryReqS>(
        {OmlaVornGetEventHistoryCfmS::number, OmlaVornGetEventHistoryRejS::number},
        [&](auto& request) { request.noOfEvents = number; });
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    const auto events = eventsOf(*outcome.answer);
    context.printer().report(context.client(), reportOf(events));
    return judge(std::move(outcome), events, text);
}

std::vector<std::string> completeOrder(Words words)
{
    const bool isRank = words.size() > 1 && words[words.size() - 2] == "--rank";
    return isRank ? std::vector<std::string>(rankNames.begin(), rankNames.end())
                  : std::vector<std::string>{"--rank", "--code", "--label"};
}

} // namespace

void addRestartCommands(CommandTable& table)
{
    table.add({"restart", "[--rank RANK [--code N] [--label LABEL]] [TEXT]",
               "order a restart of the board, which is the only answer; warm, cold, cold-with-test, program, "
               "power-cycle or a number; without rank it is a cold one",
               restart, completeOrder});
    table.add({"notify-restart", "VALUE [TEXT]",
               "announce a restart: this is the supervision time-out that the client needs for it", notify, nullptr});
    table.add({"subscribe-restarts", "", "be told when the board restarts", subscribe, nullptr});
    table.add({"restart-history", "[N] [with TEXT]",
               "print the latest restarts and lost clients, at most N of each, by default 10; one must have this text",
               history, nullptr});
}

} // namespace VornClient
