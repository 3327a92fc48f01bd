/// The coordinated O&M state machine: its rules one by one, and against a table of them in all states.
#include "vornCoordinatedStateSM.h"

#include "trace/recordedTraces.h"

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>

using VornTrace::RecordedTraces;

namespace {

constexpr State disabled = State::DISABLED;
constexpr State starting = State::STARTING;
constexpr State operational = State::OPERATIONAL;

/// An event is a kind, a client and a state: "n1O" client 1 notifies OPERATIONAL, "l1" its session is lost, "f+" and
/// "f-" the temperature fault comes and goes. The machine's single operations: "a1D" add, "r1" remove, "e-D" evaluate
/// with a cause and "e--" without one.
using Event = std::string;

std::uint32_t clientOf(const Event& event)
{
    return static_cast<std::uint32_t>(event[1] - '0');
}

/// Nothing for '-'; 7 is no state of the machine.
std::optional<State> stateOf(const Event& event)
{
    const std::map<char, State> states{{'D', disabled}, {'S', starting}, {'O', operational}, {'7', State{7}}};
    const auto found = states.find(event[2]);
    return found != states.end() ? std::optional(found->second) : std::nullopt;
}

/// What an event returned; nothing for one without a result.
using Result = std::optional<bool>;

Result play(VornCoordinatedStateSM& machine, const Event& event)
{
    switch (event[0]) {
    case 'n':
        return machine.notifyCoordinatedState(clientOf(event), *stateOf(event));
    case 'l':
        return machine.onVornSessionLost(clientOf(event));
    case 'f':
        return machine.notifyExceptionalTempFault(event[1] == '+');
    case 'a':
        machine.addClient(clientOf(event), *stateOf(event));
        return std::nullopt;
    case 'r':
        return machine.removeClient(clientOf(event));
    default:
        return machine.setCoordinatedState(stateOf(event));
    }
}

/// Plays a sequence.
void playAll(VornCoordinatedStateSM& machine, const std::string& events)
{
    std::istringstream in(events);
    for (Event event; in >> event;) {
        play(machine, event);
    }
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

    Result play(const Event& event)
    {
        switch (event[0]) {
        case 'n':
            clients[clientOf(event)] = *stateOf(event);
            return evaluate(stateOf(event));
        case 'l':
            return clients.erase(clientOf(event)) == 1 && evaluate(std::nullopt);
        case 'f':
            isFault = event[1] == '+';
            return evaluate(std::nullopt);
        case 'a':
            clients.insert({clientOf(event), *stateOf(event)});
            return std::nullopt;
        case 'r':
            return clients.erase(clientOf(event)) == 1;
        default:
            return evaluate(stateOf(event));
        }
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
    const char* before; ///< events that lead to `from`
    State from;
    const char* event;
    State to;
    bool result;
};

const Rule rules[]{
    {"D1: the fault ceases", "n1O f+", disabled, "f-", operational, true},
    {"D2: the last client is lost", "n1D", disabled, "l1", starting, true},
    {"D2: the fault ceases without clients", "f+", disabled, "f-", starting, true},
    {"D3: the fault holds against an enable", "n1D f+", disabled, "n1O", disabled, false},
    {"D3: the fault holds against the last loss", "n1D f+", disabled, "l1", disabled, false},
    {"S1: before S3", "a1O", starting, "e-D", disabled, true},
    {"S2: before S3", "a1O", starting, "f+", disabled, true},
    {"S3: without a cause", "a1O", starting, "e--", operational, true},
    {"S3: an enable in spite of the fault", "n1O r1 f+", starting, "n1O", operational, true},
    {"S4: told though it stays", "", starting, "f-", starting, true},
    {"S4: besides a disabled client", "a2D", starting, "n1O", starting, true},
    {"S4: an unknown state", "", starting, "n17", starting, true},
    {"O1: before O2", "n1O r1", operational, "e-D", starting, true},
    {"O1: before O3", "n1O r1", operational, "f+", starting, true},
    {"O2: over operational clients", "n1O n2O n3O", operational, "n2D", disabled, true},
    {"O3: a loss during the fault", "n1O r1 f+ n1O n2O", operational, "l1", disabled, true},
    {"O4: one of two is lost", "n1O n2O", operational, "l1", operational, false},
    {"O4: an enable during the fault", "n1O r1 f+ n1O", operational, "n2O", operational, false},
    {"O4: a disabled client that isn't the cause", "n1O a2D", operational, "n1O", operational, false},
};

TEST(CoordinatedState, followsItsRulesAndTracesTheResult)
{
    for (const Rule& rule : rules) {
        SCOPED_TRACE(rule.name);
        VornCoordinatedStateSM machine;
        playAll(machine, rule.before);
        EXPECT_EQ(machine.getCoordinatedState(), rule.from);
        const RecordedTraces::Mark start = RecordedTraces::mark();
        EXPECT_EQ(play(machine, rule.event), rule.result);
        EXPECT_EQ(machine.getCoordinatedState(), rule.to);
        const std::string from = coordinatedStateText(rule.from);
        const std::string changed =
            "coordinated O&M state has changed from " + from + " to " + coordinatedStateText(rule.to) + ".";
        const std::string unchanged = "coordinated O&M state was not changed. current coordinated state: " + from + ".";
        EXPECT_EQ(RecordedTraces::count(changed, start), rule.result ? 1U : 0U);
        EXPECT_EQ(RecordedTraces::count(unchanged, start), rule.result ? 0U : 1U);
    }
}

TEST(CoordinatedState, tracesItsClientsAndItsAnswers)
{
    VornCoordinatedStateSM machine;
    const auto traced = [&machine](const std::string& events) {
        const RecordedTraces::Mark start = RecordedTraces::mark();
        playAll(machine, events);
        machine.hasNoDisabledClient();
        machine.areAllClientsStarting();
        machine.hasOperationalClient();
        machine.isExceptionalTempFaultRaised();
        std::string all;
        for (const auto& trace : RecordedTraces::since(start)) {
            all += trace.text + '\n';
        }
        return all;
    };
    EXPECT_EQ(traced(""), "No value with State::DISABLED found\nAll clients are in STARTING state\n"
                          "there is no client with OPERATIONAL state.\nexceptional temperature fault ceased!\n");
    EXPECT_EQ(traced("a1O l7 r1 a3D a2O"), // the loss of a client that never took part evaluates nothing
              "removing a client with mboxId: (7)from client list.\nABN: client with mailboxID 7not found!\n"
              "removing a client with mboxId: (1)from client list.\nFound a value with State::DISABLED\n"
              "Found a client in a state other than STARTING\nfound a client with OPERATIONAL state.\n"
              "exceptional temperature fault ceased!\n");
    const std::string added = "The client does not exist, therefore, we should add it to the list.\n";
    EXPECT_EQ(traced("n1D").find(added), 0U);
    EXPECT_EQ(traced("n1O").find(added), std::string::npos);
    EXPECT_NE(traced("f+").find("exceptional temperature fault raised!\n"), std::string::npos);
}

TEST(CoordinatedState, texts)
{
    EXPECT_EQ(coordinatedStateText(disabled), "DISABLED");
    EXPECT_EQ(coordinatedStateText(starting), "STARTING");
    EXPECT_EQ(coordinatedStateText(operational), "OPERATIONAL");
    EXPECT_EQ(coordinatedStateText(State{3}), "INVALID_VALUE(3)");
    EXPECT_EQ(coordinatedStateText(State{4294967295}), "INVALID_VALUE(4294967295)");
}

/// Without traces: millions of them would be kept.
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

/// All that can happen to three clients; 4 never takes part.
const std::vector<Event> allEvents{"l4",  "f+",  "f-",  "l1",  "l2",  "l3",  "n1D", "n1S", "n1O", "n2D", "n2S",
                                   "n2O", "n3D", "n3S", "n3O", "r1",  "r2",  "r3",  "a1D", "a1S", "a1O", "a2D",
                                   "a2S", "a2O", "a3D", "a3S", "a3O", "e--", "e-D", "e-S", "e-O"};

/// In every configuration of state, fault and clients that events lead to.
TEST_F(CoordinatedStateModel, agreesWithTheMachineInAllConfigurations)
{
    std::map<Model, std::string> paths{{Model{}, ""}};
    std::deque<Model> waiting{Model{}};
    for (; !waiting.empty() && !HasFailure(); waiting.pop_front()) {
        for (const Event& event : allEvents) {
            VornCoordinatedStateSM machine;
            playAll(machine, paths.at(waiting.front()));
            const std::string path = paths.at(waiting.front()) + event + ' ';
            Model model = waiting.front();
            EXPECT_EQ(play(machine, event), model.play(event)) << path;
            EXPECT_TRUE(looksLike(machine, model)) << path;
            if (paths.insert({model, path}).second) {
                waiting.push_back(model);
            }
        }
    }
    EXPECT_EQ(paths.size(), 3U * 2U * 64U) << "state, fault, and three clients";
}

TEST_F(CoordinatedStateModel, agreesWithTheMachineOverRandomSequences)
{
    for (unsigned seed = 1; seed <= 100000; ++seed) {
        std::minstd_rand random(seed);
        VornCoordinatedStateSM machine;
        Model model;
        std::string path;
        for (int step = 0; step < 25; ++step) {
            const Event& event = allEvents[random() / 16 % allEvents.size()];
            path += event + ' ';
            const Result expected = model.play(event);
            ASSERT_EQ(play(machine, event), expected) << path;
            ASSERT_TRUE(looksLike(machine, model)) << path;
        }
    }
}

} // namespace
