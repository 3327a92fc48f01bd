#include "bbvorni/bbVorni.h"

namespace VornServer::BbVorni {

BbVorni::~BbVorni()
{
    TRACE_2("BbVorni::~BbVorni");
}

/// A baseband side with a server would report this once it is connected.
bool BbVorni::init()
{
    if (areComponentsReadyToPublish) {
        areComponentsReadyToPublish();
    }
    return true;
}

bool BbVorni::isReadyToPublish() const
{
    TRACE_1(" Returning: true");
    return true;
}

const std::vector<std::uint32_t>& BbVorni::getCapabilities() const
{
    static const std::vector<std::uint32_t> none;
    return none;
}

} // namespace VornServer::BbVorni
