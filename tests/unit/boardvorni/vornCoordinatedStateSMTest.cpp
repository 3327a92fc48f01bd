/// The coordinated O&M state machine: its rules one by one, and against a table of them in all states.
#include "vornCoordinatedStateSM.h"

#include "trace/recordedTraces.h"

#include <algorithm>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>

using VornTrace::RecordedTraces;

namespace {

constexpr State disabled = State::DISABLED;
constexpr State starting = State::STARTING;
constexpr State operational = State::OPERATIONAL;

struct Event {
    /// add, remove and evaluate go to the machine's single operations; the others are what its owner calls.
    enum class Kind { notify, lost, fault, add, remove, evaluate } kind;
    std::uint32_t mbox = 0;
    std::optional<State> state = std::nullopt;
    bool isRaised = false;
};

Event notify(std::uint32_t mbox, State state)
{
    return {Event::Kind::notify, mbox, state};
}

Event enable(std::uint32_t mbox)
{
    return notify(mbox, operational);
}

Event disable(std::uint32_t mbox)
{
    return notify(mbox, disabled);
}

Event lose(std::uint32_t mbox)
{
    return {Event::Kind::lost, mbox};
}

Event fault(bool isRaised)
{
    return {Event::Kind::fault, 0, std::nullopt, isRaised};
}

Event add(std::uint32_t mbox, State state)
{
    return {Event::Kind::add, mbox, state};
}

Event remove(std::uint32_t mbox)
{
    return {Event::Kind::remove, mbox};
}

Event evaluate(std::optional<State> state)
{
    return {Event::Kind::evaluate, 0, state};
}

std::string text(const std::vector<Event>& events)
{
    static constexpr const char* names[]{"notify", "lost", "fault", "add", "remove", "evaluate"};
    std::ostringstream out;
    for (const Event& event : events) {
        out << names[static_cast<int>(event.kind)] << ' ' << event.mbox << ' '
            << (event.state ? coordinatedStateText(*event.state) : "-") << ' ' << event.isRaised << "; ";
    }
    return out.str();
}

/// What an event returned; nothing for one without a result.
using Result = std::optional<bool>;

Result apply(VornCoordinatedStateSM& machine, const Event& event)
{
    switch (event.kind) {
    case Event::Kind::notify:
        return machine.notifyCoordinatedState(event.mbox, *event.state);
    case Event::Kind::lost:
        return machine.onVornSessionLost(event.mbox);
    case Event::Kind::fault:
        return machine.notifyExceptionalTempFault(event.isRaised);
    case Event::Kind::add:
        machine.addClient(event.mbox, *event.state);
        return std::nullopt;
    case Event::Kind::remove:
        return machine.removeClient(event.mbox);
    case Event::Kind::evaluate:
        break;
    }
    return machine.setCoordinatedState(event.state);
}

/// The rules as a table, looked up from the top.
struct Model {
    State state = starting;
    bool isFault = false;
    std::map<std::uint32_t, State> clients;

    auto operator<=>(const Model&) const = default;

    bool any(State wanted) const
    {
        return std::any_of(clients.begin(), clients.end(), [&](const auto& entry) { return entry.second == wanted; });
    }
    bool all(State wanted) const
    {
        return std::all_of(clients.begin(), clients.end(), [&](const auto& entry) { return entry.second == wanted; });
    }

    bool evaluate(std::optional<State> cause)
    {
        const bool isEnabled = any(operational) && !any(disabled);
        const bool isIdle = all(starting);
        const bool byDisable = cause == disabled;
        const bool byFault = !cause && isFault;
        const struct {
            State from;
            bool condition;
            State to;
            bool result;
        } rules[]{
            {disabled, isEnabled && !isFault, operational, true},
            {disabled, isIdle && !isFault, starting, true},
            {disabled, true, disabled, false},
            {starting, byDisable, disabled, true},
            {starting, byFault, disabled, true},
            {starting, isEnabled, operational, true},
            {starting, true, starting, true},
            {operational, isIdle, starting, true},
            {operational, byDisable, disabled, true},
            {operational, byFault, disabled, true},
            {operational, true, operational, false},
        };
        const auto& rule = *std::find_if(std::begin(rules), std::end(rules), [this](const auto& candidate) {
            return candidate.from == state && candidate.condition;
        });
        state = rule.to;
        return rule.result;
    }

