// Tickets, loading with a window of blocks, selection, the list of software components, the running module.
#include "vorni/software.h"
#include "commandFixture.h"
#include "vornclient/lmcLoad.h"
#include "vornclient/session.h"
#include "vorni/access.h"
#include "vorni/capabilities.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sstream>

namespace {

using namespace VornClient;
using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t acquireReq = OmlaVornAcquireResourceReqS::number;
constexpr std::uint32_t acquireCfm = OmlaVornAcquireResourceCfmS::number;
constexpr std::uint32_t releaseReq = OmlaVornReleaseResourceReqS::number;
constexpr std::uint32_t initReq = OmlaVornLoadLmcInitReqS::number;
constexpr std::uint32_t endReq = OmlaVornLoadLmcEndReqS::number;
constexpr std::uint32_t selectReq = OmlaVornSelectLmcReqS::number;
constexpr std::uint32_t listReq = OmlaVornSwCompListReqS::number;

/// The unit's end of tickets, loads and lists, as the server's thread plays it. What it does is settled before it is
/// served; what it has seen is read under its lock.
class Unit
{
public:
    // What it does.
    std::optional<std::int32_t> blockSize; ///< that it wants
    std::string_view initResult = "\0\0\0\0"sv;
    std::string_view endResult = "\0\0\0\0"sv;
    std::size_t acknowledgesEvery = 1;                ///< blocks; it acknowledges the newest first
    std::optional<std::uint64_t> forgets;             ///< the block that it doesn't acknowledge, from 1 on
    std::function<void(std::uint64_t block)> onBlock; ///< before it is acknowledged
    std::vector<std::string> parts;                   ///< of the list
    std::uint32_t partsPromiseMore = 0;               ///< bytes that a part says it has and hasn't
    std::vector<std::uint32_t> silentTo;              ///< these requests aren't answered

    // What it has seen.
    std::string loadModule;
    std::string content;
    std::uint64_t blocks = 0;
    bool isInOrder = true;
    std::vector<std::uint32_t> requests;
    std::vector<std::uint32_t> aborts; ///< as the parts were acknowledged

    std::unique_lock<std::mutex> lock() { return std::unique_lock(m_mutex); }

    void serve(const ScriptedServer& server, const kiv_msg* signal)
    {
        const auto locked = lock();
        if (signal->number == OmlaVornLoadLmcDataS::number) {
            takeBlock(server, signal);
        } else if (signal->number == OmlaVornSwCompListAckS::number) {
            aborts.push_back(viewSignal<OmlaVornSwCompListAckS>(signal)->abort);
            if (aborts.back() == 0) {
                sendPart(server, signal);
            }
        } else if (signal->number == OmlaVornGetCapabilitiesReqS::number) {
            sendCapabilities(server, signal);
        } else {
            requests.push_back(signal->number);
            if (std::count(silentTo.begin(), silentTo.end(), signal->number) == 0) {
                answer(server, signal);
            }
        }
    }

private:
    void answer(const ScriptedServer& server, const kiv_msg* signal)
    {
        const auto* resource = reinterpret_cast<const char*>(signal) + sizeof(VornSignalHeader);
        switch (signal->number) {
        case acquireReq:
            server.reply(signal, acquireCfm, {resource, 4});
            break;
        case releaseReq:
            server.reply(signal, OmlaVornReleaseResourceCfmS::number, {resource, 4});
            break;
        case initReq:
            loadModule = textBehind<OmlaVornLoadLmcInitReqS>(*signal);
            server.reply(signal, OmlaVornLoadLmcInitCfmS::number, initResult);
            break;
        case endReq:
            server.reply(signal, OmlaVornLoadLmcEndCfmS::number, endResult);
            break;
        case OmlaVornSelectLmcReqS::number:
            loadModule = textBehind<OmlaVornSelectLmcReqS>(*signal);
            server.reply(signal, OmlaVornSelectLmcCfmS::number);
            break;
        case OmlaVornSwCompListReqS::number:
            server.reply(signal, OmlaVornSwCompListCfmS::number);
            sendPart(server, signal);
            break;
        case OmlaVornGetRunningLmcReqS::number:
            server.reply(signal, OmlaVornGetRunningLmcCfmS::number, "KDX 1_R1A" + std::string(27, '\0'));
            break;
        default:
            break;
        }
    }

