/// The fault manager: what the clients and the callbacks are told, in which order, and what isn't smoothed over; and
/// the same against a second, simpler model of its rules, over many random sequences of events.
#include "faultmanager/faultManager.h"
#include "trace/recordedTraces.h"
#include "vornServerUlmo.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <sstream>

using namespace VornServer;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t lateSubscriber = 0x20003;

/// The faults by the words of the sequences.
const std::map<std::string, std::uint16_t> faultIds{
    {"hw", 0x101},   {"hot", 0x103},     {"cold", 0x104}, {"supply", 0x108},  {"eval", 0x300},     {"sw", 0x301},
    {"link", 0x302}, {"warm", 0x502},    {"worn", 0x521}, {"partial", 0x522}, {"internal", 0x703}, {"fanWorn", 0x704},
    {"fan", 0x705},  {"fanGone", 0x706}, {"low", 0x710},  {"limit", 0x711},   {"unknown", 0x999}};

const std::map<std::string, FaultSource> sources{{"", FaultSource::DUNL},        {"@BB", FaultSource::BB_VORNI},
                                                 {"@RHUNE", FaultSource::RHUNE}, {"@XCS", FaultSource::XCS},
                                                 {"@NONE", FaultSource::NONE},   {"@7", FaultSource{7}}};

/// The word of a value; its number where it has none.
template <typename Words, typename Value>
std::string wordOf(const Words& words, Value value)
{
    const auto found =
        std::find_if(words.begin(), words.end(), [&](const auto& entry) { return entry.second == value; });
    return found != words.end() ? found->first : fmt::format("0x{:x}", static_cast<std::uint32_t>(value));
}

/// '+' add, '-' remove, '?' replay to the late subscriber.
struct Event {
    char kind;
    std::uint16_t faultId = 0;
    FaultSource source = FaultSource::DUNL;
};

using Events = std::vector<Event>;

std::string text(const Event& event)
{
    return event.kind == '?' ? "?" : event.kind + wordOf(faultIds, event.faultId) + wordOf(sources, event.source);
}

/// One call of a subscriber or a callback: '+' raised to all, '?' raised to the late subscriber, '-' ceased, 'T' and
/// 't' temperature raised and ceased; or what an add gave: '!' refused, '=' remapped. The case tells which add it is
/// of.
struct Call {
    char kind;
    std::uint16_t faultId = 0;
    std::uint16_t faultCase = 0;

    bool operator==(const Call&) const = default;
};

using Calls = std::vector<Call>;

std::string text(const Calls& calls)
{
    std::string all;
    for (const Call& call : calls) {
        all += std::string(" ") + call.kind + (call.faultId != 0 ? wordOf(faultIds, call.faultId) : "") +
               (call.faultCase != 0 ? '/' + std::to_string(call.faultCase) : "");
    }
    return all;
}

/// A manager whose subscribers and callbacks write down that they were called.
struct ObservedManager {
    const RecordedTraces::Mark start = RecordedTraces::mark();
    Calls calls;
    FaultManager manager;

    ObservedManager()
    {
        manager.setSubscribers(
            [this](const FaultData& fault, std::uint32_t target) {
                const char kind = target == 0xFFFFFFFF ? '+' : target == lateSubscriber ? '?' : 'x';
                calls.push_back({kind, fault.faultId, fault.faultCase});
            },
            [this](const FaultData& fault) {
                calls.push_back({'-', fault.faultId, fault.faultCase});
            });
        manager.addExceptionalTemperatureCallback([this](bool isRaised) { calls.push_back({isRaised ? 'T' : 't'}); });
        manager.setVisualIndicationCallback([this](bool) { calls.push_back({'v'}); });
    }
    ObservedManager(const ObservedManager&) = delete;
    ObservedManager& operator=(const ObservedManager&) = delete;

