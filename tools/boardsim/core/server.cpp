#include "tools/boardsim/core/server.h"

#include "ostinel/eventLoop.h"
#include "tools/boardsim/core/console.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

// What a peer can make the simulator keep is bounded.
constexpr std::size_t maxNames = 1000;
constexpr std::size_t maxAnswersKept = 10000;

} // namespace

Server::Server(std::string name) : m_name(std::move(name))
{
    addCommonCommands();
}

void Server::addCommonCommands()
{
    const auto ruleOf = [this](RuleKind kind) {
        return [this, kind](const Words& args, std::ostream& out) { setRule(kind, args, out); };
    };
    addCommand({"start", "make the server reachable", [this](const Words& args, std::ostream&) {
                    expectWords(args, 0, 0);
                    start();
                }});
    addCommand(
        {"stop", "as if its process had died: unreachable, its state gone", [this](const Words& args, std::ostream&) {
             expectWords(args, 0, 0);
             stop();
         }});
    addCommand({"restart", "stop and start", [this](const Words& args, std::ostream&) {
                    expectWords(args, 0, 0);
                    stop();
                    start();
                }});
    addCommand({"reject <message> [<count>] [<fields>]", "refuse it, without doing it", ruleOf(RuleKind::reject)});
    addCommand({"silent <message> [<count>]", "neither do nor answer it", ruleOf(RuleKind::silent)});
    addCommand({"delay <message> <ms> [<count>]", "do it, answer later", ruleOf(RuleKind::delay)});
    addCommand({"hold <message> [<count>]", "do it, keep the answer back", ruleOf(RuleKind::hold)});
    addCommand({"release [<message> [<count>]]",
                "send what is kept back, the oldest first, and end the hold; with a count, so many, and hold on",
                [this](const Words& args, std::ostream& out) { release(args, out); }});
    addCommand({"normal [<message>]", "end the message's rule, or all; send what is kept back",
                [this](const Words& args, std::ostream& out) { backToNormal(args, out); }});
    addCommand(
        {"messages", "names of the messages that rules can be for", [this](const Words& args, std::ostream& out) {
             expectWords(args, 0, 0);
             for (const std::string& message : messageNames()) {
                 out << message << '\n';
             }
         }});
}

void Server::start()
{
    if (!m_running) {
        open();
        m_running = true;
        console::traffic(m_name, "started");
    }
}

void Server::stop()
{
    if (!m_running) {
        return;
    }
    m_running = false;
    close();
    for (const std::uint32_t timer : m_delays) {
        EventLoopIf::getInstance().removeTimer(timer);
    }
    m_delays.clear();
    m_held.clear();
    m_received.clear();
    m_bad.clear();
    for (const auto& [number, waiter] : std::exchange(m_waiters, {})) {
        waiter.done(false);
    }
    console::traffic(m_name, "stopped");
}

void Server::command(const Words& words, std::ostream& out)
{
    if (words.empty()) {
        throw CommandError("there is a command missing");
    }
    const auto row = std::find_if(m_commands.begin(), m_commands.end(),
                                  [&](const CommandRow& candidate) { return candidate.name() == words.front(); });
    if (row == m_commands.end()) {
        throw CommandError(fmt::format("{} has no command \"{}\"", m_name, words.front()));
    }
    row->run(Words(words.begin() + 1, words.end()), out);
}

Json Server::show() const
{
    Json server;
    server["running"] = m_running;
    showState(server);
    server["rules"] = m_rules.show();
    server["held"] = showHeld();
    server["received"] = m_received;
    server["dropped"] = m_bad;
    return server;
}

Json Server::showHeld() const
{
    Json held = Json::object();
    for (const HeldAnswer& answer : m_held) {
        held[answer.message] = held.value(answer.message, 0) + 1;
    }
    return held;
}

std::uint32_t Server::whenReceived(const std::string& message, std::uint64_t count, std::function<void(bool)> done)
{
    const auto received = m_received.find(message);
    if (!m_running || count == 0 || (received != m_received.end() && received->second >= count)) {
        done(m_running);
        return 0;
    }
    m_waiters[++m_lastWaiter] = {message, count, std::move(done)};
    return m_lastWaiter;
}

void Server::stopWaiting(std::uint32_t waiter)
{
    m_waiters.erase(waiter);
}

void Server::countReceived(const std::string& message)
{
    const bool isCounted = m_received.count(message) != 0 || m_received.size() < maxNames;
    const std::uint64_t count = ++m_received[isCounted ? message : "others"];
    for (auto waiter = m_waiters.begin(); waiter != m_waiters.end();) {
        if (waiter->second.message == message && waiter->second.count <= count) {
            waiter->second.done(true);
            waiter = m_waiters.erase(waiter);
        } else {
            ++waiter;
        }
    }
}

