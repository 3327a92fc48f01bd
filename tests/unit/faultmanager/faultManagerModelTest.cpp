/// The fault manager against a second, simpler model of its rules, over many random sequences of events.
#include "faultmanager/faultManager.h"
#include "trace/recordedTraces.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>
#include <sstream>

using namespace VornServer;

namespace {

/// One call of a subscriber or a callback. The case tells which of several adds the fault comes from.
struct Call {
    enum class Kind { raised, ceased, temperature } kind;
    std::uint32_t value; ///< target of a raise, 1 or 0 of a temperature callback
    std::uint16_t faultId;
    std::uint16_t faultCase;

    bool operator==(const Call&) const = default;
};

using Calls = std::vector<Call>;

/// All records in the order in which they were stored; lists and buckets are what a filter picks of them.
class Model
{
public:
    explicit Model(Calls& calls) : m_calls(calls) {}

    bool add(FaultData& fault)
    {
        fault.faultId = remapped(fault.faultId);
        const unsigned list = listOf(fault.faultId);
        const unsigned priority = priorityOf(fault.faultId, list);
        if (priority == 0 && fault.source != FaultSource::DUNL) {
            return false;
        }
        if (Record* const active = find(fault.faultId)) {
            ++active->sources;
            return true;
        }
        m_records.push_back({fault, list, priority, 1, false});
        Record& added = m_records.back();
        if (priority <= lowest) {
            raise(added);
        } else if (!hasHigher(added) && !isRelatedReported(added)) {
            for (unsigned lower = 0; lower < priority; ++lower) {
                ceaseReported(list, lower);
            }
            raise(added);
        }
        return true;
    }

    void remove(std::uint16_t number)
    {
        const std::uint16_t faultId = remapped(number);
        Record* const active = find(faultId);
        if (active == nullptr || --active->sources > 0) {
            return;
        }
        const Record removed = *active;
        m_records.erase(m_records.begin() + (active - m_records.data()));
        cease(removed);
        if (removed.priority <= lowest) {
            return;
        }
        if (Record* const related = findRelated(faultId)) {
            raise(*related);
        }
        bool isSent = false;
        for (unsigned lower = removed.priority; lower-- > 0 && !isSent;) {
            for (Record& record : m_records) {
                if (record.list == removed.list && record.priority == lower) {
                    raise(record);
                    isSent = true;
                }
            }
        }
    }

    void replay(std::uint32_t target)
    {
        forEachInOrder([&](const Record& record) {
            if (record.list != 2 && record.isReported) {
                m_calls.push_back({Call::Kind::raised, target, record.fault.faultId, record.fault.faultCase});
            }
        });
    }

    std::string listing(const FaultManager& names)
    {
        std::ostringstream out;
        forEachInOrder([&](const Record& record) {
            const FaultData& fault = record.fault;
            out << names.faultIdName(fault.faultId) << "\nfaultId: 0x" << std::hex << fault.faultId << std::dec
                << "\nfaultDescription: " << fault.faultDescription << "\nfaultCase: " << fault.faultCase
                << "\nrecoveryTime: " << fault.recoveryTime
                << "\nhwFaultLabel: " << (fault.hwFaultLabel.empty() ? "none" : fault.hwFaultLabel)
                << "\nnumSources: " << record.sources << "\nisReported: " << (record.isReported ? "true" : "false")
                << "\n\n";
        });
        return out.str();
    }

private:
    struct Record {
        FaultData fault;
        unsigned list;
        unsigned priority;
        unsigned sources;
        bool isReported;
    };

    static constexpr unsigned lowest = 1;

    static std::uint16_t remapped(std::uint16_t faultId) { return faultId == 0x302 ? 0x301 : faultId; }

    static unsigned listOf(std::uint16_t faultId)
    {
        return faultId == 0x301 || faultId == 0x522 ? 1 : faultId == 0x710 || faultId == 0x711 ? 2 : 0;
    }

    static unsigned priorityOf(std::uint16_t faultId, unsigned list)
    {
        static const std::map<std::uint16_t, unsigned> priorities{
            {0x101, 3}, {0x103, 4}, {0x104, 4}, {0x300, 3}, {0x301, 4}, {0x502, 2}, {0x521, 2}, {0x703, 1}, {0x710, 4}};
        const auto found = priorities.find(faultId);
        return found != priorities.end() ? found->second : list == 0 ? 0 : 3;
    }

    /// The other one of the fault's pair, where it has one and that is active.
    Record* findRelated(std::uint16_t faultId)
    {
        static const std::map<std::uint16_t, std::uint16_t> pairs{
            {0x101, 0x300}, {0x300, 0x101}, {0x103, 0x104}, {0x104, 0x103}};
        const auto found = pairs.find(faultId);
        return found != pairs.end() ? find(found->second) : nullptr;
    }