    void sendCapabilities(const ScriptedServer& server, const kiv_msg* signal) const
    {
        OmlaVornGetCapabilitiesCfmS confirm{};
        confirm.noOfRecords = blockSize ? 1 : 0;
        VornCapabilityRecordS record{VornCapability::LoadingBlockSize, sizeof(VornCapabilityRecordS), {}};
        reinterpret_cast<VornLoadingBlockSizeS*>(record.payload)->blockSize = blockSize.value_or(0);
        server.reply(signal, OmlaVornGetCapabilitiesCfmS::number,
                     behindHeader(confirm) + std::string(reinterpret_cast<const char*>(&record), sizeof(record)));
    }

    void takeBlock(const ScriptedServer& server, const kiv_msg* signal)
    {
        const auto* data = viewSignal<OmlaVornLoadLmcDataS>(signal);
        const auto bytes = bytesBehind<OmlaVornLoadLmcDataS>(*signal);
        isInOrder = isInOrder && bytes.size() == data->noOfBytes &&
                    (blocks == 0 || data->lmSeqNr == static_cast<std::uint16_t>(m_lastNumber + 1));
        m_lastNumber = data->lmSeqNr;
        content.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        ++blocks;
        if (onBlock) {
            onBlock(blocks);
        }
        if (blocks != forgets) {
            m_unacknowledged.push_back(data->lmSeqNr);
        }
        if (m_unacknowledged.size() < acknowledgesEvery) {
            return;
        }
        for (; !m_unacknowledged.empty(); m_unacknowledged.pop_back()) {
            OmlaVornLoadLmcAckS ack{};
            ack.lmSeqNr = m_unacknowledged.back();
            server.reply(signal, OmlaVornLoadLmcAckS::number, behindHeader(ack));
        }
    }

    /// The next one, if there is one.
    void sendPart(const ScriptedServer& server, const kiv_msg* signal)
    {
        if (m_partsSent >= parts.size()) {
            return;
        }
        const std::string& text = parts[m_partsSent++];
        OmlaVornSwCompListDataS part{};
        part.endFlag = m_partsSent == parts.size() ? 1 : 0;
        part.noOfBytes = static_cast<std::uint32_t>(text.size()) + partsPromiseMore;
        server.reply(signal, OmlaVornSwCompListDataS::number,
                     behindHeader(part) + text + std::string(partsPromiseMore > 0 ? 0 : 3, '\0'));
    }

    template <typename Record>
    static std::string behindHeader(const Record& record)
    {
        return {reinterpret_cast<const char*>(&record) + sizeof(VornSignalHeader),
                sizeof(Record) - sizeof(VornSignalHeader)};
    }

    std::mutex m_mutex;
    std::vector<std::uint16_t> m_unacknowledged;
    std::uint16_t m_lastNumber = 0;
    std::size_t m_partsSent = 0;
};

class VornClientSoftware : public VornClientCommand
{
protected:
    /// A connected client and this unit.
    void serveUnit()
    {
        serveConnected([this](const ScriptedServer& server, const kiv_msg* signal) { unit.serve(server, signal); });
        ASSERT_EQ(verdict({"connect"}), Verdict::ok);
        printer.log.clear();
    }

    static std::string path(const std::string& name) { return std::filesystem::path(std::getenv("RU_DIR")) / name; }