    std::string list()
    {
        std::ostringstream out;
        EXPECT_TRUE(manager.handleCommand({"vornsrv", "fm", "list"}, out));
        return out.str();
    }
    bool hasError(const std::string& text) const
    {
        const auto traces = RecordedTraces::since(start);
        return std::any_of(traces.begin(), traces.end(), [&](const VornTrace::RecordedTrace& trace) {
            return trace.event == VornTrace::Event::error && trace.text == text;
        });
    }
};

/// Plays an event on the manager or the model.
template <typename Manager>
void apply(Manager& manager, Calls& calls, const Event& event, FaultData fault = {})
{
    fault.source = event.source;
    fault.faultId = event.faultId;
    if (event.kind == '-') {
        manager.removeFault(event.faultId);
    } else if (event.kind == '?') {
        manager.reportActiveFaults(lateSubscriber);
    } else if (!manager.addFault(fault)) {
        calls.push_back({'!'});
    } else if (fault.faultId != event.faultId) {
        calls.push_back({'=', fault.faultId});
    }
}

/// Plays the events of a sequence; gives it back with the calls that they make.
std::string played(ObservedManager& observed, const std::string& sequence)
{
    std::string all;
    std::istringstream in(sequence);
    for (std::string step; std::getline(in, step, ';');) {
        const std::string words =
            step.substr(step.find_first_not_of(' '), step.find(':') - step.find_first_not_of(' '));
        const auto source = std::min(words.find('@'), words.size());
        const Event event{words[0], words == "?" ? std::uint16_t{0} : faultIds.at(words.substr(1, source - 1)),
                          sources.at(words.substr(source))};
        observed.calls.clear();
        apply(observed.manager, observed.calls, event);
        all += (all.empty() ? "" : "; ") + text(event) + (observed.calls.empty() ? "" : ":" + text(observed.calls));
    }
    return all;
}

struct Sequence {
    const char* name;
    const char* steps; ///< "event: calls; event; ..."
};

const Sequence sequences[]{
    // Counting.
    {"a fault is told once per life", "+warm: +warm; +warm; -warm; -warm: -warm; -warm; +warm: +warm"},
    {"a link error is a software error's second source", "+sw: +sw; +link: =sw; -link; -sw: -sw"},
    {"a link error is told as software error", "+link@RHUNE: +sw =sw; -sw: -sw; -link"},
    {"a hidden fault is counted too", "+hw: +hw; +warm; +warm; -warm; -warm: -warm"},
    // Support.
    {"without priority only from the board", "+fan@RHUNE: !; +fan@BB: !; +supply@XCS: !; +fan@NONE: !; +fan@7: !; "
                                             "+unknown@RHUNE: !; +fan: +fan; +fan@RHUNE: !; "
                                             "-fan: -fan; +unknown: +unknown; -unknown: -unknown"},
    {"with priority from any source",
     "+internal@RHUNE: +internal; +limit@XCS: +limit; +partial@7: +partial; +warm@BB: -internal +warm"},
    {"what isn't there is removed silently", "-hot; -unknown"},
    {"without source it is told but never found again", "+hw@NONE: +hw; -hw; +hw: +hw; -hw; ?: ?hw ?hw"},
    {"without source it still hides others", "+hot@NONE: +hot T; +hw"},
    {"without source it is no partner of a pair", "+hw@NONE: +hw; +eval: +eval; -eval: -eval"},
    {"without source it is counted once the fault is active", "+hw: +hw; +hw@NONE; -hw; -hw: -hw"},
    // Hiding.
    {"a higher priority ceases from the lowest up", "+warm: +warm; +worn: +worn; +internal: +internal; +fan: +fan; "
                                                    "+hw: -fan -internal -warm -worn +hw; +hot: -hw +hot T"},
    {"low priorities aren't hidden when they come later",
     "+hot: +hot T; +internal: +internal; +fan: +fan; ?: ?hot ?internal ?fan"},
    {"a hidden fault ceases all the same", "+hot: +hot T; +hw; -hw: -hw"},
    {"a hidden temperature fault calls back on its cease", "+hot: +hot T; +cold; -cold: t -cold +hot T"},
    {"lists don't hide each other",
     "+hot: +hot T; +partial: +partial; +limit: +limit; +sw: -partial +sw; +low: -limit +low"},
    // Bringing back.
    {"only the highest lower priority comes back",
     "+warm: +warm; +hw: -warm +hw; +hot: -hw +hot T; -hot: t -hot +hw; -hw: -hw +warm"},
    {"it comes back though a higher one still hides it", "+hot: +hot T; +hw; +warm; -hw: -hw +warm; ?: ?hot ?warm"},
    {"a shown fault is told again", "+hw: +hw; +fan: +fan; -hw: -hw +fan"},
    {"the lowest comes back before those without priority",
     "+fan: +fan; +internal: +internal; +warm: -fan -internal +warm; -warm: -warm +internal; ?: ?internal"},
    // Pairs.
    {"the pair's second waits, and is ceased though it was never shown",
     "+hw: +hw; +internal: +internal; +eval; ?: ?hw ?internal; -eval: -eval +hw +internal"},
    {"the temperature pair keeps the alarm in order", "+cold: +cold T; +hot; -cold: t -cold +hot T"},
    {"the partner comes back before lower faults and both are shown",
     "+warm: +warm; +hw: -warm +hw; +eval; -hw: -hw +eval +warm; ?: ?eval ?warm"},
    {"the partner comes back though a higher one hides it", "+hot: +hot T; +hw; +eval; -hw: -hw +eval; ?: ?hot ?eval"},
    // Replays.
    {"a replay is in order of priority, not of time, and leaves power out",
     "+fan: +fan; +partial@RHUNE: +partial; +hot: -fan +hot T; +low: +low; +internal: +internal; +fanWorn: +fanWorn; "
     "?: ?hot ?internal ?fanWorn ?partial"},
    {"a replay leaves hidden faults out and calls no callback", "?; +cold: +cold T; +warm; ?: ?cold"},
};