    /// A record without a source counts as none, also where it stands before others of its number.
    Record* find(std::uint16_t faultId)
    {
        const auto found = std::find_if(m_records.begin(), m_records.end(),
                                        [&](const Record& record) { return record.fault.faultId == faultId; });
        return found == m_records.end() || found->fault.source == FaultSource::NONE ? nullptr : &*found;
    }

    bool hasHigher(const Record& than) const
    {
        return std::any_of(m_records.begin(), m_records.end(), [&](const Record& record) {
            return record.list == than.list && record.priority > than.priority;
        });
    }

    bool isRelatedReported(const Record& of)
    {
        const Record* const related = findRelated(of.fault.faultId);
        return related != nullptr && related->isReported;
    }

    template <typename Visit>
    void forEachInOrder(const Visit& visit)
    {
        for (unsigned list = 0; list < 3; ++list) {
            for (unsigned priority = 5; priority-- > 0;) {
                for (const Record& record : m_records) {
                    if (record.list == list && record.priority == priority) {
                        visit(record);
                    }
                }
            }
        }
    }

    void ceaseReported(unsigned list, unsigned priority)
    {
        for (Record& record : m_records) {
            if (record.list == list && record.priority == priority && record.isReported) {
                cease(record);
                record.isReported = false;
            }
        }
    }

    void raise(Record& record)
    {
        const FaultData& fault = record.fault;
        m_calls.push_back({Call::Kind::raised, 0xFFFFFFFF, fault.faultId, fault.faultCase});
        if (fault.faultId == 0x103 || fault.faultId == 0x104) {
            m_calls.push_back({Call::Kind::temperature, 1, 0, 0});
        }
        record.isReported = true;
    }

    void cease(const Record& record)
    {
        const FaultData& fault = record.fault;
        if (fault.faultId == 0x103 || fault.faultId == 0x104) {
            m_calls.push_back({Call::Kind::temperature, 0, 0, 0});
        }
        m_calls.push_back({Call::Kind::ceased, 0, fault.faultId, fault.faultCase});
    }

