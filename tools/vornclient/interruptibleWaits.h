/// Ctrl-C and the waits of a hub.
#pragma once

#include "vornclient/clientHub.h"
#include "vornclient/interrupt.h"

#include <optional>

namespace VornClient {

/// Lets Ctrl-C end the hub's waits where the caller hasn't seen to it.
class InterruptibleWaits
{
public:
    explicit InterruptibleWaits(ClientHub& hub) : m_hub(hub)
    {
        if (!hub.hasInterruptFd()) {
            m_hub.setInterruptFd(m_interrupt.emplace().fd());
        }
    }
    ~InterruptibleWaits()
    {
        if (m_interrupt) {
            m_hub.setInterruptFd(-1);
        }
    }
    InterruptibleWaits(const InterruptibleWaits&) = delete;
    InterruptibleWaits& operator=(const InterruptibleWaits&) = delete;

private:
    ClientHub& m_hub;
    std::optional<Interrupt> m_interrupt;
};

/// Lets waits come to their end although Ctrl-C has been pressed: to leave things behind in order.
class UninterruptedWaits
{
public:
    explicit UninterruptedWaits(ClientHub& hub) : m_hub(hub), m_interruptFd(hub.interruptFd())
    {
        m_hub.setInterruptFd(-1);
    }
    ~UninterruptedWaits() { m_hub.setInterruptFd(m_interruptFd); }
    UninterruptedWaits(const UninterruptedWaits&) = delete;
    UninterruptedWaits& operator=(const UninterruptedWaits&) = delete;

private:
    ClientHub& m_hub;
    int m_interruptFd;
};

} // namespace VornClient