TEST(FaultSequences, makeTheirCallsInOrder)
{
    for (const Sequence& sequence : sequences) {
        ObservedManager observed;
        EXPECT_EQ(played(observed, sequence.steps), sequence.steps) << sequence.name;
    }
}

class FaultManagerTest : public testing::Test, public ObservedManager
{
};

TEST_F(FaultManagerTest, subscribersGetTheFirstRecordWhole)
{
    std::string told;
    const auto tell = [&told](const FaultData& fault) {
        told += fmt::format("{} {:x} {} {} {} {};", faultSourceText(fault.source), fault.faultId, fault.faultCase,
                            fault.faultDescription, fault.recoveryTime, fault.hwFaultLabel);
    };
    manager.setSubscribers([tell](const FaultData& fault, std::uint32_t) { tell(fault); }, tell);
    FaultData fault;
    fault.faultCase = 17;
    fault.faultDescription = "inlet too warm";
    fault.recoveryTime = 300;
    fault.hwFaultLabel = "INLET";
    apply(manager, calls, {'+', 0x502, FaultSource::RHUNE}, fault);
    fault.faultDescription = "dropped";
    apply(manager, calls, {'+', 0x502}, fault);
    played(*this, "?; -warm; -warm");
    const std::string record = "RHUNE 502 17 inlet too warm 300 INLET;";
    EXPECT_EQ(told, record + record + record);
    EXPECT_TRUE(calls.empty()) << "the subscribers before were replaced";
}

TEST_F(FaultManagerTest, temperatureCallbacksRunInOrderOfRegistration)
{
    manager.addExceptionalTemperatureCallback([this](bool isRaised) { calls.push_back({isRaised ? '2' : '0'}); });
    EXPECT_EQ(played(*this, "+hot; -hot"), "+hot: +hot T 2; -hot: t 0 -hot");
    EXPECT_EQ(RecordedTraces::count("Executing exceptional temperature fault raised callback", start), 2U);
    EXPECT_EQ(RecordedTraces::count("Executing exceptional temperature fault ceased callback", start), 2U);
}

