/// The records of the DUNL server's faults and the lists that the coordination works on.

#include "dunlfaulthandler/dunlCurrentFaults.h"

#include "trace/recordedTraces.h"

#include <gtest/gtest.h>
#include <vector>

using VornTrace::RecordedTraces;

namespace {

constexpr std::int32_t hwFault = 0;
constexpr std::int32_t tooLow = 4;
constexpr std::int32_t tooHigh = 5;
constexpr std::int32_t fanDegraded = 6;
constexpr std::int32_t poeDevice0 = 9;

DunlActiveFault fault(std::int32_t dunlFaultId, std::uint32_t faultCase = 0, ReportState state = ReportState::PENDING)
{
    DunlActiveFault made(*DunlFaultTable::find(dunlFaultId), dunlFaultId, faultCase);
    if (state != ReportState::PENDING) {
        made.setReportState(state);
    }
    return made;
}

std::vector<ReportState> statesOf(DunlCurrentFaults& faults)
{
    std::vector<ReportState> states;
    for (const DunlActiveFault& entry : faults.reported()) {
        states.push_back(entry.getReportState());
    }
    return states;
}

TEST(DunlCurrentFaults, when_a_record_is_traced_then_it_tells_numbers_and_state)
{
    DunlActiveFault record = fault(tooHigh, 17);
    EXPECT_EQ(record.toString(), "DunlFaultId = EXCEPTIONAL_TEMPERATURE_TOO_HIGH (5), faultId = 0x103, faultCase = 17, "
                                 "priority = 0x1a00, reportState = PENDING");
    record.setReportState(ReportState::CEASE_CANDIDATE);
    EXPECT_TRUE(RecordedTraces::has(record.toString() + ", previous state: PENDING"));
    EXPECT_EQ(record.toString().substr(record.toString().rfind(' ')), " CEASE_CANDIDATE");
}

TEST(DunlCurrentFaults, when_a_tag_has_no_text_then_the_description_stays_empty)
{
    DunlActiveFault record({"NEW_FAULT", 0x0101, 42}, 99, 0);
    record.setDescription("");
    EXPECT_EQ(record.getFaultDescription(), "");
    EXPECT_TRUE(RecordedTraces::has("fault description text not found for dunlFaultId:NEW_FAULT, faultDescTag:42"));
    record.setDescription("told");
    EXPECT_EQ(record.getFaultDescription(), "told");
}

TEST(DunlCurrentFaults, when_a_coordination_starts_then_reported_faults_are_candidates_and_pending_ones_have_lost)
{
    DunlCurrentFaults faults;
    for (const ReportState state :
         {ReportState::REPORTED, ReportState::PENDING, ReportState::CEASE_CANDIDATE, ReportState::DELETE}) {
        faults.addReported(fault(hwFault, 0, state));
    }
    faults.markAllReportedFaultsAsCeaseCandidates();
    EXPECT_EQ(statesOf(faults), (std::vector{ReportState::CEASE_CANDIDATE, ReportState::DELETE,
                                             ReportState::CEASE_CANDIDATE, ReportState::DELETE}));
}

TEST(DunlCurrentFaults, when_a_fault_is_to_be_shown_then_only_its_first_entry_changes)
{
    const std::vector<std::pair<ReportState, ReportState>> table{
        {ReportState::CEASE_CANDIDATE, ReportState::REPORTED},
        {ReportState::DELETE, ReportState::PENDING},
        {ReportState::PENDING, ReportState::PENDING},
        {ReportState::REPORTED, ReportState::REPORTED},
    };
    for (const auto& [before, after] : table) {
        DunlCurrentFaults faults;
        faults.addReported(fault(tooHigh, 8, ReportState::DELETE)); // of another case
        faults.addReported(fault(tooHigh, 7, before));
        faults.addReported(fault(tooHigh, 7, ReportState::DELETE));
        faults.updateReportedFaults(fault(poeDevice0, 7)); // another number of the same fault
        EXPECT_EQ(statesOf(faults), (std::vector{ReportState::DELETE, after, ReportState::DELETE}));
    }
    DunlCurrentFaults faults;
    faults.addReported(fault(tooHigh, 8, ReportState::REPORTED));
    faults.updateReportedFaults(fault(tooHigh, 7));
    EXPECT_EQ(statesOf(faults), (std::vector{ReportState::REPORTED, ReportState::PENDING}));
    EXPECT_TRUE(RecordedTraces::has("adding new pending fault, " + fault(tooHigh, 7).toString()));
}

TEST(DunlCurrentFaults, when_faults_are_merged_then_they_are_sorted_and_equal_ones_keep_their_order)
{
    DunlCurrentFaults faults;
    for (const auto& [dunlFaultId, faultCase] : std::vector<std::pair<int, std::uint32_t>>{
             {hwFault, 1}, {tooLow, 2}, {tooHigh, 3}, {poeDevice0, 4}, {tooHigh, 5}, {fanDegraded, 6}}) {
        faults.addMerged(fault(dunlFaultId, faultCase));
    }
    faults.sortMerged();
    std::vector<std::uint32_t> cases;
    for (const DunlActiveFault& record : faults.merged()) {
        cases.push_back(record.getFaultCase());
    }
    EXPECT_EQ(cases, (std::vector<std::uint32_t>{6, 3, 4, 5, 2, 1}));
}

TEST(DunlCurrentFaults, when_lists_are_purged_then_ceased_records_leave_the_intake_and_inert_entries_stay)
{
    DunlCurrentFaults faults;
    faults.addIntake(fault(hwFault, 1));
    faults.addIntake(fault(hwFault, 2));
    faults.addReported(fault(hwFault, 1, ReportState::DELETE));
    faults.intake().front().setCeased();
    EXPECT_TRUE(faults.isFaultActive(hwFault));
    faults.purge();
    EXPECT_EQ(faults.intake().size(), 1U);
    EXPECT_EQ(faults.reported().size(), 1U);
    EXPECT_TRUE(faults.isFaultActive(hwFault));
    EXPECT_FALSE(faults.isFaultActive(tooHigh));
}

TEST(DunlCurrentFaults, when_a_coordination_ends_then_inert_entries_that_cannot_be_found_go_and_no_others)
{
    DunlCurrentFaults faults;
    faults.addReported(fault(hwFault, 1, ReportState::DELETE));
    faults.addReported(fault(hwFault, 2, ReportState::DELETE)); // of another case: the first of its own
    faults.addReported(fault(hwFault, 1, ReportState::DELETE));
    faults.addReported(fault(hwFault, 1, ReportState::REPORTED));
    faults.addReported(fault(tooHigh, 1, ReportState::REPORTED));
    faults.addReported(fault(poeDevice0, 1, ReportState::DELETE)); // the same identifier by another number
    faults.dropUnreachable();
    EXPECT_EQ(statesOf(faults),
              (std::vector{ReportState::DELETE, ReportState::DELETE, ReportState::REPORTED, ReportState::REPORTED}));
    EXPECT_EQ(faults.reported().front().getFaultCase(), 1U);
}

} // namespace
