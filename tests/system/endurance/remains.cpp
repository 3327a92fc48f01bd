#include "remains.h"

#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "vorni/hwLog.h"
#include "vorni/maintenanceState.h"
#include "vorni/productIdentity.h"
#include "vorni/software.h"
#include "vorni/visualIndication.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace Endurance {

namespace {

constexpr std::uint32_t noRequest = 0; ///< the number in the transaction of an order of a visual indication

using tolme::dunl::MsgNo::ConnectivityConnectedReq;

/// Notes of one kind that a component keeps besides.
struct Note {
    const char* part; ///< of the counts
    const char* kind; ///< in that part
    const char* what;
    Bounds (*bounds)(const Evidence&);
    const char* reason;
};

/// Transactions of one request number, or records of the software manager's side.
struct Row {
    const char* part; ///< of the counts
    const char* kind; ///< in that part
    std::uint32_t number;
    const char* what;
    Bounds (*bounds)(const Evidence&);
    const char* reason;
};

constexpr const char* unansweredReason = "the server that was to answer was killed first; nothing removes the request";

/// A request that is removed by its answer, whoever is left to be told.
template <ProcedureId Id, BackEnd Server>
Bounds untilAnswered(const Evidence& evidence)
{
    return {0, evidence.lost(Id, only(Server))};
}

/// One whose answer removes it only while its client is there.
template <ProcedureId Id, BackEnd Server>
Bounds untilAnsweredToClient(const Evidence& evidence)
{
    return {0, evidence.lost(Id, only(Server)) + evidence.cutShort(Id)};
}

/// Those of a connection, which the server makes by itself.
template <BackEnd Server>
Bounds ofConnections(const Evidence& evidence)
{
    return {0, evidence.lost(connect, only(Server)) + evidence.count(Entry::reconnected, connect, only(Server))};
}

Bounds ofMmiUsers(const Evidence& evidence)
{
    return {0, ofConnections<fesk>(evidence).most + evidence.outages.count(fesk)};
}

/// A client that has gone, and whoever never was one, leave it.
Bounds ofHwLogReads(const Evidence& evidence)
{
    return {0, untilAnsweredToClient<readHwLog, dunl>(evidence).most + evidence.ledger.strayReads};
}

Bounds ofMeasurements(const Evidence& evidence)
{
    return {0, untilAnsweredToClient<measureTemperature, dunl>(evidence).most +
                   evidence.count(Entry::measuring, measureTemperature, only(dunl))};
}

template <ProcedureId Id>
Bounds ofSubscriptions(const Evidence& evidence)
{
    return {0, untilAnsweredToClient<Id, fesk>(evidence).most + evidence.of(Id).again};
}

/// It stays unless it was refused.
template <ProcedureId Id>
Bounds ofOpticalIndicator(const Evidence& evidence)
{
    return {evidence.of(Id).confirmed, evidence.of(Id).sent - evidence.of(Id).rejected};
}

constexpr const char* opticalReason = "no confirm of the optical indicator's procedures removes its request";
constexpr const char* subscriptionReason =
    "a session knows one subscription, and with the session goes that one; a second stays";

namespace Dunl = tolme::dunl::MsgNo;
namespace Fesk = tolme::fesk::MsgNo;

constexpr Row rows[] = {
    {"dunl", "transactions", Dunl::RegisterUtcTimeSourceReq, "time source registrations", ofConnections<dunl>,
     unansweredReason},
    {"dunl", "transactions", Dunl::SetUtcTimeReq, "UTC times", untilAnswered<setUtcTime, dunl>, unansweredReason},
    {"dunl", "transactions", OmlaVornGetHwPidReqS::number, "hardware PIDs", untilAnswered<getHwPid, dunl>,
     unansweredReason},
    {"dunl", "transactions", OmlaVornGetContainerPidReqS::number, "container PIDs",
     untilAnswered<getContainerPid, dunl>, unansweredReason},
    {"dunl", "transactions", OmlaVornGetMarketNamePidReqS::number, "PIDs with market name",
     untilAnswered<getMarketNamePid, dunl>, unansweredReason},
    {"dunl", "transactions", OmlaVornGetExtendedMarketNameReqS::number, "extended market names",
     untilAnswered<getExtendedMarketName, dunl>, unansweredReason},
    {"dunl", "transactions", OmlaVornHwLogSetReqS::number, "log writes", untilAnswered<writeHwLog, dunl>,
     unansweredReason},
    {"dunl", "transactions", OmlaVornHwLogGetReqS::number, "log reads", ofHwLogReads,
     "a read whose mailbox has no session, any more or ever, is kept"},
    {"dunl", "transactions", Dunl::TempMeasStartReq, "temperature measurements", ofMeasurements,
     "lost between start and confirm, or stopped at a server that doesn't know it any more"},
    {"dunl", "transactions", Dunl::SubscribeRestartBoardNotificationReq, "restart subscriptions",
     untilAnswered<subscribeRestarts, dunl>, unansweredReason},
    {"dunl", "transactions", Dunl::GetRestartHistoryReq, "event histories", untilAnswered<getRestartHistory, dunl>,
     unansweredReason},
    {"dunl", "transactions", Dunl::ConnectivitySetSupervisionTimeoutReq, "supervision time-outs",
     untilAnsweredToClient<notifyRestart, dunl>, "an answer that finds no session keeps it, as does a failed sending"},
    {"fesk", "transactions", Fesk::RegisterMmiUserReq, "MMI users", ofMmiUsers, unansweredReason},
    {"fesk", "transactions", noRequest, "visual indications", untilAnswered<setVisualIndication, fesk>,
     unansweredReason},
    {"fesk", "transactions", OmlaVornGetVisualIndicationReqS::number, "reads of the indications",
     untilAnswered<getVisualIndication, fesk>, unansweredReason},
    {"fesk", "transactions", OmlaVornGetSpecialIndicatorReqS::number, "reads of the special indicator",
     untilAnswered<getSpecialIndicator, fesk>, unansweredReason},
    {"fesk", "transactions", OmlaVornSetMaintStateReqS::number, "maintenance states",
     untilAnswered<setMaintState, fesk>, unansweredReason},
    {"fesk", "transactions", OmlaVornSubscribeMaintStateReqS::number, "maintenance state subscriptions",
     ofSubscriptions<subscribeMaintState>, subscriptionReason},
    {"fesk", "transactions", Fesk::SubscribeHereIAmStateReq, "Here-I-Am subscriptions",
     ofSubscriptions<subscribeHereIAm>, subscriptionReason},
    {"fesk", "transactions", Fesk::OpticalIndicatorControlSubscribeStatusChangeReq, "optical indicator subscriptions",
     ofOpticalIndicator<subscribeOpticalIndicator>, opticalReason},
    {"fesk", "transactions", Fesk::OpticalIndicatorControlActivateReq, "optical indicator activations",
     ofOpticalIndicator<activateOpticalIndicator>, opticalReason},
    {"fesk", "transactions", Fesk::OpticalIndicatorControlActivateWithDurationReq, "the same for a time",
     ofOpticalIndicator<activateOpticalIndicatorFor>, opticalReason},
    {"fesk", "transactions", Fesk::OpticalIndicatorControlDeactivateReq, "optical indicator deactivations",
     ofOpticalIndicator<deactivateOpticalIndicator>, opticalReason},
    {"ganti", "records", OmlaVornGetRunningLmcReqS::number, "questions for the running software",
     [](const Evidence& evidence) -> Bounds {
         return {0, evidence.lost(getRunningLmc, only(ganti) | only(dunl))};
     },
     "the software manager or the DUNL server was killed before it answered"},
    {"ganti", "records", OmlaVornLoadLmcDataS::number, "blocks", untilAnswered<loadBlock, ganti>, unansweredReason},
    {"ganti", "records", OmlaVornLoadLmcEndReqS::number, "ends of loads", untilAnswered<endLoad, ganti>,
     unansweredReason},
    {"ganti", "records", OmlaVornSelectLmcReqS::number, "selections", untilAnswered<selectLmc, ganti>,
     unansweredReason},
    {"ganti", "records", OmlaVornReleaseResourceReqS::number, "releases", untilAnswered<releaseResource, ganti>,
     unansweredReason},
};

Bounds ofOrders(const Evidence& evidence)
{
    return {0, evidence.of(orderRestart).sent + evidence.of(orderRestartWithRank).sent};
}

/// A client is noted before it is asked for, and stays when it goes; only a refusal takes it off.
Bounds ofRestartSubscribers(const Evidence& evidence)
{
    return {0, evidence.of(subscribeRestarts).sent};
}

Bounds ofPendingHistories(const Evidence& evidence)
{
    return {0, untilAnsweredToClient<getRestartHistory, dunl>(evidence).most};
}

Bounds nothing(const Evidence&)
{
    return {};
}

constexpr Note notes[] = {
    {"restarts", "ordered", "restarts ordered", ofOrders, "who ordered is told so for the life of the process"},
    {"restarts", "subscribers", "restart subscribers", ofRestartSubscribers, "a client that has gone stays one"},
    {"restarts", "pendingHistories", "event histories asked for", ofPendingHistories,
     "the answer didn't come, found no session, or the request couldn't be sent"},
    {"restarts", "pending", "restart notifications asked for", nothing, ""},
    {"restarts", "granted", "restart notifications granted", nothing, ""},
};

std::string textOf(std::uint32_t number)
{
    return fmt::format("{:#x}", number);
}

/// What has no row may not be there.
void addUnknown(std::vector<Remaining>& remains, const Json& counts, const char* part, const char* kind)
{
    for (const auto& entry : counts[part][kind].items()) {
        const bool hasRow = std::any_of(std::begin(rows), std::end(rows), [&](const Row& row) {
            return std::string_view(part) == row.part && entry.key() == textOf(row.number);
        });
        if (!hasRow) {
            remains.push_back({fmt::format("{}: requests {}", part, entry.key()), entry.value(), {0, 0}, {}});
        }
    }
}

} // namespace

