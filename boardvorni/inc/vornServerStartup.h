/// Owns the server for main.
#pragma once

#include <memory>

class VornServerImpl;

class VornServerStartup
{
public:
    /// Builds the server and starts it. A start that fails leaves the process alive and idle.
    VornServerStartup();
    virtual ~VornServerStartup();
    VornServerStartup(const VornServerStartup&) = delete;
    VornServerStartup& operator=(const VornServerStartup&) = delete;

private:
    std::unique_ptr<VornServerImpl> m_impl;
};
