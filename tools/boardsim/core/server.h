/// A server of the board as the simulator plays it: what all of them share, whatever they speak and over what.
///
/// A server is started and stopped like the process that it stands for: stopping it makes it unreachable and drops its
/// state; its settings and fault rules are the simulator's and stay. It lives on one thread (ServerThread) and has no
/// lock.
///
/// Every request, and every indication, goes through `process`, the one place where the fault rules apply.
#pragma once

#include "tools/boardsim/core/command.h"
#include "tools/boardsim/core/faultRules.h"
#include "tools/boardsim/core/json.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace boardsim {

class Server
{
public:
    explicit Server(std::string name);
    virtual ~Server() = default;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    const std::string& name() const { return m_name; }
    bool isRunning() const { return m_running; }

    /// Makes the server reachable. Throws std::runtime_error where that fails. A running one is left alone.
    void start();

    /// Makes it unreachable and drops its state. A stopped one is left alone. To be called before it is destroyed.
    void stop();

    /// Runs "<command> ..." of this server. Throws CommandError.
    void command(const Words& words, std::ostream& out);

    const std::vector<CommandRow>& commands() const { return m_commands; }

    /// All there is to know, for a reader or a script.
    Json show() const;

    /// The name under which a message is counted and has its rules, for what a user may call it. Throws CommandError.
    virtual std::string messageName(const std::string& word) const = 0;

    /// All names that there are; a server may take further ones.
    virtual std::vector<std::string> messageNames() const = 0;

    /// Calls `done(true)` once `message` has come `count` times since the start, at once where it has; `done(false)`
    /// when the server stops before. Returns a number for stopWaiting.
    std::uint32_t whenReceived(const std::string& message, std::uint64_t count, std::function<void(bool)> done);
    void stopWaiting(std::uint32_t waiter);

protected:
    /// Sends an answer; an empty one: there is nothing to send.
    using Answer = std::function<void()>;

    virtual void open() = 0;  ///< throws std::runtime_error
    virtual void close() = 0; ///< also drops the state
    virtual void showState(Json& server) const = 0;

    /// Throws CommandError where the rule can't be for this message: it has no such answer, or other fields.
    virtual void checkRule(const std::string& message, const Rule& rule) const = 0;

    void addCommand(CommandRow row) { m_commands.push_back(std::move(row)); }

    void countReceived(const std::string& message);
    void countBad(const std::string& why);

    /// Applies the message's rule: asks for the answer unless the server stays silent, and sends it now or later.
    /// For RuleKind::reject and confirm it is `makeAnswer` that does as the rule says.
    void process(const std::string& message, const std::function<Answer(const Rule&)>& makeAnswer);

    /// Enters a rule from "<message> [<count>]", with the kind's own words.
    void setRule(RuleKind kind, const Words& args, std::ostream& out);

private:
    struct HeldAnswer {
        std::string message;
        Answer answer;
    };
    struct Waiter {
        std::string message;
        std::uint64_t count;
        std::function<void(bool)> done;
    };

    void addCommonCommands();
    std::string ruleName(const std::string& word) const;
    bool takeCountBehindFields(const std::string& message, Rule& rule) const;
    void release(const Words& args, std::ostream& out);
    void backToNormal(const Words& args, std::ostream& out);
    std::size_t sendHeld(const std::string& message, std::size_t count);
    void answerLater(Answer answer, std::chrono::milliseconds delay);
    Json showHeld() const;

    std::string m_name;
    bool m_running = false;
    std::vector<CommandRow> m_commands;
    FaultRules m_rules;
    std::map<std::string, std::uint64_t> m_received;
    std::map<std::string, std::uint64_t> m_bad; ///< by reason
    std::deque<HeldAnswer> m_held;
    std::set<std::uint32_t> m_delays; ///< timers of delayed answers
    std::map<std::uint32_t, Waiter> m_waiters;
    std::uint32_t m_lastWaiter = 0;
};

/// A group of procedures of one server that share a state.
class ProcedureGroup
{
public:
    virtual ~ProcedureGroup() = default;

    /// The server has stopped: the state is dropped, settings stay.
    virtual void reset() = 0;

    /// Enters the group's state.
    virtual void show(Json& server) const = 0;
};

} // namespace boardsim