TEST_F(FaultManagerTest, withoutSubscribersFaultsCountAsTold)
{
    manager.setSubscribers(nullptr, nullptr);
    const std::string fault = "OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH (0x103), faultCase: 0";
    EXPECT_EQ(played(*this, "+hot; ?"), "+hot: T; ?");
    EXPECT_NE(list().find("isReported: true\n"), std::string::npos);
    EXPECT_EQ(played(*this, "-hot"), "-hot: t");
    EXPECT_TRUE(hasError("No subscriber for raised fault, faultId: " + fault));
    EXPECT_TRUE(hasError("No subscriber for ceased fault, faultId: " + fault));
}

TEST_F(FaultManagerTest, refusalsAndDecisionsAreTraced)
{
    const std::string id = "OMLA_CONST_FH_FAULT_ID_";
    const std::string internal = "faultId = " + id + "INTERNAL_RESOURCE_FAILURE (0x703), ";
    const struct {
        const char* events;
        bool isError;
        std::string text;
    } table[]{
        {"+fan@RHUNE", true, "Unsupported faultId = " + id + "FAN_FAILED (0x705), fault source = RHUNE"},
        {"+unknown@7", true, "Unsupported faultId = UNKNOWN_FAULT_ID (0x999), fault source = INVALID_VALUE(7)"},
        {"+link@NONE", true, "ABN: faultId: 0x302, source = FaultSource::NONE"},
        {"+link", false, "remap " + id + "LINK_ERROR to " + id + "SW_ERROR!"},
        {"-link", false, "remap " + id + "LINK_ERROR to " + id + "SW_ERROR"},
        {"-warm", true, "faultId = " + id + "NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED (0x502), has not been activated"},
        {"+internal", false, internal + "priority = LOWEST, has no impact on other faults"},
        {"-internal", false, internal + "priority = LOWEST, has no impact on other faults"},
        {"+hw", false, "faultListPriority = SECOND, no more faults with priority lower than SECOND"},
        {"+hw", false, "faultId = " + id + "HW_FAULT (0x101) is already active"},
        {"-hw", false, "faultId: " + id + "HW_FAULT (0x101), cannot be ceased, numOfSources = 1"},
        {"+worn", false,
         "faultId = " + id + "HWF_DEGRADED_FOR_EVALUATION (0x521), was suppressed by higher priority fault"},
    };
    for (const auto& [events, isError, text] : table) {
        const auto mark = RecordedTraces::mark();
        played(*this, events);
        EXPECT_EQ(RecordedTraces::count(text, mark), 1U) << text;
        EXPECT_EQ(hasError(text), isError) << text;
    }
}

TEST_F(FaultManagerTest, listShowsTheFieldsOfShownAndHiddenFaults)
{
    EXPECT_EQ(list(), "");
    FaultData partial;
    partial.faultDescription = "process restarted";
    partial.faultCase = 65535;
    partial.recoveryTime = 4294967295;
    FaultData labelled;
    labelled.hwFaultLabel = "PSU";
    apply(manager, calls, {'+', 0x301}, labelled);
    apply(manager, calls, {'+', 0x522}, partial);
    played(*this, "+unknown; +unknown");
    EXPECT_EQ(list(), "UNKNOWN_FAULT_ID\nfaultId: 0x999\nfaultDescription: \nfaultCase: 0\nrecoveryTime: 0\n"
                      "hwFaultLabel: none\nnumSources: 2\nisReported: true\n\n"
                      "OMLA_CONST_FH_FAULT_ID_SW_ERROR\nfaultId: 0x301\nfaultDescription: \nfaultCase: 0\n"
                      "recoveryTime: 0\nhwFaultLabel: PSU\nnumSources: 1\nisReported: true\n\n"
                      "OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL\nfaultId: 0x522\nfaultDescription: process restarted\n"
                      "faultCase: 65535\nrecoveryTime: 4294967295\nhwFaultLabel: none\nnumSources: 1\n"
                      "isReported: false\n\n");
}