    Calls& m_calls;
    std::vector<Record> m_records;
};

struct Event {
    enum class Kind { add, remove, replay } kind;
    std::uint16_t faultId;
    FaultSource source; ///< of an add
};

using Events = std::vector<Event>;

std::string text(const Calls& calls)
{
    static constexpr const char* names[]{"raised", "ceased", "temperature"};
    std::ostringstream out;
    for (const Call& call : calls) {
        out << ' ' << names[static_cast<int>(call.kind)] << "(0x" << std::hex << call.faultId << ", case " << std::dec
            << call.faultCase << ", " << call.value << ')';
    }
    return out.str();
}

std::string text(const Events& events)
{
    static constexpr const char* names[]{"add", "remove", "replay"};
    std::ostringstream out;
    for (const Event& event : events) {
        out << "  " << names[static_cast<int>(event.kind)] << " 0x" << std::hex << event.faultId << ' '
            << faultSourceText(event.source) << '\n';
    }
    return out.str();
}

/// Each add has a case of its own.
FaultData faultOf(const Event& event, std::size_t step)
{
    FaultData fault;
    fault.source = event.source;
    fault.faultId = event.faultId;
    fault.faultCase = static_cast<std::uint16_t>(step);
    fault.faultDescription = step % 3 == 0 ? "fan" : "board";
    fault.recoveryTime = static_cast<std::uint32_t>(step) * 1000;
    fault.hwFaultLabel = step % 2 == 0 ? "" : "A1";
    return fault;
}

/// The fault manager and the model, taking the same events.
class Pair
{
public:
    Pair()
    {
        m_manager.setSubscribers(
            [this](const FaultData& fault, std::uint32_t target) {
                m_calls.push_back({Call::Kind::raised, target, fault.faultId, fault.faultCase});
            },
            [this](const FaultData& fault) {
                m_calls.push_back({Call::Kind::ceased, 0, fault.faultId, fault.faultCase});
            });
        m_manager.addExceptionalTemperatureCallback([this](bool isRaised) {
            m_calls.push_back({Call::Kind::temperature, isRaised, 0, 0});
        });
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    /// What differs, or empty.
    std::string apply(const Event& event, std::size_t step)
    {
        m_calls.clear();
        m_expected.clear();
        if (event.kind == Event::Kind::add) {
            FaultData fault = faultOf(event, step);
            FaultData expected = fault;
            const bool isAdded = m_manager.addFault(fault);
            if (isAdded != m_model.add(expected) || fault.faultId != expected.faultId) {
                return "result or remap of the add";
            }
        } else if (event.kind == Event::Kind::remove) {
            m_manager.removeFault(event.faultId);
            m_model.remove(event.faultId);
        } else {
            m_manager.reportActiveFaults(event.faultId);
            m_model.replay(event.faultId);
        }
        return m_calls == m_expected ? "" : "called" + text(m_calls) + "\nexpected" + text(m_expected);
    }

    std::string compareListing()
    {
        std::ostringstream out;
        m_manager.handleCommand({"vornsrv", "fm", "list"}, out);
        const std::string expected = m_model.listing(m_manager);
        return out.str() == expected ? "" : "listed\n" + out.str() + "expected\n" + expected;
    }

private:
    Calls m_calls;
    Calls m_expected;
    FaultManager m_manager;
    Model m_model{m_expected};
};

struct Difference {
    std::size_t length; ///< of the prefix that shows it
    std::string what;
};

std::optional<Difference> firstDifference(const Events& events)
{
    Pair pair;
    for (std::size_t step = 0; step < events.size(); ++step) {
        if (const std::string what = pair.apply(events[step], step); !what.empty()) {
            return Difference{step + 1, what};
        }
    }
    if (const std::string what = pair.compareListing(); !what.empty()) {
        return Difference{events.size(), what};
    }
    return std::nullopt;
}

/// Cuts what comes behind the difference and takes away every event that it doesn't need.
Events shrunk(Events events)
{
    events.resize(firstDifference(events)->length);
    for (std::size_t index = events.size(); index-- > 0;) {
        Events shorter = events;
        shorter.erase(shorter.begin() + static_cast<std::ptrdiff_t>(index));
        if (firstDifference(shorter)) {
            events = shorter;
        }
    }
    return events;
}

/// What the sequences are made of.
struct Mixture {
    const char* name;
    unsigned sequences;
    std::vector<std::uint16_t> faultIds;
    unsigned percentWithoutSource;
};

Events randomEvents(const Mixture& mixture, unsigned seed)
{
    static constexpr FaultSource sources[]{FaultSource::DUNL,     FaultSource::DUNL,  FaultSource::DUNL,
                                           FaultSource::BB_VORNI, FaultSource::RHUNE, FaultSource::XCS,
                                           FaultSource{9}};
    std::minstd_rand random(seed);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) / 16 % limit; };
    Events events(10 + below(30));
    for (Event& event : events) {
        const std::size_t kind = below(20);
        event.kind = kind < 11 ? Event::Kind::add : kind < 19 ? Event::Kind::remove : Event::Kind::replay;
        event.faultId = mixture.faultIds[below(mixture.faultIds.size())];
        event.source = below(100) < mixture.percentWithoutSource ? FaultSource::NONE : sources[below(7)];
    }
    return events;
}

std::ostream& operator<<(std::ostream& out, const Mixture& mixture)
{
    return out << mixture.name;
}

/// Runs without traces: millions of them would be kept.
class FaultManagerModel : public testing::TestWithParam<Mixture>
{
protected:
    void SetUp() override { enableTraces(false); }
    void TearDown() override { enableTraces(true); }

private:
    static void enableTraces(bool enabled)
    {
        for (std::size_t event = 0; event < VornTrace::eventCount; ++event) {
            VornTrace::RecordedTraces::enable(static_cast<VornTrace::Event>(event), enabled);
        }
    }
};

TEST_P(FaultManagerModel, managerAndModelAgree)
{
    for (unsigned seed = 1; seed <= GetParam().sequences; ++seed) {
        const Events events = randomEvents(GetParam(), seed);
        if (firstDifference(events)) {
            const Events shortest = shrunk(events);
            FAIL() << "seed " << seed << ", shrunk to\n" << text(shortest) << firstDifference(shortest)->what;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    , FaultManagerModel,
    testing::Values(Mixture{"allFaults",
                            100000,
                            {0x101, 0x103, 0x104, 0x108, 0x300, 0x301, 0x302, 0x502, 0x521, 0x522, 0x703, 0x704, 0x705,
                             0x706, 0x710, 0x711, 0x0, 0x105, 0xFFFF},
                            0},
                    Mixture{"pairsAndWhatTheyHide", 15000, {0x101, 0x300, 0x103, 0x104, 0x502, 0x703, 0x705}, 0},
                    Mixture{"softwareAndPower", 10000, {0x301, 0x302, 0x522, 0x710, 0x711}, 0},
                    Mixture{
                        "withoutSource", 15000, {0x101, 0x300, 0x103, 0x301, 0x302, 0x502, 0x703, 0x705, 0x711}, 12}),
    [](const auto& row) { return row.param.name; });

} // namespace