    /// A file of bytes that tell their place.
    std::string file(const std::string& name, std::size_t size)
    {
        written.resize(size);
        for (std::size_t at = 0; at < size; ++at) {
            written[at] = static_cast<char>(at ^ (at >> 8U) ^ (at >> 16U));
        }
        std::ofstream(path(name), std::ios::binary) << written;
        return path(name);
    }

    /// The most blocks that the client had sent and not seen acknowledged.
    int mostInFlight() const
    {
        int inFlight = 0;
        int most = 0;
        for (const std::string& line : printer.log) {
            inFlight += line == "->OMLA_VORN_LOAD_LMC_DATA" ? 1 : line == "<-OMLA_VORN_LOAD_LMC_ACK" ? -1 : 0;
            most = std::max(most, inFlight);
        }
        return most;
    }

    std::vector<std::uint32_t> requests()
    {
        const auto locked = unit.lock();
        return unit.requests;
    }

    Unit unit;
    std::string written;
};

TEST_F(VornClientSoftware, WhenLoadedThenAllBytesGoInOrderAndTheWindowIsUsedAndKept)
{
    unit.acknowledgesEvery = 4;
    serveUnit();
    const Outcome outcome = run({"load", file("KDX 1_R1A.lmc", 39999), "--block", "1000", "--window", "4"});
    ASSERT_EQ(outcome.verdict, Verdict::ok) << outcome.message;
    const auto locked = unit.lock();
    EXPECT_EQ(unit.loadModule, "KDX 1_R1A");
    EXPECT_EQ(unit.blocks, 40U);
    EXPECT_TRUE(unit.isInOrder);
    EXPECT_TRUE(unit.content == written);
    EXPECT_EQ(mostInFlight(), 4);
    EXPECT_THAT(unit.requests, ElementsAre(initReq, endReq));
    EXPECT_EQ(printer.log.back(), "KDX 1_R1A loaded");
}

TEST_F(VornClientSoftware, WhenNumbersWrapThenTheLoadGoesOn)
{
    serveUnit();
    const Outcome outcome = run({"load", file("module", 65600), "--name", "N_R1A", "--block", "1", "--window", "32"});
    ASSERT_EQ(outcome.verdict, Verdict::ok) << outcome.message;
    const auto locked = unit.lock();
    EXPECT_EQ(unit.loadModule, "N_R1A");
    EXPECT_EQ(unit.blocks, 65600U);
    EXPECT_TRUE(unit.isInOrder);
    EXPECT_TRUE(unit.content == written);
    EXPECT_LE(mostInFlight(), 32);
}

TEST(BlockWindow, TakesEachNumberInFlightOnce)
{
    BlockWindow window(widestWindow);
    for (std::uint32_t block = 1; block <= 65534; ++block) {
        EXPECT_EQ(window.acknowledge(window.add(1)), 1U);
    }
    EXPECT_EQ(window.oldest(), 65535U);
    EXPECT_EQ(window.acknowledge(65535), 0U); // not sent yet
    EXPECT_EQ(window.add(10), 65535);
    EXPECT_EQ(window.add(20), 0);
    EXPECT_EQ(window.add(30), 1);
    EXPECT_EQ(window.acknowledge(0), 20U);
    EXPECT_EQ(window.acknowledge(0), 0U);
    EXPECT_EQ(window.acknowledge(65534), 0U); // long ago
    EXPECT_EQ(window.acknowledge(2), 0U);
    EXPECT_EQ(window.oldest(), 65535U);
    EXPECT_EQ(window.acknowledge(65535), 10U);
    EXPECT_EQ(window.oldest(), 65537U);
    EXPECT_EQ(window.acknowledge(1), 30U);
    EXPECT_TRUE(window.isEmpty());
}

TEST_F(VornClientSoftware, WhenABlockIsntAcknowledgedThenItIsNamedAndTheTicketIsReleased)
{
    options.answerTimeout = std::chrono::milliseconds(300);
    unit.forgets = 3;
    serveUnit();
    const Outcome outcome = run({"load", file("N_R1A", 1000), "--block", "10", "--window", "4"});
    EXPECT_EQ(outcome.verdict, Verdict::timedOut);
    EXPECT_THAT(outcome.message, HasSubstr("block 3 (lmSeqNr 3) wasn't acknowledged within 0.3 s; 50 of 1000 bytes"));
    EXPECT_THAT(outcome.message, HasSubstr("the ticket is released"));
    EXPECT_THAT(requests(), ElementsAre(initReq, releaseReq));
    const auto locked = unit.lock();
    EXPECT_EQ(unit.blocks, 6U); // the window goes no further than its width from the missing one
}

TEST_F(VornClientSoftware, WhenInterruptedThenTheLoadIsDropped)
{
    unit.onBlock = [](std::uint64_t block) {
        if (block == 5) {
            std::raise(SIGINT);
        }
    };
    serveUnit();
    const Outcome outcome = run({"load", file("N_R1A", 1000000), "--block", "10", "--window", "2"});
    EXPECT_EQ(outcome.verdict, Verdict::interrupted);
    EXPECT_THAT(outcome.message, HasSubstr("the ticket is released"));
    EXPECT_THAT(requests(), ElementsAre(initReq, releaseReq));
    EXPECT_FALSE(context().hub().hasInterruptFd());
    EXPECT_EQ(verdict({"expect-none", "within", "0"}), Verdict::ok); // no late acknowledgement is left
}

TEST_F(VornClientSoftware, WhenTheServerGoesAwayThenTheLoadEndsWithoutIt)
{
    serveConnected([this](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == OmlaVornLoadLmcDataS::number) {
            server.withdraw();
        } else {
            unit.serve(server, signal);
        }
    });
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    const Outcome outcome = run({"load", file("N_R1A", 100), "--window", "1"});
    EXPECT_EQ(outcome.verdict, Verdict::noServer);
    EXPECT_THAT(outcome.message, HasSubstr("0 of 100 bytes"));
    EXPECT_THAT(requests(), ElementsAre(initReq));
}

