/// The active faults of one kind: of hardware and environment, of software, or of the power supply.
#pragma once

#include "faultmanager/activeFault.h"

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace VornServer {

/// Faults of one kind hide each other by priority; those of different kinds don't.
class ActiveFaultList
{
public:
    using Bucket = std::vector<ActiveFault>;
    /// Highest priority first. A bucket may be empty.
    using Buckets = std::map<Priority, Bucket, std::greater<>>;

    explicit ActiveFaultList(std::uint32_t number) : m_number(number) {}

    std::uint32_t number() const { return m_number; }
    Buckets& buckets() { return m_buckets; }
    const Buckets& buckets() const { return m_buckets; }

    /// The first record of this number, or the sentinel, whose source is FaultSource::NONE. Callers tell the sentinel
    /// by that source: a fault that was added without a source isn't found either.
    ActiveFault& find(std::uint16_t faultId);

    /// Appends a record to the bucket of its priority.
    ActiveFault& add(const FaultData& fault, Priority priority);

    /// Removes the first record of this number and returns it, or the sentinel.
    ActiveFault take(std::uint16_t faultId);

    /// Whether a record has a strictly higher priority.
    bool hasHigherPriority(Priority priority) const;

private:
    std::uint32_t m_number;
    Buckets m_buckets;
};

} // namespace VornServer
