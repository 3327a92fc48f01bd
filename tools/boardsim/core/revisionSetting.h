/// The protocol revision that a connection's confirm selects.
#pragma once

#include "tools/boardsim/core/command.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace boardsim {

/// What a confirm selects: the revision that both sides speak, or what a command says.
class RevisionSetting
{
public:
    /// The command's form and text.
    static constexpr const char* form = "revision { <n> | absent | normal }";
    static constexpr const char* text = "the protocol revision that a connection's confirm selects";

    void set(const Words& args)
    {
        expectWords(args, 1, 1);
        const bool isNegotiated = args[0] == "normal";
        m_fixed = isNegotiated ? std::nullopt : parseOptionalNumber(args[0], "the revision");
        m_isNegotiated = isNegotiated;
    }

    std::string shown() const { return m_isNegotiated ? "normal" : m_fixed ? std::to_string(*m_fixed) : "absent"; }

    bool agreesOn(std::span<const std::uint32_t> offered) const
    {
        return !m_isNegotiated || std::find(offered.begin(), offered.end(), own) != offered.end();
    }

    /// Nothing: the field is left out.
    std::optional<std::uint32_t> selected() const { return m_isNegotiated ? own : m_fixed; }

private:
    static constexpr std::uint32_t own = 1;

    bool m_isNegotiated = true;
    std::optional<std::uint32_t> m_fixed;
};

} // namespace boardsim
