/// The hub through which every fault passes on its way to the clients.
#pragma once

#include "faultmanager/faultData.h"

#include <cstdint>
#include <functional>
#include <string>

namespace VornServer {

/// Producers add and remove faults; the manager counts who holds which, decides by priority which are shown at the
/// moment, and tells the two subscribers. No operation throws on bad input. Server thread only: subscribers and
/// callbacks run inside the operation that causes them, and don't add or remove faults themselves.
class FaultManagerIf
{
public:
    /// Of a raised fault: the mailbox that is to be told, or `allSubscribers`.
    using RaisedSubscriber = std::function<void(const FaultData& fault, std::uint32_t target)>;
    using CeasedSubscriber = std::function<void(const FaultData& fault)>;
    using IndicationCallback = std::function<void(bool isOn)>;
    using TemperatureCallback = std::function<void(bool isRaised)>;

    static constexpr std::uint32_t allSubscribers = 0xFFFFFFFF;

    virtual ~FaultManagerIf() = default;

    /// Registers the debug command "fm". False where that failed.
    virtual bool init() = 0;

    /// Replaces both subscribers.
    virtual void setSubscribers(RaisedSubscriber raised, CeasedSubscriber ceased) = 0;

    /// Takes the callback that would drive an indicator for hardware faults. It is kept and not called yet.
    virtual void setVisualIndicationCallback(IndicationCallback callback) = 0;

    /// Adds a callback for exceptional temperature faults: on a raise called behind the subscriber, on a cease before.
    virtual void addExceptionalTemperatureCallback(TemperatureCallback callback) = 0;

    /// Takes a fault over; may change its faultId. False where the fault isn't supported from its source.
    virtual bool addFault(FaultData& fault) = 0;

    /// Takes one source of a fault away; the last one ceases it.
    virtual void removeFault(std::uint16_t faultId) = 0;

    /// Tells one subscriber mailbox of the faults that are shown, those of power disturbance left out.
    virtual void reportActiveFaults(std::uint32_t target) = 0;

    /// The enumerator's name, or "UNKNOWN_FAULT_ID".
    virtual const std::string& faultIdName(std::uint16_t faultId) const = 0;

    /// The name with the number: "OMLA_CONST_FH_FAULT_ID_SW_ERROR (0x301)".
    virtual std::string faultIdText(std::uint16_t faultId) const = 0;
};

} // namespace VornServer
