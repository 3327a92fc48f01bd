/// What the rest of the server asks the baseband side.
#pragma once

#include <cstdint>
#include <vector>

namespace VornServer::BbVorni {

class Client
{
public:
    virtual ~Client() = default;

    /// The baseband's capabilities, by the numbers that clients know: 26 and 28.
    virtual const std::vector<std::uint32_t>& getCapabilities() const = 0;
};

} // namespace VornServer::BbVorni