TEST_F(VornClientSoftware, WhenBrokenOffThenWhatWasSentIsAcknowledgedAndTheLoadStaysOpen)
{
    options.connectsByItself = true; // even where the ticket was acquired for it
    serveUnit();
    ASSERT_EQ(verdict({"load", file("N_R1A", 100), "--block", "20", "--break-off-after", "50"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "N_R1A broken off");
    EXPECT_EQ(std::count(printer.log.begin(), printer.log.end(), "<-OMLA_VORN_LOAD_LMC_ACK"), 3);
    EXPECT_THAT(requests(), ElementsAre(acquireReq, initReq));
    const auto locked = unit.lock();
    EXPECT_EQ(unit.content, written.substr(0, 50));
}

TEST_F(VornClientSoftware, WhenAlreadyLoadedThenSaysSoAndSendsNothing)
{
    serveUnit();
    const std::string module = file("N_R1A", 100);
    const auto loadWithAnswer = [&](std::string_view initResult) {
        {
            const auto locked = unit.lock();
            unit.initResult = initResult;
        }
        return verdict({"load", module});
    };
    EXPECT_EQ(loadWithAnswer("\0\1\0\0"sv), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "N_R1A already loaded");
    EXPECT_EQ(loadWithAnswer("\0\2\0\0"sv), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "N_R1A already loaded and running");
    EXPECT_EQ(loadWithAnswer("\0\3\0\0"sv), Verdict::failed);
    EXPECT_EQ(verdict({"load", module, "--expect", "loaded"}), Verdict::badUsage);
    EXPECT_THAT(requests(), ElementsAre(initReq, initReq, initReq));
}

TEST_F(VornClientSoftware, WhenTheUnitSaysThatTheLoadHasFailedThenSoDoesTheCommand)
{
    unit.endResult = "\0\1\0\0"sv;
    serveUnit();
    const Outcome outcome = run({"load", file("N_R1A", 100)});
    EXPECT_EQ(outcome.verdict, Verdict::failed);
    EXPECT_THAT(outcome.message, HasSubstr("says that the load has failed"));
    EXPECT_THAT(requests(), ElementsAre(initReq, endReq)); // it is over: nothing is to be dropped
}

TEST_F(VornClientSoftware, WhatCantBeLoadedIsToldBeforeAnythingIsSent)
{
    options.connectsByItself = true;
    const std::string module = file("N_R1A", 100);
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"load"},
             {"load", path("missing")},
             {"load", path("")},
             {"load", file("empty", 0)},
             {"load", file(std::string(36, 'N'), 100)},
             {"load", module, module},
             {"load", module, "--name", ""},
             {"load", module, "--name"},
             {"load", module, "--block", "0"},
             {"load", module, "--block", std::to_string(KIV_MAX_SIZE - 19)},
             {"load", module, "--block", "16777000", "--window", "3"},
             {"load", module, "--window", "0"},
             {"load", module, "--window", "32768"},
             {"load", module, "--fast", "1"},
             {"select", std::string(36, 'N')},
             {"select", ""},
             {"acquire", "65536"},
             {"software", "--everything"},
         }) {
        EXPECT_EQ(verdict(words), Verdict::badUsage) << testing::PrintToString(words);
    }
    EXPECT_THAT(printer.log, testing::IsEmpty());
}

