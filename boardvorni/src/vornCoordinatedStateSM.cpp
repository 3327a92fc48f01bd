#include "vornCoordinatedStateSM.h"

#include "trace/trace.h"

#include <algorithm>

std::string coordinatedStateText(State state)
{
    static const std::map<State, const char*> texts{
        {State::DISABLED, "DISABLED"}, {State::STARTING, "STARTING"}, {State::OPERATIONAL, "OPERATIONAL"}};
    const auto found = texts.find(state);
    return found != texts.end() ? found->second : fmt::format("INVALID_VALUE({})", static_cast<std::uint32_t>(state));
}

bool VornCoordinatedStateSM::notifyCoordinatedState(std::uint32_t mboxId, State state)
{
    if (isClientExist(mboxId)) {
        m_clients[mboxId] = state;
    } else {
        TRACE_1("The client does not exist, therefore, we should add it to the list.");
        addClient(mboxId, state);
    }
    return setCoordinatedState(state);
}

bool VornCoordinatedStateSM::onVornSessionLost(std::uint32_t mboxId)
{
    return removeClient(mboxId) && setCoordinatedState(std::nullopt);
}

bool VornCoordinatedStateSM::notifyExceptionalTempFault(bool isRaised)
{
    m_isExceptionalTempFault = isRaised;
    return setCoordinatedState(std::nullopt);
}

bool VornCoordinatedStateSM::setCoordinatedState(std::optional<State> clientState)
{
    const State old = m_coordinatedState;
    bool isToBeSent = false;
    switch (old) {
    case State::DISABLED:
        isToBeSent = evaluateDisabled();
        break;
    case State::STARTING:
        isToBeSent = evaluateStarting(clientState);
        break;
    case State::OPERATIONAL:
        isToBeSent = evaluateOperational(clientState);
        break;
    default:
        if (clientState) {
            TRACE_1("no need to change coordinated O&M state. client VornState: {}coordinated O&M state: {}",
                    coordinatedStateText(*clientState), coordinatedStateText(old));
        } else {
            TRACE_1("No need to change coordinated state!");
        }
        return false;
    }
    if (isToBeSent) {
        TRACE_1("coordinated O&M state has changed from {} to {}.", coordinatedStateText(old),
                coordinatedStateText(m_coordinatedState));
    } else {
        TRACE_1("coordinated O&M state was not changed. current coordinated state: {}.", coordinatedStateText(old));
    }
    return isToBeSent;
}

/// While the temperature fault is raised the board stays disabled, whatever the clients do.
bool VornCoordinatedStateSM::evaluateDisabled()
{
    if (isEnabled() && !isExceptionalTempFaultRaised()) {
        m_coordinatedState = State::OPERATIONAL;
        return true;
    }
    if ((areAllClientsStarting() || hasNoClient()) && !isExceptionalTempFaultRaised()) {
        m_coordinatedState = State::STARTING;
        return true;
    }
    return false;
}

/// A client's enable isn't held against the temperature fault. The board is told the state even if it stays.
bool VornCoordinatedStateSM::evaluateStarting(std::optional<State> clientState)
{
    if (isDisabledBy(clientState)) {
        m_coordinatedState = State::DISABLED;
    } else if (isEnabled()) {
        m_coordinatedState = State::OPERATIONAL;
    }
    return true;
}

bool VornCoordinatedStateSM::evaluateOperational(std::optional<State> clientState)
{
    if (areAllClientsStarting() || hasNoClient()) {
        m_coordinatedState = State::STARTING;
        return true;
    }
    if (isDisabledBy(clientState)) {
        m_coordinatedState = State::DISABLED;
        return true;
    }
    return false;
}

bool VornCoordinatedStateSM::isEnabled() const
{
    return hasOperationalClient() && hasNoDisabledClient();
}

/// One client's disable is enough; without a client as the cause the temperature fault decides.
bool VornCoordinatedStateSM::isDisabledBy(std::optional<State> clientState) const
{
    return clientState ? *clientState == State::DISABLED : isExceptionalTempFaultRaised();
}

void VornCoordinatedStateSM::addClient(std::uint32_t mboxId, State state)
{
    m_clients.emplace(mboxId, state);
}

bool VornCoordinatedStateSM::removeClient(std::uint32_t mboxId)
{
    TRACE_1("removing a client with mboxId: ({})from client list.", mboxId);
    if (m_clients.erase(mboxId) == 0) {
        TRACE_INFO("ABN: client with mailboxID {}not found!", mboxId);
        return false;
    }
    return true;
}

bool VornCoordinatedStateSM::isClientExist(std::uint32_t mboxId) const
{
    return m_clients.find(mboxId) != m_clients.end();
}

bool VornCoordinatedStateSM::isExceptionalTempFaultRaised() const
{
    TRACE_1("exceptional temperature fault {}!", m_isExceptionalTempFault ? "raised" : "ceased");
    return m_isExceptionalTempFault;
}

bool VornCoordinatedStateSM::hasNoDisabledClient() const
{
    const bool isNone = std::none_of(m_clients.begin(), m_clients.end(),
                                     [](const auto& client) { return client.second == State::DISABLED; });
    TRACE_1("{}", isNone ? "No value with State::DISABLED found" : "Found a value with State::DISABLED");
    return isNone;
}

bool VornCoordinatedStateSM::areAllClientsStarting() const
{
    const bool areAll = std::all_of(m_clients.begin(), m_clients.end(),
                                    [](const auto& client) { return client.second == State::STARTING; });
    TRACE_1("{}", areAll ? "All clients are in STARTING state" : "Found a client in a state other than STARTING");
    return areAll;
}

bool VornCoordinatedStateSM::hasOperationalClient() const
{
    const bool isAny = std::any_of(m_clients.begin(), m_clients.end(),
                                   [](const auto& client) { return client.second == State::OPERATIONAL; });
    TRACE_1("{}", isAny ? "found a client with OPERATIONAL state." : "there is no client with OPERATIONAL state.");
    return isAny;
}
