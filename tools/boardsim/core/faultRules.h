/// Faults on command: what a server does with a message instead of what it would do.
#pragma once

#include "tools/boardsim/core/json.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace boardsim {

enum class RuleKind {
    normal,
    reject,  ///< refused without being looked at
    confirm, ///< done as always, confirmed with other fields
    silent,  ///< not done and not answered
    delay,   ///< done, answered later
    hold,    ///< done, the answer kept back until it is released
};

struct Rule {
    RuleKind kind = RuleKind::normal;
    std::optional<std::uint32_t> remaining; ///< for so many messages; nothing: until the rule is taken back
    std::chrono::milliseconds delay{0};     ///< RuleKind::delay
    std::optional<std::string> fields;      ///< RuleKind::reject and confirm: what the answer holds
};

/// "reject, next 2", "delay 500 ms".
std::string describe(const Rule& rule);

/// The rules of a server, one a message name. Where a message has none, that of the name "all" is taken.
class FaultRules
{
public:
    static constexpr const char* all = "all";

    /// Enters a rule, replacing an earlier one of the name.
    void set(const std::string& message, Rule rule) { m_rules[message] = std::move(rule); }

    /// Takes a rule back; without one for the name, nothing happens.
    void clear(const std::string& message) { m_rules.erase(message); }
    void clearAll() { m_rules.clear(); }

    /// Takes the rule of the name back if it is one that holds answers; for "all", every such rule.
    void endHold(const std::string& message);

    /// The rule for a message that has come, counted down.
    Rule take(const std::string& message);

    Json show() const;

private:
    std::map<std::string, Rule> m_rules;
};

} // namespace boardsim