TEST(LoadSizes, AreTheUnitsWhereTheyArentGivenAndKeepWhatIsInFlightWithinBounds)
{
    constexpr std::uint32_t byDefault = 16384;
    const auto sizes = [](std::optional<std::uint32_t> block, std::optional<std::uint16_t> window,
                          std::optional<std::int64_t> wanted) {
        LoadSettings settings;
        settings.blockSize = block;
        settings.window = window;
        const BlockSizes chosen = chooseSizes(settings, wanted);
        return std::pair(chosen.blockSize, unsigned{chosen.window});
    };
    EXPECT_EQ(sizes(1, {}, 65536), std::pair(1U, 16U));
    EXPECT_EQ(sizes(16777000, {}, {}), std::pair(16777000U, 1U));
    EXPECT_EQ(sizes({}, {}, {}), std::pair(byDefault, 16U));
    EXPECT_EQ(sizes({}, {}, 65536), std::pair(65536U, 4U));
    EXPECT_EQ(sizes({}, 9, 65536), std::pair(65536U, 9U));
    EXPECT_EQ(sizes({}, widestWindow, INT32_MAX), std::pair(1024U, 32767U));
    EXPECT_EQ(sizes({}, 1, INT32_MAX), std::pair(KIV_MAX_SIZE - 20, 1U));
    for (const std::int64_t nonsense : {0, -1, INT32_MIN}) {
        EXPECT_EQ(sizes({}, {}, nonsense), std::pair(byDefault, 16U)) << nonsense;
    }
}

TEST_F(VornClientSoftware, WhenTheUnitTellsABlockSizeThenBlocksHaveIt)
{
    unit.blockSize = 100;
    serveUnit();
    ASSERT_EQ(verdict({"load", file("N_R1A", 1001)}), Verdict::ok);
    ASSERT_EQ(verdict({"load", file("N_R1A", 1001), "--block", "1000"}), Verdict::ok);
    const auto locked = unit.lock();
    EXPECT_EQ(unit.blocks, 11U + 2U);
}