    Result apply(const Event& event)
    {
        switch (event.kind) {
        case Event::Kind::notify:
            clients[event.mbox] = *event.state;
            return evaluate(event.state);
        case Event::Kind::lost:
            return clients.erase(event.mbox) == 1 && evaluate(std::nullopt);
        case Event::Kind::fault:
            isFault = event.isRaised;
            return evaluate(std::nullopt);
        case Event::Kind::add:
            clients.insert({event.mbox, *event.state});
            return std::nullopt;
        case Event::Kind::remove:
            return clients.erase(event.mbox) == 1;
        case Event::Kind::evaluate:
            break;
        }
        return evaluate(event.state);
    }
};

/// What the machine says of itself; its clients are seen by their mailboxes and the questions alone.
bool looksLike(const VornCoordinatedStateSM& machine, const Model& model)
{
    const auto isListed = [&](std::uint32_t mbox) {
        return machine.isClientExist(mbox) == model.clients.contains(mbox);
    };
    return machine.getCoordinatedState() == model.state && machine.isExceptionalTempFaultRaised() == model.isFault &&
           machine.hasNoClient() == model.clients.empty() && machine.hasNoDisabledClient() == !model.any(disabled) &&
           machine.areAllClientsStarting() == model.all(starting) &&
           machine.hasOperationalClient() == model.any(operational) && isListed(1) && isListed(2) && isListed(3) &&
           isListed(4);
}

struct Rule {
    const char* name;
    std::vector<Event> before;
    State from;
    Event event;
    State to;
    bool result;
};

const Rule rules[]{
    {"D1AllEnabled", {disable(1)}, disabled, enable(1), operational, true},
    {"D1OnlyDisabledClientLost", {disable(1), enable(2)}, disabled, lose(1), operational, true},
    {"D1FaultCeased", {enable(1), fault(true)}, disabled, fault(false), operational, true},
    {"D1BesidesStartingClient", {disable(1), notify(2, starting)}, disabled, enable(1), operational, true},
    {"D2LastClientLost", {disable(1)}, disabled, lose(1), starting, true},
    {"D2OnlyStartingClients", {disable(1)}, disabled, notify(1, starting), starting, true},
    {"D2FaultCeasedWithoutClients", {fault(true)}, disabled, fault(false), starting, true},
    {"D3AnotherClientIsDisabled", {disable(1)}, disabled, enable(2), disabled, false},
    {"D3FaultHoldsAgainstEnable", {disable(1), fault(true)}, disabled, enable(1), disabled, false},
    {"D3FaultHoldsAgainstLastLoss", {disable(1), fault(true)}, disabled, lose(1), disabled, false},
    {"D3FaultTwice", {enable(1), fault(true)}, disabled, fault(true), disabled, false},
    {"D3CeaseWithDisabledClient", {fault(true), disable(1)}, disabled, fault(false), disabled, false},
    {"D3DisabledAndStarting", {disable(1)}, disabled, notify(2, starting), disabled, false},
    {"S1Disable", {}, starting, disable(1), disabled, true},
    {"S1OverOperationalClients", {add(2, operational), add(3, operational)}, starting, disable(1), disabled, true},
    {"S1BeforeS3", {add(1, operational)}, starting, evaluate(disabled), disabled, true},
    {"S2Fault", {}, starting, fault(true), disabled, true},
    {"S2BeforeS3", {add(1, operational)}, starting, fault(true), disabled, true},
    {"S3Enable", {}, starting, enable(1), operational, true},
    {"S3WithoutCause", {add(1, operational)}, starting, evaluate(std::nullopt), operational, true},
    {"S3EnableInSpiteOfFault", {enable(1), remove(1), fault(true)}, starting, enable(1), operational, true},
    {"S4StartingClient", {}, starting, notify(1, starting), starting, true},
    {"S4CeaseOfNoFault", {}, starting, fault(false), starting, true},
    {"S4EnableBesidesDisabledClient", {add(2, disabled)}, starting, enable(1), starting, true},
    {"S4UnknownState", {}, starting, notify(1, State{7}), starting, true},
    {"O1LastClientLost", {enable(1)}, operational, lose(1), starting, true},
    {"O1OnlyClientStarts", {enable(1)}, operational, notify(1, starting), starting, true},
    {"O1BeforeO2", {enable(1), remove(1)}, operational, evaluate(disabled), starting, true},
    {"O1BeforeO3", {enable(1), remove(1)}, operational, fault(true), starting, true},
    {"O2OverOperationalClients", {enable(1), enable(2), enable(3)}, operational, disable(2), disabled, true},
    {"O3Fault", {enable(1)}, operational, fault(true), disabled, true},
    {"O3LossDuringFault",
     {enable(1), remove(1), fault(true), enable(1), enable(2)},
     operational,
     lose(1),
     disabled,
     true},
    {"O4SecondEnable", {enable(1)}, operational, enable(2), operational, false},
    {"O4OneOfTwoLost", {enable(1), enable(2)}, operational, lose(1), operational, false},
    {"O4OneOfTwoStarts", {enable(1), enable(2)}, operational, notify(1, starting), operational, false},
    {"O4CeaseOfNoFault", {enable(1)}, operational, fault(false), operational, false},
    {"O4EnableDuringFault", {enable(1), remove(1), fault(true), enable(1)}, operational, enable(2), operational, false},
    {"O4DisabledClientThatDidntCauseIt", {enable(1), add(2, disabled)}, operational, enable(1), operational, false},
};

std::ostream& operator<<(std::ostream& out, const Rule& rule)
{
    return out << rule.name;
}

class CoordinatedStateRule : public testing::TestWithParam<Rule>
{
};

TEST_P(CoordinatedStateRule, stateResultAndTrace)
{
    const Rule& rule = GetParam();
    VornCoordinatedStateSM machine;
    for (const Event& event : rule.before) {
        apply(machine, event);
    }
    ASSERT_EQ(machine.getCoordinatedState(), rule.from);

    const RecordedTraces::Mark start = RecordedTraces::mark();
    EXPECT_EQ(apply(machine, rule.event), rule.result);
    EXPECT_EQ(machine.getCoordinatedState(), rule.to);
    const std::string from = coordinatedStateText(rule.from);
    const std::string changed =
        "coordinated O&M state has changed from " + from + " to " + coordinatedStateText(rule.to) + ".";
    const std::string unchanged = "coordinated O&M state was not changed. current coordinated state: " + from + ".";
    EXPECT_EQ(RecordedTraces::count(changed, start), rule.result ? 1U : 0U);
    EXPECT_EQ(RecordedTraces::count(unchanged, start), rule.result ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(, CoordinatedStateRule, testing::ValuesIn(rules),
                         [](const auto& row) { return row.param.name; });

TEST(CoordinatedState, startsInStartingAndTracesTheReportOfIt)
{
    VornCoordinatedStateSM machine;
    EXPECT_EQ(machine.getCoordinatedState(), starting);
    EXPECT_TRUE(machine.hasNoClient());
    EXPECT_FALSE(machine.isExceptionalTempFaultRaised());
    const RecordedTraces::Mark start = RecordedTraces::mark();
    EXPECT_TRUE(machine.notifyCoordinatedState(1, starting));
    EXPECT_TRUE(RecordedTraces::has("coordinated O&M state has changed from STARTING to STARTING.", start));
}

TEST(CoordinatedState, lossOfAClientThatNeverTookPartEvaluatesNothing)
{
    VornCoordinatedStateSM machine;
    machine.addClient(1, operational);
    const RecordedTraces::Mark start = RecordedTraces::mark();
    EXPECT_FALSE(machine.onVornSessionLost(4711));
    EXPECT_EQ(machine.getCoordinatedState(), starting) << "an evaluation would have enabled";
    EXPECT_TRUE(RecordedTraces::has("ABN: client with mailboxID 4711not found!", start));
    EXPECT_FALSE(RecordedTraces::hasPart("coordinated O&M state", start));
}

TEST(CoordinatedState, clientsEnterOnceAndAreOverwrittenByNotifyAlone)
{
    VornCoordinatedStateSM machine;
    const std::string added = "The client does not exist, therefore, we should add it to the list.";
    const RecordedTraces::Mark start = RecordedTraces::mark();
    machine.notifyCoordinatedState(9, disabled);
    EXPECT_EQ(RecordedTraces::count(added, start), 1U);
    machine.addClient(9, operational);
    EXPECT_FALSE(machine.hasNoDisabledClient());
    EXPECT_FALSE(machine.hasOperationalClient());
    machine.notifyCoordinatedState(9, operational);
    EXPECT_TRUE(machine.hasNoDisabledClient());
    EXPECT_TRUE(machine.hasOperationalClient());
    EXPECT_EQ(RecordedTraces::count(added, start), 1U);
    EXPECT_TRUE(machine.removeClient(9));
    EXPECT_TRUE(RecordedTraces::has("removing a client with mboxId: (9)from client list.", start));
    EXPECT_FALSE(machine.removeClient(9));
    EXPECT_TRUE(RecordedTraces::has("ABN: client with mailboxID 9not found!", start));
}

TEST(CoordinatedState, questionsTraceTheirAnswers)
{
    VornCoordinatedStateSM machine;
    const auto traces = [](const std::string& text, bool answer, bool expected, RecordedTraces::Mark start) {
        EXPECT_EQ(answer, expected) << text;
        EXPECT_EQ(RecordedTraces::count(text, start), 1U) << text;
    };
    RecordedTraces::Mark start = RecordedTraces::mark();
    traces("No value with State::DISABLED found", machine.hasNoDisabledClient(), true, start);
    traces("All clients are in STARTING state", machine.areAllClientsStarting(), true, start);
    traces("there is no client with OPERATIONAL state.", machine.hasOperationalClient(), false, start);
    traces("exceptional temperature fault ceased!", machine.isExceptionalTempFaultRaised(), false, start);
    machine.notifyExceptionalTempFault(true);
    machine.addClient(1, starting);
    machine.addClient(2, operational);
    machine.addClient(3, disabled);
    start = RecordedTraces::mark();
    traces("Found a value with State::DISABLED", machine.hasNoDisabledClient(), false, start);
    traces("Found a client in a state other than STARTING", machine.areAllClientsStarting(), false, start);
    traces("found a client with OPERATIONAL state.", machine.hasOperationalClient(), true, start);
    traces("exceptional temperature fault raised!", machine.isExceptionalTempFaultRaised(), true, start);
}

TEST(CoordinatedState, texts)
{
    EXPECT_EQ(coordinatedStateText(disabled), "DISABLED");
    EXPECT_EQ(coordinatedStateText(starting), "STARTING");
    EXPECT_EQ(coordinatedStateText(operational), "OPERATIONAL");
    EXPECT_EQ(coordinatedStateText(State{3}), "INVALID_VALUE(3)");
    EXPECT_EQ(coordinatedStateText(State{4294967295}), "INVALID_VALUE(4294967295)");
}

/// Runs without traces: millions of them would be kept.
class CoordinatedStateModel : public testing::Test
{
protected:
    void SetUp() override { enableTraces(false); }
    void TearDown() override { enableTraces(true); }

private:
    static void enableTraces(bool enabled)
    {
        for (std::size_t event = 0; event < VornTrace::eventCount; ++event) {
            RecordedTraces::enable(static_cast<VornTrace::Event>(event), enabled);
        }
    }
};

/// All that can happen to three clients; 4 is a mailbox that never takes part.
std::vector<Event> allEvents(bool singleOperationsToo)
{
    std::vector<Event> events{lose(4), fault(true), fault(false)};
    for (const std::uint32_t mbox : {1U, 2U, 3U}) {
        events.push_back(lose(mbox));
        for (const State state : {disabled, starting, operational}) {
            events.push_back(notify(mbox, state));
            if (singleOperationsToo) {
                events.push_back(add(mbox, state));
            }
        }
        if (singleOperationsToo) {
            events.push_back(remove(mbox));
        }
    }
    if (singleOperationsToo) {
        events.insert(events.end(),
                      {evaluate(std::nullopt), evaluate(disabled), evaluate(starting), evaluate(operational)});
    }
    return events;
}

/// Tries every event in every configuration of state, fault and clients that events lead to; gives their number.
std::size_t compareWhereverEventsLead(const std::vector<Event>& events)
{
    std::map<Model, std::vector<Event>> paths{{Model{}, {}}};
    std::deque<Model> waiting{Model{}};
    for (; !waiting.empty() && !testing::Test::HasFailure(); waiting.pop_front()) {
        for (const Event& event : events) {
            std::vector<Event> path = paths.at(waiting.front());
            VornCoordinatedStateSM machine;
            for (const Event& earlier : path) {
                apply(machine, earlier);
            }
            path.push_back(event);
            Model model = waiting.front();
            EXPECT_EQ(apply(machine, event), model.apply(event)) << text(path);
            EXPECT_TRUE(looksLike(machine, model)) << text(path);
            if (paths.insert({model, path}).second) {
                waiting.push_back(model);
            }
        }
    }
    return paths.size();
}

TEST_F(CoordinatedStateModel, machineAndModelAgreeWhereverTheOwnerLeads)
{
    EXPECT_GT(compareWhereverEventsLead(allEvents(false)), 100U);
}

TEST_F(CoordinatedStateModel, machineAndModelAgreeInAllConfigurations)
{
    EXPECT_EQ(compareWhereverEventsLead(allEvents(true)), 3U * 2U * 64U) << "state, fault, and three clients";
}

TEST_F(CoordinatedStateModel, machineAndModelAgreeOverRandomSequences)
{
    const std::vector<Event> events = allEvents(true);
    for (unsigned seed = 1; seed <= 100000; ++seed) {
        std::minstd_rand random(seed);
        VornCoordinatedStateSM machine;
        Model model;
        std::vector<Event> path;
        for (int step = 0; step < 25; ++step) {
            path.push_back(events[random() / 16 % events.size()]);
            const Result expected = model.apply(path.back());
            ASSERT_EQ(apply(machine, path.back()), expected) << "seed " << seed << ": " << text(path);
            ASSERT_TRUE(looksLike(machine, model)) << "seed " << seed << ": " << text(path);
        }
    }
}

} // namespace