TEST_F(FaultManagerTest, otherCommandsAreInvalid)
{
    played(*this, "+hot");
    for (const char* line : {"", "vornsrv fm", "vornsrv fm lists", "vornsrv fm LIST", "vornsrv fm list all", "list"}) {
        std::istringstream words(line);
        std::ostringstream out;
        EXPECT_FALSE(manager.handleCommand({std::istream_iterator<std::string>(words), {}}, out)) << line;
        EXPECT_EQ(out.str(), "invalid fm command\n");
    }
}

TEST_F(FaultManagerTest, namesAndTexts)
{
    std::string names;
    for (const auto& [word, faultId] : faultIds) {
        names += word + ' ' + manager.faultIdText(faultId).substr(faultId == 0x999 ? 0 : 23) + ' ';
    }
    EXPECT_EQ(
        names,
        "cold EXCEPTIONAL_TEMPERATURE_TOO_LOW (0x104) eval HWF_FOR_EVALUATION (0x300) fan FAN_FAILED (0x705) "
        "fanGone FAN_DISCONNECTED (0x706) fanWorn FAN_DEGRADED (0x704) hot EXCEPTIONAL_TEMPERATURE_TOO_HIGH (0x103) "
        "hw HW_FAULT (0x101) internal INTERNAL_RESOURCE_FAILURE (0x703) "
        "limit POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED (0x711) link LINK_ERROR (0x302) "
        "low POWER_DISTURBANCE_INPUT_POWER_LOW (0x710) partial SW_ERROR_PARTIAL (0x522) supply POWER_FAILURE (0x108) "
        "sw SW_ERROR (0x301) unknown UNKNOWN_FAULT_ID (0x999) warm NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED (0x502) "
        "worn HWF_DEGRADED_FOR_EVALUATION (0x521) ");
    EXPECT_EQ(manager.faultIdName(0x706), "OMLA_CONST_FH_FAULT_ID_FAN_DISCONNECTED");
    std::string texts;
    for (std::uint32_t value = 0; value < 6; ++value) {
        texts += faultSourceText(FaultSource{value}) + ' ' + priorityText(Priority{value}) + ' ';
    }
    EXPECT_EQ(texts, "DUNL NONE BB_VORNI LOWEST RHUNE THIRD XCS SECOND NONE FIRST INVALID_VALUE(5) Unknown priority ");
}

TEST(FaultManagerCommand, nameIsTakenOnceAndFreedWithItsOwner)
{
    auto first = std::make_unique<FaultManager>();
    EXPECT_TRUE(first->init());
    EXPECT_FALSE(FaultManager().init());
    FaultManager third;
    EXPECT_FALSE(third.init()) << "who didn't get the name doesn't free it";
    first.reset();
    EXPECT_TRUE(third.init());
}

/// All records in the order in which they were stored; lists and buckets are what a filter picks of them.
class Model
{
public:
    explicit Model(Calls& calls) : m_calls(calls) {}

