#include "vornServerStartup.h"

#include "vornServerImpl.h"

VornServerStartup::VornServerStartup()
{
    m_impl = std::make_unique<VornServerImpl>();
    m_impl->start();
}

VornServerStartup::~VornServerStartup() = default;