std::uint64_t Evidence::count(Entry::Kind kind, ProcedureId id, BackEnds overlapping) const
{
    constexpr std::int64_t onTheWay = second; // what an answer may take where its client doesn't wait
    const auto* end = ledger.entries.begin() + ledger.entriesKept();
    return static_cast<std::uint64_t>(std::count_if(ledger.entries.begin(), end, [&](const Entry& entry) {
        return entry.kind == kind && entry.procedure == id &&
               (overlapping == 0 || outages.overlap(overlapping, entry.from, entry.to + onTheWay));
    }));
}

std::uint64_t Evidence::lost(ProcedureId id, BackEnds backEnds) const
{
    return count(Entry::unanswered, id, backEnds) + count(Entry::clientKilled, id, backEnds);
}

std::uint64_t Evidence::cutShort(ProcedureId id) const
{
    return count(Entry::clientKilled, id, 0);
}

std::vector<Remaining> remainsOf(const Json& counts, const Evidence& evidence)
{
    std::vector<Remaining> remains;
    for (const Row& row : rows) {
        const std::uint64_t found = counts[row.part][row.kind].value(textOf(row.number), 0U);
        remains.push_back({fmt::format("{}: {}", row.part, row.what), found, row.bounds(evidence), row.reason});
    }
    for (const Note& note : notes) {
        remains.push_back({fmt::format("{}: {}", note.part, note.what), counts[note.part][note.kind],
                           note.bounds(evidence), note.reason});
    }
    addUnknown(remains, counts, "dunl", "transactions");
    addUnknown(remains, counts, "fesk", "transactions");
    addUnknown(remains, counts, "ganti", "records");
    return remains;
}

