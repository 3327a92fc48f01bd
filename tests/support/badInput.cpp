#include "badInput.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "ganti/numbers.h"
#include "ostinel/commandClient.h"
#include "ostinel/kivTicket.h"
#include "rhune/rhuneSignals.h"
#include "step.h"
#include "vorni/connection.h"
#include "vorni/faults.h"
#include "vorni/hereIAm.h"
#include "vorni/maintenanceState.h"
#include "vorni/opticalIndicator.h"
#include "vorni/restart.h"
#include "vorni/signalTable.h"
#include "vorni/temperature.h"
#include "yarrowi/numbers.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>
#include <sstream>

using namespace tolme;

namespace TestUnit {

namespace {

constexpr std::size_t extra = 8;          // bytes beyond a record
constexpr std::size_t longestBehind = 48; // of a signal that has no fixed end
constexpr std::size_t longestBody = 40;
constexpr std::size_t sizesInFull = 200; // a longer signal goes wrong around its fields

/// All sizes from a bare number on, of a long signal those around its fields.
BadNumber signalSizes(const Vorni::SignalInfo& signal)
{
    const std::size_t most = signal.size + (signal.openEnded ? longestBehind : 0) + extra;
    std::set<std::size_t> sizes;
    const auto addRange = [&sizes, most](std::size_t first, std::size_t last) {
        for (std::size_t size = std::max(first, sizeof(std::uint32_t)); size <= std::min(last, most); ++size) {
            sizes.insert(size);
        }
    };
    addRange(0, sizesInFull);
    for (const Vorni::FieldInfo& field : signal.fields) {
        addRange(field.offset - 2U, field.offset + 2U);
        addRange(field.offset + field.size - 2U, field.offset + field.size + 2U);
    }
    addRange(signal.size - extra, most);
    return {signal.number, {sizes.begin(), sizes.end()}};
}

BadNumber sizesUpTo(std::uint32_t number, std::size_t most)
{
    std::vector<std::size_t> sizes;
    for (std::size_t size = sizeof(number); size <= most; ++size) {
        sizes.push_back(size);
    }
    return {number, std::move(sizes)};
}

std::string randomWord(std::mt19937& random)
{
    constexpr std::array words{"all",       "ready",    "sessions",   "fm",         "list",       "fault", "subscriber",
                               "-h",        "--help",   "read",       "save",       "clear",      "0",     "-1",
                               "deepsleep", "activate", "deactivate", "disconnect", "4294967296", "/"};
    constexpr std::size_t longest = 3000;
    if (random() % 4 != 0) {
        return words[random() % words.size()];
    }
    std::string word(1 + random() % (random() % 8 == 0 ? longest : 12), ' ');
    std::generate(word.begin(), word.end(), [&random] { return static_cast<char>(1 + random() % 255); });
    return word;
}

} // namespace

std::vector<BadNumber> everyNumber()
{
    std::vector<BadNumber> all;
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        all.push_back(signalSizes(signal));
    }
    const auto add = [&all](const auto& messages) {
        for (const MessageNumber& message : messages) {
            all.push_back(sizesUpTo(message.number, sizeof(BoardMessageHeader) + longestBody + extra));
        }
    };
    add(dunl::messages);
    add(fesk::messages);
    add(yarrowi::messages);
    add(gant::messages);
    for (const std::uint32_t number : {0U, 0x1658777U, 0x7FFFFFFFU, RhuneVornServerKivMonitorIndS::number,
                                       Ostinel::locatorMessage, Ostinel::monitorMessage, 0xFFFFFFFFU}) {
        all.push_back(sizesUpTo(number, 24 + extra));
    }
    std::stable_partition(all.begin(), all.end(),
                          [](const BadNumber& bad) { return bad.number != OmlaVornConnEstablishRejS::number; });
    return all;
}

std::vector<std::byte> randomMessage(std::mt19937& random, std::uint32_t number, std::size_t size)
{
    const unsigned lowest = random() % 4 == 0 ? 1 : 0;
    std::vector<std::byte> bytes(size);
    std::generate(bytes.begin(), bytes.end(),
                  [&] { return static_cast<std::byte>(lowest + random() % (256 - lowest)); });
    std::memcpy(bytes.data(), &number, std::min(size, sizeof(number)));
    return bytes;
}

std::vector<std::string> randomCommand(std::mt19937& random)
{
    constexpr std::array commands{"vornsrv",    "pid_manipulation", "fdf_manipulation",
                                  "sysconread", "deepsleep",        "wakeup"};
    std::vector<std::string> line{commands[random() % commands.size()]};
    for (auto count = random() % 5; count > 0; --count) {
        line.push_back(randomWord(random));
    }
    return line;
}

void runRandomCommands(std::mt19937& random, unsigned count)
{
    using namespace Ostinel::CommandClient;
    for (; count > 0; --count) {
        const auto line = randomCommand(random);
        std::ostringstream output;
        const auto result = run(line, output, {std::chrono::steady_clock::now() + deadline, -1});
        if (result.error && *result.error != RunError::notFound) {
            throw StepFailed(fmt::format("no answer to the command {}", fmt::join(line, " ")));
        }
    }
}

void supportEverything(Unit& unit)
{
    for (int i = dunl::Capability_MIN; i <= dunl::Capability_MAX; ++i) {
        unit.dunlCapabilities.push_back(i);
    }
    unit.restartRanks = 0x1F;
}

void openSubscriptions(Unit& unit, const Client& client)
{
    const SignalCoverage::Pause pause; // nobody looks at the answers
    client.send<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>();
    client.send<OmlaVornSubscribeMaintStateReqS>();
    client.send<OmlaVornSubscribeHereIAmStateReqS>();
    client.send<OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS>();
    client.send<OmlaVornSubscribeRestartNotificationReqS>();
    client.send<OmlaVornTempMeasStartReqS>([](auto& request) { request.hotSpotMeasurementPeriod = 5; });
    unit.settle();
    answerBoard(unit, unit.dunl);
    answerBoard(unit, unit.fesk);
}

void answerBoard(const Unit& unit, BoardServer& server)
{
    using namespace dunl::MsgNo;
    using namespace fesk::MsgNo;
    const std::array needed{RegisterUtcTimeSourceReq,
                            ConnectivityConnectedReq,
                            RegisterMmiUserReq,
                            SubscribeMaintStateReq,
                            SubscribeHereIAmStateReq,
                            OpticalIndicatorControlSubscribeStatusChangeReq,
                            SubscribeRestartBoardNotificationReq,
                            TempMeasStartReq,
                            yarrowi::MsgNo::ConnectionEstablishReq};
    while (const auto request = server.take()) {
        const auto* header = viewSignal<BoardMessageHeader>(request->get());
        if (header == nullptr || std::find(needed.begin(), needed.end(), request->number()) == needed.end()) {
            continue;
        }
        struct {
            BoardMessageHeader header;
            std::array<std::uint8_t, 2> body; // field 1 is 1
        } const cfm{{request->number() + 1, header->procedureRef, server.clientRef}, {0x08, 0x01}};
        server.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&cfm, 1)));
    }
}

} // namespace TestUnit