    bool addFault(FaultData& fault)
    {
        fault.faultId = fault.faultId == 0x302 ? 0x301 : fault.faultId;
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
        } else if (const Record* const related = findRelated(fault.faultId);
                   !hasHigher(added) && (related == nullptr || !related->isReported)) {
            for (unsigned lower = 0; lower < priority; ++lower) {
                ceaseReported(list, lower);
            }
            raise(added);
        }
        return true;
    }

    void removeFault(std::uint16_t number)
    {
        const std::uint16_t faultId = number == 0x302 ? 0x301 : number;
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

    void reportActiveFaults(std::uint32_t)
    {
        forEachInOrder([&](const Record& record) {
            if (record.list != 2 && record.isReported) {
                m_calls.push_back({'?', record.fault.faultId, record.fault.faultCase});
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
        m_calls.push_back({'+', fault.faultId, fault.faultCase});
        if (fault.faultId == 0x103 || fault.faultId == 0x104) {
            m_calls.push_back({'T'});
        }
        record.isReported = true;
    }

    void cease(const Record& record)
    {
        const FaultData& fault = record.fault;
        if (fault.faultId == 0x103 || fault.faultId == 0x104) {
            m_calls.push_back({'t'});
        }
        m_calls.push_back({'-', fault.faultId, fault.faultCase});
    }

    Calls& m_calls;
    std::vector<Record> m_records;
};

/// What the sequences are made of.
struct Mixture {
    unsigned sequences;
    std::vector<std::uint16_t> faultIds;
    unsigned percentWithoutSource;
};

Events randomEvents(const Mixture& mixture, unsigned seed)
{
    std::minstd_rand random(seed);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) / 16 % limit; };
    Events events(10 + below(30));
    for (Event& event : events) {
        event.kind = "+++++++++++--------?"[below(20)];
        event.faultId = mixture.faultIds[below(mixture.faultIds.size())];
        // Mostly the board; now and then another one, known or not.
        constexpr std::uint32_t values[]{0, 0, 0, 1, 2, 3, 9};
        event.source = below(100) < mixture.percentWithoutSource ? FaultSource::NONE : FaultSource{values[below(7)]};
    }
    return events;
}

/// Each add has a case of its own.
FaultData faultOf(std::size_t step)
{
    FaultData fault;
    fault.faultCase = static_cast<std::uint16_t>(step);
    fault.faultDescription = step % 3 == 0 ? "fan" : "board";
    fault.recoveryTime = static_cast<std::uint32_t>(step) * 1000;
    fault.hwFaultLabel = step % 2 == 0 ? "" : "A1";
    return fault;
}

void compare(const Events& events)
{
    ObservedManager observed;
    Calls expected;
    Model model(expected);
    std::string path;
    for (std::size_t step = 0; step < events.size(); ++step) {
        apply(observed.manager, observed.calls, events[step], faultOf(step));
        apply(model, expected, events[step], faultOf(step));
        if (observed.calls != expected) {
            break;
        }
    }
    if (observed.calls != expected || observed.list() != model.listing(observed.manager)) {
        for (const Event& event : events) {
            path += text(event) + "; ";
        }
        FAIL() << path << "\ncalled" << text(observed.calls) << "\nexpected" << text(expected) << "\nlisted\n"
               << observed.list() << "expected\n"
               << model.listing(observed.manager);
    }
}

/// Without traces: millions of them would be kept.
void enableTraces(bool enabled)
{
    for (std::size_t event = 0; event < VornTrace::eventCount; ++event) {
        RecordedTraces::enable(static_cast<VornTrace::Event>(event), enabled);
    }
}

TEST(FaultManagerModel, agreesWithTheManagerOverRandomSequences)
{
    enableTraces(false);
    const Mixture mixtures[]{
        {100000,
         {0x101, 0x103, 0x104, 0x108, 0x300, 0x301, 0x302, 0x502, 0x521, 0x522, 0x703, 0x704, 0x705, 0x706, 0x710,
          0x711, 0x0, 0x105, 0xFFFF},
         0},
        {15000, {0x101, 0x300, 0x103, 0x104, 0x502, 0x703, 0x705}, 0}, // pairs and what they hide
        {10000, {0x301, 0x302, 0x522, 0x710, 0x711}, 0},               // software and power
        {15000, {0x101, 0x300, 0x103, 0x301, 0x302, 0x502, 0x703, 0x705, 0x711}, 12},
    };
    for (const Mixture& mixture : mixtures) {
        for (unsigned seed = 1; seed <= mixture.sequences && !HasFailure(); ++seed) {
            compare(randomEvents(mixture, seed));
        }
    }
    enableTraces(true);
}

} // namespace