std::vector<Remaining> deepSleepRemainsOf(const Json& counts, const Evidence& evidence)
{
    const Json& connections = counts["yarrowi"];
    return {{"yarrowi: connections without a session",
             connections["withoutSession"],
             {0, evidence.ledger.reconnects + evidence.lost(connect, ~0U) + evidence.cutShort(connect)},
             "a client's second connection isn't closed with its session, and one isn't that wasn't confirmed yet"},
            {"yarrowi: connections of the start and of commands",
             connections["startUp"].get<std::uint64_t>() + connections["debug"].get<std::uint64_t>(),
             {0, 0},
             {}}};
}

double memoryOfRemains(const Json& counts)
{
    constexpr double transaction = 64; // a node of a map
    constexpr double capability = 80;  // a record, and its place in the list
    constexpr double record = 144;
    constexpr double note = 16; // in a list that doubles
    double bytes = 0;
    for (const char* part : {"dunl", "fesk"}) {
        for (const auto& [number, count] : counts[part]["transactions"].items()) {
            bytes += transaction * count.get<double>();
        }
        bytes += capability * counts[part]["capabilities"].get<double>();
    }
    for (const auto& [number, count] : counts["ganti"]["records"].items()) {
        bytes += record * count.get<double>();
    }
    return bytes +
           note * (counts["restarts"]["ordered"].get<double>() + counts["restarts"]["subscribers"].get<double>());
}

} // namespace Endurance
