/// The coordinated O&M state of the board.
#pragma once

#include "state.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

/// "DISABLED", "STARTING", "OPERATIONAL"; "INVALID_VALUE(<n>)" for any other value.
std::string coordinatedStateText(State state);

/// Reduces the O&M states of all clients, and the exceptional temperature fault, to the one state of the board. Whoever
/// enables or disables takes part from then on, until its session is lost.
///
/// It sends nothing: an operation returns whether the owner has to tell the board the state. That is also so where the
/// state was STARTING and stays it.
class VornCoordinatedStateSM
{
public:
    VornCoordinatedStateSM() = default;
    virtual ~VornCoordinatedStateSM() = default;
    VornCoordinatedStateSM(const VornCoordinatedStateSM&) = delete;
    VornCoordinatedStateSM& operator=(const VornCoordinatedStateSM&) = delete;

    /// A client has enabled or disabled its operation.
    bool notifyCoordinatedState(std::uint32_t mboxId, State state);
    /// False, and no evaluation, where the client never took part.
    bool onVornSessionLost(std::uint32_t mboxId);
    bool notifyExceptionalTempFault(bool isRaised);
    /// Evaluates; `clientState` is that of the client whose request is the cause.
    bool setCoordinatedState(std::optional<State> clientState);
    State getCoordinatedState() const { return m_coordinatedState; }

    /// A client that is there already keeps its state.
    void addClient(std::uint32_t mboxId, State state);
    bool removeClient(std::uint32_t mboxId);
    bool isClientExist(std::uint32_t mboxId) const;
    bool hasNoClient() const { return m_clients.empty(); }
    bool isExceptionalTempFaultRaised() const;
    bool hasNoDisabledClient() const;
    bool areAllClientsStarting() const;
    bool hasOperationalClient() const;

private:
    bool evaluateDisabled();
    bool evaluateStarting(std::optional<State> clientState);
    bool evaluateOperational(std::optional<State> clientState);
    bool isEnabled() const;
    bool isDisabledBy(std::optional<State> clientState) const;

    State m_coordinatedState = State::STARTING;
    bool m_isExceptionalTempFault = false;
    std::map<std::uint32_t, State> m_clients; ///< by mailbox
};
