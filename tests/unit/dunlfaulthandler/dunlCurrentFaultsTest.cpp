/// The records of the DUNL server's faults and the lists that the coordination works on.

#include "dunlfaulthandler/dunlCurrentFaults.h"

#include "trace/recordedTraces.h"

#include <gtest/gtest.h>
#include <sstream>

using VornTrace::RecordedTraces;

namespace {

const std::string states = "PRCD"; // PENDING, REPORTED, CEASE_CANDIDATE, DELETE

/// The fault "5/17R": number of the DUNL server, case, state.
DunlActiveFault fault(const std::string& text)
{
    const auto slash = text.find('/');
    const int dunlFaultId = std::stoi(text.substr(0, slash));
    DunlActiveFault made(*DunlFaultTable::find(dunlFaultId), dunlFaultId,
                         static_cast<std::uint32_t>(std::stoul(text.substr(slash + 1))));
    if (const auto state = states.find(text.back()); state != 0) {
        made.setReportState(static_cast<ReportState>(state));
    }
    return made;
}

struct Faults : DunlCurrentFaults {
    explicit Faults(const std::string& reportedFaults)
    {
        std::istringstream in(reportedFaults);
        for (std::string word; in >> word;) {
            addReported(fault(word));
        }
    }
};

template <typename List>
std::string text(const List& list)
{
    std::string all;
    for (const DunlActiveFault& entry : list) {
        all += (all.empty() ? "" : " ") + std::to_string(entry.getDunlFaultId()) + '/' +
               std::to_string(entry.getFaultCase()) + states.at(static_cast<std::size_t>(entry.getReportState()));
    }
    return all;
}

TEST(DunlCurrentFaults, when_a_record_is_traced_then_it_tells_numbers_and_state)
{
    DunlActiveFault record = fault("5/17P");
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
}

TEST(DunlCurrentFaults, when_a_coordination_starts_then_reported_faults_are_candidates_and_pending_ones_have_lost)
{
    Faults faults("0/0R 0/0P 0/0C 0/0D");
    faults.markAllReportedFaultsAsCeaseCandidates();
    EXPECT_EQ(text(faults.reported()), "0/0C 0/0D 0/0C 0/0D");
}

TEST(DunlCurrentFaults, when_a_fault_is_to_be_shown_then_only_its_first_entry_changes)
{
    // Each time 9/7 is to be shown, another number of the same fault as 5/7.
    for (const auto& [before, after] : {std::pair("5/8D 5/7C 5/7D", "5/8D 5/7R 5/7D"),
                                        {"5/8D 5/7D 5/7D", "5/8D 5/7P 5/7D"},
                                        {"5/8D 5/7P 5/7D", "5/8D 5/7P 5/7D"},
                                        {"5/8D 5/7R 5/7D", "5/8D 5/7R 5/7D"},
                                        {"5/8R", "5/8R 9/7P"}}) {
        Faults faults(before);
        faults.updateReportedFaults(fault("9/7P"));
        EXPECT_EQ(text(faults.reported()), after);
    }
    EXPECT_TRUE(RecordedTraces::has("adding new pending fault, " + fault("9/7P").toString()));
}

TEST(DunlCurrentFaults, when_faults_are_merged_then_they_are_sorted_and_equal_ones_keep_their_order)
{
    DunlCurrentFaults faults;
    for (const char* merged : {"0/1P", "4/2P", "5/3P", "9/4P", "5/5P", "6/6P"}) {
        faults.addMerged(fault(merged));
    }
    faults.sortMerged();
    EXPECT_EQ(text(faults.merged()), "6/6P 5/3P 9/4P 5/5P 4/2P 0/1P");
}

TEST(DunlCurrentFaults, when_a_coordination_ends_then_inert_entries_that_cannot_be_found_go_and_no_others)
{
    Faults faults("0/1D 0/2D 0/1D 0/1R 5/1R 9/1D"); // 9 has the identifier of 5
    faults.dropUnreachable();
    EXPECT_EQ(text(faults.reported()), "0/1D 0/2D 0/1R 5/1R");
}

} // namespace