TEST_F(VornClientSoftware, WhenActingByItselfThenATicketIsHadForEachProcedureThatNeedsOne)
{
    options.isInteractive = true;
    unit.parts = {"list"};
    serveUnit();
    ASSERT_EQ(verdict({"load", file("N_R1A", 100)}), Verdict::ok);
    EXPECT_THAT(requests(), ElementsAre(acquireReq, initReq, endReq, releaseReq));
    ASSERT_EQ(verdict({"running"}), Verdict::ok);
    ASSERT_EQ(verdict({"acquire", "7"}), Verdict::ok); // one that is held is used, and kept
    ASSERT_EQ(verdict({"software"}), Verdict::ok);
    ASSERT_EQ(verdict({"select", "N_R1A"}), Verdict::ok);
    EXPECT_THAT(requests(), ElementsAre(acquireReq, initReq, endReq, releaseReq, OmlaVornGetRunningLmcReqS::number,
                                        acquireReq, listReq, selectReq));
    // It went with the connection.
    ASSERT_EQ(verdict({"disconnect"}), Verdict::ok);
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"select", "N_R1A"}), Verdict::ok);
    EXPECT_EQ(requests().size(), 11U);
    EXPECT_EQ(requests().back(), releaseReq);
    // A client of revision 1 leaves it to the server.
    ASSERT_EQ(verdict({"client", "old", "protocolRev=1"}), Verdict::ok);
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"select", "N_R1A"}), Verdict::ok);
    EXPECT_EQ(requests().size(), 12U);
}

TEST_F(VornClientSoftware, WhenATicketIsntGrantedInTimeThenTheRequestIsTakenBack)
{
    unit.silentTo = {acquireReq};
    serveUnit();
    const Outcome outcome = run({"acquire", "3", "within", "0.1"});
    EXPECT_EQ(outcome.verdict, Verdict::timedOut);
    EXPECT_THAT(outcome.message, HasSubstr("within 0.1 s"));
    EXPECT_THAT(outcome.message, HasSubstr("the request for resource 3 is taken back"));
    EXPECT_THAT(requests(), ElementsAre(acquireReq, releaseReq));
    ASSERT_EQ(verdict({"begin-acquire"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect-none", "within", "0"}), Verdict::ok);
    EXPECT_EQ(verdict({"release", "3"}), Verdict::ok);
}

TEST_F(VornClientSoftware, WhenAnotherResourceIsGrantedThenItIsntTheAnswer)
{
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) {
        server.reply(signal, acquireCfm, "\0\1\0\0"sv);
        server.reply(signal, acquireCfm, "\0\2\0\0"sv);
    });
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"acquire", "2"}), Verdict::ok);
    EXPECT_THAT(context().client().heldResources(), ElementsAre(1, 2));
    EXPECT_EQ(verdict({"expect", "ACQUIRE_RESOURCE_CFM", "resource=1"}), Verdict::ok);
}

