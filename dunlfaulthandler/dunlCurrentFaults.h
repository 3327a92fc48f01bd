/// The faults of the DUNL server that the coordination works on.
#pragma once

#include "dunlfaulthandler/dunlActiveFault.h"

#include <list>

/// Three lists of records, by value:
/// - intake: what the DUNL server has raised and not ceased
/// - merged: what takes part in the running coordination
/// - reported: what the fault manager has been told. The first entry of each identifier and case stays for good, also
///   when it is ceased: a later raise of the same fault finds its old place, and its old description.
class DunlCurrentFaults
{
public:
    using Faults = std::list<DunlActiveFault>;

    void addIntake(const DunlActiveFault& fault) { m_intake.push_back(fault); }
    void addMerged(const DunlActiveFault& fault) { m_merged.push_back(fault); }
    void addReported(const DunlActiveFault& fault) { m_reported.push_back(fault); }

    Faults& intake() { return m_intake; }
    Faults& merged() { return m_merged; }
    Faults& reported() { return m_reported; }

    void clearMerged() { m_merged.clear(); }
    /// By priority, then by fault identifier, ascending; equal records keep their order.
    void sortMerged();

    void markAllReportedFaultsAsCeaseCandidates();

    /// A fault that is to be shown: keeps or revives the first entry of its identifier and case, or adds one.
    void updateReportedFaults(const DunlActiveFault& fault);

    /// Whether the intake has a record of this number.
    bool isFaultActive(std::int32_t dunlFaultId) const;

    /// Removes the records that are marked as ceased, which only those of the intake ever are.
    void purge();

    /// Removes inert entries that nobody finds any more: an older one of the same identifier and case is found first.
    /// Without it the list would grow with each coordination, by as many entries as a peer cares to raise faults.
    void dropUnreachable();

private:
    Faults m_intake;
    Faults m_merged;
    Faults m_reported;
};