void Server::countBad(const std::string& why)
{
    ++m_bad[why];
    console::traffic(m_name, "dropped: " + why);
}

void Server::process(const std::string& message, const std::function<Answer(const Rule&)>& makeAnswer)
{
    const Rule rule = m_rules.take(message);
    if (rule.kind == RuleKind::silent) {
        console::traffic(m_name, "silent on " + message);
        return;
    }
    Answer answer = makeAnswer(rule);
    if (!answer) {
        return;
    }
    const bool isLater = rule.kind == RuleKind::hold || rule.kind == RuleKind::delay;
    if (isLater && m_held.size() + m_delays.size() >= maxAnswersKept) {
        countBad("too many answers kept back");
    } else if (rule.kind == RuleKind::hold) {
        m_held.push_back({message, std::move(answer)});
        console::traffic(m_name, "holds the answer to " + message);
    } else if (rule.kind == RuleKind::delay) {
        answerLater(std::move(answer), rule.delay);
    } else {
        answer();
    }
}

void Server::answerLater(Answer answer, std::chrono::milliseconds delay)
{
    // The timer's own id is known only when its callback has been handed over.
    auto timer = std::make_shared<std::uint32_t>(0);
    *timer = EventLoopIf::getInstance().addTimer(delay, [this, timer, answer = std::move(answer)] {
        m_delays.erase(*timer);
        answer();
    });
    m_delays.insert(*timer);
}

std::string Server::ruleName(const std::string& word) const
{
    return word == FaultRules::all ? word : messageName(word);
}

void Server::setRule(RuleKind kind, const Words& args, std::ostream& out)
{
    const bool hasDelay = kind == RuleKind::delay;
    const bool hasFields = kind == RuleKind::reject || kind == RuleKind::confirm;
    const std::size_t countAt = hasDelay ? 2 : 1;
    expectWords(args, countAt, hasFields ? args.size() : countAt + 1);

    Rule rule;
    rule.kind = kind;
    if (hasDelay) {
        rule.delay = std::chrono::milliseconds(parseNumber(args[1], "the delay"));
    }
    std::size_t next = countAt;
    if (next < args.size() && (!hasFields || isNumber(args[next]))) {
        rule.remaining = std::max(1U, parseNumber(args[next++], "the count"));
    }
    if (next < args.size()) {
        rule.fields = joinWords(args, next);
    }
    const std::string message = ruleName(args[0]);
    if (message == FaultRules::all) {
        if (rule.fields) {
            throw CommandError("fields are those of one message");
        }
    } else if (!takeCountBehindFields(message, rule)) {
        checkRule(message, rule);
    }
    out << m_name << ": " << message << ' ' << describe(rule) << '\n';
    m_rules.set(message, std::move(rule));
}

/// "<fields> <count>": the other order of the two, where the number can't be one of the fields.
bool Server::takeCountBehindFields(const std::string& message, Rule& rule) const
{
    const std::size_t blank = rule.fields ? rule.fields->rfind(' ') : std::string::npos;
    if (blank == std::string::npos || rule.remaining || !isNumber(rule.fields->substr(blank + 1))) {
        return false;
    }
    try {
        checkRule(message, rule);
        return true;
    } catch (const CommandError&) {
        Rule other = rule;
        other.remaining = std::max(1U, parseNumber(rule.fields->substr(blank + 1), "the count"));
        other.fields->resize(blank);
        checkRule(message, other);
        rule = std::move(other);
        return true;
    }
}

void Server::release(const Words& args, std::ostream& out)
{
    expectWords(args, 0, 2);
    const std::string message = args.empty() ? FaultRules::all : ruleName(args[0]);
    std::size_t count = m_held.size();
    if (args.size() > 1) {
        count = parseNumber(args[1], "the count");
    } else {
        m_rules.endHold(message);
    }
    out << m_name << ": " << sendHeld(message, count) << " released\n";
}

void Server::backToNormal(const Words& args, std::ostream& out)
{
    expectWords(args, 0, 1);
    const std::string message = args.empty() ? FaultRules::all : ruleName(args[0]);
    if (args.empty()) {
        m_rules.clearAll();
    } else {
        m_rules.clear(message);
    }
    sendHeld(message, m_held.size());
    out << m_name << ": " << message << " normal\n";
}

std::size_t Server::sendHeld(const std::string& message, std::size_t count)
{
    std::size_t sent = 0;
    for (auto held = m_held.begin(); held != m_held.end() && sent < count;) {
        if (message == FaultRules::all || held->message == message) {
            held->answer();
            held = m_held.erase(held);
            ++sent;
        } else {
            ++held;
        }
    }
    return sent;
}

} // namespace boardsim