TEST_F(VornClientSoftware, WhenTheListComesInPartsThenItIsJoined)
{
    unit.parts = {"<LmcList>\n", "<ProdNbr>N</ProdNbr>\n", "", "</LmcList>\n"};
    serveUnit();
    ASSERT_EQ(verdict({"software", "with", "<ProdNbr>N<"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "list <LmcList>\n<ProdNbr>N</ProdNbr>\n</LmcList>\n");
    stopServing();
    EXPECT_THAT(unit.aborts, ElementsAre(0, 0, 0, 0));
}

TEST_F(VornClientSoftware, WhenAListIsAbortedOrItsPartsLieThenNoMoreIsTakenThanHasCome)
{
    unit.parts = {"first", "second"};
    unit.partsPromiseMore = 1000;
    serveUnit();
    ASSERT_EQ(verdict({"software", "--abort"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "list first");
    EXPECT_THAT(run({"software", "with", "N"}).message, HasSubstr("the list has no \"N\""));
    EXPECT_EQ(printer.log.back(), "list second");
    stopServing();
    EXPECT_THAT(unit.aborts, ElementsAre(1, 0));
}

TEST_F(VornClientSoftware, WhenAPartOfTheListIsMissingThenTheListIsNot)
{
    options.answerTimeout = std::chrono::milliseconds(200);
    serveUnit();
    const Outcome outcome = run({"software"});
    EXPECT_EQ(outcome.verdict, Verdict::timedOut);
    EXPECT_THAT(outcome.message, HasSubstr("OMLA_VORN_SW_COMP_LIST_DATA"));
}

TEST_F(VornClientSoftware, WhenAskedForTheRunningModuleThenItIsHeldAgainstTheExpectedOne)
{
    serveUnit();
    EXPECT_EQ(verdict({"running", "KDX 1_R1A"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "running KDX 1_R1A");
    EXPECT_EQ(verdict({"running", "KDX 1_R1B"}), Verdict::failed);
}

TEST_F(VornClientSoftware, SessionFilesTakeValuesFromTheEnvironment)
{
    ::setenv("VORN_TEST_VALUE", "two words", 1);
    ::unsetenv("VORN_TEST_UNSET");
    const CommandTable table = allCommands();
    std::istringstream lines("ulmo a${VORN_TEST_VALUE}b${VORN_TEST_VALUE} $HOME '$' {}");
    const auto steps = readSession(lines, "s", table);
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_THAT(steps[0].words, ElementsAre("ulmo", "atwo wordsbtwo words", "$HOME", "$", "{}"));
    for (const char* bad : {"ulmo x\nulmo ${VORN_TEST_UNSET}", "ulmo x\nulmo ${VORN_TEST_VALUE", "ulmo x\nulmo ${}"}) {
        std::istringstream badLines(bad);
        try {
            readSession(badLines, "s", table);
            FAIL() << bad;
        } catch (const BadUsage& error) {
            EXPECT_THAT(error.what(), testing::StartsWith("s:2: ")) << bad;
        }
    }
}

TEST_F(VornClientSoftware, FileNamesAndOptionsAreCompleted)
{
    file("N_R1A", 1);
    std::filesystem::create_directory(path("inner"));
    const CommandTable table = allCommands();
    const auto complete = [&](const std::vector<std::string>& words) { return table.complete(words); };
    EXPECT_THAT(complete({"load", path("N")}), ElementsAre(path("N_R1A")));
    EXPECT_THAT(complete({"play", path("")}), testing::IsSupersetOf({path("N_R1A"), path("inner/")}));
    std::ofstream(path("inner/file")) << "x";
    EXPECT_THAT(complete({"load", path("in")}), ElementsAre(path("inner/file")));
    EXPECT_THAT(complete({"load", path("missing/")}), testing::IsEmpty());
    EXPECT_THAT(complete({"load", "x", "--"}), testing::IsSupersetOf({"--window", "--break-off-after"}));
    EXPECT_THAT(complete({"load", "x", "--name", path("N")}), testing::IsEmpty());
}

TEST(LoadSummary, IsPrintedWithRateAndRemainingTime)
{
    EXPECT_EQ(printLoadProgress("N\x1B", 2500000, 10000000, std::chrono::seconds(10)),
              "N\\x1b [#####...............]  25 %  2.5 of 10.0 MB  0.2 MB/s  0:30 left");
    EXPECT_THAT(printLoadProgress("N", 0, 10, {}), HasSubstr("-:-- left"));
    EXPECT_THAT(printLoadProgress("N", 20, 10, std::chrono::seconds(1)), HasSubstr("100 %"));
    EXPECT_THAT(printLoadProgress("N", 1, 100001, std::chrono::seconds(1)), HasSubstr("27:46:40 left"));
    const LoadSummary summary{"N_R1A", LoadResult::loaded, 8000000, 10, std::chrono::seconds(4)};
    EXPECT_EQ(printLoadSummary(summary), "N_R1A: loaded, 8000000 bytes in 4.00 s, 2.00 MB/s");
    EXPECT_EQ(printLoadSummary({"N_R1A", LoadResult::alreadyLoaded, 0, 0, {}}), "N_R1A: already loaded");
}

} // namespace
