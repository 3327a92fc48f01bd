#include "tools/boardsim/core/faultRules.h"

#include <fmt/format.h>

namespace boardsim {

namespace {

const char* nameOf(RuleKind kind)
{
    switch (kind) {
    case RuleKind::normal:
        return "normal";
    case RuleKind::reject:
        return "reject";
    case RuleKind::confirm:
        return "confirm";
    case RuleKind::silent:
        return "silent";
    case RuleKind::delay:
        return "delay";
    case RuleKind::hold:
        return "hold";
    }
    return "";
}

} // namespace

std::string describe(const Rule& rule)
{
    std::string text = nameOf(rule.kind);
    if (rule.kind == RuleKind::delay) {
        text += fmt::format(" {} ms", rule.delay.count());
    }
    if (rule.remaining) {
        text += fmt::format(", next {}", *rule.remaining);
    }
    if (rule.fields) {
        text += fmt::format(", fields {{{}}}", *rule.fields);
    }
    return text;
}

void FaultRules::endHold(const std::string& message)
{
    std::erase_if(m_rules, [&](const auto& entry) {
        return entry.second.kind == RuleKind::hold && (message == all || entry.first == message);
    });
}

Rule FaultRules::take(const std::string& message)
{
    auto found = m_rules.find(message);
    if (found == m_rules.end()) {
        found = m_rules.find(all);
    }
    if (found == m_rules.end()) {
        return {};
    }
    Rule& rule = found->second;
    Rule taken = rule;
    if (rule.remaining && --*rule.remaining == 0) {
        m_rules.erase(found);
    }
    return taken;
}

Json FaultRules::show() const
{
    Json rules = Json::object();
    for (const auto& [message, rule] : m_rules) {
        rules[message] = describe(rule);
    }
    return rules;
}

} // namespace boardsim
