/// What peers send that they never should, for the tests that show that it does no harm.
#pragma once

#include "unit.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace TestUnit {

/// A message number, and the sizes at which a message of it can go wrong: up to a little more than a whole one.
struct BadNumber {
    std::uint32_t number;
    std::vector<std::size_t> sizes; ///< bytes, the number included; ascending
};

/// Every number of the system's interfaces and of the platform, but for the exit message, which is meant to end the
/// server thread. What ends a session comes last, so that the rest is sent within one.
std::vector<BadNumber> everyNumber();

/// `size` random bytes behind the number; one in four has no zero in them, so that no text of it has an end.
std::vector<std::byte> randomMessage(std::mt19937& random, std::uint32_t number, std::size_t size);

/// A line of the unit's command line: words of the server's commands and words of no meaning. None of them makes a
/// command wait for a board server.
std::vector<std::string> randomCommand(std::mt19937& random);

/// Runs so many of them. Throws where one isn't answered.
void runRandomCommands(std::mt19937& random, unsigned count);

/// The DUNL server can do all that there is. To be called before it connects.
void supportEverything(Unit& unit);

/// A client is told of all that a client can be told, and has a measurement running, so that what belongs to these is
/// looked at.
void openSubscriptions(Unit& unit, const Client& client);

/// A board server confirms what a client needs, and leaves the rest alone.
void answerBoard(const Unit& unit, BoardServer& server);

} // namespace TestUnit
