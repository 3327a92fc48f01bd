/// What all components share: sessions, counters, the boot environment, texts and names.

#include "serverThread.h"
#include "signalNames.h"
#include "vornServerComponent.h"
#include "vornSession.h"

#include <cstdlib>
#include <sstream>

using VornTrace::RecordedTraces;

namespace {

TEST(VornServerCommonDataTest, when_sessions_come_and_go_then_the_rest_keeps_its_order)
{
    ServerThread thread;
    VornServerCommonData& data = thread.commonData;
    for (const std::uint32_t mbox : {0x10U, 0x20U, 0x30U}) {
        VornSession& session = data.addVornSession(mbox, mbox, 0, 3, "DU_" + std::to_string(mbox), 0);
        session.setFwdMbox(new FwdMbox(kiv_current_mbox(), "Fwd" + std::to_string(mbox)));
        session.getFwdMbox()->createMbox();
    }
    VornSession* third = data.findVornSession(0x30);
    const std::uint32_t fwd = third->getFwdMbox()->getMboxId();
    EXPECT_EQ(data.findVornSessionByFwdMbox(fwd), third);
    EXPECT_EQ(data.findVornSessionByFwdMbox(data.getPrivateMbox()), nullptr);
    data.removeVornSession(0x40);
    EXPECT_EQ(data.getVornSessionCount(), 3U);
    data.removeVornSession(0x10);
    EXPECT_EQ(data.findVornSession(0x10), nullptr);
    EXPECT_EQ(data.findVornSession(0x30), third);
    EXPECT_EQ(data.findVornSessionByFwdMbox(fwd), third);
    std::ostringstream out;
    data.dumpVornSessions(out);
    EXPECT_LT(out.str().find("m_mboxId = 0x20\n"), out.str().find("}\n\nm_mboxId = 0x30\n"));
    data.removeVornSession(0x30);
    EXPECT_EQ(data.findVornSessionByFwdMbox(fwd), nullptr);
    EXPECT_EQ(data.getVornSessionCount(), 1U);
}

TEST(VornServerCommonDataTest, when_two_sessions_have_one_mailbox_then_the_first_is_found_and_removed_first)
{
    VornServerCommonData data;
    VornSession* first = &data.addVornSession(0x10, 1, 0, 3, "DU_0", 0);
    VornSession* second = &data.addVornSession(0x10, 2, 0, 3, "DU_1", 0);
    EXPECT_EQ(data.findVornSession(0x10), first);
    data.removeVornSession(0x10);
    EXPECT_EQ(data.findVornSession(0x10), second);
}

TEST(VornServerCommonDataTest, when_the_boot_environment_runs_then_only_the_first_revision_is_spoken)
{
    const auto revisions = [](const char* mode) {
        mode != nullptr ? ::setenv("SYS_MODE", mode, 1) : ::unsetenv("SYS_MODE");
        const VornServerCommonData data;
        ::unsetenv("SYS_MODE");
        return std::tuple(data.isAuBootMode(), data.getHighestProtocolRev(), data.hasProtocolRev(2),
                          data.hasProtocolRev(1), data.hasProtocolRev(4));
    };
    const std::tuple normal(false, 3, true, true, false);
    EXPECT_EQ(revisions(nullptr), normal);
    EXPECT_EQ(revisions(""), normal);
    EXPECT_EQ(revisions("AUBOOT2"), normal);
    EXPECT_EQ(revisions("AUBOOT"), std::tuple(true, 1, false, true, false));
}

TEST(VornServerCommonDataTest, when_values_are_counted_then_they_stay_in_their_bounds)
{
    VornServerCommonData data;
    data.updateFaultFilterCount(false);
    EXPECT_FALSE(data.isFaultFilterActive());
    data.updateFaultFilterCount(true);
    data.updateFaultFilterCount(true);
    data.updateFaultFilterCount(false);
    EXPECT_TRUE(data.isFaultFilterActive());
    data.updateFaultFilterCount(false);
    EXPECT_FALSE(data.isFaultFilterActive());
    EXPECT_EQ(data.takeSessionNumber(), 0U);
    EXPECT_EQ(data.takeSessionNumber(), 1U);
    data.incrementLostClientCount();
    EXPECT_EQ(data.getLostClientCount(), 1U);
    EXPECT_EQ(data.getMmiUid(), 0xFFFFFFFFU);
}

TEST(VornServerComponentTest, when_an_error_text_is_copied_then_it_is_cut_only_where_it_does_not_fit)
{
    struct {
        char field[6];
        char behind;
    } target;
    const auto copy = [&](const std::string& text) {
        std::memset(&target, 'x', sizeof(target));
        VornServerComponent::copyErrorDescription(target.field, sizeof(target.field), text);
        EXPECT_EQ(target.behind, 'x');
        return std::string(target.field, sizeof(target.field));
    };
    EXPECT_EQ(copy(""), std::string(6, '\0'));
    EXPECT_EQ(copy("ab"), std::string("ab\0\0\0\0", 6));
    EXPECT_EQ(copy("abcde"), std::string("abcde\0", 6));
    EXPECT_FALSE(RecordedTraces::hasPart("data lost"));
    EXPECT_EQ(copy("abcdef"), std::string("abcde\0", 6));
    EXPECT_TRUE(RecordedTraces::has("ABN: copyErrorDescription: data lost. source: \"abcdef\" (strlen: 7), "
                                    "destination: \"abcde\" (strlen: 6)"));
}

TEST(VornServerComponentTest, when_a_number_has_a_name_then_it_keeps_the_first_one)
{
    addSignalName(0x4711, "first");
    addSignalName(0x4711, "second");
    EXPECT_EQ(getSignalName(0x4711), "first");
    EXPECT_EQ(getSignalName(0xABCDEF), "0xabcdef");
}

} // namespace
