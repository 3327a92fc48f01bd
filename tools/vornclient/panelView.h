/// The unit's indicators as a client knows them, put together from what it has been answered and what has been
/// indicated to it. The numbers are the unit's: what they mean is the board's matter.
#pragma once

#include "vornclient/report.h"
#include "vornclient/signal.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VornClient {

/// What the panel shows, in its order: four codes, which are asked for, and three states, which are subscribed to.
enum class PanelItem { first, second, third, fourth, maintenance, hereIAm, optical };
inline constexpr std::size_t panelItems = 7;

struct SpecialIndicator {
    std::string name;
    std::uint16_t state = 0;
};

/// The entries of an answer; no more than it says and than have come.
std::vector<SpecialIndicator> specialIndicatorsOf(const Signal& confirm);

/// "0x0411"; "-" where it isn't known.
std::string printIndication(std::uint16_t code);

class PanelView
{
public:
    /// Takes a signal in; others than those about the panel say nothing.
    void apply(const Signal& signal);
    void clear();

    bool isSubscribed(PanelItem item) const { return itemOf(item).isSubscribed; }
    /// Another one whenever something has been told anew.
    unsigned version() const { return m_version; }
    /// The names of the fields, besides those of special indicators.
    static std::vector<std::string> fieldNames();
    /// What is known.
    ShownFields fields() const;
    /// All of it as a table.
    std::vector<std::string> print() const;
    /// A line for each that has been told since the view was as another one.
    std::vector<std::string> printNews(const PanelView& before) const;

private:
    struct Item {
        bool isSubscribed = false;
        std::optional<std::uint32_t> value;
        std::chrono::system_clock::time_point told; ///< a code: when it was told first; a state: when it was told last
    };

    const Item& itemOf(PanelItem item) const { return m_items[static_cast<std::size_t>(item)]; }
    Item& itemOf(PanelItem item) { return m_items[static_cast<std::size_t>(item)]; }
    void takeCode(PanelItem item, std::uint16_t code, const Signal& signal);
    template <typename Indication>
    void takeState(PanelItem item, std::uint32_t (*stateOf)(const Indication&), const Signal& signal);
    void applyCodes(const Signal& signal);
    void applySubscription(std::uint32_t number);

    std::array<Item, panelItems> m_items;
    std::vector<SpecialIndicator> m_specials;
    unsigned m_version = 0;
};

} // namespace VornClient
